// Section data delivered by the server: parsed, cached, handed to the requests
// that wait for it and announced when it is event data.
#include <list>
#include <memory>

#include "Cacher.h"
#include "CommandDispatch.h"
#include "OstrelGingaCommonCore.h"
#include "RequestFollower.h"
#include "TNITTable.h"
#include "TPATTable.h"
#include "TPMTTable.h"
#include "TSDTTable.h"
#include "TTOTTable.h"

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

}  // namespace

// The table is held by a shared handle for the whole injection: the cache may
// replace or evict it on another thread, or its own clean-up may evict it at
// once, and it must stay valid until the last notification has returned. A
// table that nobody else holds is destroyed when the injection returns.
int OstrelGingaCommonCore::injectData(int tunerId, short pid, short tableId, short tableIdExt,
                                      void* context, unsigned char* data, unsigned int size) {
  std::shared_ptr<TISDBTTable> table(
      parseData(tunerId, pid, tableId, tableIdExt, context, data, size));
  if (!table) {
    CommandDispatch::log("%s: injectData: ERROR: Could not parse data!");
    return 0;
  }
  if (isCacheable(table.get())) {
    Cacher* cache = Cacher::getInstance(tunerId);
    if (cache) {
      cache->add(pid, tableId, tableIdExt, table, size);
    } else {
      CommandDispatch::log("%s: injectData: ERROR: Could not get Cacher for this tuner!");
    }
  }
  int result = 0;
  short localError = 0;
  {
    TakenRequests taken(RequestFollower::remove(tunerId, pid, tableId, tableIdExt));
    ItemList* items = taken.get();
    while (!items->empty()) {
      RequestFollower::RequestFollowerItem* item = items->front();
      dispatchRequestFeedback(item->getRequestId(), 0, item->getUserData(), table.get(),
                              &localError);
      items->pop_front();
      delete item;  // releases its user data, whatever the callback answered
      result = 1;
    }
  }
  if (isEventData(table.get())) {
    dispatchRequestFeedback(0, 2, 0, table.get(), &localError);
    result = 1;
  }
  return result;
}

TISDBTTable* OstrelGingaCommonCore::parseData(int /*tunerId*/, short pid, short tableId,
                                              short /*tableIdExt*/, void* /*context*/,
                                              unsigned char* data, unsigned int size) {
  switch (static_cast<unsigned short>(pid)) {
    case 0x0000:
      return TPATTable::parse(data, size, 1, 1, 0, 0);
    case 0x0010:
      return TNITTable::parse(data, size, 1, 1, 0, 0);
    case 0x0011:
      return TSDTTable::parse(data, size, 1, 1, 0, 0);
    case 0x0014:
      return TTOTTable::parse(data, size, 1, 1, 0, 0);
    case 0x0001:  // CAT, EIT and the ISDB PIDs 0x24 and 0x26 are never parsed
    case 0x0012:
    case 0x0024:
    case 0x0026:
      return 0;
    default:
      return tableId == 0x02 ? TPMTTable::parse(data, size, 1, 1, 0, 0) : 0;
  }
}

int OstrelGingaCommonCore::isCacheable(TISDBTTable* table) {
  switch (table->getType()) {
    case 0x00000000u:
    case 0x00010000u:
    case 0x00100000u:
    case 0x00110000u:
    case 0x00120000u:
    case 0x0012004Eu:
    case 0x0012004Fu:
    case 0x00140000u:
    case 0x00240000u:
    case 0x00260000u:
    case 0xFFFF0002u:
    case 0xFFFF0074u:
      return 1;
    default:
      return 0;
  }
}

int OstrelGingaCommonCore::isEventData(TISDBTTable* table) {
  return table->getType() == kTypeEventData ? 1 : 0;
}

}  // namespace Ostrel
