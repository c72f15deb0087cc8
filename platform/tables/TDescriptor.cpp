#include "TDescriptor.h"

namespace Ostrel {

TDescriptor::TDescriptor(unsigned char tag, const unsigned char* data, unsigned int length)
    : m_ucTag(tag), m_vecData(data, data + length) {}

TDescriptor::~TDescriptor() {}

bool TDescriptor::isDecoded() const {
  return false;
}

}  // namespace Ostrel
