#ifndef OSTREL_REQUEST_FOLLOWER_ITEM_H
#define OSTREL_REQUEST_FOLLOWER_ITEM_H

#include <sys/time.h>

#include "OstrelExport.h"
#include "RequestFollower.h"

namespace Ostrel {

// The record of one outstanding request: who asked (request id, user data and
// its release function), what (the request key), until when (an absolute
// deadline on the gettimeofday clock) and the request counter. Immutable once
// made. Created with new and handled by pointer only; whoever takes it out of
// the registry deletes it, which releases the user data. No lock of its own:
// pending items are touched under the registry's lock only.
class OSTREL_EXPORT RequestFollower::RequestFollowerItem {
 public:
  // Orders items by deadline, earliest first; equal deadlines are not less
  // than each other in either direction.
  struct OSTREL_EXPORT TimevalComparator {
    bool operator()(RequestFollowerItem* a, RequestFollowerItem* b);
  };

  // Stores the arguments as given; timeOut is the absolute deadline. The item
  // owns userData when both userData and release are set.
  RequestFollowerItem(unsigned int requestId, int tunerId, short pid, short tableId,
                      short tableIdExt, void* userData, void (*release)(void*), timeval timeOut,
                      unsigned int requestCounter);

  // Calls release(userData) once when both are set; otherwise does nothing.
  ~RequestFollowerItem();

  // Order on (deadline, tuner id, PID, table id, table id extension), signed.
  bool operator<(RequestFollowerItem& other);

  // True when the deadline is strictly earlier than now.
  bool isTimedOut(timeval now);

  // True when all four parts equal the item's request key.
  bool match(int tunerId, short pid, short tableId, short tableIdExt);

  unsigned int getRequestId() { return m_uiRequestId; }
  int getTunerId() { return m_iTunerId; }
  short getPid() { return m_sPid; }
  short getTableId() { return m_sTableId; }
  short getTableIdExt() { return m_sTableIdExt; }
  // Lent: the item keeps the ownership.
  void* getUserData() { return m_pUserData; }
  // The absolute deadline.
  timeval getTimeOut() { return m_tvTimeOut; }
  unsigned int getRequestCounter() { return m_uiRequestCounter; }

 private:
  // Never copied: a copy would release the same user data a second time.
  RequestFollowerItem(const RequestFollowerItem&);
  RequestFollowerItem& operator=(const RequestFollowerItem&);

  unsigned int m_uiRequestId;
  int m_iTunerId;
  short m_sPid;
  short m_sTableId;
  short m_sTableIdExt;
  void* m_pUserData;
  void (*m_pfRelease)(void*);
  timeval m_tvTimeOut;
  unsigned int m_uiRequestCounter;
};

}  // namespace Ostrel

#endif  // OSTREL_REQUEST_FOLLOWER_ITEM_H
