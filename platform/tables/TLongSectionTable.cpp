#include "TLongSectionTable.h"

#include "TSectionFrame.h"

namespace Ostrel {

TLongSectionTable::TLongSectionTable(unsigned int type)
    : TISDBTTable(type),
      m_ucTableId(0),
      m_usTableIdExtension(0),
      m_ucVersionNumber(0),
      m_bCurrentNext(false),
      m_ucSectionNumber(0),
      m_ucLastSectionNumber(0) {}

bool TLongSectionTable::openSection(const unsigned char* data, unsigned int size,
                                    TSectionReader* body) {
  TSectionReader checked;
  if (!TSectionFrame::open(data, size, true, true, TSectionFrame::kMaxPsiSectionSize, &checked)) {
    return false;
  }
  // Descriptors point into the table's own copy, which lives as long as it.
  m_arena.setFirstBlock(size * 4 + 512);
  TSectionReader section = TSectionFrame::body(m_arena.copy(data, size), size, true);
  m_ucTableId = data[0];
  m_usTableIdExtension = section.u16();
  unsigned char versionByte = section.u8();
  m_ucVersionNumber = (versionByte >> 1) & 0x1F;
  m_bCurrentNext = (versionByte & 0x01) != 0;
  m_ucSectionNumber = section.u8();
  m_ucLastSectionNumber = section.u8();
  if (!section.ok() || m_ucSectionNumber > m_ucLastSectionNumber)
    return false;
  *body = section;
  return true;
}

}  // namespace Ostrel
