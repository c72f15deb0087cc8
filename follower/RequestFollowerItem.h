#ifndef OSTREL_REQUEST_FOLLOWER_ITEM_H
#define OSTREL_REQUEST_FOLLOWER_ITEM_H

#include <stddef.h>
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
//
// Its heap block also holds the registry's links of the item (ItemLinks, just
// before it), so that a pending request takes one allocation: new and delete
// of an item always go through the item's own operator new and delete.
class OSTREL_EXPORT RequestFollower::RequestFollowerItem {
 public:
  // Orders items by deadline, earliest first; equal deadlines are not less
  // than each other in either direction.
  struct OSTREL_EXPORT TimevalComparator {
    bool operator()(RequestFollowerItem* a, RequestFollowerItem* b) const;
  };

  // Stores the arguments as given; timeOut is the absolute deadline. The item
  // owns userData when both userData and release are set.
  RequestFollowerItem(unsigned int requestId, int tunerId, short pid, short tableId,
                      short tableIdExt, void* userData, void (*release)(void*), timeval timeOut,
                      unsigned int requestCounter);

  // Calls release(userData) once when both are set; otherwise does nothing.
  ~RequestFollowerItem();

  // The item's block with room for the registry's links in front; throws
  // std::bad_alloc as the global operator new does.
  static void* operator new(size_t size);
  static void operator delete(void* item);

  // Order on (deadline, tuner id, PID, table id, table id extension), signed.
  bool operator<(const RequestFollowerItem& other) const;

  // True when the deadline is strictly earlier than now.
  bool isTimedOut(timeval now) const;

  // True when all four parts equal the item's request key.
  bool match(int tunerId, short pid, short tableId, short tableIdExt) const;

  unsigned int getRequestId() const { return m_uiRequestId; }
  int getTunerId() const { return m_iTunerId; }
  short getPid() const { return m_sPid; }
  short getTableId() const { return m_sTableId; }
  short getTableIdExt() const { return m_sTableIdExt; }
  // Lent: the item keeps the ownership.
  void* getUserData() const { return m_pUserData; }
  // The absolute deadline.
  timeval getTimeOut() const { return m_tvTimeOut; }
  unsigned int getRequestCounter() const { return m_uiRequestCounter; }

 private:
  // Never copied: a copy would release the same user data a second time.
  RequestFollowerItem(const RequestFollowerItem&);
  RequestFollowerItem& operator=(const RequestFollowerItem&);

  static bool earlier(const timeval& a, const timeval& b);

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
