# Table requests and data injection through the core.
ostrel_add_bench(requests_bench requests_bench.cpp)
target_include_directories(requests_bench PRIVATE ${PROJECT_SOURCE_DIR}/tests/support)
