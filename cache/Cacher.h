#ifndef OSTREL_CACHER_H
#define OSTREL_CACHER_H

#include <pthread.h>
#include <time.h>

#include <atomic>
#include <map>
#include <memory>

#include "OstrelExport.h"

namespace Ostrel {

class TISDBTTable;

// The parsed tables of one tuner, one per PID, so that a table already
// received can be answered from memory. The sum of the data sizes given to
// add is kept at most s_iMaxCacheSize; above it the least recently used
// entries go first. Table id and extension take no part in storing or finding.
//
// Locking: each cache's m_mutex (recursive) guards its entries and size and is
// held for the whole of add, get, flush and cleanUp; s_pStaticMutex guards
// s_pInstances only, inside getInstance. Caches of different tuners share no
// lock. Caches are made on first use and live until the library is unloaded
// or the process exits, when they go with s_pInstances.
//
// Lending: an entry holds a shared reference to its table. A table handed out
// as a std::shared_ptr (the shared get, or the caller's own reference after the
// shared add) stays valid for as long as the borrower keeps that handle, even
// when another thread replaces, evicts or flushes the entry meanwhile; the
// table is destroyed when the last holder lets go. A raw pointer written by the
// raw get is only valid while the entry stays cached.
class OSTREL_EXPORT Cacher {
 public:
  class CacherItem;

  // The clock used for last-access times: time_t (*)(time_t*), like ::time.
  typedef time_t (*Clock)(time_t*);

  // The cache of each tuner id. Guarded by s_pStaticMutex.
  static std::map<int, Cacher*> s_pInstances;
  // Recursive; held only inside getInstance.
  static pthread_mutex_t s_pStaticMutex;
  // Bound on every cache's sum of data sizes, compared as unsigned. Set it
  // before the caches are in use.
  static int s_iMaxCacheSize;

  // The cache of tunerId, made on its first use; the same object on every
  // later call. Any thread.
  static Cacher* getInstance(int tunerId);

  // Stores table under pid, replacing any table cached there, then cleans up
  // when the bound is exceeded. From the call on the cache owns table, which no
  // one else may own (the table already cached under pid is kept, not owned
  // twice); should the allocator throw, the exception passes on and the table
  // is destroyed. A null table or a dataSize of 0 is logged and stores nothing;
  // the caller keeps the table. Any thread.
  void add(short pid, short tableId, short tableIdExt, TISDBTTable* table, unsigned int dataSize);

  // For the library's own use. Stores table (shared): the cache keeps one
  // reference and the caller may go on using its own, even after the entry is
  // replaced, evicted or flushed. A null table or a dataSize of 0 is logged and
  // stores nothing. Any thread.
  void add(short pid, short tableId, short tableIdExt, const std::shared_ptr<TISDBTTable>& table,
           unsigned int dataSize);

  // On a hit returns 1, writes the cached table and its data size and makes the
  // entry the most recently used; returns 0 and writes nothing otherwise. The
  // table stays the cache's: it must not be destroyed and is valid only until
  // the entry is replaced, evicted or flushed, possibly by another thread; a
  // caller that uses it after the call should take the shared get. Null
  // outputs are logged; 0. Any thread.
  int get(short pid, short tableId, short tableIdExt, TISDBTTable** table, unsigned int* dataSize);

  // For the library's own use. Like the raw get, but lends a shared handle
  // that keeps the table alive after a replace, eviction or flush.
  int get(short pid, short tableId, short tableIdExt, std::shared_ptr<TISDBTTable>* table,
          unsigned int* dataSize);

  // The tuner whose tables the cache holds.
  int getTunerId() const { return m_iTunerId; }

  // Empties the cache; each table goes once its last borrower lets go. Any
  // thread.
  void flush();

  // Removes least recently used entries while the sum exceeds the bound.
  void cleanUp();
  // REQUIRES: m_mutex held.
  void __cleanUp();

  // Tests: the function used for last-access times (default ::time); null
  // restores ::time. Any thread.
  static void setClock(Clock clock);

  // Empties the cache as flush does. The library destroys caches only at exit.
  virtual ~Cacher();

 private:
  explicit Cacher(int tunerId);
  Cacher(const Cacher&);
  Cacher& operator=(const Cacher&);

  static time_t now();
  static void logMessage(const char* format);

  // REQUIRES: m_mutex held.
  std::shared_ptr<TISDBTTable> __adopt(short pid, TISDBTTable* table);
  // REQUIRES: m_mutex held.
  void __add(short pid, short tableId, short tableIdExt, const std::shared_ptr<TISDBTTable>& table,
             unsigned int dataSize);
  // The entry for pid, made the most recently used; or null.
  // REQUIRES: m_mutex held.
  CacherItem* __get(short pid);
  // The entry for pid, or null; its last access is left alone.
  // REQUIRES: m_mutex held.
  CacherItem* __find(short pid);
  // REQUIRES: m_mutex held.
  void __remove(short pid);
  // REQUIRES: m_mutex held.
  void __evictUntil(unsigned int limit);
  // REQUIRES: m_mutex held.
  void __flush();

  pthread_mutex_t m_mutex;
  int m_iTunerId;
  std::map<short, CacherItem*> m_mapItems;  // owned entries, by PID
  unsigned int m_uiCacheSize;               // sum of the entries' data sizes

  static std::atomic<Clock> s_pClock;
};

}  // namespace Ostrel

#endif  // OSTREL_CACHER_H
