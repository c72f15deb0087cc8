# The request follower and its monitor thread, through the public operations.
# The program defines gettimeofday and operator new, to control the clock and
# make allocations fail.
ostrel_add_test(follower_test follower_test.cpp)
