// The monitor thread on the real clock: reports, their order and ownership,
// re-arming, callbacks that call back in, and teardown (also racing with add).
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
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

namespace {

bool addIn(unsigned int id, timeval timeOut, CountedUserData* data, short pid = 0x11,
           short tableId = 0x42, unsigned int counter = 1) {
  return RequestFollower::add(id, 4, pid, tableId, 0, data,
                              data ? &CountedUserData::release : nullptr, timeOut, counter);
}

long long nowUs() {
  timeval t;
  gettimeofday(&t, nullptr);
  return t.tv_sec * 1000000LL + t.tv_usec;
}

}  // namespace

class FollowerMonitor : public ::testing::Test {
 protected:
  void SetUp() override { reports = &Reports::install(); }
  void TearDown() override {
    RequestFollower::destroy();
    Ostrel::OstrelGingaCommonCore::getInstance()->setRequestNotificationCallback(nullptr);
  }
  Reports* reports = nullptr;
};

TEST_F(FollowerMonitor, TimedOutRequestIsReportedOnceThenReleased) {
  CountedUserData data;
  const long long before = nowUs();
  ASSERT_TRUE(addIn(7, tv(0, 50000), &data));
  ASSERT_TRUE(reports->waitForCount(1));
  const long long reportedAt = nowUs();
  EXPECT_GE(reportedAt - before, 50000);  // never before its deadline
  ASSERT_TRUE(eventually([&] { return data.releases == 1; }));
  Report r = reports->all().at(0);
  EXPECT_EQ(7u, r.requestId);
  EXPECT_EQ(1, r.status);
  EXPECT_EQ(&data, r.userData);
  EXPECT_EQ(nullptr, r.table);
  EXPECT_EQ(0, r.releasesAtCall);  // released after the report, not before
  EXPECT_TRUE(pthread_equal(RequestFollowerTestPeer::monitorHandle(), r.thread));
  EXPECT_EQ(nullptr, RequestFollower::get(7));
  // A later request still wakes the thread; the first is not reported again.
  ASSERT_TRUE(addIn(8, tv(0, 0), nullptr));
  ASSERT_TRUE(reports->waitForCount(2));
  EXPECT_EQ(8u, reports->all().at(1).requestId);
  EXPECT_EQ(1, reports->countFor(7));
  EXPECT_EQ(1, data.releases);
}

TEST_F(FollowerMonitor, ReportsInDeadlineOrderWhateverTheOrderOfAddition) {
  CountedUserData a, b, c;
  ASSERT_TRUE(addIn(1, tv(0, 150000), &a));
  ASSERT_TRUE(addIn(2, tv(0, 50000), &b));
  ASSERT_TRUE(addIn(3, tv(0, 100000), &c));
  ASSERT_TRUE(reports->waitForCount(3));
  std::vector<unsigned int> order;
  for (const Report& r : reports->all())
    order.push_back(r.requestId);
  EXPECT_EQ((std::vector<unsigned int>{2, 3, 1}), order);
  EXPECT_TRUE(eventually([&] { return a.releases + b.releases + c.releases == 3; }));
}

TEST_F(FollowerMonitor, RemovingTheEarliestRearmsTheWaitAndItIsNeverReported) {
  CountedUserData early, late;
  ASSERT_TRUE(addIn(1, tv(0, 150000), &early));
  ASSERT_TRUE(addIn(2, tv(0, 300000), &late));
  std::unique_ptr<Item> removed(RequestFollower::remove(1));
  ASSERT_NE(nullptr, removed);
  ASSERT_TRUE(reports->waitForCount(1));
  EXPECT_EQ(2u, reports->all().at(0).requestId);
  EXPECT_EQ(0, reports->countFor(1));
  EXPECT_EQ(0, early.releases);  // the remover owns it
  removed.reset();
  EXPECT_EQ(1, early.releases);
  EXPECT_TRUE(eventually([&] { return late.releases == 1; }));
  EXPECT_EQ(1u, reports->all().size());
}

TEST_F(FollowerMonitor, AnEarlierDeadlineAddedLaterRearmsTheWait) {
  ASSERT_TRUE(addIn(1, tv(60, 0), nullptr));
  std::this_thread::sleep_for(std::chrono::milliseconds(20));  // lets the monitor settle on it
  ASSERT_TRUE(addIn(2, tv(0, 50000), nullptr));
  // Well before the first deadline: the second add must have cut the wait short.
  ASSERT_TRUE(reports->waitForCount(1, std::chrono::seconds(20)));
  EXPECT_EQ(2u, reports->all().at(0).requestId);
  EXPECT_NE(nullptr, RequestFollower::get(1));
}

TEST_F(FollowerMonitor, RefusedNotificationIsLoggedOnceAndStillReleases) {
  LogCapture log;
  reports->setHook([](const Report&) { return 0; });
  CountedUserData data;
  ASSERT_TRUE(addIn(9, tv(0, 0), &data));
  ASSERT_TRUE(reports->waitForCount(1));
  ASSERT_TRUE(eventually([&] { return data.releases == 1; }));
  EXPECT_EQ(1, log.count("RequestFollower: Monitor: Request timeout notification failed!"));
  EXPECT_EQ(nullptr, RequestFollower::get(9));
  // Without any callback the core refuses too; the monitor goes on all the same.
  Ostrel::OstrelGingaCommonCore::getInstance()->setRequestNotificationCallback(nullptr);
  CountedUserData other;
  ASSERT_TRUE(addIn(10, tv(0, 0), &other));
  ASSERT_TRUE(eventually([&] { return other.releases == 1; }));
  EXPECT_TRUE(eventually([&] {
    return log.count("RequestFollower: Monitor: Request timeout notification failed!") == 2;
  }));
  EXPECT_EQ(1u, reports->all().size());
}

TEST_F(FollowerMonitor, CallbackMayAddAndLookUpOnTheMonitorThread) {
  std::atomic<int> added{-1};
  std::atomic<bool> foundAdded{false};
  reports->setHook([&](const Report& r) {
    if (r.requestId == 1) {
      added = RequestFollower::add(2, 4, 0x10, 0x40, 0, nullptr, nullptr, tv(0, 20000), 1);
      foundAdded = RequestFollower::get(2) != nullptr;
    }
    return 1;
  });
  ASSERT_TRUE(addIn(1, tv(0, 10000), nullptr));
  ASSERT_TRUE(reports->waitForCount(2));
  EXPECT_EQ(1, added.load());
  EXPECT_TRUE(foundAdded);
  std::vector<Report> all = reports->all();
  EXPECT_EQ(1u, all[0].requestId);
  EXPECT_EQ(2u, all[1].requestId);
  EXPECT_TRUE(pthread_equal(all[0].thread, all[1].thread));
}

TEST_F(FollowerMonitor, DestroyFromACallbackIsRefused) {
  LogCapture log;
  std::atomic<int> destroyed{-1};
  reports->setHook([&](const Report&) {
    destroyed = RequestFollower::destroy();
    return 1;
  });
  CountedUserData data;
  ASSERT_TRUE(addIn(1, tv(0, 0), &data));
  ASSERT_TRUE(reports->waitForCount(1));
  ASSERT_TRUE(eventually([&] { return data.releases == 1; }));
  EXPECT_EQ(0, destroyed.load());
  EXPECT_EQ(1, log.count("RequestFollower: destroy: ERROR: Not allowed on the monitor thread."));
  // The registry still works.
  ASSERT_TRUE(addIn(2, tv(0, 0), nullptr));
  EXPECT_TRUE(reports->waitForCount(2));
}

TEST_F(FollowerMonitor, DestroyWithPendingRequestsReportsNothingAndAFreshOneWorks) {
  std::vector<std::unique_ptr<CountedUserData>> data;
  for (unsigned int id = 1; id <= 5; ++id) {
    data.emplace_back(new CountedUserData);
    ASSERT_TRUE(addIn(id, tv(100 + id, 0), data.back().get()));
  }
  ASSERT_TRUE(RequestFollower::destroy());
  for (auto& d : data)
    EXPECT_EQ(1, d->releases);
  EXPECT_TRUE(reports->all().empty());

  CountedUserData fresh;
  ASSERT_TRUE(addIn(1, tv(0, 20000), &fresh));
  ASSERT_TRUE(reports->waitForCount(1));
  EXPECT_EQ(1u, reports->all().at(0).requestId);
  EXPECT_TRUE(eventually([&] { return fresh.releases == 1; }));
  for (auto& d : data)
    EXPECT_EQ(1, d->releases);
}

// Adders, removers and reports against repeated teardowns: every accepted
// request's user data is released exactly once (by a report, a remover or a
// teardown), every refused one never, and nothing is reported twice.
TEST_F(FollowerMonitor, DestroyRacingWithAddLosesNothingAndReleasesEachOnce) {
  constexpr int kThreads = 3;
  constexpr int kPerThread = 400;
  struct Slot {
    CountedUserData data;
    std::atomic<int> accepted{0};
  };
  std::vector<std::unique_ptr<Slot>> slots(kThreads * kPerThread);
  for (auto& s : slots)
    s.reset(new Slot);
  std::atomic<bool> go{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      while (!go)
        std::this_thread::yield();
      for (int i = 0; i < kPerThread; ++i) {
        const unsigned int id = t * kPerThread + i + 1;
        Slot& s = *slots[id - 1];
        const short pid = static_cast<short>(0x0100 + (id % 5));
        s.accepted = RequestFollower::add(id, t, pid, 0x02, 0, &s.data, &CountedUserData::release,
                                          tv(0, (id % 4) * 500), 1);
        if (i % 7 == 0) {  // answered: the remover owns what it takes
          std::unique_ptr<std::list<Item*>> taken(RequestFollower::remove(t, pid, 0x02, 0));
          for (Item* item : *taken)
            delete item;
        }
        if (i % 11 == 0)
          delete RequestFollower::remove(id);
      }
    });
  }
  go = true;
  for (int round = 0; round < 30; ++round) {
    RequestFollower::destroy();
    std::this_thread::sleep_for(std::chrono::microseconds(300));
  }
  for (auto& th : threads)
    th.join();
  RequestFollower::destroy();

  for (const Report& r : reports->all()) {
    ASSERT_GE(r.requestId, 1u);
    ASSERT_LE(r.requestId, slots.size());
    EXPECT_TRUE(slots[r.requestId - 1]->accepted.load()) << r.requestId;
  }
  for (size_t i = 0; i < slots.size(); ++i) {
    EXPECT_EQ(slots[i]->accepted.load(), slots[i]->data.releases.load()) << "request " << i + 1;
    EXPECT_LE(reports->countFor(static_cast<unsigned int>(i + 1)), 1);
  }
}
