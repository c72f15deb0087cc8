#include "TLongSectionTable.h"

#include "TSectionFrame.h"

namespace Ostrel {

namespace {

// table_id_extension, version and current_next, section_number and
// last_section_number: what follows section_length in every long-form section.
const unsigned int kHeaderFieldsSize = 5;

}  // namespace

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
  if (!checkSection(data, size, &checked))
    return false;
  *body = keepSection(data, size, size * 3 + 512);
  return true;
}

bool TLongSectionTable::checkSection(const unsigned char* data, unsigned int size,
                                     TSectionReader* body) {
  TSectionReader section;
  if (!TSectionFrame::open(data, size, true, true, TSectionFrame::kMaxPsiSectionSize, &section)) {
    return false;
  }
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

TSectionReader TLongSectionTable::keepSection(const unsigned char* data, unsigned int size,
                                              size_t extra) {
  // Descriptors point into the table's own copy, which lives as long as it.
  m_arena.setFirstBlock(TArena::footprint(size) + extra);
  TSectionReader body = TSectionFrame::body(m_arena.copy(data, size), size, true);
  body.skip(kHeaderFieldsSize);  // read by checkSection
  return body;
}

}  // namespace Ostrel
