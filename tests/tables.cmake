# Tests of the table library (OstrelISDBTUtils). The differential test against
# libdvbpsi is built only where libdvbpsi is installed (not in cross builds).
set(OSTREL_TABLES_TEST_DATA ${CMAKE_CURRENT_SOURCE_DIR}/data/tables)
ostrel_add_test(tables_test tables_test.cpp tables_boundary_test.cpp)
target_include_directories(tables_test PRIVATE ${OSTREL_TABLES_TEST_DATA})

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
