# Sources of the table library (OstrelISDBTUtils).
set(OSTREL_TABLE_SOURCES
  ${CMAKE_CURRENT_LIST_DIR}/TISDBTTable.cpp)
