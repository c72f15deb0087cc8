#include "TISDBTTable.h"

namespace Ostrel {

TISDBTTable::TISDBTTable() : m_uiType(kTypeUnknown) {}

TISDBTTable::TISDBTTable(unsigned int type) : m_uiType(type) {}

TISDBTTable::~TISDBTTable() {}

unsigned int TISDBTTable::getType() const { return m_uiType; }

}  // namespace Ostrel
