#ifndef OSTREL_SIM_SECTION_CRC_H
#define OSTREL_SIM_SECTION_CRC_H

#include <cstdint>

namespace Ostrel {

// The CRC-32 of MPEG-2 sections (polynomial 0x04C11DB7, initial value all
// ones, no reflection, no final inversion). Over a whole section that ends in
// its CRC_32 field it gives 0.
class SectionCrc {
 public:
  static uint32_t compute(const unsigned char* data, unsigned int size);
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_SECTION_CRC_H
