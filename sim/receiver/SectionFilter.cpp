#include "SectionFilter.h"

#include <algorithm>

#include "TSectionMatch.h"

namespace Ostrel {

SectionFilter::SectionFilter(int tunerId, short pid, short tableId, short tableIdExt)
    : m_iTunerId(tunerId), m_sPid(pid), m_sTableId(tableId), m_sTableIdExt(tableIdExt) {}

bool SectionFilter::isExtensionCompared(short tableId) {
  return TSectionMatch::isExtensionCompared(tableId);
}

bool SectionFilter::matches(int tunerId, unsigned short pid, const unsigned char* section,
                            unsigned int size) const {
  return tunerId == m_iTunerId && pid == static_cast<unsigned short>(m_sPid) &&
         TSectionMatch::matches(m_sTableId, m_sTableIdExt, section, size);
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
