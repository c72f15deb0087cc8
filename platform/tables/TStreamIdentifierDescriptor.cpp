#include "TStreamIdentifierDescriptor.h"

namespace Ostrel {

const unsigned char TStreamIdentifierDescriptor::kTag;

bool TStreamIdentifierDescriptor::isDecoded() const {
  return true;
}

}  // namespace Ostrel
