#ifndef OSTREL_CACHER_ITEM_H
#define OSTREL_CACHER_ITEM_H

#include <time.h>

#include <atomic>
#include <memory>

#include "Cacher.h"
#include "OstrelExport.h"

namespace Ostrel {

// One cache entry: a table under its PID, the data size that counts against
// the cache's bound and the time of its making or last read. The entry holds
// one reference to the table; the table is destroyed when the last reference
// goes. Guarded by the mutex of the cache that holds it.
class OSTREL_EXPORT Cacher::CacherItem {
 public:
  // Takes ownership of table. tableId and tableIdExt are accepted, not kept.
  CacherItem(short pid, short tableId, short tableIdExt, TISDBTTable* table, unsigned int dataSize);
  // Shares table with the caller.
  CacherItem(short pid, short tableId, short tableIdExt, const std::shared_ptr<TISDBTTable>& table,
             unsigned int dataSize);
  // Drops the entry's reference to its table.
  ~CacherItem();

  short getPid() const { return m_sPid; }
  // The table, still the entry's; valid while the entry holds it.
  TISDBTTable* getData() const { return m_pData.get(); }
  // A reference to the table for a borrower that may outlive the entry.
  const std::shared_ptr<TISDBTTable>& getSharedData() const { return m_pData; }
  unsigned int getDataSize() const { return m_uiDataSize; }
  time_t getLastAccess() const { return m_tLastAccess; }

  // Makes the entry the most recently used, at the cache's clock.
  void updateLastAccess();

  // True when this entry was used less recently than other: the earlier last
  // access, and among accesses in the same second, the earlier one.
  bool operator<(const CacherItem& other) const;

 private:
  CacherItem(const CacherItem&);
  CacherItem& operator=(const CacherItem&);

  short m_sPid;
  std::shared_ptr<TISDBTTable> m_pData;
  unsigned int m_uiDataSize;
  time_t m_tLastAccess;
  // Order of accesses, to tell apart those within one second of the clock.
  unsigned int m_uiAccessOrder;

  static std::atomic<unsigned int> s_uiAccessCounter;
};

}  // namespace Ostrel

#endif  // OSTREL_CACHER_ITEM_H
