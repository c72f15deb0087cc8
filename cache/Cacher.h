#ifndef OSTREL_CACHER_H
#define OSTREL_CACHER_H

#include <pthread.h>

#include <map>
#include <utility>
#include <vector>

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
// lock. A cache is made on the first use of its tuner id and lives until the
// process ends: nothing destroys it.
class OSTREL_EXPORT Cacher {
 public:
  class CacherItem;

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

  // Stores table under pid, replacing (and destroying) the table cached there,
  // then removes least recently used entries while the bound is exceeded. From
  // the call on the cache owns table; never pass the table already cached
  // under pid. A null table or a dataSize of 0 is logged and stores nothing:
  // the caller keeps the table. Any thread.
  void add(short pid, short tableId, short tableIdExt, TISDBTTable* table, unsigned int dataSize);

  // On a hit returns 1, writes the cached table and its data size and makes the
  // entry the most recently used; returns 0 and writes nothing otherwise. The
  // table stays the cache's: it must not be destroyed, and it is valid only
  // until its entry is replaced, removed by the clean-up or flushed, possibly
  // by another thread. Null outputs are logged; 0. Any thread.
  int get(short pid, short tableId, short tableIdExt, TISDBTTable** table, unsigned int* dataSize);

  // Empties the cache, destroying its tables. Any thread.
  void flush();

  // Removes least recently used entries while the sum exceeds the bound. Any
  // thread.
  void cleanUp();
  // The clean-up itself. REQUIRES: m_mutex held.
  void __cleanUp();

  // Empties the cache as flush does. The library never destroys a cache.
  virtual ~Cacher();

 private:
  friend class CacheLoan;

  // Made only by getInstance.
  explicit Cacher(int tunerId);
  Cacher(const Cacher&);
  Cacher& operator=(const Cacher&);

  // REQUIRES: m_mutex held (for every body below).
  OSTREL_LOCAL CacherItem* __get(short pid);
  OSTREL_LOCAL void __remove(std::map<short, CacherItem*>::iterator it);
  OSTREL_LOCAL void __destroy(CacherItem* item);
  OSTREL_LOCAL void __flush();
  OSTREL_LOCAL static bool lessRecentlyUsed(CacherItem* a, CacherItem* b);

  pthread_mutex_t m_mutex;
  int m_iTunerId;
  std::map<short, CacherItem*> m_mapItems;  // owned entries, by PID
  unsigned int m_uiCacheSize;               // sum of the entries' data sizes

  // Tables lent to the library's own delivery paths (CacheLoan), with their
  // loan counts: a handful at most, one per delivery under way. An entry that
  // goes while its table is lent leaves the table to the last loan, which
  // destroys it.
  typedef std::pair<TISDBTTable*, unsigned int> Loan;
  std::vector<Loan> m_vecLoans;
  OSTREL_LOCAL std::vector<Loan>::iterator __loanOf(TISDBTTable* table);
  // Order of the entries' accesses, telling apart those of one second.
  unsigned int m_uiAccesses;
};

}  // namespace Ostrel

#endif  // OSTREL_CACHER_H
