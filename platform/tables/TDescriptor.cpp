#include "TDescriptor.h"

namespace Ostrel {

TDescriptor::~TDescriptor() {}

bool TDescriptor::isDecoded() const {
  return false;
}

}  // namespace Ostrel
