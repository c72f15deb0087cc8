#include "TLocalTimeOffsetDescriptor.h"

#include <new>

#include "TMjdTime.h"
#include "TSectionReader.h"

namespace Ostrel {

const unsigned char TLocalTimeOffsetDescriptor::kTag;

namespace {
const unsigned int kEntrySize = 13;
}

TLocalTimeOffsetDescriptor::TLocalTimeOffsetDescriptor(const unsigned char* data,
                                                       unsigned int length)
    : TDescriptor(kTag, data, length) {}

TLocalTimeOffsetDescriptor* TLocalTimeOffsetDescriptor::decode(const unsigned char* data,
                                                               unsigned int length, TArena* arena) {
  if (length % kEntrySize != 0)
    return 0;
  std::vector<Entry> entries;
  entries.reserve(length / kEntrySize);
  TSectionReader r(data, length);
  while (!r.atEnd()) {
    Entry e;
    e.countryCode = r.u24();
    unsigned char regionAndPolarity = r.u8();
    e.countryRegionId = regionAndPolarity >> 2;
    bool negative = (regionAndPolarity & 0x01) != 0;
    const unsigned char* offset = r.bytes(2);
    const unsigned char* change = r.bytes(5);
    const unsigned char* next = r.bytes(2);
    if (!r.ok())
      return 0;
    if (!TMjdTime::decodeHhmm(offset, &e.localTimeOffset) ||
        !TMjdTime::decodeDateTime(change, &e.timeOfChange) ||
        !TMjdTime::decodeHhmm(next, &e.nextTimeOffset)) {
      return 0;
    }
    if (negative) {
      e.localTimeOffset = -e.localTimeOffset;
      e.nextTimeOffset = -e.nextTimeOffset;
    }
    entries.push_back(e);
  }
  TLocalTimeOffsetDescriptor* d = new (arena->allocate(sizeof(TLocalTimeOffsetDescriptor)))
      TLocalTimeOffsetDescriptor(data, length);
  d->m_vecEntries.swap(entries);
  return d;
}

bool TLocalTimeOffsetDescriptor::isDecoded() const {
  return true;
}

}  // namespace Ostrel
