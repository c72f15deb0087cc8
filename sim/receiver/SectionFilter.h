#ifndef OSTREL_SIM_SECTION_FILTER_H
#define OSTREL_SIM_SECTION_FILTER_H

#include <cstdint>
#include <vector>

namespace Ostrel {

// Which sections answer a table request, and which of them a filter has
// passed already.
//
// Matching rule: a section matches a request key (tuner, PID, table id, table
// id extension) when it comes from the same tuner and PID, its table_id equals
// the table id, and, where the extension is compared, its
// table_id_extension equals the extension. The extension is compared only for
// long-form sections of tables whose extension the middleware knows before it
// asks (a PMT's programme number, an EIT's service id, ...). It is not
// compared for the PAT (0x00), the CAT (0x01), the NIT (0x40, 0x41), the SDT
// (0x42, 0x46), nor for short-form sections (the TDT 0x70 and TOT 0x73 among
// them), whose extensions (transport stream id, network id) a receiver learns
// only from the table itself.
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
  bool m_bCompareExt;
  std::vector<uint64_t> m_vecPassed;
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_SECTION_FILTER_H
