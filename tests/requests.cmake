# The core: its command dispatch and synchronous operations, its table
# requests and the injected data that answers them.
ostrel_add_test(core_test core_test.cpp)
