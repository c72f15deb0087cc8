#ifndef OSTREL_CACHE_LOAN_H
#define OSTREL_CACHE_LOAN_H

#include "Cacher.h"

namespace Ostrel {

// A table of a tuner's cache, kept alive for as long as the loan lasts, even
// when another thread (or the cache's own clean-up) replaces, evicts or
// flushes its entry meanwhile: the core delivers cached and newly injected
// tables through loans, so a table lent to the notification callback stays
// valid for the whole call. One loan, one thread; internal to the library.
class CacheLoan {
 public:
  CacheLoan() : m_pCache(0), m_pTable(0), m_sPid(0) {}
  // Gives the table back: destroyed here when its entry went meanwhile.
  ~CacheLoan();

  // Borrows the table cached under pid, making it the most recently used, as
  // Cacher::get does. False, and nothing lent, when none is cached.
  bool borrow(Cacher* cache, short pid, short tableId, short tableIdExt);

  // Stores table as Cacher::add does and keeps it lent; from the call on the
  // cache and the loan own it between them. A table that add refuses stays
  // the loan's and goes with it.
  void store(Cacher* cache, short pid, short tableId, short tableIdExt, TISDBTTable* table,
             unsigned int dataSize);

  TISDBTTable* table() const { return m_pTable; }

 private:
  CacheLoan(const CacheLoan&);
  CacheLoan& operator=(const CacheLoan&);

  // REQUIRES: the cache's m_mutex held.
  void __lend(Cacher* cache, short pid, TISDBTTable* table);

  Cacher* m_pCache;
  TISDBTTable* m_pTable;
  short m_sPid;
};

}  // namespace Ostrel

#endif  // OSTREL_CACHE_LOAN_H
