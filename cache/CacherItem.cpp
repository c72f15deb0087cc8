// One entry of a tuner's table cache.
#include "CacherItem.h"

#include "TISDBTTable.h"

namespace Ostrel {

Cacher::CacherItem::CacherItem(short pid, short /*tableId*/, short /*tableIdExt*/,
                               TISDBTTable* table, unsigned int dataSize)
    : m_sPid(pid),
      m_pData(table),
      m_uiDataSize(dataSize),
      m_tLastAccess(time(0)),
      m_uiAccessOrder(0) {}

Cacher::CacherItem::~CacherItem() {
  if (m_pData) {
    delete m_pData;
    m_pData = 0;
  }
}

void Cacher::CacherItem::updateLastAccess() {
  m_tLastAccess = time(0);
}

bool Cacher::CacherItem::operator<(const CacherItem& other) {
  return m_tLastAccess < other.m_tLastAccess;
}

}  // namespace Ostrel
