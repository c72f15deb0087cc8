#include "SectionGatherer.h"

#include <algorithm>
#include <cstring>

namespace Ostrel {

SectionGatherer::SectionGatherer() {
  reset();
}

void SectionGatherer::reset() {
  m_bTracking = false;
  m_bShortForm = false;
  m_usExtension = 0;
  m_ucVersion = 0;
  m_ucLastSection = 0;
  m_uiDelivered = 0;
  std::fill(m_aullDelivered, m_aullDelivered + 256, 0);
  m_mapWaiting.clear();
}

// FNV-1a over 8-byte words (then the remaining bytes), with the size; never 0
// (0 marks "not delivered"). Words are read in the machine's order: a
// fingerprint is only ever compared within the process.
uint64_t SectionGatherer::fingerprint(const unsigned char* data, unsigned int size) {
  const uint64_t kPrime = 1099511628211ULL;
  uint64_t hash = 14695981039346656037ULL ^ size;
  unsigned int i = 0;
  for (; i + 8 <= size; i += 8) {
    uint64_t word;
    std::memcpy(&word, data + i, sizeof(word));
    hash = (hash ^ word) * kPrime;
    hash ^= hash >> 29;
  }
  for (; i < size; ++i) {
    hash = (hash ^ data[i]) * kPrime;
  }
  return hash ? hash : 1;
}

bool SectionGatherer::offer(const unsigned char* section, unsigned int size) {
  Waiting* waiting = admit(section, size);
  if (!waiting) {
    return false;
  }
  waiting->section.assign(section, section + size);
  return true;
}

bool SectionGatherer::offerOwned(std::vector<unsigned char>* section) {
  Waiting* waiting =
      section->empty() ? NULL : admit(&(*section)[0], static_cast<unsigned int>(section->size()));
  if (!waiting) {
    return false;
  }
  waiting->section.swap(*section);
  return true;
}

SectionGatherer::Waiting* SectionGatherer::admit(const unsigned char* section, unsigned int size) {
  if (size < 3) {
    return NULL;
  }
  const bool longForm = (section[1] & 0x80) != 0;
  if (longForm && (size < 8 || section[6] > section[7])) {
    return NULL;
  }
  const unsigned short extension =
      longForm ? static_cast<unsigned short>((section[3] << 8) | section[4]) : 0;
  const unsigned char version = longForm ? static_cast<unsigned char>((section[5] >> 1) & 0x1F) : 0;
  const unsigned char last = longForm ? section[7] : 0;
  const unsigned int number = longForm ? section[6] : 0;
  const uint64_t print = fingerprint(section, size);
  if (!m_bTracking || m_bShortForm != !longForm || extension != m_usExtension ||
      version != m_ucVersion || last != m_ucLastSection) {
    reset();
    m_bTracking = true;
    m_bShortForm = !longForm;
    m_usExtension = extension;
    m_ucVersion = version;
    m_ucLastSection = last;
  } else if (m_aullDelivered[number] == print) {
    return NULL;
  }
  if (m_bShortForm && m_aullDelivered[0] != 0) {
    m_aullDelivered[0] = 0;  // another short-form section: a new table
    m_uiDelivered = 0;
  }
  Waiting& waiting = m_mapWaiting[number];
  waiting.print = print;
  return &waiting;
}

bool SectionGatherer::take(std::vector<unsigned char>* section) {
  if (m_mapWaiting.empty()) {
    return false;
  }
  std::map<unsigned int, Waiting>::iterator first = m_mapWaiting.begin();
  section->swap(first->second.section);
  uint64_t& delivered = m_aullDelivered[first->first];
  m_uiDelivered += delivered == 0 ? 1 : 0;
  delivered = first->second.print;
  m_mapWaiting.erase(first);
  return true;
}

bool SectionGatherer::isComplete() const {
  return m_bTracking && m_uiDelivered == m_ucLastSection + 1u;
}

}  // namespace Ostrel
