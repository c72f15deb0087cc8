// The registry of outstanding requests: instance, categories, add, get and
// remove, and the teardown.
#include "RequestFollower.h"

#include <sched.h>

#include <limits>

#include "OstrelLogger.h"
#include "ScopedLock.h"

namespace Ostrel {

namespace {

const char* const kModule = "RequestFollower";
const long kMicrosecondsPerSecond = 1000000L;

// The time-out list's order (RequestFollowerItem::TimevalComparator), on the
// deadlines kept in the links.
inline bool earlier(const timeval& a, const timeval& b) {
  return a.tv_sec != b.tv_sec ? a.tv_sec < b.tv_sec : a.tv_usec < b.tv_usec;
}

}  // namespace

std::atomic<RequestFollower*> RequestFollower::s_pInstance(NULL);
pthread_mutex_t RequestFollower::s_pSingMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;

void RequestFollower::log(const char* format) {
  ostrel_log_std_generic(4, kModule, format, kModule);
}

// ---- Instance ----

RequestFollower::RequestFollower()
    : m_thread(pthread_t()), m_iStop(0), m_iWakeMonitor(0), m_iWakers(0) {
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
  // The items' links still chain them together after the containers have
  // forgotten them; each link is read before its item is deleted.
  TimeOutList::iterator it = m_lstTimeOut.begin();
  const TimeOutList::iterator end = m_lstTimeOut.end();
  CategoryList* categories[] = {&m_lstPat,         &m_lstCat, &m_lstNit,   &m_lstSdt, &m_lstEitPf,
                                &m_lstEitSchedule, &m_lstTot, &m_lstPid26, &m_lstPmt};
  for (size_t i = 0; i < sizeof(categories) / sizeof(categories[0]); ++i) {
    categories[i]->clear();
  }
  m_mapRequestId.clear();
  m_treeDeadline.clear();
  m_treeKey.clear();
  while (it != end) {
    RequestFollowerItem* item = *it;
    ++it;
    deleteItem(item);
  }
  m_lstTimeOut.clear();
  pthread_cond_destroy(&m_cond);
}

// GCC follows the item back to the list link it was found through and takes
// the item for an interior pointer of that link's block; the item's own
// operator delete frees the block from its start.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wfree-nonheap-object"
#endif
void RequestFollower::deleteItem(RequestFollowerItem* item) {
  delete item;
}
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

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
    return new ItemPtrList();
  }
  ScopedLock lock(&s_pSingMutex);
  RequestFollower* follower = instance();
  return follower ? follower->__get(tunerId, pid, tableId, tableIdExt) : new ItemPtrList();
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
    return new ItemPtrList();
  }
  ItemPtrList* taken = NULL;
  RequestFollower* woken = NULL;
  {
    ScopedLock lock(&s_pSingMutex);
    RequestFollower* follower = instance();
    taken = follower ? follower->__remove(tunerId, pid, tableId, tableIdExt) : new ItemPtrList();
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

// The item (with its links) is the only allocation: once it is made, filing it
// cannot fail, so an allocation failure passes to the caller with the registry
// as it was and the user data still the caller's.
// REQUIRES: s_pSingMutex held.
bool RequestFollower::__add(unsigned int requestId, int tunerId, short pid, short tableId,
                            short tableIdExt, void* userData, void (*release)(void*),
                            timeval timeOut, unsigned int requestCounter) {
  CategoryList* category = getSpecificList(pid, tableId, tableIdExt);
  if (!category) {
    return false;
  }
  timeval now;
  timeval deadline;
  if (gettimeofday(&now, NULL) != 0 || !deadlineAfter(now, timeOut, &deadline)) {
    return false;
  }
  RequestFollowerItem* item = new RequestFollowerItem(requestId, tunerId, pid, tableId, tableIdExt,
                                                      userData, release, deadline, requestCounter);
  __file(item, category);
  // A repeated id is re-pointed: the earlier item stays pending, by key only.
  __fileId(item);
  m_iWakeMonitor = 1;
  return true;
}

// REQUIRES: s_pSingMutex held.
RequestFollower::RequestFollowerItem* RequestFollower::__get(unsigned int requestId) {
  TreeLink* link = __findId(requestId);
  return link ? itemAt(link, ItemLinks::kIdTree) : NULL;
}

// REQUIRES: s_pSingMutex held.
RequestFollower::ItemPtrList* RequestFollower::__get(int tunerId, short pid, short tableId,
                                                     short tableIdExt) {
  ItemPtrList* found = new ItemPtrList();
  if (!getSpecificList(pid, tableId, tableIdExt)) {
    return found;
  }
  try {
    for (TreeLink* link = __firstOfKey(tunerId, pid, tableId, tableIdExt);
         link && itemAt(link, ItemLinks::kKeyTree)->match(tunerId, pid, tableId, tableIdExt);
         link = ItemTree::next(link)) {
      found->push_back(itemAt(link, ItemLinks::kKeyTree));
    }
  } catch (...) {
    delete found;
    throw;
  }
  return found;
}

// REQUIRES: s_pSingMutex held.
RequestFollower::RequestFollowerItem* RequestFollower::__remove(unsigned int requestId) {
  TreeLink* link = __findId(requestId);
  if (!link) {
    return NULL;
  }
  RequestFollowerItem* item = itemAt(link, ItemLinks::kIdTree);
  m_mapRequestId.unlink(link);
  __unfile(item);
  m_iWakeMonitor = 1;
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
    __forgetId((*it)->getRequestId());
  }
  m_iWakeMonitor = 1;
  return taken;
}

// ---- Categories ----

// The PID rows come first; PMTs are recognised by table id on any other PID.
RequestFollower::CategoryList* RequestFollower::getSpecificList(short pid, short tableId,
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

// Links a new item into the time-out list (after every item whose deadline is
// not later than its own: where a stable sort of the appended item would put
// it), its category list and the deadline and key trees. The id index is the
// caller's business.
// REQUIRES: s_pSingMutex held.
void RequestFollower::__file(RequestFollowerItem* item, CategoryList* category) {
  ItemLinks* links = ItemLinks::of(item);
  links->tvDeadline = item->getTimeOut();
  TreeLink* parent = NULL;
  bool toLeft = false;
  for (TreeLink* at = m_treeDeadline.root(); at;) {
    parent = at;
    toLeft =
        earlier(links->tvDeadline, ItemLinks::ofTree(at, ItemLinks::kDeadlineTree)->tvDeadline);
    at = toLeft ? at->pLeft : at->pRight;
  }
  TreeLink* link = linkOf(item, ItemLinks::kDeadlineTree);
  m_treeDeadline.link(parent, toLeft, link);
  TreeLink* next = ItemTree::next(link);
  m_lstTimeOut.insert(
      next ? TimeOutList::positionOf(itemAt(next, ItemLinks::kDeadlineTree)) : m_lstTimeOut.end(),
      item);
  category->pushBack(item);

  // By key, then deadline; equal ones go right, so in order of addition.
  parent = NULL;
  toLeft = false;
  for (TreeLink* at = m_treeKey.root(); at;) {
    parent = at;
    RequestFollowerItem* other = itemAt(at, ItemLinks::kKeyTree);
    const int order = compareKey(item, other->getTunerId(), other->getPid(), other->getTableId(),
                                 other->getTableIdExt());
    toLeft = order < 0 || (order == 0 && earlier(links->tvDeadline, other->getTimeOut()));
    at = toLeft ? at->pLeft : at->pRight;
  }
  m_treeKey.link(parent, toLeft, linkOf(item, ItemLinks::kKeyTree));
}

// Takes the item out of the time-out list, its category list and the trees
// beside them; the id index is the caller's business.
// REQUIRES: s_pSingMutex held.
void RequestFollower::__unfile(RequestFollowerItem* item) {
  m_lstTimeOut.erase(item);
  getSpecificList(item->getPid(), item->getTableId(), item->getTableIdExt())->erase(item);
  m_treeDeadline.unlink(linkOf(item, ItemLinks::kDeadlineTree));
  m_treeKey.unlink(linkOf(item, ItemLinks::kKeyTree));
}

// Enters the item under its id, in place of any item already there.
// REQUIRES: s_pSingMutex held.
void RequestFollower::__fileId(RequestFollowerItem* item) {
  const int id = static_cast<int>(item->getRequestId());
  TreeLink* parent = NULL;
  bool toLeft = false;
  for (TreeLink* at = m_mapRequestId.root(); at;) {
    const int other = static_cast<int>(itemAt(at, ItemLinks::kIdTree)->getRequestId());
    if (id == other) {
      m_mapRequestId.replace(at, linkOf(item, ItemLinks::kIdTree));
      return;
    }
    parent = at;
    toLeft = id < other;
    at = toLeft ? at->pLeft : at->pRight;
  }
  m_mapRequestId.link(parent, toLeft, linkOf(item, ItemLinks::kIdTree));
}

// Erases the id entry of requestId, whichever item it points to.
// REQUIRES: s_pSingMutex held.
void RequestFollower::__forgetId(unsigned int requestId) {
  TreeLink* link = __findId(requestId);
  if (link) {
    m_mapRequestId.unlink(link);
  }
}

// REQUIRES: s_pSingMutex held.
TreeLink* RequestFollower::__findId(unsigned int requestId) const {
  const int id = static_cast<int>(requestId);
  TreeLink* at = m_mapRequestId.root();
  while (at) {
    const int other = static_cast<int>(itemAt(at, ItemLinks::kIdTree)->getRequestId());
    if (id == other) {
      return at;
    }
    at = id < other ? at->pLeft : at->pRight;
  }
  return NULL;
}

// The first pending item of the key in the key tree (its earliest), or null
// when there is none.
// REQUIRES: s_pSingMutex held.
TreeLink* RequestFollower::__firstOfKey(int tunerId, short pid, short tableId,
                                        short tableIdExt) const {
  TreeLink* found = NULL;
  TreeLink* at = m_treeKey.root();
  while (at) {
    const int order =
        compareKey(itemAt(at, ItemLinks::kKeyTree), tunerId, pid, tableId, tableIdExt);
    if (order < 0) {
      at = at->pRight;
    } else {
      if (order == 0) {
        found = at;
      }
      at = at->pLeft;
    }
  }
  return found;
}

// ---- Keys and deadlines ----

RequestFollower::RequestFollowerItem* RequestFollower::itemAt(TreeLink* link, int tree) {
  return ItemLinks::itemOf<RequestFollowerItem>(ItemLinks::ofTree(link, tree));
}

TreeLink* RequestFollower::linkOf(RequestFollowerItem* item, int tree) {
  return &ItemLinks::of(item)->lnkTrees[tree];
}

// The item's key against the given one, each part signed: negative, zero or
// positive as the item's key sorts before, with or after it.
int RequestFollower::compareKey(const RequestFollowerItem* item, int tunerId, short pid,
                                short tableId, short tableIdExt) {
  if (item->getTunerId() != tunerId) {
    return item->getTunerId() < tunerId ? -1 : 1;
  }
  if (item->getPid() != pid) {
    return item->getPid() < pid ? -1 : 1;
  }
  if (item->getTableId() != tableId) {
    return item->getTableId() < tableId ? -1 : 1;
  }
  if (item->getTableIdExt() != tableIdExt) {
    return item->getTableIdExt() < tableIdExt ? -1 : 1;
  }
  return 0;
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
