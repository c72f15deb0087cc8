#ifndef OSTREL_TTOT_TABLE_H
#define OSTREL_TTOT_TABLE_H

#include "TArena.h"
#include "TDescriptorList.h"
#include "TISDBTTable.h"

namespace Ostrel {

// Time offset table (table id 0x73, PID 0x0014): the current UTC date and
// time and descriptors (local time offsets). Its section is short-form
// (syntax indicator 0) yet ends in a CRC_32. The time and date table (0x70),
// which shares the PID, is accepted too: the time alone, no descriptors, no
// CRC. Type code kTypeTot for both. Immutable once parsed; any thread may read.
class TTOTTable : public TISDBTTable {
 public:
  static const unsigned char kTableIdTot = 0x73;
  static const unsigned char kTableIdTdt = 0x70;

  TTOTTable();
  ~TTOTTable();

  // Parses one complete section data[0..size) and gives a new table that the
  // caller owns, or null when it is not a well-formed TOT or TDT section
  // (including a time that is not valid BCD). The ints and pointers are not
  // used. Any thread.
  static TTOTTable* parse(unsigned char* data, unsigned int size, int, int, unsigned short*,
                          TTOTTable*);

  unsigned char getTableId() const { return m_ucTableId; }
  bool isTdt() const { return m_ucTableId == kTableIdTdt; }
  // The time as carried: MJD and 24 bits of BCD hhmmss.
  unsigned short getMjd() const { return m_usMjd; }
  unsigned int getBcdTime() const { return m_uiBcdTime; }
  // The same as seconds since 1970-01-01 00:00:00 UTC (64-bit: the date may lie past the end
  // of a 32-bit time_t).
  long long getUtcSeconds() const { return m_llUtcSeconds; }
  // Empty for a TDT.
  const TDescriptorList& getDescriptors() const { return m_lstDescriptors; }
  // The local time offset, in seconds, that applies for countryCode (three
  // letters packed as 24 bits, e.g. 'B''R''A') and region at UTC time `when`,
  // from the first matching local time offset entry; false when none matches.
  bool getLocalTimeOffset(unsigned int countryCode, unsigned char region, long long when,
                          int* offsetSeconds) const;

 private:
  TTOTTable(const TTOTTable&);
  TTOTTable& operator=(const TTOTTable&);
  bool parseBody(const unsigned char* data, unsigned int size);

  TArena m_arena;  // before the descriptors, which live in it
  unsigned char m_ucTableId;
  unsigned short m_usMjd;
  unsigned int m_uiBcdTime;
  long long m_llUtcSeconds;
  TDescriptorList m_lstDescriptors;
};

}  // namespace Ostrel

#endif  // OSTREL_TTOT_TABLE_H
