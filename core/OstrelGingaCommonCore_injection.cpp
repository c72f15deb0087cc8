// Section data delivered by the server: parsed, cached, handed to the requests
// that wait for it and announced when it is event data.
#include <list>
#include <memory>

#include "CacheLoan.h"
#include "CommandDispatch.h"
#include "OstrelGingaCommonCore.h"
#include "RequestFollower.h"
#include "TNITTable.h"
#include "TPATTable.h"
#include "TPMTTable.h"
#include "TSDTTable.h"
#include "TTOTTable.h"
#include "TableCatalog.h"

namespace Ostrel {

namespace {

typedef std::list<RequestFollower::RequestFollowerItem*> ItemList;

const unsigned int kTypeEventData = 0x003D0000u;

// Owns the requests taken out of the follower: whatever is left when the
// injection ends, a callback's exception included, is destroyed (releasing its
// user data) with the list.
class TakenRequests {
 public:
  explicit TakenRequests(ItemList* items) : m_pItems(items) {}
  ~TakenRequests() {
    for (ItemList::iterator it = m_pItems->begin(); it != m_pItems->end(); ++it) {
      delete *it;
    }
    delete m_pItems;
  }
  ItemList* get() const { return m_pItems; }

 private:
  TakenRequests(const TakenRequests&);
  TakenRequests& operator=(const TakenRequests&);

  ItemList* m_pItems;
};

// Hands table to every outstanding request with exactly this key, each then
// destroyed (releasing its user data) whatever the callback answered, and
// announces event data. 1 when the table answered or was announced.
int deliver(OstrelGingaCommonCore* core, int tunerId, short pid, short tableId, short tableIdExt,
            TISDBTTable* table) {
  int result = 0;
  short localError = 0;
  {
    TakenRequests taken(RequestFollower::remove(tunerId, pid, tableId, tableIdExt));
    ItemList* items = taken.get();
    while (!items->empty()) {
      RequestFollower::RequestFollowerItem* item = items->front();
      core->dispatchRequestFeedback(item->getRequestId(), 0, item->getUserData(), table,
                                    &localError);
      items->pop_front();
      delete item;
      result = 1;
    }
  }
  if (core->isEventData(table)) {
    core->dispatchRequestFeedback(0, 2, 0, table, &localError);
    result = 1;
  }
  return result;
}

}  // namespace

// A cacheable table is stored through a loan and an uncacheable one is owned
// here: either way it stays valid until the last notification has returned,
// though the cache may replace or evict it on another thread, or its own
// clean-up evict it at once.
int OstrelGingaCommonCore::injectData(int tunerId, short pid, short tableId, short tableIdExt,
                                      void* context, unsigned char* data, unsigned int size) {
  TISDBTTable* parsed = parseData(tunerId, pid, tableId, tableIdExt, context, data, size);
  if (!parsed) {
    ostrelLog(kCoreModule, "%s: injectData: ERROR: Could not parse data!");
    return 0;
  }
  CacheLoan loan;
  std::unique_ptr<TISDBTTable> uncached;
  if (!isCacheable(parsed)) {
    uncached.reset(parsed);
  } else if (Cacher* cache = Cacher::getInstance(tunerId)) {
    loan.store(cache, pid, tableId, tableIdExt, parsed, size);
  } else {
    uncached.reset(parsed);
    ostrelLog(kCoreModule, "%s: injectData: ERROR: Could not get Cacher for this tuner!");
  }
  return deliver(this, tunerId, pid, tableId, tableIdExt, parsed);
}

TISDBTTable* OstrelGingaCommonCore::parseData(int /*tunerId*/, short pid, short tableId,
                                              short /*tableIdExt*/, void* /*context*/,
                                              unsigned char* data, unsigned int size) {
  switch (TableKind::of(pid, tableId).parser) {
    case TableKind::kParsePat:
      return TPATTable::parse(data, size, 1, 1, 0, 0);
    case TableKind::kParseNit:
      return TNITTable::parse(data, size, 1, 1, 0, 0);
    case TableKind::kParseSdt:
      return TSDTTable::parse(data, size, 1, 1, 0, 0);
    case TableKind::kParseTot:
      return TTOTTable::parse(data, size, 1, 1, 0, 0);
    case TableKind::kParsePmt:
      return TPMTTable::parse(data, size, 1, 1, 0, 0);
    default:  // CAT, EIT and the PIDs 0x24 and 0x26 are never parsed
      return 0;
  }
}

int OstrelGingaCommonCore::isCacheable(TISDBTTable* table) {
  return TableKind::isCacheable(table->getType()) ? 1 : 0;
}

int OstrelGingaCommonCore::isEventData(TISDBTTable* table) {
  return table->getType() == kTypeEventData ? 1 : 0;
}

}  // namespace Ostrel
