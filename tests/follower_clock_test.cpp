// The follower on a clock that the test controls: this program defines
// gettimeofday itself, which the library's calls resolve to. Exact deadline
// arithmetic, strict expiry at a pass, equal deadlines in one pass, clock
// failures, and the registry against a simple model under a frozen clock.
#include <gtest/gtest.h>
#include <sys/time.h>
#include <time.h>

#include <atomic>
#include <functional>
#include <limits>
#include <list>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "CountedUserData.h"
#include "LogCapture.h"
#include "RequestFollower.h"
#include "follower_peer.h"
#include "follower_reports.h"

using Ostrel::RequestFollower;
using Ostrel::RequestFollowerTestPeer;
using OstrelTest::CountedUserData;
using OstrelTest::eventually;
using OstrelTest::LogCapture;
using OstrelTest::Report;
using OstrelTest::Reports;
using OstrelTest::tv;
using Item = RequestFollower::RequestFollowerItem;
using ItemList = std::list<Item*>;

namespace {

enum ClockMode { kReal, kFixed, kFail };
std::atomic<int> s_mode{kReal};
std::atomic<long long> s_fixedSec{0};
std::atomic<long> s_fixedUsec{0};
std::atomic<long> s_reads{0};
std::atomic<long> s_otherReads{0};  // by threads other than the test's (the monitor)
pthread_t s_testThread;

void setClock(long long sec, long usec) {
  s_fixedSec = sec;
  s_fixedUsec = usec;
  s_mode = kFixed;
}

struct ClockReset {
  ~ClockReset() { s_mode = kReal; }
};

time_t realSeconds() {
  timespec ts;
  clock_gettime(CLOCK_REALTIME, &ts);
  return ts.tv_sec;
}

}  // namespace

extern "C" int gettimeofday(struct timeval* __restrict tv, void* __restrict) noexcept {
  ++s_reads;
  if (!pthread_equal(pthread_self(), s_testThread))
    ++s_otherReads;
  switch (s_mode.load()) {
    case kFail:
      errno = EFAULT;
      return -1;
    case kFixed:
      tv->tv_sec = static_cast<time_t>(s_fixedSec.load());
      tv->tv_usec = s_fixedUsec.load();
      return 0;
    default: {
      timespec ts;
      clock_gettime(CLOCK_REALTIME, &ts);
      tv->tv_sec = ts.tv_sec;
      tv->tv_usec = ts.tv_nsec / 1000;
      return 0;
    }
  }
}

class FollowerClock : public ::testing::Test {
 protected:
  void SetUp() override {
    s_testThread = pthread_self();
    reports = &Reports::install();
  }
  void TearDown() override {
    s_mode = kReal;
    EXPECT_EQ("", RequestFollowerTestPeer::inconsistency());
    RequestFollower::destroy();
  }
  Reports* reports = nullptr;
};

TEST_F(FollowerClock, TheClockIsReallyReplaced) {
  setClock(12345, 678);
  timeval t;
  ASSERT_EQ(0, gettimeofday(&t, nullptr));
  EXPECT_EQ(12345, t.tv_sec);
  const long before = s_reads;
  ASSERT_TRUE(RequestFollower::add(1, 0, 0x11, 0x42, 0, nullptr, nullptr, tv(1, 0), 1));
  EXPECT_GT(s_reads, before);  // the library reads this clock
  EXPECT_EQ(12346, RequestFollower::get(1)->getTimeOut().tv_sec);
}

TEST_F(FollowerClock, DeadlineCarriesMicrosecondsIntoSeconds) {
  // Far ahead of the real clock, so that the monitor's waits never end by themselves.
  const long long t = static_cast<long long>(realSeconds()) + 100000;
  struct {
    long nowUsec;
    timeval timeOut;
    long long sec;
    long usec;
  } cases[] = {
      {600000, tv(1, 400000), t + 2, 0},
      {600000, tv(1, 399999), t + 1, 999999},
      {0, tv(0, 0), t, 0},
      {999999, tv(0, 999999), t + 1, 999998},
      {999999, tv(0, 1), t + 1, 0},
      {1, tv(3600, 999999), t + 3601, 0},
  };
  unsigned int id = 1;
  for (const auto& c : cases) {
    setClock(t, c.nowUsec);
    ASSERT_TRUE(RequestFollower::add(id, 0, 0x11, 0x42, 0, nullptr, nullptr, c.timeOut, 1));
    timeval d = RequestFollower::get(id)->getTimeOut();
    EXPECT_EQ(c.sec, static_cast<long long>(d.tv_sec)) << "case " << id;
    EXPECT_EQ(c.usec, d.tv_usec) << "case " << id;
    ++id;
  }
}

TEST_F(FollowerClock, DeadlineSaturatesInsteadOfOverflowing) {
  const time_t max = std::numeric_limits<time_t>::max();
  setClock(static_cast<long long>(max) - 5, 900000);
  ASSERT_TRUE(RequestFollower::add(1, 0, 0x11, 0x42, 0, nullptr, nullptr, tv(10, 200000), 1));
  EXPECT_EQ(max, RequestFollower::get(1)->getTimeOut().tv_sec);
  EXPECT_EQ(999999, RequestFollower::get(1)->getTimeOut().tv_usec);
  setClock(static_cast<long long>(max), 999999);  // the carry alone would overflow
  ASSERT_TRUE(RequestFollower::add(2, 0, 0x11, 0x42, 0, nullptr, nullptr, tv(0, 1), 1));
  EXPECT_EQ(max, RequestFollower::get(2)->getTimeOut().tv_sec);
}

TEST_F(FollowerClock, EqualDeadlinesComeOutInOrderOfAddition) {
  const long long t = static_cast<long long>(realSeconds()) + 100000;
  setClock(t, 250000);
  for (unsigned int id : {5u, 3u, 9u}) {
    ASSERT_TRUE(RequestFollower::add(id, 1, 0x12, 0x50, 0, nullptr, nullptr, tv(2, 0), 1));
  }
  ASSERT_TRUE(RequestFollower::add(1, 1, 0x12, 0x50, 0, nullptr, nullptr, tv(1, 999999), 1));
  ASSERT_TRUE(RequestFollower::add(2, 1, 0x12, 0x50, 0, nullptr, nullptr, tv(2, 1), 1));
  ASSERT_TRUE(RequestFollower::add(4, 1, 0x12, 0x50, 0, nullptr, nullptr, tv(2, 0), 1));
  const std::vector<unsigned int> expected{1, 5, 3, 9, 4, 2};
  EXPECT_EQ(expected, RequestFollowerTestPeer::timeOutOrder());
  std::unique_ptr<ItemList> got(RequestFollower::get(1, 0x12, 0x50, 0));
  std::vector<unsigned int> ids;
  for (Item* i : *got)
    ids.push_back(i->getRequestId());
  EXPECT_EQ(expected, ids);
  got.reset(RequestFollower::remove(1, 0x12, 0x50, 0));
  ids.clear();
  for (Item* i : *got) {
    ids.push_back(i->getRequestId());
    delete i;
  }
  EXPECT_EQ(expected, ids);
}

// The clock stands still at the deadline, in the real past, so the monitor
// keeps waking, reading the same time and finding nothing strictly due. Once
// the clock moves by a microsecond both requests go in one pass, in order.
TEST_F(FollowerClock, DeadlineEqualToTheClockIsNotDueAndEqualDeadlinesGoInOnePass) {
  ClockReset reset;
  const long long t = static_cast<long long>(realSeconds()) - 1000;
  setClock(t, 0);
  std::vector<long> readsAtReport;
  reports->setHook([&](const Report&) {
    readsAtReport.push_back(s_reads.load());
    return 1;
  });
  CountedUserData a, b;
  RequestFollowerTestPeer::lock();  // both filed before the monitor looks
  ASSERT_TRUE(
      RequestFollower::add(1, 1, 0x14, 0x73, 0, &a, &CountedUserData::release, tv(0, 0), 1));
  ASSERT_TRUE(
      RequestFollower::add(2, 1, 0x14, 0x73, 0, &b, &CountedUserData::release, tv(0, 0), 1));
  const long readsBefore = s_reads;
  RequestFollowerTestPeer::unlock();
  ASSERT_TRUE(eventually([&] { return s_reads > readsBefore + 20; }));  // many passes at t
  EXPECT_TRUE(reports->all().empty());
  EXPECT_EQ(2u, RequestFollowerTestPeer::pendingCount());

  setClock(t, 1);
  ASSERT_TRUE(reports->waitForCount(2));
  std::vector<Report> all = reports->all();
  EXPECT_EQ(1u, all[0].requestId);
  EXPECT_EQ(2u, all[1].requestId);
  ASSERT_EQ(2u, readsAtReport.size());
  EXPECT_EQ(readsAtReport[0], readsAtReport[1]);  // no clock reading between: one pass
  EXPECT_TRUE(eventually([&] { return a.releases == 1 && b.releases == 1; }));
}

// A callback may take out another request of the same pass; that one is then
// skipped, owned by whoever took it, and never reported.
TEST_F(FollowerClock, ARequestTakenOutDuringAPassIsNotReported) {
  ClockReset reset;
  const long long t = static_cast<long long>(realSeconds()) + 100000;
  setClock(t, 0);
  const long monitorReads = s_otherReads;
  CountedUserData a, b, c;
  ASSERT_TRUE(
      RequestFollower::add(1, 1, 0x11, 0x42, 0, &a, &CountedUserData::release, tv(1, 0), 1));
  ASSERT_TRUE(
      RequestFollower::add(2, 1, 0x11, 0x42, 0, &b, &CountedUserData::release, tv(1, 0), 1));
  ASSERT_TRUE(
      RequestFollower::add(3, 1, 0x11, 0x42, 0, &c, &CountedUserData::release, tv(1, 0), 1));
  reports->setHook([&](const Report& r) {
    if (r.requestId == 1)
      delete RequestFollower::remove(2);
    return 1;
  });
  // Once the monitor has looked at the clock it waits before it lets go of the
  // lock, so the wake-up below cannot come before its wait.
  ASSERT_TRUE(eventually([&] { return s_otherReads > monitorReads; }));
  setClock(t + 5, 0);
  delete RequestFollower::remove(99);  // wakes nobody: unknown id
  std::unique_ptr<ItemList> none(RequestFollower::remove(1, 0x11, 0x42, 7));  // wakes the monitor
  ASSERT_TRUE(reports->waitForCount(2));
  EXPECT_TRUE(eventually([&] { return a.releases == 1 && c.releases == 1; }));
  EXPECT_EQ(1, b.releases);
  EXPECT_EQ(0, reports->countFor(2));
  EXPECT_EQ(2u, reports->all().size());
}

// The monitor waits on a deadline that the real clock will not reach during
// the test; only a broadcast makes it look at the clock again.
TEST_F(FollowerClock, ChangesOfThePendingRequestsWakeTheMonitor) {
  ClockReset reset;
  setClock(static_cast<long long>(realSeconds()) + 100000, 0);
  long reads = s_otherReads;
  ASSERT_TRUE(RequestFollower::add(1, 1, 0x11, 0x42, 0, nullptr, nullptr, tv(10, 0), 1));
  ASSERT_TRUE(RequestFollower::add(2, 1, 0x11, 0x42, 0, nullptr, nullptr, tv(20, 0), 1));
  ASSERT_TRUE(RequestFollower::add(3, 1, 0x11, 0x42, 0, nullptr, nullptr, tv(30, 0), 1));
  struct {
    const char* what;
    std::function<void()> change;
  } changes[] = {
      {"remove by id", [] { delete RequestFollower::remove(1); }},
      {"remove by key, a match",
       [] {
         std::unique_ptr<ItemList> taken(RequestFollower::remove(1, 0x11, 0x42, 0));
         for (Item* i : *taken)
           delete i;
       }},
      {"remove by key, no match",
       [] { std::unique_ptr<ItemList>(RequestFollower::remove(1, 0x11, 0x42, 5)); }},
      {"add", [] { RequestFollower::add(4, 1, 0x11, 0x42, 0, nullptr, nullptr, tv(5, 0), 1); }},
  };
  for (const auto& c : changes) {
    // Once the monitor has read the clock it holds the lock until it waits:
    // taking the lock then finds it waiting, its reading count settled.
    ASSERT_TRUE(eventually([&] { return s_otherReads > reads; })) << c.what;
    RequestFollowerTestPeer::lock();
    reads = s_otherReads;
    RequestFollowerTestPeer::unlock();
    c.change();
    EXPECT_TRUE(eventually([&] { return s_otherReads > reads; }, std::chrono::seconds(5)))
        << c.what;
  }
  EXPECT_TRUE(reports->all().empty());
}

TEST_F(FollowerClock, ClockFailureEndsTheMonitorButTheRegistryStillWorks) {
  ClockReset reset;
  LogCapture log;
  CountedUserData pending, refused, later;
  ASSERT_TRUE(RequestFollower::add(1, 1, 0x11, 0x42, 0, &pending, &CountedUserData::release,
                                   tv(100, 0), 1));
  s_mode = kFail;
  EXPECT_FALSE(RequestFollower::add(2, 1, 0x11, 0x42, 0, &refused, &CountedUserData::release,
                                    tv(0, 0), 1));  // no clock, no deadline: refused
  std::unique_ptr<ItemList> none(RequestFollower::remove(1, 0x11, 0x42, 9));  // wakes the monitor
  ASSERT_TRUE(eventually([&] {
    return log.count("RequestFollower: Monitor: System fail while getting current time!") == 1;
  }));
  s_mode = kReal;
  EXPECT_NE(nullptr, RequestFollower::get(1));
  ASSERT_TRUE(
      RequestFollower::add(3, 1, 0x11, 0x42, 0, &later, &CountedUserData::release, tv(0, 0), 1));
  EXPECT_TRUE(RequestFollower::destroy());  // the join returns: the thread has ended
  EXPECT_TRUE(reports->all().empty());
  EXPECT_EQ(1, pending.releases);
  EXPECT_EQ(0, refused.releases);
  EXPECT_EQ(1, later.releases);
  EXPECT_EQ(1, log.count("RequestFollower: Monitor: System fail while getting current time!"));
}

TEST_F(FollowerClock, MonitorWithoutItsRegistryEndsAtOnce) {
  LogCapture log;
  pthread_t thread;
  ASSERT_EQ(0, pthread_create(&thread, nullptr, &RequestFollowerTestPeer::monitorBody, nullptr));
  void* result = reinterpret_cast<void*>(1);
  ASSERT_EQ(0, pthread_join(thread, &result));
  EXPECT_EQ(nullptr, result);
  EXPECT_EQ(
      std::vector<std::string>{
          "RequestFollower: Monitor: ERROR: RequestFollower instance not provided."},
      log.messages());
}

// Random adds, lookups and removals under a frozen clock (so deadlines tie
// often, and none is ever strictly earlier than the clock), checked against a plain model: a vector
// in order of addition, stably ordered by deadline, and an id map re-pointed on repeated ids and
// erased whenever an item with that id leaves by key.
TEST_F(FollowerClock, AgreesWithASimpleModelOverRandomOperations) {
  ClockReset reset;
  const long long t = static_cast<long long>(realSeconds()) + 100000;
  setClock(t, 0);
  struct Pending {
    Item* item;
    int tuner;
    short pid, tableId, ext;
  };
  std::vector<Pending> model;  // in order of addition
  std::map<unsigned int, Item*> byId;
  auto deadlineOrder = [&](std::vector<Pending> v) {
    std::stable_sort(v.begin(), v.end(), [](const Pending& a, const Pending& b) {
      Item::TimevalComparator earlier;
      return earlier(a.item, b.item);
    });
    return v;
  };
  auto eraseFromModel = [&](Item* item) {
    for (auto it = model.begin(); it != model.end(); ++it) {
      if (it->item == item) {
        model.erase(it);
        return;
      }
    }
  };
  const short pids[] = {0x00, 0x12, 0x0100, 0x0101};
  const long kUsec[] = {0, 500000, 999999};
  const short tableIds[] = {0x02, 0x4E, 0x42};
  std::mt19937 rng(20240611);
  auto pick = [&](int n) { return static_cast<int>(rng() % n); };
  for (int step = 0; step < 4000; ++step) {
    SCOPED_TRACE(step);
    const int tuner = pick(2);
    const short pid = pids[pick(4)], tableId = tableIds[pick(3)], ext = static_cast<short>(pick(2));
    const unsigned int id = 1 + pick(40);
    const int op = pick(10);
    if (op < 5) {
      const bool accepted = RequestFollower::add(id, tuner, pid, tableId, ext, nullptr, nullptr,
                                                 tv(pick(3), kUsec[pick(3)]), 1);
      const bool expected = !RequestFollowerTestPeer::category(pid, tableId).empty();
      ASSERT_EQ(expected, accepted);
      if (accepted) {
        Item* item = RequestFollower::get(id);
        ASSERT_NE(nullptr, item);
        model.push_back(Pending{item, tuner, pid, tableId, ext});
        byId[id] = item;
      }
    } else if (op < 7) {
      Item* item = RequestFollower::remove(id);
      auto it = byId.find(id);
      ASSERT_EQ(it == byId.end() ? nullptr : it->second, item);
      if (item) {
        byId.erase(it);
        eraseFromModel(item);
        delete item;
      }
    } else {
      const bool take = op == 9;
      std::unique_ptr<ItemList> got(take ? RequestFollower::remove(tuner, pid, tableId, ext)
                                         : RequestFollower::get(tuner, pid, tableId, ext));
      std::vector<Item*> expected;
      for (const Pending& p : deadlineOrder(model)) {
        if (p.tuner == tuner && p.pid == pid && p.tableId == tableId && p.ext == ext)
          expected.push_back(p.item);
      }
      ASSERT_EQ(expected, std::vector<Item*>(got->begin(), got->end()));
      if (take) {
        for (Item* item : expected) {
          byId.erase(item->getRequestId());
          eraseFromModel(item);
          delete item;
        }
      }
    }
    std::vector<unsigned int> expectedOrder;
    for (const Pending& p : deadlineOrder(model))
      expectedOrder.push_back(p.item->getRequestId());
    ASSERT_EQ(expectedOrder, RequestFollowerTestPeer::timeOutOrder());
    if (step % 50 == 0) {
      ASSERT_EQ("", RequestFollowerTestPeer::inconsistency());
    }
  }
  for (const auto& [id, item] : byId)
    EXPECT_EQ(item, RequestFollower::get(id));
}
