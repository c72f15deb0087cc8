// One outstanding request and its deadline order.
#include "RequestFollowerItem.h"

namespace Ostrel {

namespace {

// Seconds first, microseconds only on equal seconds; both signed.
bool earlier(const timeval& a, const timeval& b) {
  return a.tv_sec != b.tv_sec ? a.tv_sec < b.tv_sec : a.tv_usec < b.tv_usec;
}

}  // namespace

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

bool RequestFollower::RequestFollowerItem::TimevalComparator::operator()(RequestFollowerItem* a,
                                                                         RequestFollowerItem* b) {
  return earlier(a->m_tvTimeOut, b->m_tvTimeOut);
}

bool RequestFollower::RequestFollowerItem::operator<(RequestFollowerItem& other) {
  if (earlier(m_tvTimeOut, other.m_tvTimeOut) || earlier(other.m_tvTimeOut, m_tvTimeOut)) {
    return earlier(m_tvTimeOut, other.m_tvTimeOut);
  }
  return m_iTunerId != other.m_iTunerId   ? m_iTunerId < other.m_iTunerId
         : m_sPid != other.m_sPid         ? m_sPid < other.m_sPid
         : m_sTableId != other.m_sTableId ? m_sTableId < other.m_sTableId
                                          : m_sTableIdExt < other.m_sTableIdExt;
}

bool RequestFollower::RequestFollowerItem::isTimedOut(timeval now) {
  return earlier(m_tvTimeOut, now);
}

bool RequestFollower::RequestFollowerItem::match(int tunerId, short pid, short tableId,
                                                 short tableIdExt) {
  return m_iTunerId == tunerId && m_sPid == pid && m_sTableId == tableId &&
         m_sTableIdExt == tableIdExt;
}

}  // namespace Ostrel
