# The performance report (bench/run): each figure beside a reference measured
# in the same run, as one table of ratios.
ostrel_add_bench(report_bench report_bench.cpp)
if(TARGET OstrelSim)
  target_compile_definitions(report_bench PRIVATE OSTREL_REPORT_SIM=1)
  target_link_libraries(report_bench PRIVATE OstrelSim)
endif()
find_path(OSTREL_DVBPSI_INCLUDE_DIR dvbpsi/dvbpsi.h)
find_library(OSTREL_DVBPSI_LIBRARY dvbpsi)
if(OSTREL_DVBPSI_INCLUDE_DIR AND OSTREL_DVBPSI_LIBRARY)
  target_compile_definitions(report_bench PRIVATE OSTREL_BENCH_DVBPSI=1)
  target_include_directories(report_bench PRIVATE ${PROJECT_SOURCE_DIR}/tests
                                                  ${OSTREL_DVBPSI_INCLUDE_DIR})
  target_link_libraries(report_bench PRIVATE ${OSTREL_DVBPSI_LIBRARY})
else()
  message(STATUS "libdvbpsi not found: the report has no reference for the injection")
endif()
# The heap probe, cross-built by bench/run for a 32-bit target; built here so
# that it cannot rot.
ostrel_add_bench(report_heap report_heap.cpp)
