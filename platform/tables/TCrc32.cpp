#include "TCrc32.h"

namespace Ostrel {

namespace {

const unsigned int kPolynomial = 0x04C11DB7u;

// m_auiTable[k][b]: the CRC register after feeding byte b followed by k zero
// bytes, starting from zero. Slicing by sixteen combines sixteen look-ups per
// step (16 KiB of tables).
const int kSlices = 16;

struct CrcTables {
  unsigned int m_auiTable[kSlices][256];

  CrcTables() {
    for (unsigned int b = 0; b < 256; ++b) {
      unsigned int crc = b << 24;
      for (int bit = 0; bit < 8; ++bit) {
        crc = (crc & 0x80000000u) ? (crc << 1) ^ kPolynomial : (crc << 1);
      }
      m_auiTable[0][b] = crc;
    }
    for (int k = 1; k < kSlices; ++k) {
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
  while (size >= 16) {
    unsigned int a = crc ^ load32(data);
    unsigned int b = load32(data + 4);
    unsigned int c = load32(data + 8);
    unsigned int d = load32(data + 12);
    crc = T[15][a >> 24] ^ T[14][(a >> 16) & 0xFF] ^ T[13][(a >> 8) & 0xFF] ^ T[12][a & 0xFF] ^
          T[11][b >> 24] ^ T[10][(b >> 16) & 0xFF] ^ T[9][(b >> 8) & 0xFF] ^ T[8][b & 0xFF] ^
          T[7][c >> 24] ^ T[6][(c >> 16) & 0xFF] ^ T[5][(c >> 8) & 0xFF] ^ T[4][c & 0xFF] ^
          T[3][d >> 24] ^ T[2][(d >> 16) & 0xFF] ^ T[1][(d >> 8) & 0xFF] ^ T[0][d & 0xFF];
    data += 16;
    size -= 16;
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
