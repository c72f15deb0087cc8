#include "SectionMatch.h"

#include "TCrc32.h"
#include "TableCatalog.h"

namespace Ostrel {

bool SectionMatch::isExtensionCompared(short tableId) {
  return TableKind::isExtensionCompared(tableId);
}

unsigned int SectionMatch::crc(const unsigned char* data, unsigned int size) {
  return TCrc32::compute(data, size);
}

bool SectionMatch::matches(short tableId, short tableIdExt, const unsigned char* section,
                           unsigned int size) {
  if (size < 3 || section[0] != static_cast<unsigned short>(tableId)) {
    return false;
  }
  if (!isExtensionCompared(tableId) || (section[1] & 0x80) == 0) {
    return true;
  }
  return size >= 5 && ((section[3] << 8) | section[4]) == static_cast<unsigned short>(tableIdExt);
}

}  // namespace Ostrel
