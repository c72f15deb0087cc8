#include "TStreamIdentifierDescriptor.h"

#include <new>

namespace Ostrel {

const unsigned char TStreamIdentifierDescriptor::kTag;

TStreamIdentifierDescriptor::TStreamIdentifierDescriptor(const unsigned char* data,
                                                         unsigned int length)
    : TDescriptor(kTag, data, length), m_ucComponentTag(data[0]) {}

TStreamIdentifierDescriptor* TStreamIdentifierDescriptor::decode(const unsigned char* data,
                                                                 unsigned int length,
                                                                 TArena* arena) {
  if (length < 1)
    return 0;
  return new (arena->allocate(sizeof(TStreamIdentifierDescriptor)))
      TStreamIdentifierDescriptor(data, length);
}

bool TStreamIdentifierDescriptor::isDecoded() const {
  return true;
}

}  // namespace Ostrel
