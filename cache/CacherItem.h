#ifndef OSTREL_CACHER_ITEM_H
#define OSTREL_CACHER_ITEM_H

#include <time.h>

#include "Cacher.h"
#include "OstrelExport.h"

namespace Ostrel {

// One cache entry: a table under its PID, the data size that counts against
// the cache's bound and the time of its making or last read. The entry owns
// its table. Guarded by the mutex of the cache that holds it.
class OSTREL_EXPORT Cacher::CacherItem {
 public:
  // Takes ownership of table; last access now. tableId and tableIdExt are
  // accepted, not kept.
  CacherItem(short pid, short tableId, short tableIdExt, TISDBTTable* table, unsigned int dataSize);
  // Destroys the table.
  ~CacherItem();

  short getPid() { return m_sPid; }
  // The table, still the entry's.
  TISDBTTable* getData() { return m_pData; }
  unsigned int getDataSize() { return m_uiDataSize; }

  // Makes the entry the most recently used: last access now.
  void updateLastAccess();

  // True when this entry's last access is earlier than other's.
  bool operator<(const CacherItem& other);

 private:
  friend class Cacher;

  CacherItem(const CacherItem&);
  CacherItem& operator=(const CacherItem&);

  short m_sPid;
  TISDBTTable* m_pData;
  unsigned int m_uiDataSize;
  time_t m_tLastAccess;
  // The cache's access count at the last access, set by the cache.
  unsigned int m_uiAccessOrder;
};

}  // namespace Ostrel

#endif  // OSTREL_CACHER_ITEM_H
