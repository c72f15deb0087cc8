#include "ScanTables.h"
#include "TLocalTimeOffsetDescriptor.h"
#include "TTOTTable.h"

namespace Ostrel {

namespace {
const unsigned int kCountryBra = ('B' << 16) | ('R' << 8) | 'A';
}  // namespace

// The TOT: the time, and the local time offset in force at that time.
void ScanTables::readTot(const TTOTTable& table) {
  m_result.hasTot = true;
  m_result.utcSeconds = table.getUtcSeconds();
  // The first Brazilian entry names the region; the table picks the offset in
  // force at its time from that entry's time of change.
  const TLocalTimeOffsetDescriptor* offsets =
      table.getDescriptors().findDecoded<TLocalTimeOffsetDescriptor>();
  for (unsigned int i = 0; offsets && i < offsets->getEntryCount(); ++i) {
    const TLocalTimeOffsetDescriptor::Entry& entry = offsets->getEntry(i);
    if (entry.countryCode == kCountryBra) {
      m_result.hasLocalOffset = table.getLocalTimeOffset(
          kCountryBra, entry.countryRegionId, m_result.utcSeconds, &m_result.localOffsetSeconds);
      break;
    }
  }
}

}  // namespace Ostrel
