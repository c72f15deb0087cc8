#ifndef OSTREL_REQUEST_FOLLOWER_H
#define OSTREL_REQUEST_FOLLOWER_H

#include <pthread.h>
#include <sys/time.h>

#include <atomic>
#include <list>
#include <map>

#include "OstrelExport.h"

namespace Ostrel {

class OstrelGingaCommonCore;

// The process-wide registry of outstanding asynchronous table requests. Each
// pending request sits in the time-out list (earliest deadline first, equal
// deadlines in order of addition), in the id index and in one of nine category
// lists chosen by PID and table id; a request in no category is refused.
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

  typedef std::list<RequestFollowerItem*> ItemList;

  // Position in the time-out list: deadline, then order of addition.
  struct TimeOutKey {
    timeval tvDeadline;
    unsigned long long ullSequence;
  };
  struct TimeOutKeyLess {
    bool operator()(const TimeOutKey& a, const TimeOutKey& b) const;
  };

  // A request key followed by the time-out position, so that the items of one
  // key lie together and in time-out order.
  struct RequestKey {
    int iTunerId;
    short sPid;
    short sTableId;
    short sTableIdExt;
    TimeOutKey toOrder;
  };
  struct RequestKeyLess {
    bool operator()(const RequestKey& a, const RequestKey& b) const;
  };

  // Where a pending item sits, so that taking it out needs no list walk.
  struct ItemPosition {
    unsigned long long ullSequence;
    ItemList::iterator itTimeOut;
    ItemList::iterator itCategory;
  };

  RequestFollower();
  ~RequestFollower();
  RequestFollower(const RequestFollower&);
  RequestFollower& operator=(const RequestFollower&);

  // REQUIRES: s_pSingMutex held (for all the bodies below).
  bool __add(unsigned int requestId, int tunerId, short pid, short tableId, short tableIdExt,
             void* userData, void (*release)(void*), timeval timeOut, unsigned int requestCounter);
  RequestFollowerItem* __get(unsigned int requestId);
  ItemList* __get(int tunerId, short pid, short tableId, short tableIdExt);
  RequestFollowerItem* __remove(unsigned int requestId);
  ItemList* __remove(int tunerId, short pid, short tableId, short tableIdExt);

  // The category list of (pid, tableId), or null when it has none.
  ItemList* getSpecificList(short pid, short tableId, short tableIdExt);

  void __index(RequestFollowerItem* item, unsigned int requestId, const RequestKey& key,
               const ItemPosition& position,
               std::map<TimeOutKey, ItemList::iterator, TimeOutKeyLess>::iterator next);
  void __unfile(RequestFollowerItem* item);
  bool __isPending(RequestFollowerItem* item, unsigned long long sequence) const;
  RequestFollower* __claimWake();
  static void wake(RequestFollower* follower);
  static RequestKey makeKey(int tunerId, short pid, short tableId, short tableIdExt,
                            const TimeOutKey& order);
  static RequestKey keyOf(RequestFollowerItem* item, const TimeOutKey& order);
  static RequestKey firstKey(int tunerId, short pid, short tableId, short tableIdExt);
  static bool sameKey(const RequestKey& a, const RequestKey& b);
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
  ItemList m_lstTimeOut;
  std::map<int, RequestFollowerItem*> m_mapRequestId;
  ItemList m_lstPat;
  ItemList m_lstCat;
  ItemList m_lstNit;
  ItemList m_lstSdt;
  ItemList m_lstEitPf;
  ItemList m_lstEitSchedule;
  ItemList m_lstTot;
  ItemList m_lstPid26;
  ItemList m_lstPmt;

  // Beside the lists above, kept in step with them: the time-out list's order
  // as a search tree (where a new item goes), an index by request key, and each
  // item's places in the lists.
  std::map<TimeOutKey, ItemList::iterator, TimeOutKeyLess> m_mapTimeOutOrder;
  std::map<RequestKey, RequestFollowerItem*, RequestKeyLess> m_mapRequestKey;
  std::map<RequestFollowerItem*, ItemPosition> m_mapPositions;
  unsigned long long m_ullNextSequence;
};

}  // namespace Ostrel

#include "RequestFollowerItem.h"

#endif  // OSTREL_REQUEST_FOLLOWER_H
