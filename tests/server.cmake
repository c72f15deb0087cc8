# One table of cases over every source of the server engine: the simulator,
# and the DVB source on an emulated adapter where that is built (root,
# /dev/fuse, a private mount namespace).
if(TARGET OstrelSim)
  ostrel_add_test(server_sources_test server_sources_test.cpp)
  target_link_libraries(server_sources_test PRIVATE OstrelSim)
  target_compile_definitions(server_sources_test PRIVATE
                             OSTREL_TEST_WORK="${CMAKE_CURRENT_BINARY_DIR}")
  if(TARGET OstrelDvbServer AND TARGET ostrel-dvb-emu)
    target_link_libraries(server_sources_test PRIVATE OstrelDvbServer)
    target_compile_definitions(server_sources_test PRIVATE
                               OSTREL_DVB_EMU="$<TARGET_FILE:ostrel-dvb-emu>")
    add_dependencies(server_sources_test ostrel-dvb-emu)
  endif()
endif()
