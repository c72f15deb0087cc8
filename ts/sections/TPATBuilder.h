#ifndef OSTREL_TPAT_BUILDER_H
#define OSTREL_TPAT_BUILDER_H

#include <vector>

#include "TLongSectionBuilder.h"

namespace Ostrel {

// Writes a well-formed PAT section (with CRC), e.g.
//   TPATBuilder().setTransportStreamId(0x0421).addProgram(0, 0x0010)
//       .addProgram(0xE760, 0x1FC8).build();
// Not thread-safe; reusable (build() may be called again after more adds).
class TPATBuilder : public TLongSectionBuilder<TPATBuilder> {
 public:
  TPATBuilder();

  TPATBuilder& setTransportStreamId(unsigned short id);
  // Appends a programme (number 0: the network PID). pid is cut to 13 bits.
  TPATBuilder& addProgram(unsigned short programNumber, unsigned short pid);
  // The section, or empty when it would exceed 1024 bytes.
  std::vector<unsigned char> build() const;

 private:
  unsigned short m_usTransportStreamId;
  TSectionWriter m_wrPrograms;
};

}  // namespace Ostrel

#endif  // OSTREL_TPAT_BUILDER_H
