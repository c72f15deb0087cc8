#ifndef OSTREL_BENCH_REPORT_HEAP_H
#define OSTREL_BENCH_REPORT_HEAP_H

// Heap kept per outstanding request: the growth of the C library's heap
// (mallinfo2: block headers and rounding included, what the process pays)
// over many requests recorded with RequestFollower::add, divided by their
// number, beside the size of the item itself. Shared by the report and by
// the probe that bench/run cross-builds for a 32-bit target.
#include <malloc.h>
#include <sys/time.h>
#include <unistd.h>

#include "RequestFollower.h"

namespace OstrelReport {

struct HeapFigure {
  double dHeapPerRequest;
  unsigned int uiItemSize;
  unsigned int uiPointerBits;
};

inline long heapInUse() {
  struct mallinfo2 info = mallinfo2();
  return static_cast<long>(info.uordblks);
}

// Requests for PMTs (each on its own PID, so that the keys differ) with a
// time-out long enough that none expires while measuring.
inline HeapFigure measureHeapPerRequest(int requests = 4096) {
  using Ostrel::RequestFollower;
  const timeval timeOut = {600, 0};
  // The instance and its monitor thread come first, and the monitor's first
  // pass too (its first allocations): a request due at once is gone once get
  // no longer finds it.
  const timeval atOnce = {0, 0};
  RequestFollower::add(1, 0, 0x0100, 0x02, 1, nullptr, nullptr, atOnce, 1);
  for (int i = 0; i < 5000 && RequestFollower::get(1); ++i)
    usleep(1000);
  RequestFollower::add(1, 0, 0x0100, 0x02, 1, nullptr, nullptr, timeOut, 1);
  const long before = heapInUse();
  int added = 0;
  for (int i = 0; i < requests; ++i) {
    added += RequestFollower::add(static_cast<unsigned int>(100 + i), 0,
                                  static_cast<short>(0x0101 + i % 0x1E00), 0x02,
                                  static_cast<short>(i), nullptr, nullptr, timeOut, 1);
  }
  const long after = heapInUse();
  RequestFollower::destroy();
  HeapFigure figure;
  figure.dHeapPerRequest = added ? double(after - before) / added : 0.0;
  figure.uiItemSize = sizeof(RequestFollower::RequestFollowerItem);
  figure.uiPointerBits = sizeof(void*) * 8;
  return figure;
}

}  // namespace OstrelReport

#endif  // OSTREL_BENCH_REPORT_HEAP_H
