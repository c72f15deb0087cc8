#include "TTOTTable.h"

#include <memory>

#include "TLocalTimeOffsetDescriptor.h"
#include "TMjdTime.h"
#include "TSectionFrame.h"

namespace Ostrel {

const unsigned char TTOTTable::kTableIdTot;
const unsigned char TTOTTable::kTableIdTdt;

TTOTTable::TTOTTable()
    : TISDBTTable(kTypeTot), m_ucTableId(0), m_usMjd(0), m_uiBcdTime(0), m_llUtcSeconds(0) {}

TTOTTable::~TTOTTable() {}

TTOTTable* TTOTTable::parse(unsigned char* data, unsigned int size, int, int, unsigned short*,
                            TTOTTable*) {
  if (data == 0 || size == 0 || (data[0] != kTableIdTot && data[0] != kTableIdTdt))
    return 0;
  std::unique_ptr<TTOTTable> table(new TTOTTable());
  if (!table->parseBody(data, size))
    return 0;
  return table.release();
}

bool TTOTTable::parseBody(const unsigned char* data, unsigned int size) {
  m_ucTableId = data[0];
  bool tot = m_ucTableId == kTableIdTot;
  TSectionReader checked;
  if (!TSectionFrame::open(data, size, false, tot, TSectionFrame::kMaxPsiSectionSize, &checked)) {
    return false;
  }
  // Descriptors point into the table's own copy, which lives as long as it.
  m_arena.setFirstBlock(size * 4 + 256);
  TSectionReader body = TSectionFrame::body(m_arena.copy(data, size), size, tot);
  const unsigned char* time = body.bytes(5);
  if (!body.ok() || !TMjdTime::decodeDateTime(time, &m_llUtcSeconds))
    return false;
  m_usMjd = static_cast<unsigned short>((time[0] << 8) | time[1]);
  m_uiBcdTime = (static_cast<unsigned int>(time[2]) << 16) | (time[3] << 8) | time[4];
  if (tot) {
    if (!m_lstDescriptors.parse(body.sub12(), &m_arena))
      return false;
  }
  // Nothing may follow: the descriptor loop (TOT) or the time (TDT) ends the body.
  return body.ok() && body.atEnd();
}

bool TTOTTable::getLocalTimeOffset(unsigned int countryCode, unsigned char region, long long when,
                                   int* offsetSeconds) const {
  for (unsigned int i = 0; i < m_lstDescriptors.size(); ++i) {
    const TDescriptor* d = m_lstDescriptors.at(i);
    if (d->getTag() != TLocalTimeOffsetDescriptor::kTag || !d->isDecoded())
      continue;
    const TLocalTimeOffsetDescriptor* lto = static_cast<const TLocalTimeOffsetDescriptor*>(d);
    for (unsigned int k = 0; k < lto->getEntryCount(); ++k) {
      const TLocalTimeOffsetDescriptor::Entry& e = lto->getEntry(k);
      if (e.countryCode != countryCode || e.countryRegionId != region)
        continue;
      if (offsetSeconds)
        *offsetSeconds = when < e.timeOfChange ? e.localTimeOffset : e.nextTimeOffset;
      return true;
    }
  }
  return false;
}

}  // namespace Ostrel
