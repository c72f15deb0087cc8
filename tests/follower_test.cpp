// The request follower through its public operations. The program defines gettimeofday (which
// the library's calls resolve to) to freeze, move or fail the follower's clock, and operator new,
// to fail the n-th allocation of the test's thread. Time-outs reach the core's callback.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <random>
#include <thread>
#include <vector>

#include "CountedUserData.h"
#include "LogCapture.h"
#include "OstrelGingaCommonCore.h"
#include "RequestFollower.h"

using Ostrel::RequestFollower;
using OstrelTest::CountedUserData;
using OstrelTest::LogCapture;
using Item = RequestFollower::RequestFollowerItem;
using ItemList = std::list<Item*>;
using Ids = std::vector<unsigned int>;

enum ClockMode { kReal, kFixed, kFail };
static std::atomic<int> s_mode{kReal};
static std::atomic<long long> s_sec{0};
static std::atomic<long> s_usec{0}, s_monitorReads{0}, s_failAfter{-1};
static const pthread_t s_testThread = pthread_self();

static timeval tv(long long sec, long usec) {
  return timeval{static_cast<time_t>(sec), usec};
}
extern "C" int gettimeofday(struct timeval* __restrict t, void* __restrict) noexcept {
  if (!pthread_equal(pthread_self(), s_testThread))
    ++s_monitorReads;
  timespec real;
  clock_gettime(CLOCK_REALTIME, &real);
  *t = s_mode == kFixed ? tv(s_sec, s_usec) : tv(real.tv_sec, real.tv_nsec / 1000);
  return s_mode == kFail ? -1 : 0;
}
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif
__attribute__((noinline)) void* operator new(std::size_t size) {
  void* p = std::malloc(size ? size : 1);
  if (!p || (pthread_equal(pthread_self(), s_testThread) && s_failAfter.fetch_sub(1) == 0)) {
    std::free(p);
    throw std::bad_alloc();
  }
  return p;
}
__attribute__((noinline)) void operator delete(void* p) noexcept {
  std::free(p);
}
__attribute__((noinline)) void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}

namespace {

// The time-out reports (request id, user data) that reach the core's callback; the hook runs
// inside the callback and gives its result.
using Report = std::pair<unsigned int, void*>;
std::mutex s_mutex;
std::condition_variable s_reported;
std::vector<Report> s_reports;
std::function<int(unsigned int id, void* userData)> s_hook;

class Follower : public ::testing::Test {
 protected:
  void SetUp() override {  // the previous test's monitor has ended
    s_mode = kReal;
    s_hook = nullptr;
    s_reports.clear();
    Ostrel::OstrelGingaCommonCore::getInstance()->setRequestNotificationCallback(&recordReport);
  }
  void TearDown() override { RequestFollower::destroy(); }

  static int recordReport(unsigned int id, unsigned char status, void* data, Ostrel::TISDBTTable*) {
    EXPECT_EQ(1, status);
    const int result = s_hook ? s_hook(id, data) : 1;
    std::lock_guard<std::mutex> lock(s_mutex);
    s_reports.push_back(Report(id, data));
    s_reported.notify_all();
    return result;
  }
  static std::vector<Report> waitForReports(size_t n) {
    std::unique_lock<std::mutex> lock(s_mutex);
    s_reported.wait_for(lock, std::chrono::seconds(10), [n] { return s_reports.size() >= n; });
    return s_reports;
  }
  static Ids reportedIds(size_t n = 0) {
    Ids ids;
    for (const Report& r : waitForReports(n))
      ids.push_back(r.first);
    return ids;
  }
  static bool eventually(std::function<bool()> cond) {
    for (int i = 0; i < 5000 && !cond(); ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    return cond();
  }
  static void setClock(long long sec, long usec) {
    s_sec = sec;
    s_usec = usec;
    s_mode = kFixed;
  }
  static long long realSeconds() { return static_cast<long long>(time(nullptr)); }

  static bool add(unsigned int id, short pid, short tableId, timeval timeOut,
                  CountedUserData* data = nullptr, int tuner = 1, short ext = 0) {
    return RequestFollower::add(id, tuner, pid, tableId, ext, data,
                                data ? &CountedUserData::release : nullptr, timeOut, 1);
  }
  static Ids ids(ItemList* items, bool owned) {
    Ids out;
    for (Item* i : *items) {
      out.push_back(i->getRequestId());
      if (owned)
        delete i;
    }
    delete items;
    return out;
  }
  static Ids byKey(short pid, short tableId, int tuner = 1, short ext = 0) {
    return ids(RequestFollower::get(tuner, pid, tableId, ext), false);
  }
  static Ids takeByKey(short pid, short tableId, int tuner = 1, short ext = 0) {
    return ids(RequestFollower::remove(tuner, pid, tableId, ext), true);
  }
  // Sets the frozen clock and wakes the monitor (again, in case it was not waiting yet) until n
  // reports have come; then takes the lock, which the monitor holds through a whole pass.
  static Ids reportsAt(long long sec, long usec, size_t n) {
    setClock(sec, usec);
    for (int i = 0; i < 2000 && waitForReports(0).size() < n; ++i) {
      takeByKey(0x11, 0x42, 99);
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    RequestFollower::get(0u);
    return reportedIds();
  }
  static Ids expireAll(size_t n) { return reportsAt(s_sec + 900000, 0, n); }
};

TEST_F(Follower, ItemExpiresStrictlyAfterItsDeadlineAndOrdersSigned) {
  Item d(1, 1, 0x11, 0x42, 7, nullptr, nullptr, tv(100, 500000), 1);
  const long long expiry[][3] = {{100, 500000, 0}, {100, 500001, 1}, {101, 0, 1}, {99, 999999, 0}};
  for (const auto& e : expiry)
    EXPECT_EQ(e[2] != 0, d.isTimedOut(tv(e[0], e[1]))) << e[0] << "," << e[1];
  Item::TimevalComparator earlier;
  Item same(2, 9, 0x12, 0x4E, 0, &d, nullptr, tv(100, 500000), 5);
  Item twin(6, 9, 0x12, 0x4E, 0, nullptr, nullptr, tv(100, 500000),
            1);  // id, data, counter: no part
  Item later(3, 0, 0, 0, 0, nullptr, nullptr, tv(101, 0), 1);
  EXPECT_TRUE(!earlier(&d, &same) && !earlier(&same, &d) && earlier(&d, &later) &&
              !earlier(&later, &d) && d < later && !(later < d) && !(twin < same || same < twin));
  // At equal deadlines: tuner, PID, table id, extension, each signed.
  const short keys[][4] = {{-1, 5, 5, 5}, {9, -1, 5, 5}, {9, 0x12, -2, 5}, {9, 0x12, 0x4E, -1}};
  for (const auto& k : keys) {
    Item smaller(5, k[0], k[1], k[2], k[3], nullptr, nullptr, tv(100, 500000), 1);
    EXPECT_TRUE(smaller < same && !(same < smaller)) << k[0] << k[1] << k[2] << k[3];
  }
  EXPECT_TRUE(d.match(1, 0x11, 0x42, 7));
  EXPECT_FALSE(d.match(0, 0x11, 0x42, 7) || d.match(1, 0x10, 0x42, 7) ||
               d.match(1, 0x11, 0x43, 7) || d.match(1, 0x11, 0x42, 0));
  CountedUserData owned, kept;
  delete new Item(1, 0, 0, 0, 0, &owned, &CountedUserData::release, tv(1, 0), 1);
  delete new Item(1, 0, 0, 0, 0, &kept, nullptr, tv(1, 0), 1);
  EXPECT_TRUE(owned.releases == 1 && kept.releases == 0);
}

TEST_F(Follower, EachPidAndTableIdIsFollowedOrRefusedAsTheCategoriesSay) {
  // PID, table id, time-out microseconds, followed.
  const long rows[][4] = {{0x0000, 0x02, 0, 1},  {0x0001, 0x01, 0, 1},      {0x0010, 0x40, 0, 1},
                          {0x0024, 0x02, 0, 1},  {0x0011, 0x42, 0, 1},      {0x0012, 0x4E, 0, 1},
                          {0x0012, 0x50, 0, 1},  {0x0014, 0x73, 0, 1},      {0x0026, 0x00, 0, 1},
                          {0x0100, 0x02, 0, 1},  {-1, 0x02, 0, 1},          {0x0100, 0x42, 0, 0},
                          {0x0027, 0x4E, 0, 0},  {0x0013, 0x4E, 0, 0},      {0x0100, -254, 0, 0},
                          {0x0011, 0x42, -1, 0}, {0x0011, 0x42, 1000000, 0}};
  for (const auto& row : rows) {
    CountedUserData data;
    const short pid = static_cast<short>(row[0]), tableId = static_cast<short>(row[1]);
    EXPECT_EQ(row[3] != 0, add(6, pid, tableId, tv(1000, row[2]), &data)) << pid;
    EXPECT_EQ(row[3] ? Ids{6} : Ids{}, takeByKey(pid, tableId)) << pid;
    EXPECT_EQ(row[3], data.releases) << pid;  // refused: still the caller's
  }
}

TEST_F(Follower, DeadlineIsTheClockPlusTheTimeOutWithCarryAndSaturation) {
  const long long t = realSeconds() + 100000, max = std::numeric_limits<time_t>::max(),
                  min = std::numeric_limits<time_t>::min();
  const long long cases[][6] = {
      // clock, time-out, deadline
      {t, 600000, 1, 400000, t + 2, 0},      {t, 600000, 1, 399999, t + 1, 999999},
      {t, 999999, 0, 1, t + 1, 0},           {min, 0, -1, 0, min, 0},
      {max - 5, 900000, 10, 2, max, 999999}, {max, 999999, 0, 1, max, 999999}};
  for (const auto& c : cases) {
    setClock(c[0], c[1]);
    ASSERT_TRUE(add(1, 0x11, 0x42, tv(c[2], c[3])));
    const timeval d = std::unique_ptr<Item>(RequestFollower::remove(1))->getTimeOut();
    EXPECT_EQ((std::pair<long long, long long>(c[4], c[5])),
              (std::pair<long long, long long>(d.tv_sec, d.tv_usec)));
  }
}

TEST_F(Follower, RepeatedIdIsRepointedAndTheEarlierStaysReachableByKey) {
  CountedUserData first, second;
  ASSERT_TRUE(add(5, 0x11, 0x42, tv(1000, 0), &first));
  ASSERT_TRUE(add(5, 0x10, 0x40, tv(1000, 0), &second, 2));
  EXPECT_EQ(&second, RequestFollower::get(5)->getUserData());
  EXPECT_EQ(Ids{5}, byKey(0x11, 0x42));
  // Taking the first out by key erases the id entry, though it pointed to the second.
  EXPECT_EQ(Ids{5}, takeByKey(0x11, 0x42));
  EXPECT_EQ(nullptr, RequestFollower::remove(5));
  EXPECT_EQ(Ids{5}, byKey(0x10, 0x40, 2));
  LogCapture log;
  EXPECT_TRUE(RequestFollower::destroy());  // releases the one left, by key only, once
  EXPECT_TRUE(first.releases == 1 && second.releases == 1);
  EXPECT_FALSE(RequestFollower::destroy());
  EXPECT_EQ(1, log.count("RequestFollower: Instance not found!"));
  EXPECT_EQ(Ids{}, byKey(0x10, 0x40, 2));  // a fresh instance answers
}

// Equal deadlines in order of addition, across categories and when the clock steps back too.
TEST_F(Follower, ByKeyResultsAndReportsComeInDeadlineThenAdditionOrder) {
  const long long t = realSeconds() + 100000;
  setClock(t, 250000);
  ASSERT_TRUE(add(5, 0x12, 0x50, tv(2, 0)));
  ASSERT_TRUE(add(3, 0x12, 0x50, tv(2, 0)));
  ASSERT_TRUE(add(9, 0x0100, 0x02, tv(2, 0)));  // same deadline, other category
  ASSERT_TRUE(add(1, 0x12, 0x50, tv(1, 999999)));
  ASSERT_TRUE(add(2, 0x12, 0x50, tv(2, 1)));
  ASSERT_TRUE(add(6, 0x12, 0x50, tv(2, 0), nullptr, 2));  // another tuner
  setClock(t - 1, 250000);                                // the clock steps back
  ASSERT_TRUE(add(4, 0x12, 0x50, tv(3, 0)));
  ASSERT_TRUE(add(7, 0x12, 0x50, tv(3, 1)));
  ASSERT_TRUE(add(8, 0x0100, 0x02, tv(0, 0)));
  EXPECT_EQ((Ids{1, 5, 3, 4, 2, 7}), byKey(0x12, 0x50));
  EXPECT_EQ(Ids{}, byKey(0x12, 0x50, 1, 1));
  // At the deadline of 5, 3, 9, 6 and 4 they are not due yet.
  EXPECT_EQ((Ids{8, 1}), reportsAt(t + 2, 250000, 2));
  EXPECT_EQ((Ids{8, 1, 5, 3, 9, 6, 4}), reportsAt(t + 2, 250001, 7));
  EXPECT_EQ((Ids{2, 7}), takeByKey(0x12, 0x50));
  EXPECT_EQ(Ids{}, takeByKey(0x0100, 0x42));  // no category
}

// The monitor waits on a far deadline: only a broadcast makes it read the clock again. Once it has
// read the clock it holds the lock until it waits: an operation that gets the lock then finds it
// waiting.
TEST_F(Follower, ChangesOfThePendingRequestsWakeTheMonitor) {
  setClock(realSeconds() + 100000, 0);
  long reads = s_monitorReads;
  for (unsigned int id = 1; id <= 3; ++id)
    ASSERT_TRUE(add(id, 0x11, 0x42, tv(10 * id, 0)));
  const std::pair<const char*, std::function<void()>> changes[] = {
      {"remove by id, the earliest", [] { delete RequestFollower::remove(1); }},
      {"remove by key, a match", [] { takeByKey(0x11, 0x42); }},
      {"remove by key, no match", [] { takeByKey(0x11, 0x42, 5); }},
      {"add", [] { add(4, 0x11, 0x42, tv(5, 0)); }}};
  for (const auto& c : changes) {
    ASSERT_TRUE(eventually([&] { return s_monitorReads > reads; })) << c.first;
    RequestFollower::get(99u);
    reads = s_monitorReads;
    c.second();
    EXPECT_TRUE(eventually([&] { return s_monitorReads > reads; })) << c.first;
  }
}

// On the real clock the monitor's timed wait ends at the deadline; the user data is released on
// the monitor thread right after the report. When the clock fails the monitor ends; the registry
// still works.
TEST_F(Follower, TimeOutsOnTheRealClockThenAClockFailure) {
  LogCapture log;
  CountedUserData early, late, pending, refused;
  std::atomic<int> releasedBefore{0}, onTestThread{0};
  s_hook = [&](unsigned int, void* userData) {
    releasedBefore += static_cast<CountedUserData*>(userData)->releases;
    onTestThread += pthread_equal(pthread_self(), s_testThread);
    return 1;
  };
  ASSERT_TRUE(add(1, 0x11, 0x42, tv(0, 100000), &late));
  ASSERT_TRUE(add(2, 0x0100, 0x02, tv(0, 50000), &early));
  ASSERT_TRUE(add(3, 0x11, 0x42, tv(100, 0), &pending));
  EXPECT_EQ((Ids{2, 1}), reportedIds(2));
  EXPECT_TRUE(eventually([&] { return early.releases == 1 && late.releases == 1; }));
  EXPECT_EQ(0, releasedBefore + onTestThread);
  s_mode = kFail;
  EXPECT_FALSE(add(4, 0x11, 0x42, tv(0, 0), &refused));  // no clock, no deadline
  takeByKey(0x11, 0x42, 9);                              // wakes the monitor
  const char* message = "RequestFollower: Monitor: System fail while getting current time!";
  ASSERT_TRUE(eventually([&] { return log.count(message) == 1; }));
  s_mode = kReal;
  ASSERT_TRUE(add(5, 0x11, 0x42, tv(0, 0)));
  EXPECT_EQ((Ids{5, 3}), byKey(0x11, 0x42));
  EXPECT_TRUE(RequestFollower::destroy());  // the join returns: the thread has ended
  EXPECT_EQ((Ids{2, 1}), reportedIds());
  EXPECT_TRUE(pending.releases == 1 && refused.releases == 0);
}

// Callbacks on the monitor thread may add, look up and take out; destroy is refused there.
TEST_F(Follower, CallbacksOnTheMonitorThreadMayCallBackIn) {
  LogCapture log;
  setClock(realSeconds() + 100000, 0);
  CountedUserData a, b, c;
  ASSERT_TRUE(add(1, 0x11, 0x42, tv(1, 0), &a));
  ASSERT_TRUE(add(2, 0x10, 0x40, tv(1, 0), &b));
  ASSERT_TRUE(add(3, 0x11, 0x42, tv(1, 0), &c));
  std::atomic<bool> addedAndFound{false}, destroyed{true};
  s_hook = [&](unsigned int id, void*) {
    if (id == 1) {
      delete RequestFollower::remove(2);
      addedAndFound = add(4, 0x11, 0x42, tv(0, 0)) && RequestFollower::get(4);
      destroyed = RequestFollower::destroy();
    }
    return id == 3 ? 0 : 1;  // a refused notification is logged, and released all the same
  };
  EXPECT_EQ((Ids{1, 3}), expireAll(2));  // 4 is due at the clock of that pass, not before it
  EXPECT_EQ((Ids{1, 3, 4}), expireAll(3));
  EXPECT_TRUE(addedAndFound && !destroyed);
  EXPECT_EQ(1, log.count("RequestFollower: destroy: ERROR: Not allowed on the monitor thread."));
  EXPECT_EQ(1, log.count("RequestFollower: Monitor: Request timeout notification failed!"));
  EXPECT_TRUE(eventually([&] { return a.releases + b.releases + c.releases == 3; }));
}

// Adders and removers racing teardowns: accepted user data is released once, refused never.
TEST_F(Follower, DestroyRacingWithAddAndRemoveReleasesEachOnce) {
  std::vector<CountedUserData> data(900);
  std::vector<std::atomic<int>> accepted(data.size());
  auto run = [&](unsigned int t) {
    for (unsigned int id = t; id < data.size(); id += 3) {
      const short pid = static_cast<short>(0x0100 + id % 5);
      accepted[id] = add(id, pid, 0x02, tv(0, (id % 4) * 500), &data[id], t);
      takeByKey(pid, 0x02, id % 7 == 0 ? t : -1);  // answered, or no match
      delete RequestFollower::remove(id % 11 == 0 ? id : ~0u);
    }
  };
  std::thread a(run, 0), b(run, 1), c(run, 2);
  for (int round = 0; round < 30; ++round) {
    RequestFollower::destroy();
    std::this_thread::sleep_for(std::chrono::microseconds(300));
  }
  for (std::thread* th : {&a, &b, &c})
    th->join();
  RequestFollower::destroy();
  for (size_t i = 0; i < data.size(); ++i)
    EXPECT_EQ(accepted[i].load(), data[i].releases.load()) << i;
}

// Each allocation of add or remove by key fails in turn: the registry stays as it was.
TEST_F(Follower, AllocationFailureLeavesTheRegistryUnchanged) {
  setClock(realSeconds() + 100000, 0);
  ASSERT_TRUE(add(1, 0x11, 0x42, tv(100, 0)));
  ASSERT_TRUE(add(2, 0x11, 0x42, tv(300, 0)));
  ASSERT_TRUE(add(7, 0x11, 0x42, tv(250, 0), nullptr, 2));
  Item* seven = RequestFollower::get(7);
  CountedUserData data;
  bool added = false;
  for (long n = 0; !added; ++n, s_failAfter = -1) {
    try {
      s_failAfter = n;
      added = add(8, 0x11, 0x42, tv(200, 0), &data);
    } catch (const std::bad_alloc&) {
      EXPECT_TRUE(data.releases == 0 && !RequestFollower::get(8) &&
                  RequestFollower::get(7) == seven);
      EXPECT_EQ((Ids{1, 2}), byKey(0x11, 0x42)) << n;
    }
  }
  ItemList* taken = nullptr;
  for (long n = 0; !taken; ++n, s_failAfter = -1) {
    try {
      s_failAfter = n;
      taken = RequestFollower::remove(1, 0x11, 0x42, 0);
    } catch (const std::bad_alloc&) {
      EXPECT_EQ((Ids{1, 8, 2}), byKey(0x11, 0x42)) << n;
    }
  }
  EXPECT_EQ((Ids{1, 8, 2}), ids(taken, true));
  EXPECT_EQ(Ids{7}, expireAll(1));
}

// Random adds, lookups and removals, the clock frozen or stepping back (deadlines tie often, none
// passes), against a plain model: the pending requests in order of addition, an id map re-pointed
// on repeated ids and erased whenever an item with that id leaves. Finally all time out, in the
// model's stable deadline order.
TEST_F(Follower, AgreesWithAPlainModelOverRandomOperations) {
  long long clock = realSeconds() + 100000;
  setClock(clock, 0);
  std::vector<Item*> model;
  std::map<unsigned int, Item*> byId;
  auto sorted = [&](std::function<bool(Item*)> keep) {
    ItemList v;  // list::sort is stable and allocates nothing
    std::copy_if(model.begin(), model.end(), std::back_inserter(v), keep);
    v.sort(Item::TimevalComparator());
    return v;
  };
  auto forget = [&](Item* item) {
    byId.erase(item->getRequestId());
    model.erase(std::find(model.begin(), model.end(), item));
    delete item;
  };
  const short pids[] = {0x00, 0x12, 0x0100, 0x0101}, tableIds[] = {0x02, 0x4E, 0x42};
  const long usecs[] = {0, 500000, 999999};
  std::mt19937 rng(20240611);
  auto pick = [&](int n) { return static_cast<int>(rng() % n); };
  std::vector<CountedUserData> tags(3000);
  for (int step = 0; step < 3000; ++step) {
    SCOPED_TRACE(step);
    const int tuner = pick(2), op = pick(20);
    const short pid = pids[pick(4)], tableId = tableIds[pick(3)], ext = short(pick(2));
    const unsigned int id = 1 + pick(40);
    if (op == 0)
      setClock(clock -= 1 + pick(2), usecs[pick(3)]);
    if (op < 10) {
      const bool followed = tableId == 0x02 || pid == 0x00 || pid == 0x12;
      const long sec = pick(3), usec = usecs[pick(3)];
      ASSERT_EQ(followed, add(id, pid, tableId, tv(sec, usec), &tags[step], tuner, ext));
      if (followed) {
        model.push_back(byId[id] = RequestFollower::get(id));
        ASSERT_EQ(&tags[step], model.back()->getUserData());
      }
    } else if (op < 13) {
      Item* item = RequestFollower::remove(id);
      ASSERT_EQ(byId.count(id) ? byId[id] : nullptr, item);
      if (item)
        forget(item);
    } else {
      std::unique_ptr<ItemList> got(op < 17 ? RequestFollower::get(tuner, pid, tableId, ext)
                                            : RequestFollower::remove(tuner, pid, tableId, ext));
      ASSERT_EQ(sorted([&](Item* i) { return i->match(tuner, pid, tableId, ext); }), *got);
      for (Item* item : op >= 17 ? *got : ItemList())
        forget(item);
    }
  }
  std::vector<Report> expected;
  for (Item* item : sorted([](Item*) { return true; }))
    expected.push_back(Report(item->getRequestId(), item->getUserData()));
  expireAll(expected.size());
  EXPECT_EQ(expected, waitForReports(0));
}

}  // namespace
