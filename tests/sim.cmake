# Tests of the receiver simulator.
if(TARGET OstrelSim)
  foreach(test sim_demux_test sim_simulator_test sim_source_test)
    ostrel_add_test(${test} ${test}.cpp)
    target_link_libraries(${test} PRIVATE OstrelSim)
  endforeach()
  ostrel_add_test(sim_scan_test sim_scan_test.cpp)
  target_link_libraries(sim_scan_test PRIVATE OstrelScan)
endif()

# Scans of FFmpeg's and GStreamer's streams against FFprobe (skipped, exit 77,
# when the tools are missing; scripts/deps installs them). Native builds only:
# the script runs the scan program itself.
find_program(OSTREL_PYTHON3 python3)
if(TARGET ostrel-scan AND OSTREL_PYTHON3 AND NOT CMAKE_CROSSCOMPILING)
  add_test(NAME sim_muxers_test
           COMMAND ${OSTREL_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/sim_muxers_test.py
                   $<TARGET_FILE:ostrel-scan> ${CMAKE_CURRENT_BINARY_DIR}/sim_muxers)
  set_tests_properties(sim_muxers_test PROPERTIES SKIP_RETURN_CODE 77 TIMEOUT 120)
  # ostrel-scan's command line: options, usage errors, failed inputs and
  # outputs, interrupts (one table of cases).
  add_test(NAME scan_cli_test
           COMMAND ${OSTREL_PYTHON3} ${CMAKE_CURRENT_SOURCE_DIR}/scan_cli_test.py
                   $<TARGET_FILE:ostrel-scan> ${OSTREL_SAMPLE_STREAM})
  set_tests_properties(scan_cli_test PROPERTIES TIMEOUT 120)
endif()
