# Tests of the table library (OstrelISDBTUtils), with the differential test
# against libdvbpsi where libdvbpsi is installed (not in cross builds).
ostrel_add_test(tables_test tables_test.cpp)
target_include_directories(tables_test PRIVATE ${CMAKE_CURRENT_SOURCE_DIR}/data/tables)
find_path(OSTREL_DVBPSI_INCLUDE_DIR dvbpsi/dvbpsi.h)
find_library(OSTREL_DVBPSI_LIBRARY dvbpsi)
if(OSTREL_DVBPSI_INCLUDE_DIR AND OSTREL_DVBPSI_LIBRARY)
  target_compile_definitions(tables_test PRIVATE OSTREL_TESTS_DVBPSI=1)
  target_include_directories(tables_test PRIVATE ${OSTREL_DVBPSI_INCLUDE_DIR})
  target_link_libraries(tables_test PRIVATE ${OSTREL_DVBPSI_LIBRARY})
else()
  message(STATUS "libdvbpsi not found: the table library's differential test is skipped")
endif()
