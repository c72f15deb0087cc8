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
