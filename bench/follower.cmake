# Request follower: add and remove at growing numbers of outstanding requests,
# and how late the monitor thread reports a time-out.
ostrel_add_bench(follower_bench follower_bench.cpp)
