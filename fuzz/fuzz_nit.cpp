// libFuzzer target: TNITTable::parse.
#include <memory>

#include "FuzzTables.h"
#include "TNITTable.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<unsigned char> in = OstrelFuzz::section(data, size);
  std::unique_ptr<Ostrel::TNITTable> nit(Ostrel::TNITTable::parse(
      in.data(), static_cast<unsigned int>(in.size()), 1, 1, nullptr, nullptr));
  if (!nit)
    return 0;
  OstrelFuzz::touch(nit->getNetworkName());
  OstrelFuzz::touch(nit->getDescriptors());
  for (unsigned int i = 0; i < nit->getTransportStreamCount(); ++i) {
    const Ostrel::TNITTable::TransportStream& ts = nit->getTransportStream(i);
    OstrelFuzz::g_sink += ts.getTransportStreamId() + ts.getOriginalNetworkId();
    OstrelFuzz::touch(ts.getDescriptors());
  }
  return 0;
}
