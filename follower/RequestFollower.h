#ifndef OSTREL_REQUEST_FOLLOWER_H
#define OSTREL_REQUEST_FOLLOWER_H

#include <pthread.h>
#include <sys/time.h>

#include <atomic>
#include <list>

#include "IntrusiveList.h"
#include "ItemLinks.h"
#include "ItemTree.h"
#include "OstrelExport.h"

namespace Ostrel {

class OstrelGingaCommonCore;

// The process-wide registry of outstanding asynchronous table requests. Each
// pending request sits in the time-out list (earliest deadline first, equal
// deadlines in order of addition), in the id index and in one of nine category
// lists chosen by PID and table id; a request in no category is refused.
//
// Every list and index is threaded through links that live in the request's
// own heap block (see RequestFollowerItem), so that following a request costs
// one allocation, and adding or taking it out costs logarithmic time.
//
// One recursive lock, s_pSingMutex, guards the instance pointer and all state.
// A monitor thread, started with the instance, reports each request whose
// deadline has passed to OstrelGingaCommonCore::requestTimedOut and then deletes
// it; it holds the lock while it reports, so a notification callback or release
// function running there may call add, get or remove on that thread.
//
// The instance lives from the first call of any operation until destroy.
class OSTREL_EXPORT RequestFollower {
 public:
  // One outstanding request; deleting it releases its user data.
  class RequestFollowerItem;

  // Creates the instance (and its monitor thread) on first use. True when it
  // exists. Any thread.
  static bool getInstance();

  // Stops and joins the monitor thread, then releases the user data of every
  // pending request once, without notifications, on the calling thread. False
  // when there is no instance, and refused (false) on a monitor thread, where
  // it would wait for itself. The next call of any operation makes a fresh
  // instance.
  static bool destroy();

  // Records a request due at the clock plus timeOut (relative, microseconds
  // in 0..999999) and wakes the monitor. On true the registry owns the
  // request and will release userData (through release, when both are set)
  // exactly once. On false nothing is stored and userData stays the caller's:
  // no category for (pid, tableId), a bad timeOut, an unreadable clock, or no
  // instance. A repeated requestId re-points the id index to the new request.
  // Any thread, including a callback on the monitor thread.
  static bool add(unsigned int requestId, int tunerId, short pid, short tableId, short tableIdExt,
                  void* userData, void (*release)(void*), timeval timeOut,
                  unsigned int requestCounter);

  // The pending item indexed under requestId, or null. It stays pending and
  // owned by the registry: usable only while nobody else can take it out.
  static RequestFollowerItem* get(unsigned int requestId);

  // A new list (the caller deletes it) of the pending items with exactly this
  // key, earliest deadline first. The items stay owned by the registry.
  static std::list<RequestFollowerItem*>* get(int tunerId, short pid, short tableId,
                                              short tableIdExt);

  // Takes the item indexed under requestId out, or null. The caller owns it
  // and deletes it, which releases its user data. Also from a callback on the
  // monitor thread: a request taken out there is never reported.
  static RequestFollowerItem* remove(unsigned int requestId);

  // Takes every item with exactly this key out, earliest deadline first. The
  // caller owns the new list and every item in it.
  static std::list<RequestFollowerItem*>* remove(int tunerId, short pid, short tableId,
                                                 short tableIdExt);

 private:
  friend class RequestFollowerTestPeer;

  typedef std::list<RequestFollowerItem*> ItemPtrList;
  typedef IntrusiveList<RequestFollowerItem, ItemLinks::kTimeOutList> TimeOutList;
  typedef IntrusiveList<RequestFollowerItem, ItemLinks::kCategoryList> CategoryList;

  RequestFollower();
  ~RequestFollower();
  RequestFollower(const RequestFollower&);
  RequestFollower& operator=(const RequestFollower&);

  // REQUIRES: s_pSingMutex held (for all the bodies below).
  bool __add(unsigned int requestId, int tunerId, short pid, short tableId, short tableIdExt,
             void* userData, void (*release)(void*), timeval timeOut, unsigned int requestCounter);
  RequestFollowerItem* __get(unsigned int requestId);
  ItemPtrList* __get(int tunerId, short pid, short tableId, short tableIdExt);
  RequestFollowerItem* __remove(unsigned int requestId);
  ItemPtrList* __remove(int tunerId, short pid, short tableId, short tableIdExt);

  // The category list of (pid, tableId), or null when it has none.
  CategoryList* getSpecificList(short pid, short tableId, short tableIdExt);

  void __file(RequestFollowerItem* item, CategoryList* category);
  void __unfile(RequestFollowerItem* item);
  void __fileId(RequestFollowerItem* item);
  void __forgetId(unsigned int requestId);
  TreeLink* __findId(unsigned int requestId) const;
  TreeLink* __firstOfKey(int tunerId, short pid, short tableId, short tableIdExt) const;
  RequestFollower* __claimWake();
  static void wake(RequestFollower* follower);
  static void deleteItem(RequestFollowerItem* item);
  static RequestFollowerItem* itemAt(TreeLink* link, int tree);
  static TreeLink* linkOf(RequestFollowerItem* item, int tree);
  static int compareKey(const RequestFollowerItem* item, int tunerId, short pid, short tableId,
                        short tableIdExt);
  static bool deadlineAfter(const timeval& now, const timeval& timeOut, timeval* deadline);

  // Monitor thread (RequestFollower_monitor.cpp).
  static void* monitorThread(void* arg);
  static bool onMonitorThread();
  void startMonitor();
  void stopMonitor();
  void __monitor(OstrelGingaCommonCore* core);
  bool __waitForDeadline();
  void __expire(OstrelGingaCommonCore* core, const timeval& now);
  void __report(OstrelGingaCommonCore* core, RequestFollowerItem* item);

  static void log(const char* format);
  static RequestFollower* instance();

  static std::atomic<RequestFollower*> s_pInstance;
  static pthread_mutex_t s_pSingMutex;

  pthread_cond_t m_cond;
  pthread_t m_thread;
  int m_iStop;
  // Set by a change of the pending requests; the public operation that made
  // it broadcasts m_cond once it has released the lock (m_iWakers counts the
  // broadcasts still to come, which the teardown waits for).
  int m_iWakeMonitor;
  std::atomic<int> m_iWakers;
  TimeOutList m_lstTimeOut;
  // The id index: ordered by request id (as int), at most one item per id.
  ItemTree m_mapRequestId;
  CategoryList m_lstPat;
  CategoryList m_lstCat;
  CategoryList m_lstNit;
  CategoryList m_lstSdt;
  CategoryList m_lstEitPf;
  CategoryList m_lstEitSchedule;
  CategoryList m_lstTot;
  CategoryList m_lstPid26;
  CategoryList m_lstPmt;

  // Beside the lists above, kept in step with them: the time-out list's order
  // as a search tree (where a new item goes), and the pending items by request
  // key, then deadline, then order of addition.
  ItemTree m_treeDeadline;
  ItemTree m_treeKey;
};

}  // namespace Ostrel

#include "RequestFollowerItem.h"

#endif  // OSTREL_REQUEST_FOLLOWER_H
