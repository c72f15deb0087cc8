#include "TStreamIdentifierDescriptor.h"

namespace Ostrel {

const unsigned char TStreamIdentifierDescriptor::kTag;

TStreamIdentifierDescriptor::TStreamIdentifierDescriptor(const unsigned char* data,
                                                         unsigned int length)
    : TDescriptor(kTag, data, length), m_ucComponentTag(data[0]) {}

TStreamIdentifierDescriptor* TStreamIdentifierDescriptor::decode(const unsigned char* data,
                                                                 unsigned int length) {
  if (length < 1)
    return 0;
  return new TStreamIdentifierDescriptor(data, length);
}

bool TStreamIdentifierDescriptor::isDecoded() const {
  return true;
}

}  // namespace Ostrel
