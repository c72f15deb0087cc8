// The per-tuner table cache: storing, finding, flushing and the clean-up.
#include "Cacher.h"

#include <limits.h>

#include <list>

#include "CacherItem.h"
#include "OstrelLogger.h"
#include "ScopedLock.h"
#include "TISDBTTable.h"

namespace Ostrel {

namespace {

const char* const kModule = "Cacher";

// Orders entry pointers least recently used first.
bool lessRecentlyUsed(const Cacher::CacherItem* a, const Cacher::CacherItem* b) {
  return *a < *b;
}

}  // namespace

std::map<int, Cacher*> Cacher::s_pInstances;
pthread_mutex_t Cacher::s_pStaticMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
int Cacher::s_iMaxCacheSize = 2048;
std::atomic<Cacher::Clock> Cacher::s_pClock(&::time);

namespace {

// The caches go with the map that holds them, when the library is unloaded or
// the process exits; nothing destroys them before. Defined after
// s_pInstances, so destroyed before it.
struct InstancesAtExit {
  ~InstancesAtExit() {
    ScopedLock lock(&Cacher::s_pStaticMutex);
    for (std::map<int, Cacher*>::iterator it = Cacher::s_pInstances.begin();
         it != Cacher::s_pInstances.end(); ++it) {
      delete it->second;
    }
    Cacher::s_pInstances.clear();
  }
} s_instancesAtExit;

}  // namespace

Cacher* Cacher::getInstance(int tunerId) {
  ScopedLock lock(&s_pStaticMutex);
  std::map<int, Cacher*>::iterator it = s_pInstances.find(tunerId);
  if (it != s_pInstances.end()) {
    return it->second;
  }
  std::unique_ptr<Cacher> cache(new Cacher(tunerId));
  s_pInstances.insert(std::make_pair(tunerId, cache.get()));  // may throw: cache freed
  return cache.release();
}

Cacher::Cacher(int tunerId) : m_iTunerId(tunerId), m_uiCacheSize(0) {
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

void Cacher::setClock(Clock clock) {
  s_pClock.store(clock ? clock : &::time, std::memory_order_release);
}

time_t Cacher::now() {
  return s_pClock.load(std::memory_order_acquire)(NULL);
}

void Cacher::logMessage(const char* format) {
  ostrel_log_std_generic(4, kModule, format, kModule);
}

void Cacher::add(short pid, short tableId, short tableIdExt, TISDBTTable* table,
                 unsigned int dataSize) {
  if (!table || dataSize == 0) {
    logMessage("%s: add: Can't add an empty item...");
    return;
  }
  ScopedLock lock(&m_mutex);
  __add(pid, tableId, tableIdExt, __adopt(pid, table), dataSize);
}

void Cacher::add(short pid, short tableId, short tableIdExt,
                 const std::shared_ptr<TISDBTTable>& table, unsigned int dataSize) {
  if (!table || dataSize == 0) {
    logMessage("%s: add: Can't add an empty item...");
    return;
  }
  ScopedLock lock(&m_mutex);
  __add(pid, tableId, tableIdExt, table, dataSize);
}

// REQUIRES: m_mutex held.
std::shared_ptr<TISDBTTable> Cacher::__adopt(short pid, TISDBTTable* table) {
  // The table already cached under pid keeps its one set of owners; wrapping
  // it again would destroy it twice.
  CacherItem* item = __find(pid);
  if (item && item->getData() == table) {
    return item->getSharedData();
  }
  return std::shared_ptr<TISDBTTable>(table);
}

// REQUIRES: m_mutex held.
void Cacher::__add(short pid, short tableId, short tableIdExt,
                   const std::shared_ptr<TISDBTTable>& table, unsigned int dataSize) {
  std::unique_ptr<CacherItem> item(new CacherItem(pid, tableId, tableIdExt, table, dataSize));
  std::map<short, CacherItem*>::iterator it = m_mapItems.find(pid);
  if (it != m_mapItems.end() && m_uiCacheSize - it->second->getDataSize() <= UINT_MAX - dataSize) {
    // A new table for a cached PID, the usual case (a new version of the
    // section): the entry changes, its node in the map stays.
    CacherItem* old = it->second;
    it->second = item.release();
    m_uiCacheSize -= old->getDataSize();
    delete old;
  } else {
    __remove(pid);
    // Only a size near the 32-bit limit needs this: older entries go first so
    // that the sum stays exact.
    __evictUntil(UINT_MAX - dataSize);
    m_mapItems.insert(std::make_pair(pid, item.get()));  // may throw: item freed
    item.release();
  }
  m_uiCacheSize += dataSize;
  if (m_uiCacheSize > static_cast<unsigned int>(s_iMaxCacheSize)) {
    __cleanUp();
  }
}

// The lookup of the shared get; the entry keeps the table, so the pointer
// stays valid for as long as the cache holds it.
int Cacher::get(short pid, short tableId, short tableIdExt, TISDBTTable** table,
                unsigned int* dataSize) {
  if (!table) {
    logMessage("%s: get: ERROR: Invalid destination pointer(s).");
    return 0;
  }
  std::shared_ptr<TISDBTTable> shared;
  if (!get(pid, tableId, tableIdExt, &shared, dataSize)) {
    return 0;
  }
  *table = shared.get();
  return 1;
}

int Cacher::get(short pid, short /*tableId*/, short /*tableIdExt*/,
                std::shared_ptr<TISDBTTable>* table, unsigned int* dataSize) {
  if (!table || !dataSize) {
    logMessage("%s: get: ERROR: Invalid destination pointer(s).");
    return 0;
  }
  ScopedLock lock(&m_mutex);
  CacherItem* item = __get(pid);
  if (!item) {
    return 0;
  }
  *table = item->getSharedData();
  *dataSize = item->getDataSize();
  return 1;
}

// REQUIRES: m_mutex held.
Cacher::CacherItem* Cacher::__get(short pid) {
  CacherItem* item = __find(pid);
  if (item) {
    item->updateLastAccess();
  }
  return item;
}

// REQUIRES: m_mutex held.
Cacher::CacherItem* Cacher::__find(short pid) {
  std::map<short, CacherItem*>::iterator it = m_mapItems.find(pid);
  return it == m_mapItems.end() ? NULL : it->second;
}

// REQUIRES: m_mutex held.
void Cacher::__remove(short pid) {
  std::map<short, CacherItem*>::iterator it = m_mapItems.find(pid);
  if (it == m_mapItems.end()) {
    return;
  }
  CacherItem* item = it->second;
  m_mapItems.erase(it);
  m_uiCacheSize -= item->getDataSize();
  delete item;
}

void Cacher::flush() {
  ScopedLock lock(&m_mutex);
  __flush();
}

// REQUIRES: m_mutex held.
void Cacher::__flush() {
  for (std::map<short, CacherItem*>::iterator it = m_mapItems.begin(); it != m_mapItems.end();
       ++it) {
    delete it->second;
  }
  m_mapItems.clear();
  m_uiCacheSize = 0;
}

void Cacher::cleanUp() {
  ScopedLock lock(&m_mutex);
  __cleanUp();
}

// REQUIRES: m_mutex held.
void Cacher::__cleanUp() {
  __evictUntil(static_cast<unsigned int>(s_iMaxCacheSize));
}

// REQUIRES: m_mutex held.
void Cacher::__evictUntil(unsigned int limit) {
  if (m_uiCacheSize <= limit) {
    return;
  }
  std::list<CacherItem*> lstItems;
  for (std::map<short, CacherItem*>::iterator it = m_mapItems.begin(); it != m_mapItems.end();
       ++it) {
    lstItems.push_back(it->second);
  }
  lstItems.sort(lessRecentlyUsed);
  while (m_uiCacheSize > limit && !lstItems.empty()) {
    __remove(lstItems.front()->getPid());
    lstItems.pop_front();
  }
}

}  // namespace Ostrel
