// libFuzzer target: TPMTTable::parse.
#include <memory>

#include "FuzzTables.h"
#include "TPMTTable.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<unsigned char> in = OstrelFuzz::section(data, size);
  std::unique_ptr<Ostrel::TPMTTable> pmt(Ostrel::TPMTTable::parse(
      in.data(), static_cast<unsigned int>(in.size()), 1, 1, nullptr, nullptr));
  if (!pmt)
    return 0;
  OstrelFuzz::g_sink += pmt->getPcrPid() + pmt->getProgramNumber();
  OstrelFuzz::touch(pmt->getDescriptors());
  for (unsigned int i = 0; i < pmt->getStreamCount(); ++i) {
    const Ostrel::TPMTTable::Stream& s = pmt->getStream(i);
    unsigned char tag = 0;
    OstrelFuzz::g_sink += s.getPid() + s.getStreamType() + s.getComponentTag(&tag) + tag;
    OstrelFuzz::touch(s.getDescriptors());
  }
  return 0;
}
