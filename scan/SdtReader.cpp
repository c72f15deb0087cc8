#include "ScanTables.h"
#include "TSDTTable.h"

namespace Ostrel {

// The SDT: section by section, each service's type, name and provider.
bool ScanTables::readSdt(const TSDTTable& table) {
  bool fresh = false, reset = false;
  const bool again = m_gatherSdt.file(table, &fresh, &reset);
  if (reset) {
    m_mapSdtSections.clear();
  }
  if (!fresh) {
    return again;
  }
  m_result.hasSdt = true;
  m_result.originalNetworkId = table.getOriginalNetworkId();
  m_result.sdtVersion = table.getVersionNumber();
  m_usSdtTsId = table.getTransportStreamId();
  std::vector<SdtEntry>& entries = m_mapSdtSections[table.getSectionNumber()];
  for (unsigned int i = 0; i < table.getServiceCount(); ++i) {
    const TSDTTable::Service& service = table.getService(i);
    SdtEntry entry = {service.getServiceId(), service.getServiceType(), service.getServiceName(),
                      service.getProviderName()};
    entries.push_back(entry);
  }
  return again;
}

}  // namespace Ostrel
