#include "TPartialReceptionDescriptor.h"

#include <new>

#include "TSectionReader.h"

namespace Ostrel {

const unsigned char TPartialReceptionDescriptor::kTag;

TPartialReceptionDescriptor::TPartialReceptionDescriptor(const unsigned char* data,
                                                         unsigned int length)
    : TDescriptor(kTag, data, length) {}

TPartialReceptionDescriptor* TPartialReceptionDescriptor::decode(const unsigned char* data,
                                                                 unsigned int length,
                                                                 TArena* arena) {
  if (length % 2 != 0)
    return 0;
  std::vector<unsigned short> ids;
  ids.reserve(length / 2);
  TSectionReader r(data, length);
  while (!r.atEnd())
    ids.push_back(r.u16());
  TPartialReceptionDescriptor* d = new (arena->allocate(sizeof(TPartialReceptionDescriptor)))
      TPartialReceptionDescriptor(data, length);
  d->m_vecServiceIds.swap(ids);
  return d;
}

bool TPartialReceptionDescriptor::isDecoded() const {
  return true;
}

}  // namespace Ostrel
