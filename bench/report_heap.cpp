// Prints the heap kept per outstanding request and the item's own size as
// "key value" lines. bench/run cross-builds it for a 32-bit target and runs it
// under qemu-user; natively it is built so that it cannot rot.
#include <cstdio>

#include "OstrelLogger.h"
#include "report_heap.h"

namespace {
void quiet(int, const char*, const char*, void*) {}
}  // namespace

int main() {
  ostrel_log_set_sink(&quiet, nullptr);
  OstrelReport::HeapFigure figure = OstrelReport::measureHeapPerRequest();
  std::printf("heap_per_request %.1f\n", figure.dHeapPerRequest);
  std::printf("item_size %u\n", figure.uiItemSize);
  std::printf("pointer_bits %u\n", figure.uiPointerBits);
  return 0;
}
