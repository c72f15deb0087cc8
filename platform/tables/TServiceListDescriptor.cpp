#include "TServiceListDescriptor.h"

#include <memory>

#include "TSectionReader.h"

namespace Ostrel {

const unsigned char TServiceListDescriptor::kTag;

TServiceListDescriptor::TServiceListDescriptor(const unsigned char* data, unsigned int length)
    : TDescriptor(kTag, data, length) {}

TServiceListDescriptor* TServiceListDescriptor::decode(const unsigned char* data,
                                                       unsigned int length) {
  if (length % 3 != 0)
    return 0;
  std::unique_ptr<TServiceListDescriptor> d(new TServiceListDescriptor(data, length));
  TSectionReader r(data, length);
  d->m_vecEntries.reserve(length / 3);
  while (!r.atEnd()) {
    Entry e;
    e.serviceId = r.u16();
    e.serviceType = r.u8();
    d->m_vecEntries.push_back(e);
  }
  return d.release();
}

bool TServiceListDescriptor::isDecoded() const {
  return true;
}

}  // namespace Ostrel
