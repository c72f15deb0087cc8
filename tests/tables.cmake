# Tests of the table library (OstrelISDBTUtils).
set(OSTREL_TABLES_TEST_DATA ${CMAKE_CURRENT_SOURCE_DIR}/data/tables)

ostrel_add_test(tables_golden_test tables_golden_test.cpp)
target_include_directories(tables_golden_test PRIVATE ${OSTREL_TABLES_TEST_DATA})
ostrel_add_test(tables_boundary_test tables_boundary_test.cpp)
target_include_directories(tables_boundary_test PRIVATE ${OSTREL_TABLES_TEST_DATA})
ostrel_add_test(tables_roundtrip_test tables_roundtrip_test.cpp)
target_include_directories(tables_roundtrip_test PRIVATE ${OSTREL_TABLES_TEST_DATA})
