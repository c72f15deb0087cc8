#ifndef OSTREL_TPMT_BUILDER_H
#define OSTREL_TPMT_BUILDER_H

#include <vector>

#include "TLongSectionBuilder.h"

namespace Ostrel {

// Writes a well-formed PMT section (with CRC). Descriptors are given as their
// wire bytes (tag, length, payload), e.g. from TDescriptorBuilder; several
// may be concatenated. Not thread-safe.
class TPMTBuilder : public TLongSectionBuilder<TPMTBuilder> {
 public:
  TPMTBuilder();

  TPMTBuilder& setProgramNumber(unsigned short programNumber);
  TPMTBuilder& setPcrPid(unsigned short pid);
  // Appends to the programme's own descriptor loop.
  TPMTBuilder& addDescriptor(const std::vector<unsigned char>& descriptor);
  // Appends an elementary stream with its descriptor loop.
  TPMTBuilder& addStream(
      unsigned char streamType, unsigned short pid,
      const std::vector<unsigned char>& descriptors = std::vector<unsigned char>());
  // The section, or empty when a loop or the section is too long.
  std::vector<unsigned char> build() const;

 private:
  unsigned short m_usProgramNumber;
  unsigned short m_usPcrPid;
  std::vector<unsigned char> m_vecDescriptors;
  TSectionWriter m_wrStreams;
};

}  // namespace Ostrel

#endif  // OSTREL_TPMT_BUILDER_H
