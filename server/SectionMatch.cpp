#include "SectionMatch.h"

#include "TableCatalog.h"

namespace Ostrel {

bool SectionMatch::isExtensionCompared(short tableId) {
  return TableKind::isExtensionCompared(tableId);
}

namespace {

// The MPEG-2 CRC_32, eight bytes at a time (slicing by 8): entries[0] is
// the byte-at-a-time table, entries[k] advances a byte's remainder through k
// more zero bytes. The engine's own: a receiver's table library offers none
// in its published surface.
struct CrcTable {
  CrcTable() {
    for (unsigned int byte = 0; byte < 256; ++byte) {
      unsigned int crc = byte << 24;
      for (int bit = 0; bit < 8; ++bit) {
        crc = (crc & 0x80000000u) ? (crc << 1) ^ 0x04C11DB7u : crc << 1;
      }
      entries[0][byte] = crc;
    }
    for (unsigned int byte = 0; byte < 256; ++byte) {
      for (int k = 1; k < 8; ++k) {
        const unsigned int previous = entries[k - 1][byte];
        entries[k][byte] = (previous << 8) ^ entries[0][previous >> 24];
      }
    }
  }
  unsigned int entries[8][256];
};

const CrcTable s_crcTable;

}  // namespace

unsigned int SectionMatch::crc(const unsigned char* data, unsigned int size) {
  const unsigned int(*t)[256] = s_crcTable.entries;
  unsigned int crc = 0xFFFFFFFFu;
  unsigned int i = 0;
  for (; i + 8 <= size; i += 8) {
    const unsigned char* p = data + i;
    crc ^= (static_cast<unsigned int>(p[0]) << 24) | (static_cast<unsigned int>(p[1]) << 16) |
           (static_cast<unsigned int>(p[2]) << 8) | p[3];
    crc = t[7][crc >> 24] ^ t[6][(crc >> 16) & 0xFF] ^ t[5][(crc >> 8) & 0xFF] ^ t[4][crc & 0xFF] ^
          t[3][p[4]] ^ t[2][p[5]] ^ t[1][p[6]] ^ t[0][p[7]];
  }
  for (; i < size; ++i) {
    crc = (crc << 8) ^ t[0][((crc >> 24) ^ data[i]) & 0xFF];
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
