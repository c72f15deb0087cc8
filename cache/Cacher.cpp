// The per-tuner table cache: storing, finding, flushing and the clean-up.
#include "Cacher.h"

#include <limits.h>

#include <list>

#include "CacherItem.h"
#include "OstrelLog.h"
#include "ScopedLock.h"
#include "TISDBTTable.h"

namespace Ostrel {

namespace {

const char* const kModule = "Cacher";

}  // namespace

std::map<int, Cacher*> Cacher::s_pInstances;
pthread_mutex_t Cacher::s_pStaticMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
int Cacher::s_iMaxCacheSize = 2048;

// Caches are never destroyed: a delivery thread may still use one while the
// process exits, and the tables' destructors are the table library's.
Cacher* Cacher::getInstance(int tunerId) {
  ScopedLock lock(&s_pStaticMutex);
  std::map<int, Cacher*>::iterator it = s_pInstances.find(tunerId);
  if (it != s_pInstances.end()) {
    return it->second;
  }
  Cacher* cache = new Cacher(tunerId);
  try {
    s_pInstances.insert(std::make_pair(tunerId, cache));
  } catch (...) {
    delete cache;
    throw;
  }
  return cache;
}

Cacher::Cacher(int tunerId) : m_iTunerId(tunerId), m_uiCacheSize(0), m_uiAccesses(0) {
  pthread_mutexattr_t attr;
  pthread_mutexattr_init(&attr);
  pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_init(&m_mutex, &attr);
  pthread_mutexattr_destroy(&attr);
  flush();
}

Cacher::~Cacher() {
  flush();
  pthread_mutex_destroy(&m_mutex);
}

void Cacher::add(short pid, short tableId, short tableIdExt, TISDBTTable* table,
                 unsigned int dataSize) {
  if (!table || dataSize == 0) {
    ostrelLog(kModule, "%s: add: Can't add an empty item...");
    return;
  }
  ScopedLock lock(&m_mutex);
  std::map<short, CacherItem*>::iterator it = m_mapItems.find(pid);
  unsigned int others = m_uiCacheSize - (it == m_mapItems.end() ? 0 : it->second->getDataSize());
  if (others > UINT_MAX - dataSize) {
    // The sum would wrap. Such a size exceeds any bound, so the clean-up would
    // evict every older entry before it anyway.
    __flush();
    it = m_mapItems.end();
  }
  CacherItem* item = 0;
  try {
    item = new CacherItem(pid, tableId, tableIdExt, table, dataSize);
    if (it == m_mapItems.end()) {
      m_mapItems.insert(std::make_pair(pid, item));
    } else {
      // A new version of a cached PID: the entry changes, its map node stays.
      // Handed the very table it holds, the old entry lets go of it first.
      if (it->second->m_pData == table) {
        it->second->m_pData = 0;
      }
      m_uiCacheSize -= it->second->getDataSize();
      __destroy(it->second);
      it->second = item;
    }
  } catch (...) {
    if (item) {
      item->m_pData = 0;
    }
    delete item;
    if (__loanOf(table) == m_vecLoans.end()) {
      delete table;  // the cache owned it from the call on
    }
    throw;
  }
  item->m_uiAccessOrder = ++m_uiAccesses;
  m_uiCacheSize += dataSize;
  if (m_uiCacheSize > static_cast<unsigned int>(s_iMaxCacheSize)) {
    __cleanUp();
  }
}

int Cacher::get(short pid, short /*tableId*/, short /*tableIdExt*/, TISDBTTable** table,
                unsigned int* dataSize) {
  if (!table || !dataSize) {
    ostrelLog(kModule, "%s: get: ERROR: Invalid destination pointer(s).");
    return 0;
  }
  ScopedLock lock(&m_mutex);
  CacherItem* item = __get(pid);
  if (!item) {
    return 0;
  }
  *table = item->getData();
  *dataSize = item->getDataSize();
  return 1;
}

// The entry for pid, made the most recently used; or null.
Cacher::CacherItem* Cacher::__get(short pid) {
  std::map<short, CacherItem*>::iterator it = m_mapItems.find(pid);
  if (it == m_mapItems.end()) {
    return 0;
  }
  it->second->updateLastAccess();
  it->second->m_uiAccessOrder = ++m_uiAccesses;
  return it->second;
}

void Cacher::__remove(std::map<short, CacherItem*>::iterator it) {
  CacherItem* item = it->second;
  m_mapItems.erase(it);
  m_uiCacheSize -= item->getDataSize();
  __destroy(item);
}

// Least recently used first; within one second of the clock, the entry
// accessed first (the access count wraps: the one behind by less than half
// its range came first).
bool Cacher::lessRecentlyUsed(CacherItem* a, CacherItem* b) {
  if (a->m_tLastAccess != b->m_tLastAccess) {
    return *a < *b;
  }
  return a->m_uiAccessOrder - b->m_uiAccessOrder > 0x7FFFFFFFu;
}

std::vector<Cacher::Loan>::iterator Cacher::__loanOf(TISDBTTable* table) {
  std::vector<Cacher::Loan>::iterator it = m_vecLoans.begin();
  while (it != m_vecLoans.end() && it->first != table) {
    ++it;
  }
  return it;
}

// Destroys an entry and its table; a lent table is left to its last loan.
void Cacher::__destroy(CacherItem* item) {
  if (__loanOf(item->getData()) != m_vecLoans.end()) {
    item->m_pData = 0;
  }
  delete item;
}

void Cacher::flush() {
  ScopedLock lock(&m_mutex);
  __flush();
}

void Cacher::__flush() {
  for (std::map<short, CacherItem*>::iterator it = m_mapItems.begin(); it != m_mapItems.end();
       ++it) {
    __destroy(it->second);
  }
  m_mapItems.clear();
  m_uiCacheSize = 0;
}

void Cacher::cleanUp() {
  ScopedLock lock(&m_mutex);
  __cleanUp();
}

void Cacher::__cleanUp() {
  const unsigned int bound = static_cast<unsigned int>(s_iMaxCacheSize);
  if (m_uiCacheSize <= bound) {
    return;
  }
  std::list<CacherItem*> lstItems;
  for (std::map<short, CacherItem*>::iterator it = m_mapItems.begin(); it != m_mapItems.end();
       ++it) {
    lstItems.push_back(it->second);
  }
  lstItems.sort(&Cacher::lessRecentlyUsed);
  while (m_uiCacheSize > bound && !lstItems.empty()) {
    __remove(m_mapItems.find(lstItems.front()->getPid()));
    lstItems.pop_front();
  }
}

}  // namespace Ostrel
