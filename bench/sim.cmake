# The receiver simulator: demultiplexing throughput and a whole scan.
if(TARGET OstrelSim)
  ostrel_add_bench(sim_bench sim_bench.cpp)
  target_link_libraries(sim_bench PRIVATE OstrelSim)
endif()
