// libFuzzer target: TTOTTable::parse (TOT and TDT).
#include <memory>

#include "FuzzTables.h"
#include "TTOTTable.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<unsigned char> in = OstrelFuzz::section(data, size);
  std::unique_ptr<Ostrel::TTOTTable> tot(Ostrel::TTOTTable::parse(
      in.data(), static_cast<unsigned int>(in.size()), 1, 1, nullptr, nullptr));
  if (!tot)
    return 0;
  int offset = 0;
  OstrelFuzz::g_sink += tot->getUtcSeconds() +
                        tot->getLocalTimeOffset(0x425241, 1, tot->getUtcSeconds(), &offset) +
                        offset;
  OstrelFuzz::touch(tot->getDescriptors());
  return 0;
}
