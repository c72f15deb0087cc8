#ifndef OSTREL_TLONG_SECTION_BUILDER_H
#define OSTREL_TLONG_SECTION_BUILDER_H

#include <vector>

#include "TSectionWriter.h"

namespace Ostrel {

// The header settings shared by the builders of long-form sections
// (TPATBuilder, TPMTBuilder, TNITBuilder, TSDTBuilder). Setters return the
// derived builder so that calls chain. Defaults: version 0, current,
// section 0 of 0.
template <class Derived>
class TLongSectionBuilder {
 public:
  Derived& setVersion(unsigned char version) {
    m_ucVersion = version & 0x1F;
    return self();
  }
  Derived& setCurrentNext(bool currentNext) {
    m_bCurrentNext = currentNext;
    return self();
  }
  Derived& setSectionNumber(unsigned char number, unsigned char last) {
    m_ucSectionNumber = number;
    m_ucLastSectionNumber = last;
    return self();
  }

 protected:
  TLongSectionBuilder()
      : m_ucVersion(0), m_bCurrentNext(true), m_ucSectionNumber(0), m_ucLastSectionNumber(0) {}

  // The whole section for this header and body, or empty when the body
  // failed or the section would exceed 1024 bytes.
  std::vector<unsigned char> finish(unsigned char tableId, bool privateBit,
                                    unsigned short tableIdExtension,
                                    const TSectionWriter& body) const {
    if (!body.ok())
      return std::vector<unsigned char>();
    return TSectionWriter::longSection(tableId, privateBit, tableIdExtension, m_ucVersion,
                                       m_bCurrentNext, m_ucSectionNumber, m_ucLastSectionNumber,
                                       body.data(), kMaxSectionSize);
  }

 private:
  static const unsigned int kMaxSectionSize = 1024;
  Derived& self() { return static_cast<Derived&>(*this); }

  unsigned char m_ucVersion;
  bool m_bCurrentNext;
  unsigned char m_ucSectionNumber;
  unsigned char m_ucLastSectionNumber;
};

}  // namespace Ostrel

#endif  // OSTREL_TLONG_SECTION_BUILDER_H
