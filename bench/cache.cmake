# The per-tuner table cache.
ostrel_add_bench(cache_bench cache_bench.cpp)
