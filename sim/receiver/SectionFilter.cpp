#include "SectionFilter.h"

#include <algorithm>

namespace Ostrel {

SectionFilter::SectionFilter(int tunerId, short pid, short tableId, short tableIdExt)
    : m_iTunerId(tunerId),
      m_sPid(pid),
      m_sTableId(tableId),
      m_sTableIdExt(tableIdExt),
      m_bCompareExt(isExtensionCompared(tableId)) {}

bool SectionFilter::isExtensionCompared(short tableId) {
  switch (static_cast<unsigned short>(tableId)) {
    case 0x00:  // PAT: transport stream id
    case 0x01:  // CAT: reserved
    case 0x40:  // NIT actual: network id
    case 0x41:  // NIT other
    case 0x42:  // SDT actual: transport stream id
    case 0x46:  // SDT other
    case 0x70:  // TDT: short form
    case 0x73:  // TOT: short form
      return false;
    default:
      return true;
  }
}

bool SectionFilter::matches(int tunerId, unsigned short pid, const unsigned char* section,
                            unsigned int size) const {
  if (size < 3 || tunerId != m_iTunerId || pid != static_cast<unsigned short>(m_sPid) ||
      section[0] != static_cast<unsigned short>(m_sTableId)) {
    return false;
  }
  bool longForm = (section[1] & 0x80) != 0;
  if (!m_bCompareExt || !longForm) {
    return true;
  }
  if (size < 5) {
    return false;
  }
  unsigned short extension = static_cast<unsigned short>((section[3] << 8) | section[4]);
  return extension == static_cast<unsigned short>(m_sTableIdExt);
}

uint64_t SectionFilter::fingerprint(const unsigned char* section, unsigned int size) {
  // FNV-1a over the bytes, with the size folded in.
  uint64_t hash = 14695981039346656037ull ^ size;
  for (unsigned int i = 0; i < size; ++i) {
    hash ^= section[i];
    hash *= 1099511628211ull;
  }
  return hash;
}

bool SectionFilter::hasPassed(const unsigned char* section, unsigned int size) const {
  uint64_t print = fingerprint(section, size);
  return std::find(m_vecPassed.begin(), m_vecPassed.end(), print) != m_vecPassed.end();
}

void SectionFilter::markPassed(const unsigned char* section, unsigned int size) {
  m_vecPassed.push_back(fingerprint(section, size));
}

}  // namespace Ostrel
