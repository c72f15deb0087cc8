# The channel files of ostrel-scan, read back by libdvbv5 (libdvbv5-dev); skipped
# (77) where it is missing: scripts/deps installs it with the test group.
if(TARGET OstrelScan)
  find_path(OSTREL_DVBV5_INCLUDE libdvbv5/dvb-file.h)
  find_library(OSTREL_DVBV5_LIBRARY dvbv5)
  if(OSTREL_DVBV5_INCLUDE AND OSTREL_DVBV5_LIBRARY)
    ostrel_add_test(scan_channels_test scan_channels_test.cpp)
    target_include_directories(scan_channels_test PRIVATE ${OSTREL_DVBV5_INCLUDE})
    target_link_libraries(scan_channels_test PRIVATE OstrelScan ${OSTREL_DVBV5_LIBRARY})
  else()
    add_test(NAME scan_channels_test COMMAND sh -c "echo 'libdvbv5 missing (libdvbv5-dev)'; exit 77")
    set_tests_properties(scan_channels_test PROPERTIES SKIP_RETURN_CODE 77)
  endif()
endif()

# The emulated adapter read by dvb-apps' scan and dvbdate, and dvbv5-zap
# recording from the channel file of a scan of it (root, a mount namespace:
# dvb_needs.sh says what is missing; skipped, 77, without dvbv5-zap).
if(TARGET ostrel-scan AND TARGET ostrel-dvb-emu AND TARGET OstrelDvbServer)
  add_test(NAME dvb_clients_check
           COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/dvb_needs.sh
                   ${CMAKE_CURRENT_SOURCE_DIR}/dvb_clients_check.sh $<TARGET_FILE:ostrel-dvb-emu>
                   $<TARGET_FILE:ostrel-scan> $<TARGET_FILE:ostrel-mksample>)
  set_tests_properties(dvb_clients_check PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 120)
endif()
