#include "SectionCrc.h"

namespace Ostrel {

namespace {

struct CrcTable {
  uint32_t entries[256];
  CrcTable() {
    for (uint32_t i = 0; i < 256; ++i) {
      uint32_t c = i << 24;
      for (int bit = 0; bit < 8; ++bit) {
        c = (c & 0x80000000u) ? (c << 1) ^ 0x04C11DB7u : c << 1;
      }
      entries[i] = c;
    }
  }
};

const CrcTable s_table;

}  // namespace

uint32_t SectionCrc::compute(const unsigned char* data, unsigned int size) {
  uint32_t crc = 0xFFFFFFFFu;
  for (unsigned int i = 0; i < size; ++i) {
    crc = (crc << 8) ^ s_table.entries[((crc >> 24) ^ data[i]) & 0xFF];
  }
  return crc;
}

}  // namespace Ostrel
