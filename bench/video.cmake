# The video size commands and the tuner list.
ostrel_add_bench(video_bench video_bench.cpp)
