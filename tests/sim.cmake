# Tests of the receiver simulator.
if(TARGET OstrelSim)
  ostrel_add_test(sim_demux_test sim_demux_test.cpp)
  target_link_libraries(sim_demux_test PRIVATE OstrelSim)
  ostrel_add_test(sim_simulator_test sim_simulator_test.cpp)
  target_link_libraries(sim_simulator_test PRIVATE OstrelSim)
  ostrel_add_test(sim_scan_test sim_scan_test.cpp)
  target_link_libraries(sim_scan_test PRIVATE OstrelSim)
endif()
