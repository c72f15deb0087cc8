# Tests of the table library (OstrelISDBTUtils).
set(OSTREL_TABLES_TEST_DATA ${CMAKE_CURRENT_SOURCE_DIR}/data/tables)

ostrel_add_test(tables_golden_test tables_golden_test.cpp)
target_include_directories(tables_golden_test PRIVATE ${OSTREL_TABLES_TEST_DATA})
ostrel_add_test(tables_boundary_test tables_boundary_test.cpp)
target_include_directories(tables_boundary_test PRIVATE ${OSTREL_TABLES_TEST_DATA})
ostrel_add_test(tables_roundtrip_test tables_roundtrip_test.cpp)
target_include_directories(tables_roundtrip_test PRIVATE ${OSTREL_TABLES_TEST_DATA})
ostrel_add_test(tables_threads_test tables_threads_test.cpp)
target_include_directories(tables_threads_test PRIVATE ${OSTREL_TABLES_TEST_DATA})

# The differential test against libdvbpsi, only where libdvbpsi is installed
# (not in cross builds, for instance).
find_path(OSTREL_DVBPSI_INCLUDE_DIR dvbpsi/dvbpsi.h)
find_library(OSTREL_DVBPSI_LIBRARY dvbpsi)
if(OSTREL_DVBPSI_INCLUDE_DIR AND OSTREL_DVBPSI_LIBRARY)
  ostrel_add_test(tables_dvbpsi_test tables_dvbpsi_test.cpp)
  target_include_directories(tables_dvbpsi_test PRIVATE ${OSTREL_TABLES_TEST_DATA}
                                                        ${OSTREL_DVBPSI_INCLUDE_DIR})
  target_link_libraries(tables_dvbpsi_test PRIVATE ${OSTREL_DVBPSI_LIBRARY})
else()
  message(STATUS "libdvbpsi not found: the table library's differential test is skipped")
endif()
