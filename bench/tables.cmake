# The table library: parse time per section and CRC throughput, side by side
# with libdvbpsi decoding the same bytes when libdvbpsi is installed.
ostrel_add_bench(tables_bench tables_bench.cpp)
target_include_directories(tables_bench PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/../tests/data/tables)
find_path(OSTREL_DVBPSI_INCLUDE_DIR dvbpsi/dvbpsi.h)
find_library(OSTREL_DVBPSI_LIBRARY dvbpsi)
if(OSTREL_DVBPSI_INCLUDE_DIR AND OSTREL_DVBPSI_LIBRARY)
  target_compile_definitions(tables_bench PRIVATE OSTREL_BENCH_DVBPSI=1)
  target_include_directories(tables_bench PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/../tests
                                                  ${OSTREL_DVBPSI_INCLUDE_DIR})
  target_link_libraries(tables_bench PRIVATE ${OSTREL_DVBPSI_LIBRARY})
else()
  message(STATUS "libdvbpsi not found: tables_bench measures the table library alone")
endif()
