// The registry of outstanding requests: instance, categories, add, get and
// remove, the teardown, and the monitor thread that reports time-outs.
#include "RequestFollower.h"

#include <limits>
#include <memory>

#include "OstrelGingaCommonCore.h"
#include "OstrelLog.h"
#include "ScopedLock.h"
#include "TableCatalog.h"

namespace Ostrel {

namespace {

const char* const kModule = "RequestFollower";
const long kMicrosecondsPerSecond = 1000000L;

// Set on every monitor thread, of whichever instance.
thread_local bool s_bOnMonitorThread = false;

// RequestFollowerItem::TimevalComparator's order.
bool earlier(const timeval& a, const timeval& b) {
  return a.tv_sec != b.tv_sec ? a.tv_sec < b.tv_sec : a.tv_usec < b.tv_usec;
}

// now + timeOut with the microsecond carry. False for microseconds outside
// 0..999999, which would give the monitor an invalid wait limit. Seconds
// saturate instead of overflowing a 32-bit time_t.
bool deadlineAfter(const timeval& now, const timeval& timeOut, timeval* deadline) {
  if (timeOut.tv_usec < 0 || timeOut.tv_usec >= kMicrosecondsPerSecond || now.tv_usec < 0 ||
      now.tv_usec >= kMicrosecondsPerSecond) {
    return false;
  }
  const long usec = now.tv_usec + timeOut.tv_usec;
  const time_t carry = usec >= kMicrosecondsPerSecond ? 1 : 0;
  const time_t maxSec = std::numeric_limits<time_t>::max();
  const time_t minSec = std::numeric_limits<time_t>::min();
  const bool over = timeOut.tv_sec >= 0 && now.tv_sec > maxSec - timeOut.tv_sec - carry;
  const bool under = timeOut.tv_sec < 0 && now.tv_sec < minSec - timeOut.tv_sec;
  deadline->tv_sec = over ? maxSec : under ? minSec : now.tv_sec + timeOut.tv_sec + carry;
  deadline->tv_usec = over ? kMicrosecondsPerSecond - 1 : under ? 0 : usec - carry * 1000000L;
  return true;
}

}  // namespace

RequestFollower* RequestFollower::s_pInstance = NULL;
pthread_mutex_t RequestFollower::s_pSingMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

bool RequestFollower::Key::operator<(const Key& other) const {
  return iTunerId != other.iTunerId   ? iTunerId < other.iTunerId
         : sPid != other.sPid         ? sPid < other.sPid
         : sTableId != other.sTableId ? sTableId < other.sTableId
                                      : sTableIdExt < other.sTableIdExt;
}

// ---- Instance ----

// The monitor thread is joinable, so that the teardown can wait for its end.
// A failure to start it leaves m_thread at 0: requests are still followed but
// never time out.
RequestFollower::RequestFollower() : m_thread(pthread_t()), m_iStop(0), m_ulSequence(0) {
  pthread_cond_init(&m_cond, NULL);
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_JOINABLE);
  if (pthread_create(&m_thread, &attr, &RequestFollower::monitorThread, this) != 0) {
    m_thread = pthread_t();
  }
  pthread_attr_destroy(&attr);
}

// The instance is already unreachable (destroy detached it), so nothing here
// needs the lock except stopping the thread; the release functions run
// without any lock of ours.
RequestFollower::~RequestFollower() {
  {
    ScopedLock lock(&s_pSingMutex);
    m_iStop = 1;
    pthread_cond_broadcast(&m_cond);
  }
  // Without the lock: the thread needs it to leave its wait.
  if (m_thread != pthread_t()) {
    pthread_join(m_thread, NULL);
    m_thread = pthread_t();
  }
  // The key index holds every pending item exactly once.
  for (KeyIndex::iterator it = m_mapKey.begin(); it != m_mapKey.end(); ++it) {
    delete it->second.pItem;
  }
  pthread_cond_destroy(&m_cond);
}

bool RequestFollower::getInstance() {
  if (__atomic_load_n(&s_pInstance, __ATOMIC_ACQUIRE)) {
    return true;
  }
  {
    ScopedLock lock(&s_pSingMutex);
    if (!__atomic_load_n(&s_pInstance, __ATOMIC_RELAXED)) {
      __atomic_store_n(&s_pInstance, new RequestFollower(), __ATOMIC_RELEASE);
    }
  }
  if (__atomic_load_n(&s_pInstance, __ATOMIC_ACQUIRE)) {
    return true;
  }
  ostrelLog(kModule, "%s: Could not initialize it!");
  return false;
}

// The pointer is detached under the lock and the instance torn down without
// it, so that the monitor thread can take the lock to see its stop flag. A
// monitor thread (of this instance or of one already detached) may hold the
// lock in a report and would wait for itself or deadlock with the thread it
// joins, so it may not tear down.
bool RequestFollower::destroy() {
  if (s_bOnMonitorThread) {
    ostrelLog(kModule, "%s: destroy: ERROR: Not allowed on the monitor thread.");
    return false;
  }
  RequestFollower* follower = NULL;
  {
    ScopedLock lock(&s_pSingMutex);
    follower = __atomic_load_n(&s_pInstance, __ATOMIC_RELAXED);
    __atomic_store_n(&s_pInstance, static_cast<RequestFollower*>(NULL), __ATOMIC_RELEASE);
  }
  if (!follower) {
    ostrelLog(kModule, "%s: Instance not found!");
    return false;
  }
  delete follower;
  return true;
}

// ---- Public operations ----

// One public operation: the lock and the instance read again under it (null
// when a concurrent destroy has detached it, or there is none).
class OSTREL_LOCAL RequestFollower::Call {
 public:
  Call() : m_bLocked(getInstance()), m_pFollower(NULL) {
    if (m_bLocked) {
      pthread_mutex_lock(&s_pSingMutex);
      m_pFollower = __atomic_load_n(&s_pInstance, __ATOMIC_RELAXED);
    }
  }
  ~Call() {
    if (m_bLocked) {
      pthread_mutex_unlock(&s_pSingMutex);
    }
  }
  RequestFollower* follower() const { return m_pFollower; }

 private:
  Call(const Call&);
  Call& operator=(const Call&);

  bool m_bLocked;
  RequestFollower* m_pFollower;
};

bool RequestFollower::add(unsigned int requestId, int tunerId, short pid, short tableId,
                          short tableIdExt, void* userData, void (*release)(void*), timeval timeOut,
                          unsigned int requestCounter) {
  Call call;
  return call.follower() && call.follower()->__add(requestId, tunerId, pid, tableId, tableIdExt,
                                                   userData, release, timeOut, requestCounter);
}

RequestFollower::RequestFollowerItem* RequestFollower::get(unsigned int requestId) {
  Call call;
  return call.follower() ? call.follower()->__get(requestId) : NULL;
}

std::list<RequestFollower::RequestFollowerItem*>* RequestFollower::get(int tunerId, short pid,
                                                                       short tableId,
                                                                       short tableIdExt) {
  Call call;
  return call.follower() ? call.follower()->__get(tunerId, pid, tableId, tableIdExt)
                         : new ItemPtrList();
}

RequestFollower::RequestFollowerItem* RequestFollower::remove(unsigned int requestId) {
  Call call;
  return call.follower() ? call.follower()->__remove(requestId) : NULL;
}

std::list<RequestFollower::RequestFollowerItem*>* RequestFollower::remove(int tunerId, short pid,
                                                                          short tableId,
                                                                          short tableIdExt) {
  Call call;
  return call.follower() ? call.follower()->__remove(tunerId, pid, tableId, tableIdExt)
                         : new ItemPtrList();
}

// Every node is made before the item: an allocation failure undoes what was
// made and passes to the caller with the registry as it was and the user data
// still the caller's.
// REQUIRES: s_pSingMutex held.
bool RequestFollower::__add(unsigned int requestId, int tunerId, short pid, short tableId,
                            short tableIdExt, void* userData, void (*release)(void*),
                            timeval timeOut, unsigned int requestCounter) {
  ItemPtrList* category = getSpecificList(pid, tableId, tableIdExt);
  if (!category) {
    return false;
  }
  timeval now;
  timeval deadline;
  if (gettimeofday(&now, NULL) != 0 || !deadlineAfter(now, timeOut, &deadline)) {
    return false;
  }
  // After the last item due no later than this one: the tail itself unless
  // the clock stepped back or the time-out is not the category's usual one.
  ItemPtrList::iterator where = category->end();
  while (where != category->begin()) {
    ItemPtrList::iterator before = where;
    if (!earlier(deadline, (*--before)->getTimeOut())) {
      break;
    }
    where = before;
  }
  Slot slot = {NULL, m_ulSequence, category->insert(where, NULL)};
  const Key key = {tunerId, pid, tableId, tableIdExt};
  KeyIndex::iterator keyed = m_mapKey.end();
  std::pair<IdIndex::iterator, bool> id(m_mapRequestId.end(), false);
  RequestFollowerItem* item = NULL;
  try {
    keyed = m_mapKey.insert(KeyIndex::value_type(key, slot));
    // A repeated id is re-pointed: the earlier item stays pending, by key only.
    id = m_mapRequestId.insert(
        IdIndex::value_type(static_cast<int>(requestId), static_cast<RequestFollowerItem*>(NULL)));
    item = new RequestFollowerItem(requestId, tunerId, pid, tableId, tableIdExt, userData, release,
                                   deadline, requestCounter);
  } catch (...) {
    if (id.second) {
      m_mapRequestId.erase(id.first);
    }
    if (keyed != m_mapKey.end()) {
      m_mapKey.erase(keyed);
    }
    category->erase(slot.itCategory);
    throw;
  }
  *slot.itCategory = item;
  keyed->second.pItem = item;
  id.first->second = item;
  ++m_ulSequence;
  pthread_cond_broadcast(&m_cond);
  return true;
}

// REQUIRES: s_pSingMutex held.
RequestFollower::RequestFollowerItem* RequestFollower::__get(unsigned int requestId) {
  IdIndex::iterator it = m_mapRequestId.find(static_cast<int>(requestId));
  return it != m_mapRequestId.end() ? it->second : NULL;
}

// The key's items are in order of addition; a stable sort by deadline puts
// them in deadline order, equal deadlines in order of addition.
// REQUIRES: s_pSingMutex held.
RequestFollower::ItemPtrList* RequestFollower::__get(int tunerId, short pid, short tableId,
                                                     short tableIdExt) {
  std::unique_ptr<ItemPtrList> found(new ItemPtrList());
  if (getSpecificList(pid, tableId, tableIdExt)) {
    const Key key = {tunerId, pid, tableId, tableIdExt};
    std::pair<KeyIndex::iterator, KeyIndex::iterator> range = m_mapKey.equal_range(key);
    for (KeyIndex::iterator it = range.first; it != range.second; ++it) {
      found->push_back(it->second.pItem);
    }
    found->sort(RequestFollowerItem::TimevalComparator());
  }
  return found.release();
}

// REQUIRES: s_pSingMutex held.
RequestFollower::RequestFollowerItem* RequestFollower::__remove(unsigned int requestId) {
  IdIndex::iterator it = m_mapRequestId.find(static_cast<int>(requestId));
  if (it == m_mapRequestId.end()) {
    return NULL;
  }
  RequestFollowerItem* item = it->second;
  m_mapRequestId.erase(it);
  __unfile(item);
  pthread_cond_broadcast(&m_cond);
  return item;
}

// The list is made first: an allocation failure leaves every item pending.
// REQUIRES: s_pSingMutex held.
RequestFollower::ItemPtrList* RequestFollower::__remove(int tunerId, short pid, short tableId,
                                                        short tableIdExt) {
  if (!getSpecificList(pid, tableId, tableIdExt)) {
    return new ItemPtrList();
  }
  ItemPtrList* taken = __get(tunerId, pid, tableId, tableIdExt);
  for (ItemPtrList::iterator it = taken->begin(); it != taken->end(); ++it) {
    __unfile(*it);
    // Whichever item the id entry points to: ids are meant to be unique.
    m_mapRequestId.erase(static_cast<int>((*it)->getRequestId()));
  }
  pthread_cond_broadcast(&m_cond);
  return taken;
}

// The category of the key, from the catalog the core's time-outs come
// from: a request the core gives its default time-out is one refused here.
RequestFollower::ItemPtrList* RequestFollower::getSpecificList(short pid, short tableId,
                                                               short /*tableIdExt*/) {
  ItemPtrList* const lists[] = {&m_lstPat,         &m_lstCat, &m_lstNit,   &m_lstSdt, &m_lstEitPf,
                                &m_lstEitSchedule, &m_lstTot, &m_lstPid26, &m_lstPmt};
  TableKind::Category category = TableKind::of(pid, tableId).category;
  return category == TableKind::kNone ? NULL : lists[category];
}

// The item's entry in the key index; the item is pending.
// REQUIRES: s_pSingMutex held.
RequestFollower::KeyIndex::iterator RequestFollower::__slotOf(RequestFollowerItem* item) {
  const Key key = {item->getTunerId(), item->getPid(), item->getTableId(), item->getTableIdExt()};
  KeyIndex::iterator it = m_mapKey.lower_bound(key);
  while (it->second.pItem != item) {
    ++it;
  }
  return it;
}

// Takes the item out of its category list and the key index; the id index is
// the caller's business.
// REQUIRES: s_pSingMutex held.
void RequestFollower::__unfile(RequestFollowerItem* item) {
  KeyIndex::iterator slot = __slotOf(item);
  getSpecificList(item->getPid(), item->getTableId(), item->getTableIdExt())
      ->erase(slot->second.itCategory);
  m_mapKey.erase(slot);
}

// The pending item due first, or null: the earliest head of the category
// lists, equal deadlines by order of addition.
// REQUIRES: s_pSingMutex held.
RequestFollower::RequestFollowerItem* RequestFollower::__earliest() {
  ItemPtrList* const categories[] = {&m_lstPat, &m_lstCat,   &m_lstNit,
                                     &m_lstSdt, &m_lstEitPf, &m_lstEitSchedule,
                                     &m_lstTot, &m_lstPid26, &m_lstPmt};
  RequestFollowerItem* first = NULL;
  unsigned long firstRank = 0;
  bool ranked = false;
  for (size_t i = 0; i < sizeof(categories) / sizeof(categories[0]); ++i) {
    if (categories[i]->empty()) {
      continue;
    }
    RequestFollowerItem* head = categories[i]->front();
    if (!first || earlier(head->getTimeOut(), first->getTimeOut())) {
      first = head;
      ranked = false;
      continue;
    }
    if (earlier(first->getTimeOut(), head->getTimeOut())) {
      continue;
    }
    if (!ranked) {
      firstRank = __slotOf(first)->second.ulSequence;
      ranked = true;
    }
    // Ranks are compared by difference, which stays right when they wrap.
    const unsigned long rank = __slotOf(head)->second.ulSequence;
    if (static_cast<long>(rank - firstRank) < 0) {
      first = head;
      firstRank = rank;
    }
  }
  return first;
}

// ---- Monitor thread ----

void* RequestFollower::monitorThread(void* arg) {
  s_bOnMonitorThread = true;
  RequestFollower* follower = static_cast<RequestFollower*>(arg);
  if (!follower) {
    ostrelLog(kModule, "%s: Monitor: ERROR: RequestFollower instance not provided.");
    pthread_exit(NULL);
  }
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  if (!core) {
    ostrelLog(kModule, "%s: Monitor: ERROR: GingaCommonCore instance unavailable.");
    pthread_exit(NULL);
  }
  {
    ScopedLock lock(&s_pSingMutex);
    follower->__monitor(core);
  }
  pthread_exit(NULL);
  return NULL;
}

// Untimed while nothing is pending, otherwise until the earliest deadline on
// the gettimeofday clock (the condition variable's default clock). How the
// wait ended does not matter: the caller looks at the clock again. False when
// the clock cannot be read.
// REQUIRES: s_pSingMutex held, exactly once (the wait releases one level).
bool RequestFollower::__waitForDeadline() {
  RequestFollowerItem* first = __earliest();
  if (!first) {
    pthread_cond_wait(&m_cond, &s_pSingMutex);
    return true;
  }
  const timeval deadline = first->getTimeOut();
  timeval now;
  if (gettimeofday(&now, NULL) != 0) {
    return false;
  }
  timespec limit;
  limit.tv_sec = deadline.tv_sec;
  limit.tv_nsec = deadline.tv_usec * 1000L;
  pthread_cond_timedwait(&m_cond, &s_pSingMutex, &limit);
  return true;
}

// Reports the expired pending items, earliest first, one at a time, each
// taken out just before its report; the pass stops at the first item not yet
// due. Looking for the earliest again after every report means that an item
// which a callback of this pass has taken out is simply not there, and an
// item that it adds is due at the clock or later, which this pass's reading
// does not count as past. The stop flag is read under the lock before every
// wait and after every return from one, so a stop is never lost.
// REQUIRES: s_pSingMutex held.
void RequestFollower::__monitor(OstrelGingaCommonCore* core) {
  for (;;) {
    if (m_iStop) {
      return;
    }
    if (!__waitForDeadline()) {
      break;
    }
    if (m_iStop) {
      return;
    }
    timeval now;
    if (gettimeofday(&now, NULL) != 0) {
      break;
    }
    for (RequestFollowerItem* item = __earliest(); item && item->isTimedOut(now);
         item = __earliest()) {
      __report(core, item);
    }
  }
  ostrelLog(kModule, "%s: Monitor: System fail while getting current time!");
}

// Takes the item out of every structure before the report, so that it is
// reported at most once; deleting it afterwards releases its user data.
// REQUIRES: s_pSingMutex held.
void RequestFollower::__report(OstrelGingaCommonCore* core, RequestFollowerItem* item) {
  __unfile(item);
  m_mapRequestId.erase(static_cast<int>(item->getRequestId()));
  if (!core->requestTimedOut(item->getRequestId(), item->getTunerId(), item->getPid(),
                             item->getTableId(), item->getTableIdExt(), item->getUserData(),
                             item->getTimeOut(), item->getRequestCounter())) {
    ostrelLog(kModule, "%s: Monitor: Request timeout notification failed!");
  }
  delete item;
}

}  // namespace Ostrel
