#include "SectionMatch.h"

#include "TableCatalog.h"

namespace Ostrel {

bool SectionMatch::isExtensionCompared(short tableId) {
  return TableKind::isExtensionCompared(tableId);
}

namespace {

// The MPEG-2 CRC_32 a byte at a time. The engine's own: a receiver's table
// library offers none in its published surface.
struct CrcTable {
  CrcTable() {
    for (unsigned int byte = 0; byte < 256; ++byte) {
      unsigned int crc = byte << 24;
      for (int bit = 0; bit < 8; ++bit) {
        crc = (crc & 0x80000000u) ? (crc << 1) ^ 0x04C11DB7u : crc << 1;
      }
      entries[byte] = crc;
    }
  }
  unsigned int entries[256];
};

const CrcTable s_crcTable;

}  // namespace

unsigned int SectionMatch::crc(const unsigned char* data, unsigned int size) {
  unsigned int crc = 0xFFFFFFFFu;
  for (unsigned int i = 0; i < size; ++i) {
    crc = (crc << 8) ^ s_crcTable.entries[((crc >> 24) ^ data[i]) & 0xFF];
  }
  return crc;
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
