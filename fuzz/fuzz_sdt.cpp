// libFuzzer target: TSDTTable::parse.
#include <memory>

#include "FuzzTables.h"
#include "TSDTTable.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<unsigned char> in = OstrelFuzz::section(data, size);
  std::unique_ptr<Ostrel::TSDTTable> sdt(Ostrel::TSDTTable::parse(
      in.data(), static_cast<unsigned int>(in.size()), 1, 1, nullptr, nullptr));
  if (!sdt)
    return 0;
  OstrelFuzz::g_sink += sdt->getOriginalNetworkId();
  for (unsigned int i = 0; i < sdt->getServiceCount(); ++i) {
    const Ostrel::TSDTTable::Service& s = sdt->getService(i);
    OstrelFuzz::g_sink += s.getServiceId() + s.getRunningStatus() + s.getServiceType();
    OstrelFuzz::touch(s.getServiceName());
    OstrelFuzz::touch(s.getProviderName());
    OstrelFuzz::touch(s.getDescriptors());
  }
  return 0;
}
