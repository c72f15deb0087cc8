#ifndef OSTREL_TCRC32_H
#define OSTREL_TCRC32_H

namespace Ostrel {

// The CRC-32 of MPEG-2 sections: polynomial 0x04C11DB7, most significant bit
// first, initial value 0xFFFFFFFF, no final inversion. A section whose CRC_32
// field is included in the computation gives 0 when it is intact.
// Table-driven, sixteen bytes per step; the tables are built once, on first use,
// in a thread-safe way. Any thread.
class TCrc32 {
 public:
  static const unsigned int kInitial = 0xFFFFFFFFu;

  // The CRC of data[0..size), continuing from crc (kInitial for a new one).
  static unsigned int compute(const unsigned char* data, unsigned int size,
                              unsigned int crc = kInitial);

  // The straightforward bit-by-bit form, kept as a reference for tests.
  static unsigned int computeBitwise(const unsigned char* data, unsigned int size,
                                     unsigned int crc = kInitial);
};

}  // namespace Ostrel

#endif  // OSTREL_TCRC32_H
