#ifndef OSTREL_SIM_SECTION_FILTER_H
#define OSTREL_SIM_SECTION_FILTER_H

#include <cstdint>
#include <vector>

namespace Ostrel {

// Which sections answer a table request, and which of them a filter has
// passed already.
//
// Matching rule: TSectionMatch (shared with every server that filters).
//
// A filter passes each distinct section once: a section whose bytes equal
// one it passed already (a carousel repetition) is not passed again, while a
// new version, or another section number of the same table, is.
class SectionFilter {
 public:
  SectionFilter(int tunerId, short pid, short tableId, short tableIdExt);

  // True when the extension of the request's table id takes part in matching.
  static bool isExtensionCompared(short tableId);

  bool matches(int tunerId, unsigned short pid, const unsigned char* section,
               unsigned int size) const;

  // Whether this filter passed these bytes already.
  bool hasPassed(const unsigned char* section, unsigned int size) const;
  // Records the bytes as passed.
  void markPassed(const unsigned char* section, unsigned int size);

  int getTunerId() const { return m_iTunerId; }
  short getPid() const { return m_sPid; }
  short getTableId() const { return m_sTableId; }
  short getTableIdExt() const { return m_sTableIdExt; }

 private:
  static uint64_t fingerprint(const unsigned char* section, unsigned int size);

  int m_iTunerId;
  short m_sPid;
  short m_sTableId;
  short m_sTableIdExt;
  std::vector<uint64_t> m_vecPassed;
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_SECTION_FILTER_H
