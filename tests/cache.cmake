# The per-tuner table cache.
ostrel_add_test(cache_test cache_test.cpp)
ostrel_add_test(cache_item_test cache_item_test.cpp)
ostrel_add_test(cache_lending_test cache_lending_test.cpp)
ostrel_add_test(cache_concurrency_test cache_concurrency_test.cpp)
