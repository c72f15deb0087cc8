#include "TISDBTTable.h"

namespace Ostrel {

// Out-of-line definitions, so that the constants may be bound to references.
const unsigned int TISDBTTable::kTypePat;
const unsigned int TISDBTTable::kTypeNit;
const unsigned int TISDBTTable::kTypeSdt;
const unsigned int TISDBTTable::kTypeTot;
const unsigned int TISDBTTable::kTypePmt;
const unsigned int TISDBTTable::kTypeUnknown;

TISDBTTable::TISDBTTable() : m_uiType(kTypeUnknown) {}

TISDBTTable::TISDBTTable(unsigned int type) : m_uiType(type) {}

TISDBTTable::~TISDBTTable() {}

unsigned int TISDBTTable::getType() const {
  return m_uiType;
}

}  // namespace Ostrel
