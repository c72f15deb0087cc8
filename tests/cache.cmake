# The per-tuner table cache, and the tables the core lends from it.
ostrel_add_test(cache_test cache_test.cpp)
