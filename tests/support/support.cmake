# The test-support library: a recording server, log capture, counted tables
# and user data, sections made with the toolkit's builders (OstrelTs).
# Tests, benchmarks, tools and examples include this file; the first one
# defines the target.
find_package(Threads REQUIRED)
if(NOT TARGET ostrel_test_support)
  add_library(ostrel_test_support STATIC ${CMAKE_CURRENT_LIST_DIR}/RecordingServer.cpp)
  target_include_directories(ostrel_test_support PUBLIC ${CMAKE_CURRENT_LIST_DIR})
  target_link_libraries(ostrel_test_support PUBLIC OstrelGingaCommonCore OstrelLogger OstrelTs
                                                   Threads::Threads)
  ostrel_tool_settings(ostrel_test_support)
endif()
