# Hostile input and calls at awkward moments: each case that once broke, or
# could break, the library's promises.
ostrel_add_test(robustness_injection_test robustness_injection_test.cpp)
ostrel_add_test(robustness_teardown_test robustness_teardown_test.cpp)
