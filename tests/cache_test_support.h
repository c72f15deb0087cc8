#ifndef OSTREL_TESTS_CACHE_TEST_SUPPORT_H
#define OSTREL_TESTS_CACHE_TEST_SUPPORT_H

#include <time.h>

#include <atomic>
#include <memory>

#include "Cacher.h"
#include "CacherItem.h"
#include "CountedTable.h"
#include "ScopedLock.h"

namespace OstrelTest {

// A clock for the cache that moves only when a test moves it, so that
// least-recently-used cases need no sleeping. Restores ::time when it goes.
class CacheFakeClock {
 public:
  explicit CacheFakeClock(time_t start = 1000) {
    s_now = start;
    Ostrel::Cacher::setClock(&CacheFakeClock::time);
  }
  ~CacheFakeClock() { Ostrel::Cacher::setClock(nullptr); }
  CacheFakeClock(const CacheFakeClock&) = delete;
  CacheFakeClock& operator=(const CacheFakeClock&) = delete;

  void set(time_t now) { s_now = now; }
  void advance(time_t seconds = 1) { s_now += seconds; }
  time_t now() const { return s_now; }

  static time_t time(time_t* out) {
    time_t now = s_now;
    if (out)
      *out = now;
    return now;
  }

 private:
  static inline std::atomic<time_t> s_now{0};
};

// A tuner id used by no other test in the process.
inline int freshTunerId() {
  static std::atomic<int> next{1000};
  return next++;
}

// Takes a cache out of the process-wide map and destroys it, so that a test
// can watch the destructor. Nothing else may hold the cache.
inline void destroyCache(int tunerId) {
  Ostrel::Cacher* cache = nullptr;
  {
    Ostrel::ScopedLock lock(&Ostrel::Cacher::s_pStaticMutex);
    auto it = Ostrel::Cacher::s_pInstances.find(tunerId);
    if (it == Ostrel::Cacher::s_pInstances.end())
      return;
    cache = it->second;
    Ostrel::Cacher::s_pInstances.erase(it);
  }
  delete cache;
}

// The shared handle cached under pid (null when none); refreshes last access.
inline std::shared_ptr<Ostrel::TISDBTTable> lend(Ostrel::Cacher* cache, short pid,
                                                 unsigned int* size = nullptr) {
  std::shared_ptr<Ostrel::TISDBTTable> table;
  unsigned int dataSize = 0;
  if (!cache->get(pid, 0, 0, &table, &dataSize))
    return nullptr;
  if (size)
    *size = dataSize;
  return table;
}

}  // namespace OstrelTest

#endif
