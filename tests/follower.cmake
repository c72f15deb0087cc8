# Tests of the request follower and its monitor thread.
ostrel_add_test(follower_item_test follower_item_test.cpp)
ostrel_add_test(follower_registry_test follower_registry_test.cpp)
ostrel_add_test(follower_monitor_test follower_monitor_test.cpp)
# Replaces gettimeofday for the whole program, to control the follower's clock.
ostrel_add_test(follower_clock_test follower_clock_test.cpp)
ostrel_add_test(follower_alloc_test follower_alloc_test.cpp)
# The tree is internal to the library: the test builds its own copy.
ostrel_add_test(follower_tree_test follower_tree_test.cpp ${PROJECT_SOURCE_DIR}/follower/ItemTree.cpp)
target_include_directories(follower_tree_test PRIVATE ${PROJECT_SOURCE_DIR}/follower)
