#ifndef OSTREL_TNIT_BUILDER_H
#define OSTREL_TNIT_BUILDER_H

#include <vector>

#include "TLongSectionBuilder.h"

namespace Ostrel {

// Writes a well-formed NIT section (with CRC): actual network (0x40) unless
// setActual(false) (0x41). Descriptors are wire bytes, e.g. from
// TDescriptorBuilder. Not thread-safe.
class TNITBuilder : public TLongSectionBuilder<TNITBuilder> {
 public:
  TNITBuilder();

  TNITBuilder& setNetworkId(unsigned short networkId);
  TNITBuilder& setActual(bool actual);
  // Appends to the network descriptor loop.
  TNITBuilder& addDescriptor(const std::vector<unsigned char>& descriptor);
  // Appends a transport stream with its descriptor loop.
  TNITBuilder& addTransportStream(
      unsigned short transportStreamId, unsigned short originalNetworkId,
      const std::vector<unsigned char>& descriptors = std::vector<unsigned char>());
  // The section, or empty when a loop or the section is too long.
  std::vector<unsigned char> build() const;

 private:
  unsigned short m_usNetworkId;
  bool m_bActual;
  std::vector<unsigned char> m_vecDescriptors;
  TSectionWriter m_wrTransportStreams;
};

}  // namespace Ostrel

#endif  // OSTREL_TNIT_BUILDER_H
