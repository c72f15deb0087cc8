# The receiver simulator: demultiplexing throughput and a whole scan.
if(TARGET OstrelSim)
  ostrel_add_bench(sim_bench sim_bench.cpp)
  target_link_libraries(sim_bench PRIVATE OstrelScan)
endif()

# bench/run's figure of a real-time scan against the stream's carriage bound.
if(TARGET OstrelSim)
  add_executable(sim_scan_report sim_scan_report.cpp)
  target_link_libraries(sim_scan_report PRIVATE OstrelScan OstrelLogger)
  ostrel_tool_settings(sim_scan_report)
endif()

# bench/run's figure of the simulator's delivery against a bare demultiplexer.
if(TARGET OstrelSim)
  add_executable(sim_delivery_report sim_delivery_report.cpp)
  target_link_libraries(sim_delivery_report PRIVATE OstrelSim OstrelLogger)
  ostrel_tool_settings(sim_delivery_report)
endif()
