#ifndef OSTREL_TPAT_TABLE_H
#define OSTREL_TPAT_TABLE_H

#include <vector>

#include "TLongSectionTable.h"

namespace Ostrel {

// Program association table (table id 0x00, PID 0x0000): the programmes of a
// transport stream and the PIDs of their PMTs; programme number 0 names the
// network PID instead. One section; type code kTypePat. Immutable once parsed,
// so any number of threads may read it.
class TPATTable : public TLongSectionTable {
 public:
  static const unsigned char kTableId = 0x00;

  struct Program {
    unsigned short programNumber;
    unsigned short pid;  // 13 bits: the PMT's PID, or the network PID for programme 0
  };

  TPATTable();
  ~TPATTable();

  // Parses one complete section data[0..size) and gives a new table that the
  // caller owns, or null when it is not a well-formed PAT section. The two
  // ints and two pointers are not used (kept for the receiver library's
  // calling convention). Reads nothing outside data[0..size). Any thread.
  static TPATTable* parse(unsigned char* data, unsigned int size, int, int, unsigned short*,
                          TPATTable*);

  unsigned short getTransportStreamId() const { return getTableIdExtension(); }
  // The programme loop in wire order, programme 0 included.
  unsigned int getProgramCount() const { return static_cast<unsigned int>(m_vecPrograms.size()); }
  const Program& getProgram(unsigned int index) const { return m_vecPrograms[index]; }
  // The PMT PID of programNumber; false when the table does not list it.
  bool getPmtPid(unsigned short programNumber, unsigned short* pid) const;
  // The network PID (programme 0); false when the table has none.
  bool getNetworkPid(unsigned short* pid) const;

 private:
  bool parseBody(const unsigned char* data, unsigned int size);

  std::vector<Program> m_vecPrograms;
};

}  // namespace Ostrel

#endif  // OSTREL_TPAT_TABLE_H
