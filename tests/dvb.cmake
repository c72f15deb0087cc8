# The DVB server on emulated adapters: root, /dev/fuse, a private mount namespace (never skipped).
if(TARGET OstrelDvbServer AND TARGET OstrelSim AND TARGET ostrel-dvb-emu)
  add_executable(dvb_server_test dvb_server_test.cpp)
  target_link_libraries(dvb_server_test PRIVATE OstrelDvbServer OstrelSim GTest::gtest_main)
  target_include_directories(dvb_server_test PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/support)
  target_compile_definitions(dvb_server_test PRIVATE OSTREL_DVB_EMU="$<TARGET_FILE:ostrel-dvb-emu>"
                                                    OSTREL_TEST_WORK="${CMAKE_CURRENT_BINARY_DIR}")
  ostrel_tool_settings(dvb_server_test)
  add_dependencies(dvb_server_test ostrel-dvb-emu)
  # dvb_needs.sh says what is missing (root, /dev/fuse, a mount namespace) before unshare fails.
  add_test(NAME dvb_server_test COMMAND ${CMAKE_CURRENT_SOURCE_DIR}/dvb_needs.sh
                                        unshare -m $<TARGET_FILE:dvb_server_test>)
  set_tests_properties(dvb_server_test PROPERTIES TIMEOUT 120)
endif()
