// Loans of cached tables to the library's delivery paths.
#include "CacheLoan.h"

#include "CacherItem.h"
#include "ScopedLock.h"
#include "TISDBTTable.h"

namespace Ostrel {

void CacheLoan::__lend(Cacher* cache, short pid, TISDBTTable* table) {
  std::vector<Cacher::Loan>::iterator loan = cache->__loanOf(table);
  if (loan == cache->m_vecLoans.end()) {
    cache->m_vecLoans.push_back(std::make_pair(table, 1u));  // may throw: nothing lent yet
  } else {
    ++loan->second;
  }
  m_pCache = cache;
  m_pTable = table;
  m_sPid = pid;
}

bool CacheLoan::borrow(Cacher* cache, short pid, short /*tableId*/, short /*tableIdExt*/) {
  ScopedLock lock(&cache->m_mutex);
  Cacher::CacherItem* item = cache->__get(pid);
  if (!item) {
    return false;
  }
  __lend(cache, pid, item->getData());
  return true;
}

void CacheLoan::store(Cacher* cache, short pid, short tableId, short tableIdExt, TISDBTTable* table,
                      unsigned int dataSize) {
  ScopedLock lock(&cache->m_mutex);
  try {
    __lend(cache, pid, table);
  } catch (...) {
    delete table;  // neither stored nor lent: the table was ours alone
    throw;
  }
  // Lent before it is stored: the clean-up that add runs may evict it at once.
  cache->add(pid, tableId, tableIdExt, table, dataSize);
}

CacheLoan::~CacheLoan() {
  if (!m_pCache) {
    return;
  }
  ScopedLock lock(&m_pCache->m_mutex);
  std::vector<Cacher::Loan>::iterator loan = m_pCache->__loanOf(m_pTable);
  if (--loan->second > 0) {
    return;
  }
  *loan = m_pCache->m_vecLoans.back();
  m_pCache->m_vecLoans.pop_back();
  std::map<short, Cacher::CacherItem*>::iterator it = m_pCache->m_mapItems.find(m_sPid);
  if (it == m_pCache->m_mapItems.end() || it->second->getData() != m_pTable) {
    delete m_pTable;  // its entry went while it was lent, or it was never stored
  }
}

}  // namespace Ostrel
