// One outstanding request and its deadline order.
#include "RequestFollowerItem.h"

#include <new>

#include "ItemLinks.h"

namespace Ostrel {

void* RequestFollower::RequestFollowerItem::operator new(size_t size) {
  static_assert(alignof(RequestFollowerItem) <= alignof(ItemLinks),
                "the item must be aligned within its block");
  char* block = static_cast<char*>(::operator new(kItemOffset + size));
  ::new (block) ItemLinks();
  return block + kItemOffset;
}

void RequestFollower::RequestFollowerItem::operator delete(void* item) {
  if (item) {
    ::operator delete(ItemLinks::of(item));
  }
}

RequestFollower::RequestFollowerItem::RequestFollowerItem(unsigned int requestId, int tunerId,
                                                          short pid, short tableId,
                                                          short tableIdExt, void* userData,
                                                          void (*release)(void*), timeval timeOut,
                                                          unsigned int requestCounter)
    : m_uiRequestId(requestId),
      m_iTunerId(tunerId),
      m_sPid(pid),
      m_sTableId(tableId),
      m_sTableIdExt(tableIdExt),
      m_pUserData(userData),
      m_pfRelease(release),
      m_tvTimeOut(timeOut),
      m_uiRequestCounter(requestCounter) {}

RequestFollower::RequestFollowerItem::~RequestFollowerItem() {
  if (m_pUserData && m_pfRelease) {
    m_pfRelease(m_pUserData);
    m_pUserData = 0;
  }
}

// Seconds first, microseconds only on equal seconds; both signed.
bool RequestFollower::RequestFollowerItem::earlier(const timeval& a, const timeval& b) {
  if (a.tv_sec != b.tv_sec) {
    return a.tv_sec < b.tv_sec;
  }
  return a.tv_usec < b.tv_usec;
}

bool RequestFollower::RequestFollowerItem::TimevalComparator::operator()(
    RequestFollowerItem* a, RequestFollowerItem* b) const {
  return earlier(a->m_tvTimeOut, b->m_tvTimeOut);
}

bool RequestFollower::RequestFollowerItem::operator<(const RequestFollowerItem& other) const {
  if (earlier(m_tvTimeOut, other.m_tvTimeOut)) {
    return true;
  }
  if (earlier(other.m_tvTimeOut, m_tvTimeOut)) {
    return false;
  }
  if (m_iTunerId != other.m_iTunerId) {
    return m_iTunerId < other.m_iTunerId;
  }
  if (m_sPid != other.m_sPid) {
    return m_sPid < other.m_sPid;
  }
  if (m_sTableId != other.m_sTableId) {
    return m_sTableId < other.m_sTableId;
  }
  return m_sTableIdExt < other.m_sTableIdExt;
}

bool RequestFollower::RequestFollowerItem::isTimedOut(timeval now) const {
  return earlier(m_tvTimeOut, now);
}

bool RequestFollower::RequestFollowerItem::match(int tunerId, short pid, short tableId,
                                                 short tableIdExt) const {
  return m_iTunerId == tunerId && m_sPid == pid && m_sTableId == tableId &&
         m_sTableIdExt == tableIdExt;
}

}  // namespace Ostrel
