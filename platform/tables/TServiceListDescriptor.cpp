#include "TServiceListDescriptor.h"

#include <new>

#include "TSectionReader.h"

namespace Ostrel {

const unsigned char TServiceListDescriptor::kTag;

TServiceListDescriptor::TServiceListDescriptor(const unsigned char* data, unsigned int length)
    : TDescriptor(kTag, data, length) {}

TServiceListDescriptor* TServiceListDescriptor::decode(const unsigned char* data,
                                                       unsigned int length, TArena* arena) {
  if (length % 3 != 0)
    return 0;
  std::vector<Entry> entries;
  entries.reserve(length / 3);
  TSectionReader r(data, length);
  while (!r.atEnd()) {
    Entry e;
    e.serviceId = r.u16();
    e.serviceType = r.u8();
    entries.push_back(e);
  }
  TServiceListDescriptor* d =
      new (arena->allocate(sizeof(TServiceListDescriptor))) TServiceListDescriptor(data, length);
  d->m_vecEntries.swap(entries);
  return d;
}

bool TServiceListDescriptor::isDecoded() const {
  return true;
}

}  // namespace Ostrel
