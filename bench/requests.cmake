# Table requests and data injection through the core.
ostrel_add_bench(requests_bench requests_bench.cpp)
