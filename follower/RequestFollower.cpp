// The registry of outstanding requests: instance, categories, add, get and
// remove, and the teardown.
#include "RequestFollower.h"

#include <sched.h>

#include <limits>
#include <new>

#include "OstrelLogger.h"
#include "ScopedLock.h"

namespace Ostrel {

namespace {

const char* const kModule = "RequestFollower";
const long kMicrosecondsPerSecond = 1000000L;

}  // namespace

std::atomic<RequestFollower*> RequestFollower::s_pInstance(NULL);
pthread_mutex_t RequestFollower::s_pSingMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

void RequestFollower::log(const char* format) {
  ostrel_log_std_generic(4, kModule, format, kModule);
}

// ---- Instance ----

RequestFollower::RequestFollower()
    : m_thread(pthread_t()), m_iStop(0), m_iWakeMonitor(0), m_iWakers(0), m_ullNextSequence(0) {
  pthread_cond_init(&m_cond, NULL);
  startMonitor();
}

// The instance is already unreachable (destroy detached it), so nothing here
// needs the lock except stopping the thread; the release functions run
// without any lock of ours.
RequestFollower::~RequestFollower() {
  stopMonitor();
  // A caller that changed the registry before it was detached may still be
  // about to wake the monitor: the condition variable outlives that wake-up.
  while (m_iWakers.load(std::memory_order_acquire) != 0) {
    sched_yield();
  }
  ItemList pending;
  pending.swap(m_lstTimeOut);
  ItemList* categories[] = {&m_lstPat,         &m_lstCat, &m_lstNit,   &m_lstSdt, &m_lstEitPf,
                            &m_lstEitSchedule, &m_lstTot, &m_lstPid26, &m_lstPmt};
  for (size_t i = 0; i < sizeof(categories) / sizeof(categories[0]); ++i) {
    categories[i]->clear();
  }
  m_mapRequestId.clear();
  m_mapTimeOutOrder.clear();
  m_mapRequestKey.clear();
  m_mapPositions.clear();
  for (ItemList::iterator it = pending.begin(); it != pending.end(); ++it) {
    delete *it;
  }
  pthread_cond_destroy(&m_cond);
}

bool RequestFollower::getInstance() {
  if (s_pInstance.load(std::memory_order_acquire)) {
    return true;
  }
  {
    ScopedLock lock(&s_pSingMutex);
    if (!s_pInstance.load(std::memory_order_relaxed)) {
      s_pInstance.store(new RequestFollower(), std::memory_order_release);
    }
  }
  if (s_pInstance.load(std::memory_order_acquire)) {
    return true;
  }
  log("%s: Could not initialize it!");
  return false;
}

// The instance under the lock, or null: getInstance() has run, but a
// concurrent destroy may have detached it since.
// REQUIRES: s_pSingMutex held.
RequestFollower* RequestFollower::instance() {
  return s_pInstance.load(std::memory_order_relaxed);
}

// The pointer is detached under the lock and the instance torn down without
// it, so that the monitor thread can take the lock to see its stop flag. A
// monitor thread (of this instance or of one already detached) may hold the
// lock in a report and would wait for itself or deadlock with the thread it
// joins, so it may not tear down.
bool RequestFollower::destroy() {
  if (onMonitorThread()) {
    log("%s: destroy: ERROR: Not allowed on the monitor thread.");
    return false;
  }
  RequestFollower* follower = NULL;
  {
    ScopedLock lock(&s_pSingMutex);
    follower = instance();
    s_pInstance.store(NULL, std::memory_order_release);
  }
  if (!follower) {
    log("%s: Instance not found!");
    return false;
  }
  delete follower;
  return true;
}

// ---- Public operations ----

bool RequestFollower::add(unsigned int requestId, int tunerId, short pid, short tableId,
                          short tableIdExt, void* userData, void (*release)(void*), timeval timeOut,
                          unsigned int requestCounter) {
  if (!getInstance()) {
    return false;
  }
  bool added = false;
  RequestFollower* woken = NULL;
  {
    ScopedLock lock(&s_pSingMutex);
    RequestFollower* follower = instance();
    added = follower && follower->__add(requestId, tunerId, pid, tableId, tableIdExt, userData,
                                        release, timeOut, requestCounter);
    woken = follower ? follower->__claimWake() : NULL;
  }
  wake(woken);
  return added;
}

RequestFollower::RequestFollowerItem* RequestFollower::get(unsigned int requestId) {
  if (!getInstance()) {
    return NULL;
  }
  ScopedLock lock(&s_pSingMutex);
  RequestFollower* follower = instance();
  return follower ? follower->__get(requestId) : NULL;
}

std::list<RequestFollower::RequestFollowerItem*>* RequestFollower::get(int tunerId, short pid,
                                                                       short tableId,
                                                                       short tableIdExt) {
  if (!getInstance()) {
    return new ItemList();
  }
  ScopedLock lock(&s_pSingMutex);
  RequestFollower* follower = instance();
  return follower ? follower->__get(tunerId, pid, tableId, tableIdExt) : new ItemList();
}

RequestFollower::RequestFollowerItem* RequestFollower::remove(unsigned int requestId) {
  if (!getInstance()) {
    return NULL;
  }
  RequestFollowerItem* item = NULL;
  RequestFollower* woken = NULL;
  {
    ScopedLock lock(&s_pSingMutex);
    RequestFollower* follower = instance();
    item = follower ? follower->__remove(requestId) : NULL;
    woken = follower ? follower->__claimWake() : NULL;
  }
  wake(woken);
  return item;
}

std::list<RequestFollower::RequestFollowerItem*>* RequestFollower::remove(int tunerId, short pid,
                                                                          short tableId,
                                                                          short tableIdExt) {
  if (!getInstance()) {
    return new ItemList();
  }
  ItemList* taken = NULL;
  RequestFollower* woken = NULL;
  {
    ScopedLock lock(&s_pSingMutex);
    RequestFollower* follower = instance();
    taken = follower ? follower->__remove(tunerId, pid, tableId, tableIdExt) : new ItemList();
    woken = follower ? follower->__claimWake() : NULL;
  }
  wake(woken);
  return taken;
}

// ---- Waking the monitor ----

// A change of the pending requests is announced to the monitor once the
// caller has let go of the lock, so that the monitor does not wake only to
// wait for that lock. The registry stays alive until the wake-up is done.
// REQUIRES: s_pSingMutex held.
RequestFollower* RequestFollower::__claimWake() {
  if (!m_iWakeMonitor) {
    return NULL;
  }
  m_iWakeMonitor = 0;
  m_iWakers.fetch_add(1, std::memory_order_relaxed);
  return this;
}

// Broadcasts for a registry returned by __claimWake (null: nothing to do).
// Without the lock, or with it held only by an outer caller on this thread.
void RequestFollower::wake(RequestFollower* follower) {
  if (!follower) {
    return;
  }
  pthread_cond_broadcast(&follower->m_cond);
  follower->m_iWakers.fetch_sub(1, std::memory_order_release);
}

// ---- Bodies ----

// Every allocation comes before the registry changes: an allocation failure
// passes to the caller with the registry as it was and the user data still
// the caller's. The item's storage is taken first and the item built in it
// last, once nothing can fail any more.
// REQUIRES: s_pSingMutex held.
bool RequestFollower::__add(unsigned int requestId, int tunerId, short pid, short tableId,
                            short tableIdExt, void* userData, void (*release)(void*),
                            timeval timeOut, unsigned int requestCounter) {
  ItemList* category = getSpecificList(pid, tableId, tableIdExt);
  if (!category) {
    return false;
  }
  timeval now;
  timeval deadline;
  if (gettimeofday(&now, NULL) != 0 || !deadlineAfter(now, timeOut, &deadline)) {
    return false;
  }
  ItemList timeOutNode(1, static_cast<RequestFollowerItem*>(NULL));
  ItemList categoryNode(1, static_cast<RequestFollowerItem*>(NULL));
  void* storage = ::operator new(sizeof(RequestFollowerItem));
  RequestFollowerItem* item = static_cast<RequestFollowerItem*>(storage);
  TimeOutKey order;
  order.tvDeadline = deadline;
  order.ullSequence = m_ullNextSequence;
  ItemPosition position;
  position.ullSequence = order.ullSequence;
  position.itTimeOut = timeOutNode.begin();
  position.itCategory = categoryNode.begin();
  // After every pending item whose deadline is not later than its own: where
  // a stable sort of the appended item would put it.
  std::map<TimeOutKey, ItemList::iterator, TimeOutKeyLess>::iterator next =
      m_mapTimeOutOrder.upper_bound(order);
  const ItemList::iterator place =
      next == m_mapTimeOutOrder.end() ? m_lstTimeOut.end() : next->second;
  try {
    __index(item, requestId, makeKey(tunerId, pid, tableId, tableIdExt, order), position, next);
  } catch (...) {
    ::operator delete(storage);
    throw;
  }
  // Nothing below allocates or throws.
  new (storage) RequestFollowerItem(requestId, tunerId, pid, tableId, tableIdExt, userData, release,
                                    deadline, requestCounter);
  timeOutNode.front() = item;
  categoryNode.front() = item;
  m_lstTimeOut.splice(place, timeOutNode);
  category->splice(category->end(), categoryNode);
  // A repeated id is re-pointed: the earlier item stays pending, by key only.
  m_mapRequestId[static_cast<int>(requestId)] = item;
  ++m_ullNextSequence;
  m_iWakeMonitor = 1;
  return true;
}

// REQUIRES: s_pSingMutex held.
RequestFollower::RequestFollowerItem* RequestFollower::__get(unsigned int requestId) {
  std::map<int, RequestFollowerItem*>::iterator it =
      m_mapRequestId.find(static_cast<int>(requestId));
  return it == m_mapRequestId.end() ? NULL : it->second;
}

// REQUIRES: s_pSingMutex held.
RequestFollower::ItemList* RequestFollower::__get(int tunerId, short pid, short tableId,
                                                  short tableIdExt) {
  ItemList* found = new ItemList();
  if (!getSpecificList(pid, tableId, tableIdExt)) {
    return found;
  }
  const RequestKey first = firstKey(tunerId, pid, tableId, tableIdExt);
  std::map<RequestKey, RequestFollowerItem*, RequestKeyLess>::iterator it =
      m_mapRequestKey.lower_bound(first);
  for (; it != m_mapRequestKey.end() && sameKey(it->first, first); ++it) {
    found->push_back(it->second);
  }
  return found;
}

// REQUIRES: s_pSingMutex held.
RequestFollower::RequestFollowerItem* RequestFollower::__remove(unsigned int requestId) {
  std::map<int, RequestFollowerItem*>::iterator it =
      m_mapRequestId.find(static_cast<int>(requestId));
  if (it == m_mapRequestId.end()) {
    return NULL;
  }
  RequestFollowerItem* item = it->second;
  m_mapRequestId.erase(it);
  __unfile(item);
  m_iWakeMonitor = 1;
  return item;
}

// REQUIRES: s_pSingMutex held.
RequestFollower::ItemList* RequestFollower::__remove(int tunerId, short pid, short tableId,
                                                     short tableIdExt) {
  if (!getSpecificList(pid, tableId, tableIdExt)) {
    return new ItemList();
  }
  ItemList* taken = __get(tunerId, pid, tableId, tableIdExt);
  for (ItemList::iterator it = taken->begin(); it != taken->end(); ++it) {
    __unfile(*it);
    // Whichever item the id entry points to: ids are meant to be unique.
    m_mapRequestId.erase(static_cast<int>((*it)->getRequestId()));
  }
  m_iWakeMonitor = 1;
  return taken;
}

// ---- Categories ----

// The PID rows come first; PMTs are recognised by table id on any other PID.
RequestFollower::ItemList* RequestFollower::getSpecificList(short pid, short tableId,
                                                            short /*tableIdExt*/) {
  switch (pid) {
    case 0x0000:
      return &m_lstPat;
    case 0x0001:
      return &m_lstCat;
    case 0x0010:
    case 0x0024:
      return &m_lstNit;
    case 0x0011:
      return &m_lstSdt;
    case 0x0012:
      return (tableId == 0x4E || tableId == 0x4F) ? &m_lstEitPf : &m_lstEitSchedule;
    case 0x0014:
      return &m_lstTot;
    case 0x0026:
      return &m_lstPid26;
    default:
      return tableId == 0x02 ? &m_lstPmt : NULL;
  }
}

// ---- Filing ----

// Enters a new item in the side indexes and makes sure that its id has an
// entry; undoes its own insertions when one of them fails.
// REQUIRES: s_pSingMutex held.
void RequestFollower::__index(
    RequestFollowerItem* item, unsigned int requestId, const RequestKey& key,
    const ItemPosition& position,
    std::map<TimeOutKey, ItemList::iterator, TimeOutKeyLess>::iterator next) {
  std::map<TimeOutKey, ItemList::iterator, TimeOutKeyLess>::iterator itOrder;
  std::map<RequestKey, RequestFollowerItem*, RequestKeyLess>::iterator itKey;
  std::map<RequestFollowerItem*, ItemPosition>::iterator itPosition;
  int done = 0;
  try {
    itOrder = m_mapTimeOutOrder.insert(next, std::make_pair(key.toOrder, position.itTimeOut));
    ++done;
    itKey = m_mapRequestKey.insert(std::make_pair(key, item)).first;
    ++done;
    itPosition = m_mapPositions.insert(std::make_pair(item, position)).first;
    ++done;
    m_mapRequestId.insert(std::make_pair(static_cast<int>(requestId), item));
  } catch (...) {
    if (done > 2) {
      m_mapPositions.erase(itPosition);
    }
    if (done > 1) {
      m_mapRequestKey.erase(itKey);
    }
    if (done > 0) {
      m_mapTimeOutOrder.erase(itOrder);
    }
    throw;
  }
}

// Takes the item out of the time-out list, its category list and the side
// indexes; the id index is the caller's business.
// REQUIRES: s_pSingMutex held.
void RequestFollower::__unfile(RequestFollowerItem* item) {
  std::map<RequestFollowerItem*, ItemPosition>::iterator it = m_mapPositions.find(item);
  if (it == m_mapPositions.end()) {
    return;
  }
  TimeOutKey order;
  order.tvDeadline = item->getTimeOut();
  order.ullSequence = it->second.ullSequence;
  m_lstTimeOut.erase(it->second.itTimeOut);
  getSpecificList(item->getPid(), item->getTableId(), item->getTableIdExt())
      ->erase(it->second.itCategory);
  m_mapTimeOutOrder.erase(order);
  m_mapRequestKey.erase(keyOf(item, order));
  m_mapPositions.erase(it);
}

// REQUIRES: s_pSingMutex held.
bool RequestFollower::__isPending(RequestFollowerItem* item, unsigned long long sequence) const {
  std::map<RequestFollowerItem*, ItemPosition>::const_iterator it = m_mapPositions.find(item);
  return it != m_mapPositions.end() && it->second.ullSequence == sequence;
}

// ---- Keys and deadlines ----

bool RequestFollower::TimeOutKeyLess::operator()(const TimeOutKey& a, const TimeOutKey& b) const {
  if (a.tvDeadline.tv_sec != b.tvDeadline.tv_sec) {
    return a.tvDeadline.tv_sec < b.tvDeadline.tv_sec;
  }
  if (a.tvDeadline.tv_usec != b.tvDeadline.tv_usec) {
    return a.tvDeadline.tv_usec < b.tvDeadline.tv_usec;
  }
  return a.ullSequence < b.ullSequence;
}

bool RequestFollower::RequestKeyLess::operator()(const RequestKey& a, const RequestKey& b) const {
  if (a.iTunerId != b.iTunerId) {
    return a.iTunerId < b.iTunerId;
  }
  if (a.sPid != b.sPid) {
    return a.sPid < b.sPid;
  }
  if (a.sTableId != b.sTableId) {
    return a.sTableId < b.sTableId;
  }
  if (a.sTableIdExt != b.sTableIdExt) {
    return a.sTableIdExt < b.sTableIdExt;
  }
  return TimeOutKeyLess()(a.toOrder, b.toOrder);
}

RequestFollower::RequestKey RequestFollower::makeKey(int tunerId, short pid, short tableId,
                                                     short tableIdExt, const TimeOutKey& order) {
  RequestKey key;
  key.iTunerId = tunerId;
  key.sPid = pid;
  key.sTableId = tableId;
  key.sTableIdExt = tableIdExt;
  key.toOrder = order;
  return key;
}

RequestFollower::RequestKey RequestFollower::keyOf(RequestFollowerItem* item,
                                                   const TimeOutKey& order) {
  return makeKey(item->getTunerId(), item->getPid(), item->getTableId(), item->getTableIdExt(),
                 order);
}

// The smallest entry of a key: no pending item of that key sorts before it.
RequestFollower::RequestKey RequestFollower::firstKey(int tunerId, short pid, short tableId,
                                                      short tableIdExt) {
  RequestKey key;
  key.iTunerId = tunerId;
  key.sPid = pid;
  key.sTableId = tableId;
  key.sTableIdExt = tableIdExt;
  key.toOrder.tvDeadline.tv_sec = std::numeric_limits<time_t>::min();
  key.toOrder.tvDeadline.tv_usec = std::numeric_limits<suseconds_t>::min();
  key.toOrder.ullSequence = 0;
  return key;
}

bool RequestFollower::sameKey(const RequestKey& a, const RequestKey& b) {
  return a.iTunerId == b.iTunerId && a.sPid == b.sPid && a.sTableId == b.sTableId &&
         a.sTableIdExt == b.sTableIdExt;
}

// now + timeOut with the microsecond carry. False for microseconds outside
// 0..999999, which would give the monitor an invalid wait limit. Seconds
// saturate instead of overflowing a 32-bit time_t.
bool RequestFollower::deadlineAfter(const timeval& now, const timeval& timeOut, timeval* deadline) {
  if (timeOut.tv_usec < 0 || timeOut.tv_usec >= kMicrosecondsPerSecond || now.tv_usec < 0 ||
      now.tv_usec >= kMicrosecondsPerSecond) {
    return false;
  }
  long usec = now.tv_usec + timeOut.tv_usec;
  time_t carry = 0;
  if (usec >= kMicrosecondsPerSecond) {
    usec -= kMicrosecondsPerSecond;
    carry = 1;
  }
  const time_t maxSec = std::numeric_limits<time_t>::max();
  const time_t minSec = std::numeric_limits<time_t>::min();
  time_t sec = 0;
  if (timeOut.tv_sec >= 0 && now.tv_sec > maxSec - timeOut.tv_sec - carry) {
    sec = maxSec;
    usec = kMicrosecondsPerSecond - 1;
  } else if (timeOut.tv_sec < 0 && now.tv_sec < minSec - timeOut.tv_sec) {
    sec = minSec;
    usec = 0;
  } else {
    sec = now.tv_sec + timeOut.tv_sec + carry;
  }
  deadline->tv_sec = sec;
  deadline->tv_usec = usec;
  return true;
}

}  // namespace Ostrel
