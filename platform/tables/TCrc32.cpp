#include "TCrc32.h"

namespace Ostrel {

namespace {

const unsigned int kPolynomial = 0x04C11DB7u;

// m_auiTable[k][b]: the CRC register after feeding byte b followed by k zero
// bytes, starting from zero. Slicing by eight combines eight look-ups per step.
struct CrcTables {
  unsigned int m_auiTable[8][256];

  CrcTables() {
    for (unsigned int b = 0; b < 256; ++b) {
      unsigned int crc = b << 24;
      for (int bit = 0; bit < 8; ++bit) {
        crc = (crc & 0x80000000u) ? (crc << 1) ^ kPolynomial : (crc << 1);
      }
      m_auiTable[0][b] = crc;
    }
    for (int k = 1; k < 8; ++k) {
      for (unsigned int b = 0; b < 256; ++b) {
        unsigned int prev = m_auiTable[k - 1][b];
        m_auiTable[k][b] = (prev << 8) ^ m_auiTable[0][prev >> 24];
      }
    }
  }
};

const CrcTables& tables() {
  // Built on first use; C++11 makes this initialisation thread-safe.
  static const CrcTables s_tables;
  return s_tables;
}

inline unsigned int load32(const unsigned char* p) {
  return (static_cast<unsigned int>(p[0]) << 24) | (static_cast<unsigned int>(p[1]) << 16) |
         (static_cast<unsigned int>(p[2]) << 8) | p[3];
}

}  // namespace

unsigned int TCrc32::compute(const unsigned char* data, unsigned int size, unsigned int crc) {
  const CrcTables& t = tables();
  const unsigned int(*T)[256] = t.m_auiTable;
  while (size >= 8) {
    unsigned int hi = crc ^ load32(data);
    unsigned int lo = load32(data + 4);
    crc = T[7][hi >> 24] ^ T[6][(hi >> 16) & 0xFF] ^ T[5][(hi >> 8) & 0xFF] ^ T[4][hi & 0xFF] ^
          T[3][lo >> 24] ^ T[2][(lo >> 16) & 0xFF] ^ T[1][(lo >> 8) & 0xFF] ^ T[0][lo & 0xFF];
    data += 8;
    size -= 8;
  }
  while (size > 0) {
    crc = (crc << 8) ^ T[0][(crc >> 24) ^ *data];
    ++data;
    --size;
  }
  return crc;
}

unsigned int TCrc32::computeBitwise(const unsigned char* data, unsigned int size,
                                    unsigned int crc) {
  for (unsigned int i = 0; i < size; ++i) {
    crc ^= static_cast<unsigned int>(data[i]) << 24;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc & 0x80000000u) ? (crc << 1) ^ kPolynomial : (crc << 1);
    }
  }
  return crc;
}

}  // namespace Ostrel
