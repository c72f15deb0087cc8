#include "TPartialReceptionDescriptor.h"

#include <memory>

#include "TSectionReader.h"

namespace Ostrel {

const unsigned char TPartialReceptionDescriptor::kTag;

TPartialReceptionDescriptor::TPartialReceptionDescriptor(const unsigned char* data,
                                                         unsigned int length)
    : TDescriptor(kTag, data, length) {}

TPartialReceptionDescriptor* TPartialReceptionDescriptor::decode(const unsigned char* data,
                                                                 unsigned int length) {
  if (length % 2 != 0)
    return 0;
  std::unique_ptr<TPartialReceptionDescriptor> d(new TPartialReceptionDescriptor(data, length));
  TSectionReader r(data, length);
  d->m_vecServiceIds.reserve(length / 2);
  while (!r.atEnd())
    d->m_vecServiceIds.push_back(r.u16());
  return d.release();
}

bool TPartialReceptionDescriptor::isDecoded() const {
  return true;
}

}  // namespace Ostrel
