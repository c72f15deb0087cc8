#ifndef OSTREL_REQUEST_FOLLOWER_H
#define OSTREL_REQUEST_FOLLOWER_H

#include <pthread.h>
#include <sys/time.h>

#include <list>
#include <map>

#include "OstrelExport.h"

namespace Ostrel {

class OstrelGingaCommonCore;

// The process-wide registry of outstanding asynchronous table requests. Each
// pending request sits in one of nine category lists chosen by PID and table
// id (a request in no category is refused), under its request id and under its
// request key.
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
  // key, earliest deadline first, equal deadlines in order of addition. The
  // items stay owned by the registry.
  static std::list<RequestFollowerItem*>* get(int tunerId, short pid, short tableId,
                                              short tableIdExt);

  // Takes the item indexed under requestId out, or null. The caller owns it
  // and deletes it, which releases its user data. Also from a callback on the
  // monitor thread: a request taken out there is never reported.
  static RequestFollowerItem* remove(unsigned int requestId);

  // Takes every item with exactly this key out, in the order of get by key.
  // The caller owns the new list and every item in it.
  static std::list<RequestFollowerItem*>* remove(int tunerId, short pid, short tableId,
                                                 short tableIdExt);

 private:
  typedef std::list<RequestFollowerItem*> ItemPtrList;

  // A request key, ordered part by part, each signed.
  struct OSTREL_LOCAL Key {
    int iTunerId;
    short sPid, sTableId, sTableIdExt;
    bool operator<(const Key& other) const;
  };

  // The registry's record of a pending item: its node in its category list and
  // its rank of addition, which orders equal deadlines.
  struct OSTREL_LOCAL Slot {
    RequestFollowerItem* pItem;
    unsigned long ulSequence;
    ItemPtrList::iterator itCategory;
  };

  class Call;  // one locked public operation on the instance

  typedef std::map<int, RequestFollowerItem*> IdIndex;
  typedef std::multimap<Key, Slot> KeyIndex;

  OSTREL_LOCAL RequestFollower();
  OSTREL_LOCAL ~RequestFollower();
  RequestFollower(const RequestFollower&);
  RequestFollower& operator=(const RequestFollower&);

  // REQUIRES: s_pSingMutex held (for all the bodies below).
  OSTREL_LOCAL bool __add(unsigned int requestId, int tunerId, short pid, short tableId,
                          short tableIdExt, void* userData, void (*release)(void*), timeval timeOut,
                          unsigned int requestCounter);
  OSTREL_LOCAL RequestFollowerItem* __get(unsigned int requestId);
  OSTREL_LOCAL ItemPtrList* __get(int tunerId, short pid, short tableId, short tableIdExt);
  OSTREL_LOCAL RequestFollowerItem* __remove(unsigned int requestId);
  OSTREL_LOCAL ItemPtrList* __remove(int tunerId, short pid, short tableId, short tableIdExt);

  // The category list of (pid, tableId), or null when it has none.
  OSTREL_LOCAL ItemPtrList* getSpecificList(short pid, short tableId, short tableIdExt);

  OSTREL_LOCAL KeyIndex::iterator __slotOf(RequestFollowerItem* item);
  OSTREL_LOCAL void __unfile(RequestFollowerItem* item);
  OSTREL_LOCAL RequestFollowerItem* __earliest();

  // Monitor thread.
  OSTREL_LOCAL static void* monitorThread(void* arg);
  OSTREL_LOCAL void __monitor(OstrelGingaCommonCore* core);
  OSTREL_LOCAL bool __waitForDeadline();
  OSTREL_LOCAL void __report(OstrelGingaCommonCore* core, RequestFollowerItem* item);

  // Read and written through the compiler's atomic builtins (release/acquire).
  OSTREL_LOCAL static RequestFollower* s_pInstance;
  OSTREL_LOCAL static pthread_mutex_t s_pSingMutex;

  pthread_cond_t m_cond;
  pthread_t m_thread;
  int m_iStop;
  // The id index: at most one item per id.
  IdIndex m_mapRequestId;
  // Each category holds one time-out of the core's table, so in order of
  // addition its list is in deadline order; any other request is inserted in
  // order from the tail. Equal deadlines stay in order of addition.
  ItemPtrList m_lstPat, m_lstCat, m_lstNit, m_lstSdt, m_lstEitPf, m_lstEitSchedule, m_lstTot,
      m_lstPid26, m_lstPmt;
  // Every pending item once, by key, equal keys in order of addition.
  KeyIndex m_mapKey;
  unsigned long m_ulSequence;
};

}  // namespace Ostrel

#include "RequestFollowerItem.h"

#endif  // OSTREL_REQUEST_FOLLOWER_H
