#include "TNetworkNameDescriptor.h"

#include <new>

#include "TTextCodec.h"

namespace Ostrel {

const unsigned char TNetworkNameDescriptor::kTag;

TNetworkNameDescriptor::TNetworkNameDescriptor(const unsigned char* data, unsigned int length)
    : TDescriptor(kTag, data, length), m_strName(TTextCodec::decode(data, length)) {}

TNetworkNameDescriptor* TNetworkNameDescriptor::decode(const unsigned char* data,
                                                       unsigned int length, TArena* arena) {
  return new (arena->allocate(sizeof(TNetworkNameDescriptor))) TNetworkNameDescriptor(data, length);
}

bool TNetworkNameDescriptor::isDecoded() const {
  return true;
}

}  // namespace Ostrel
