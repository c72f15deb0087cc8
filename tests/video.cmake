# The video size commands and the tuner list.
ostrel_add_test(core_video_test core_video_test.cpp)
ostrel_add_test(core_tuners_test core_tuners_test.cpp)
