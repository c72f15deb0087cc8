// The monitor thread: sleeps until the earliest deadline, then reports and
// deletes every request whose deadline has passed.
#include "OstrelGingaCommonCore.h"
#include "RequestFollower.h"
#include "ScopedLock.h"

namespace Ostrel {

namespace {

// Set on every monitor thread, of whichever instance.
thread_local bool s_bOnMonitorThread = false;

}  // namespace

bool RequestFollower::onMonitorThread() {
  return s_bOnMonitorThread;
}

// Joinable, so that the teardown can wait for its end. A failure to start
// leaves m_thread at 0: requests are still followed but never time out.
void RequestFollower::startMonitor() {
  pthread_attr_t attr;
  pthread_attr_init(&attr);
  pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_JOINABLE);
  if (pthread_create(&m_thread, &attr, &RequestFollower::monitorThread, this) != 0) {
    m_thread = pthread_t();
  }
  pthread_attr_destroy(&attr);
}

// The join runs without the lock: the thread needs it to leave its wait.
void RequestFollower::stopMonitor() {
  {
    ScopedLock lock(&s_pSingMutex);
    m_iStop = 1;
    pthread_cond_broadcast(&m_cond);
  }
  if (m_thread != pthread_t()) {
    pthread_join(m_thread, NULL);
    m_thread = pthread_t();
  }
}

void* RequestFollower::monitorThread(void* arg) {
  s_bOnMonitorThread = true;
  RequestFollower* follower = static_cast<RequestFollower*>(arg);
  if (!follower) {
    log("%s: Monitor: ERROR: RequestFollower instance not provided.");
    pthread_exit(NULL);
  }
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  if (!core) {
    log("%s: Monitor: ERROR: GingaCommonCore instance unavailable.");
    pthread_exit(NULL);
  }
  {
    ScopedLock lock(&s_pSingMutex);
    follower->__monitor(core);
  }
  pthread_exit(NULL);
  return NULL;
}

// The stop flag is read under the lock before every wait and after every
// return from one, so a stop is never lost.
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
    __expire(core, now);
  }
  log("%s: Monitor: System fail while getting current time!");
}

// Untimed while nothing is pending, otherwise until the earliest deadline on
// the gettimeofday clock (the condition variable's default clock). How the
// wait ended does not matter: the caller looks at the clock again. False when
// the clock cannot be read.
// REQUIRES: s_pSingMutex held, exactly once (the wait releases one level).
bool RequestFollower::__waitForDeadline() {
  if (m_lstTimeOut.empty()) {
    pthread_cond_wait(&m_cond, &s_pSingMutex);
    return true;
  }
  const timeval deadline = m_lstTimeOut.front()->getTimeOut();
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

// Reports the expired head of the time-out list, one item at a time, each
// taken out just before its report. The list is in deadline order, so the
// pass stops at the first item not yet due. Looking at the head again after
// every report means that an item which a callback of this pass has taken out
// is simply not there, and an item that it adds is due at the clock or later,
// which this pass's reading does not count as past.
// REQUIRES: s_pSingMutex held.
void RequestFollower::__expire(OstrelGingaCommonCore* core, const timeval& now) {
  while (!m_lstTimeOut.empty() && m_lstTimeOut.front()->isTimedOut(now)) {
    __report(core, m_lstTimeOut.front());
  }
}

// Takes the item out of every structure before the report, so that it is
// reported at most once; deleting it afterwards releases its user data.
// REQUIRES: s_pSingMutex held.
void RequestFollower::__report(OstrelGingaCommonCore* core, RequestFollowerItem* item) {
  __unfile(item);
  __forgetId(item->getRequestId());
  if (!core->requestTimedOut(item->getRequestId(), item->getTunerId(), item->getPid(),
                             item->getTableId(), item->getTableIdExt(), item->getUserData(),
                             item->getTimeOut(), item->getRequestCounter())) {
    log("%s: Monitor: Request timeout notification failed!");
  }
  deleteItem(item);
}

}  // namespace Ostrel
