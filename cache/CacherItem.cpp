// One entry of a tuner's table cache.
#include "CacherItem.h"

#include "TISDBTTable.h"

namespace Ostrel {

std::atomic<unsigned int> Cacher::CacherItem::s_uiAccessCounter(0);

Cacher::CacherItem::CacherItem(short pid, short /*tableId*/, short /*tableIdExt*/,
                               TISDBTTable* table, unsigned int dataSize)
    : m_sPid(pid), m_pData(table), m_uiDataSize(dataSize), m_tLastAccess(0), m_uiAccessOrder(0) {
  updateLastAccess();
}

Cacher::CacherItem::CacherItem(short pid, short /*tableId*/, short /*tableIdExt*/,
                               const std::shared_ptr<TISDBTTable>& table, unsigned int dataSize)
    : m_sPid(pid), m_pData(table), m_uiDataSize(dataSize), m_tLastAccess(0), m_uiAccessOrder(0) {
  updateLastAccess();
}

Cacher::CacherItem::~CacherItem() {
  m_pData.reset();
}

void Cacher::CacherItem::updateLastAccess() {
  m_tLastAccess = Cacher::now();
  m_uiAccessOrder = s_uiAccessCounter.fetch_add(1, std::memory_order_relaxed);
}

bool Cacher::CacherItem::operator<(const CacherItem& other) const {
  if (m_tLastAccess != other.m_tLastAccess) {
    return m_tLastAccess < other.m_tLastAccess;
  }
  // The counter wraps; entries of one second are far fewer than 2^31 accesses
  // apart, so the one behind by less than half the range came first.
  return m_uiAccessOrder - other.m_uiAccessOrder > 0x7FFFFFFFu;
}

}  // namespace Ostrel
