# Tests of the request follower and its monitor thread.
ostrel_add_test(follower_item_test follower_item_test.cpp)
ostrel_add_test(follower_registry_test follower_registry_test.cpp)
ostrel_add_test(follower_monitor_test follower_monitor_test.cpp)
# Replaces gettimeofday for the whole program, to control the follower's clock.
ostrel_add_test(follower_clock_test follower_clock_test.cpp)
ostrel_add_test(follower_alloc_test follower_alloc_test.cpp)
