#include "ScanTables.h"
#include "TNITTable.h"
#include "TPartialReceptionDescriptor.h"
#include "TTSInformationDescriptor.h"
#include "TTerrestrialDeliverySystemDescriptor.h"

namespace Ostrel {

// The NIT: the network, and section by section every transport stream's
// name, remote-control key, delivery system and one-seg services.
bool ScanTables::readNit(const TNITTable& table) {
  bool fresh = false, reset = false;
  const bool again = m_gatherNit.file(table, &fresh, &reset);
  if (reset) {
    m_mapNitSections.clear();
  }
  if (!fresh) {
    return again;
  }
  m_result.hasNit = true;
  m_result.networkId = table.getNetworkId();
  m_result.nitVersion = table.getVersionNumber();
  if (m_result.networkName.empty() || table.getSectionNumber() == 0) {
    m_result.networkName = table.getNetworkName();
  }
  std::vector<NitEntry>& entries = m_mapNitSections[table.getSectionNumber()];
  for (unsigned int i = 0; i < table.getTransportStreamCount(); ++i) {
    const TNITTable::TransportStream& ts = table.getTransportStream(i);
    NitEntry entry;
    entry.tsId = ts.getTransportStreamId();
    entry.originalNetworkId = ts.getOriginalNetworkId();
    const TDescriptorList& loop = ts.getDescriptors();
    if (const TTSInformationDescriptor* info = loop.findDecoded<TTSInformationDescriptor>()) {
      entry.tsName = info->getTsName();
      entry.remoteControlKeyId = info->getRemoteControlKeyId();
    }
    if (const TTerrestrialDeliverySystemDescriptor* delivery =
            loop.findDecoded<TTerrestrialDeliverySystemDescriptor>()) {
      for (unsigned int k = 0; k < delivery->getFrequencies().size(); ++k) {
        entry.frequenciesHz.push_back(delivery->getFrequencyHz(k));
      }
      entry.transmissionMode = delivery->getTransmissionMode() + 1;
      entry.guardInterval = delivery->getGuardInterval();
    }
    if (const TPartialReceptionDescriptor* partial =
            loop.findDecoded<TPartialReceptionDescriptor>()) {
      entry.partialReception = partial->getServiceIds();
    }
    entries.push_back(entry);
  }
  return again;
}

}  // namespace Ostrel
