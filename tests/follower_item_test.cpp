// The record of one outstanding request: expiry, order, key match, release.
#include <gtest/gtest.h>

#include <memory>

#include "CountedUserData.h"
#include "RequestFollower.h"

using Ostrel::RequestFollower;
using OstrelTest::CountedUserData;
using Item = RequestFollower::RequestFollowerItem;

namespace {

timeval tv(long sec, long usec) {
  timeval t;
  t.tv_sec = sec;
  t.tv_usec = usec;
  return t;
}

std::unique_ptr<Item> item(timeval deadline, int tuner = 1, short pid = 0x11, short tableId = 0x42,
                           short ext = 7, unsigned int id = 1) {
  return std::unique_ptr<Item>(
      new Item(id, tuner, pid, tableId, ext, nullptr, nullptr, deadline, 1));
}

}  // namespace

TEST(FollowerItem, StoresEveryArgumentAndTheAbsoluteDeadline) {
  CountedUserData data;
  std::unique_ptr<Item> i(new Item(0xFFFFFFF0u, -3, -1, 0x4E, 0x7FFF, &data,
                                   &CountedUserData::release, tv(1700000000, 999999), 42));
  EXPECT_EQ(0xFFFFFFF0u, i->getRequestId());
  EXPECT_EQ(-3, i->getTunerId());
  EXPECT_EQ(-1, i->getPid());
  EXPECT_EQ(0x4E, i->getTableId());
  EXPECT_EQ(0x7FFF, i->getTableIdExt());
  EXPECT_EQ(&data, i->getUserData());
  EXPECT_EQ(1700000000, i->getTimeOut().tv_sec);
  EXPECT_EQ(999999, i->getTimeOut().tv_usec);
  EXPECT_EQ(42u, i->getRequestCounter());
  EXPECT_EQ(0, data.releases);  // lent by the getter, not released
}

TEST(FollowerItem, TimedOutOnlyWhenTheDeadlineIsStrictlyEarlier) {
  auto i = item(tv(100, 500000));
  struct {
    timeval now;
    bool timedOut;
  } cases[] = {
      {tv(100, 500000), false}, {tv(100, 500001), true},  {tv(101, 0), true},
      {tv(99, 999999), false},  {tv(100, 499999), false}, {tv(-5, 0), false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.timedOut, i->isTimedOut(c.now)) << c.now.tv_sec << "," << c.now.tv_usec;
  }
  // Seconds decide first, even against larger microseconds; signed seconds.
  EXPECT_TRUE(item(tv(-1, 999999))->isTimedOut(tv(0, 0)));
  EXPECT_FALSE(item(tv(0, 0))->isTimedOut(tv(-1, 999999)));
}

TEST(FollowerItem, ComparatorOrdersByDeadlineAndEqualDeadlinesNeitherWay) {
  Item::TimevalComparator earlier;
  auto a = item(tv(100, 500000), 1);
  auto same = item(tv(100, 500000), 9, 0x12, 0x4E, 0, 77);  // other key and id
  auto laterUsec = item(tv(100, 500001));
  auto laterSecSmallerUsec = item(tv(101, 0));
  auto negative = item(tv(-1, 999999));
  EXPECT_FALSE(earlier(a.get(), same.get()));
  EXPECT_FALSE(earlier(same.get(), a.get()));
  EXPECT_TRUE(earlier(a.get(), laterUsec.get()));
  EXPECT_FALSE(earlier(laterUsec.get(), a.get()));
  EXPECT_TRUE(earlier(a.get(), laterSecSmallerUsec.get()));
  EXPECT_FALSE(earlier(laterSecSmallerUsec.get(), a.get()));
  EXPECT_TRUE(earlier(negative.get(), a.get()));
  EXPECT_FALSE(earlier(a.get(), negative.get()));
}

TEST(FollowerItem, LessThanIsDeadlineThenTunerPidTableIdExtensionSigned) {
  const timeval d = tv(100, 0);
  struct Case {
    const char* what;
    std::unique_ptr<Item> smaller, larger;
  };
  Case cases[] = {
      {"deadline before key", item(tv(99, 999999), 9, 9, 9, 9), item(d, 0, 0, 0, 0)},
      {"tuner", item(d, -1, 5, 5, 5), item(d, 0, 0, 0, 0)},
      {"pid signed", item(d, 1, -1, 5, 5), item(d, 1, 0, 0, 0)},
      {"table id", item(d, 1, 2, -2, 5), item(d, 1, 2, 3, 0)},
      {"extension", item(d, 1, 2, 3, -32768), item(d, 1, 2, 3, 32767)},
  };
  for (const Case& c : cases) {
    EXPECT_TRUE(*c.smaller < *c.larger) << c.what;
    EXPECT_FALSE(*c.larger < *c.smaller) << c.what;
  }
  // Request id, user data, release and counter take no part.
  CountedUserData data;
  Item x(1, 1, 2, 3, 4, nullptr, nullptr, d, 1);
  Item y(2, 1, 2, 3, 4, &data, nullptr, d, 99);
  EXPECT_FALSE(x < y);
  EXPECT_FALSE(y < x);
  EXPECT_FALSE(x < x);
}

TEST(FollowerItem, MatchNeedsAllFourPartsEqual) {
  auto i = item(tv(1, 0), -1, 0x12, 0x4E, 0);
  EXPECT_TRUE(i->match(-1, 0x12, 0x4E, 0));
  EXPECT_FALSE(i->match(0, 0x12, 0x4E, 0));  // -1 is no wildcard
  EXPECT_FALSE(i->match(-1, 0x13, 0x4E, 0));
  EXPECT_FALSE(i->match(-1, 0x12, 0x4F, 0));
  EXPECT_FALSE(i->match(-1, 0x12, 0x4E, 1));
  EXPECT_FALSE(item(tv(1, 0), 1, 0x12, 0x4E, 5)->match(1, 0x12, 0x4E, 0));  // 0 is no wildcard
}

TEST(FollowerItem, DeletingReleasesOwnedUserDataExactlyOnce) {
  CountedUserData owned, unreleased;
  static int releasedNull = 0;
  auto countNull = [](void* p) {
    if (!p)
      ++releasedNull;
  };
  delete new Item(1, 0, 0, 0, 0, &owned, &CountedUserData::release, tv(1, 0), 1);
  EXPECT_EQ(1, owned.releases);
  delete new Item(2, 0, 0, 0, 0, &unreleased, nullptr, tv(1, 0), 1);
  EXPECT_EQ(0, unreleased.releases);
  delete new Item(3, 0, 0, 0, 0, nullptr, +countNull, tv(1, 0), 1);
  EXPECT_EQ(0, releasedNull);
}
