# Table requests, data injection and the whole road through the core.
ostrel_add_test(core_requests_test core_requests_test.cpp)
ostrel_add_test(core_injection_test core_injection_test.cpp)
ostrel_add_test(core_end_to_end_test core_end_to_end_test.cpp)
ostrel_add_test(core_stress_test core_stress_test.cpp)
