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
