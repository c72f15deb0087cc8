# The follower's tests; the program defines gettimeofday and operator new itself.
ostrel_add_test(follower_test follower_test.cpp)
