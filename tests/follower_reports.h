// Records the time-out reports that reach the notification callback, for the
// follower's tests. One recorder per process (the callback is a plain function).
#ifndef OSTREL_TESTS_FOLLOWER_REPORTS_H
#define OSTREL_TESTS_FOLLOWER_REPORTS_H

#include <pthread.h>
#include <sys/time.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "CountedUserData.h"
#include "OstrelGingaCommonCore.h"

namespace OstrelTest {

struct Report {
  unsigned int requestId = 0;
  unsigned char status = 0;
  void* userData = nullptr;
  Ostrel::TISDBTTable* table = nullptr;
  int releasesAtCall = -1;  // of the CountedUserData, when there is one
  pthread_t thread{};
};

class Reports {
 public:
  // Binds the recorder as the core's notification callback, empty and without
  // a hook. User data given to requests must be a CountedUserData or null.
  static Reports& install() {
    Reports& r = get();
    {
      std::lock_guard<std::mutex> lock(r.m_mutex);
      r.m_reports.clear();
      r.m_hook = nullptr;
    }
    Ostrel::OstrelGingaCommonCore::getInstance()->setRequestNotificationCallback(&callback);
    return r;
  }

  // Runs inside the callback, before recording; its result is the callback's.
  void setHook(std::function<int(const Report&)> hook) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_hook = std::move(hook);
  }

  std::vector<Report> all() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_reports;
  }

  int countFor(unsigned int requestId) const {
    std::lock_guard<std::mutex> lock(m_mutex);
    int n = 0;
    for (const Report& r : m_reports)
      n += r.requestId == requestId;
    return n;
  }

  // Waits (generously) until at least n reports have arrived.
  bool waitForCount(size_t n, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_changed.wait_for(lock, limit, [&] { return m_reports.size() >= n; });
  }

 private:
  static Reports& get() {
    static Reports reports;
    return reports;
  }

  static int callback(unsigned int requestId, unsigned char status, void* userData,
                      Ostrel::TISDBTTable* table) {
    Reports& self = get();
    Report report;
    report.requestId = requestId;
    report.status = status;
    report.userData = userData;
    report.table = table;
    if (userData)
      report.releasesAtCall = static_cast<CountedUserData*>(userData)->releases;
    report.thread = pthread_self();
    std::function<int(const Report&)> hook;
    {
      std::lock_guard<std::mutex> lock(self.m_mutex);
      hook = self.m_hook;
    }
    // Recorded after the hook, so that whoever sees the report sees the
    // hook's effects too.
    int result = hook ? hook(report) : 1;
    {
      std::lock_guard<std::mutex> lock(self.m_mutex);
      self.m_reports.push_back(report);
    }
    self.m_changed.notify_all();
    return result;
  }

  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<Report> m_reports;
  std::function<int(const Report&)> m_hook;
};

// Polls cond until it holds or the limit passes (for effects that have no
// notification of their own, such as a release right after a report).
template <class Cond>
bool eventually(Cond cond, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
  auto end = std::chrono::steady_clock::now() + limit;
  while (!cond()) {
    if (std::chrono::steady_clock::now() > end)
      return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

inline timeval tv(long sec, long usec) {
  timeval t;
  t.tv_sec = sec;
  t.tv_usec = usec;
  return t;
}

}  // namespace OstrelTest

#endif
