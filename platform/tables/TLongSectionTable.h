#ifndef OSTREL_TLONG_SECTION_TABLE_H
#define OSTREL_TLONG_SECTION_TABLE_H

#include "TArena.h"
#include "TISDBTTable.h"
#include "TSectionReader.h"

namespace Ostrel {

// Base of the tables sent in long-form sections (PAT, PMT, NIT, SDT): the
// fields that follow section_length in each of them. Values are kept as the
// wire gives them. Immutable once parsed.
class TLongSectionTable : public TISDBTTable {
 public:
  unsigned char getTableId() const { return m_ucTableId; }
  // transport_stream_id (PAT, SDT), program_number (PMT), network_id (NIT).
  unsigned short getTableIdExtension() const { return m_usTableIdExtension; }
  unsigned char getVersionNumber() const { return m_ucVersionNumber; }
  bool isCurrentNext() const { return m_bCurrentNext; }
  unsigned char getSectionNumber() const { return m_ucSectionNumber; }
  unsigned char getLastSectionNumber() const { return m_ucLastSectionNumber; }

 protected:
  explicit TLongSectionTable(unsigned int type);

  // Checks the framing of a long-form section with a CRC (see TSectionFrame)
  // and reads the five header fields. On success the table holds a copy of
  // the section in its arena and *body covers, in that copy, what follows
  // last_section_number up to the CRC. False when the frame is wrong or the
  // section number is above the last section number.
  bool openSection(const unsigned char* data, unsigned int size, TSectionReader* body);

  // openSection in two steps, for a table that measures its content before
  // its arena's first block is taken. checkSection does the checks and reads
  // the header fields; *body covers the same bytes in data itself.
  // keepSection then copies the checked section into the arena, whose first
  // block holds the copy and `extra` more bytes, and gives the body of the copy.
  bool checkSection(const unsigned char* data, unsigned int size, TSectionReader* body);
  TSectionReader keepSection(const unsigned char* data, unsigned int size, size_t extra);

  // Where the table's descriptors live. Declared in this base, so that it
  // outlives every member of the derived tables.
  TArena* arena() { return &m_arena; }

 private:
  TLongSectionTable(const TLongSectionTable&);
  TLongSectionTable& operator=(const TLongSectionTable&);

  TArena m_arena;
  unsigned char m_ucTableId;
  unsigned short m_usTableIdExtension;
  unsigned char m_ucVersionNumber;
  bool m_bCurrentNext;
  unsigned char m_ucSectionNumber;
  unsigned char m_ucLastSectionNumber;
};

}  // namespace Ostrel

#endif  // OSTREL_TLONG_SECTION_TABLE_H
