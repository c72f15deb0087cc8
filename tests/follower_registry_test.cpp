// The registry of outstanding requests: categories, the id index, by-key
// operations, ownership and teardown. Deadlines here lie far ahead, so the
// monitor thread never reports anything.
#include <gtest/gtest.h>

#include <list>
#include <memory>
#include <vector>

#include "CountedUserData.h"
#include "LogCapture.h"
#include "RequestFollower.h"
#include "follower_peer.h"
#include "follower_reports.h"

using Ostrel::RequestFollower;
using Ostrel::RequestFollowerTestPeer;
using OstrelTest::CountedUserData;
using OstrelTest::LogCapture;
using OstrelTest::tv;
using Item = RequestFollower::RequestFollowerItem;
using ItemList = std::list<Item*>;

namespace {


bool addFar(unsigned int id, int tuner, short pid, short tableId, short ext,
            CountedUserData* data = nullptr, long seconds = 1000) {
  return RequestFollower::add(id, tuner, pid, tableId, ext, data,
                              data ? &CountedUserData::release : nullptr, tv(seconds, 0), 1);
}

std::vector<unsigned int> ids(const ItemList& items) {
  std::vector<unsigned int> out;
  for (Item* i : items)
    out.push_back(i->getRequestId());
  return out;
}

// Takes ownership of a returned list and the items in it.
std::vector<unsigned int> takeAndDelete(ItemList* items) {
  std::vector<unsigned int> out = ids(*items);
  for (Item* i : *items)
    delete i;
  delete items;
  return out;
}

}  // namespace

class FollowerRegistry : public ::testing::Test {
 protected:
  void TearDown() override {
    EXPECT_EQ("", RequestFollowerTestPeer::inconsistency());
    RequestFollower::destroy();
  }
};

TEST_F(FollowerRegistry, EachPidAndTableIdGoesToOneCategoryOrIsRefused) {
  struct {
    short pid, tableId;
    const char* category;  // "" : refused
  } rows[] = {
      {0x0000, 0x00, "Pat"},
      {0x0000, 0x02, "Pat"},  // PID rows before the PMT row
      {0x0001, 0x01, "Cat"},
      {0x0010, 0x40, "Nit"},
      {0x0024, 0x02, "Nit"},
      {0x0011, 0x42, "Sdt"},
      {0x0012, 0x4E, "EitPf"},
      {0x0012, 0x4F, "EitPf"},
      {0x0012, 0x50, "EitSchedule"},
      {0x0012, 0x02, "EitSchedule"},
      {0x0014, 0x73, "Tot"},
      {0x0026, 0x00, "Pid26"},
      {0x0100, 0x02, "Pmt"},
      {0x0002, 0x02, "Pmt"},
      {-1, 0x02, "Pmt"},
      {0x0100, 0x42, ""},
      {0x0027, 0x4E, ""},
      {0x0013, 0x02, "Pmt"},
      {0x0013, 0x4E, ""},
      {0x0100, -254, ""},
  };
  unsigned int id = 1;
  for (const auto& row : rows) {
    SCOPED_TRACE(testing::Message() << "pid " << row.pid << " table " << row.tableId);
    EXPECT_EQ(row.category, RequestFollowerTestPeer::category(row.pid, row.tableId));
    CountedUserData data;
    const bool accepted = *row.category != '\0';
    EXPECT_EQ(accepted, addFar(id, 3, row.pid, row.tableId, 9, &data));
    if (accepted) {
      Item* item = RequestFollower::get(id);
      ASSERT_NE(nullptr, item);
      EXPECT_EQ(row.pid, item->getPid());
      delete RequestFollower::remove(id);
      EXPECT_EQ(1, data.releases);
    } else {  // nothing stored, the user data stays the caller's
      EXPECT_EQ(nullptr, RequestFollower::get(id));
      EXPECT_TRUE(takeAndDelete(RequestFollower::get(3, row.pid, row.tableId, 9)).empty());
      EXPECT_EQ(0, data.releases);
    }
    EXPECT_EQ(0u, RequestFollowerTestPeer::pendingCount());
    ++id;
  }
}

TEST_F(FollowerRegistry, BadTimeOutMicrosecondsAreRefusedAndTakeNothing) {
  CountedUserData data;
  for (long usec : {-1L, 1000000L, 5000000L}) {
    EXPECT_FALSE(RequestFollower::add(1, 0, 0x11, 0x42, 0, &data, &CountedUserData::release,
                                      tv(1, usec), 1));
  }
  EXPECT_EQ(nullptr, RequestFollower::get(1));
  EXPECT_EQ(0, data.releases);
}

TEST_F(FollowerRegistry, RepeatedIdIsRepointedAndTheEarlierItemStaysReachableByKey) {
  CountedUserData first, second;
  ASSERT_TRUE(addFar(5, 1, 0x11, 0x42, 1, &first));
  ASSERT_TRUE(addFar(5, 2, 0x10, 0x40, 2, &second));
  Item* byId = RequestFollower::get(5);
  ASSERT_NE(nullptr, byId);
  EXPECT_EQ(&second, byId->getUserData());
  std::unique_ptr<ItemList> firstByKey(RequestFollower::get(1, 0x11, 0x42, 1));
  ASSERT_EQ(1u, firstByKey->size());
  EXPECT_EQ(&first, firstByKey->front()->getUserData());
  EXPECT_EQ(2u, RequestFollowerTestPeer::pendingCount());

  // Taking the first out by key erases the id entry, though it pointed to the second.
  EXPECT_EQ(std::vector<unsigned int>{5}, takeAndDelete(RequestFollower::remove(1, 0x11, 0x42, 1)));
  EXPECT_EQ(1, first.releases);
  EXPECT_EQ(nullptr, RequestFollower::get(5));
  EXPECT_EQ(nullptr, RequestFollower::remove(5));
  std::unique_ptr<ItemList> secondByKey(RequestFollower::get(2, 0x10, 0x40, 2));
  ASSERT_EQ(1u, secondByKey->size());
  EXPECT_EQ(0, second.releases);
  EXPECT_TRUE(RequestFollower::destroy());  // the unreachable-by-id item is still released once
  EXPECT_EQ(1, second.releases);
  EXPECT_EQ(1, first.releases);
}

TEST_F(FollowerRegistry, ByKeyOperationsGiveOnlyThatKeyInDeadlineOrder) {
  ASSERT_TRUE(addFar(1, 1, 0x11, 0x42, 0, nullptr, 300));
  ASSERT_TRUE(addFar(2, 1, 0x11, 0x42, 0, nullptr, 100));
  ASSERT_TRUE(addFar(3, 1, 0x11, 0x42, 0, nullptr, 200));
  // Neighbours that differ in one part of the key only.
  ASSERT_TRUE(addFar(10, 0, 0x11, 0x42, 0, nullptr, 50));
  ASSERT_TRUE(addFar(11, 1, 0x11, 0x42, 1, nullptr, 50));
  ASSERT_TRUE(addFar(12, 1, 0x11, 0x46, 0, nullptr, 50));
  ASSERT_TRUE(addFar(13, 1, 0x10, 0x42, 0, nullptr, 50));
  ASSERT_TRUE(addFar(14, 2, 0x11, 0x42, 0, nullptr, 150));

  std::unique_ptr<ItemList> got(RequestFollower::get(1, 0x11, 0x42, 0));
  EXPECT_EQ((std::vector<unsigned int>{2, 3, 1}), ids(*got));
  EXPECT_EQ(8u, RequestFollowerTestPeer::pendingCount());  // get takes nothing out
  EXPECT_EQ((std::vector<unsigned int>{10, 11, 12, 13, 2, 14, 3, 1}),
            RequestFollowerTestPeer::timeOutOrder());

  EXPECT_EQ((std::vector<unsigned int>{2, 3, 1}),
            takeAndDelete(RequestFollower::remove(1, 0x11, 0x42, 0)));
  for (unsigned int id : {1u, 2u, 3u})
    EXPECT_EQ(nullptr, RequestFollower::get(id));
  EXPECT_EQ((std::vector<unsigned int>{10, 11, 12, 13, 14}),
            RequestFollowerTestPeer::timeOutOrder());
  EXPECT_TRUE(takeAndDelete(RequestFollower::remove(1, 0x11, 0x42, 0)).empty());
}

TEST_F(FollowerRegistry, ByKeyWithNoMatchOrNoCategoryGivesANewEmptyList) {
  ASSERT_TRUE(addFar(1, 1, 0x11, 0x42, 0));
  ItemList* lists[] = {
      RequestFollower::get(1, 0x11, 0x42, 1),       // category, no match
      RequestFollower::remove(1, 0x11, 0x42, 1),    // category, no match
      RequestFollower::get(1, 0x0100, 0x42, 0),     // no category
      RequestFollower::remove(1, 0x0100, 0x42, 0),  // no category
  };
  for (ItemList* list : lists) {
    ASSERT_NE(nullptr, list);
    EXPECT_TRUE(list->empty());
    delete list;
  }
  EXPECT_NE(lists[0], lists[1]);
  EXPECT_NE(nullptr, RequestFollower::get(1));
}

TEST_F(FollowerRegistry, RemoveByIdHandsOverOnceAndThenFindsNothing) {
  CountedUserData data;
  EXPECT_EQ(nullptr, RequestFollower::remove(77));  // never added
  ASSERT_TRUE(addFar(77, 1, 0x14, 0x73, 0, &data));
  Item* item = RequestFollower::remove(77);
  ASSERT_NE(nullptr, item);
  EXPECT_EQ(0, data.releases);  // the caller owns it now
  EXPECT_EQ(nullptr, RequestFollower::remove(77));
  EXPECT_EQ(nullptr, RequestFollower::get(77));
  EXPECT_TRUE(takeAndDelete(RequestFollower::get(1, 0x14, 0x73, 0)).empty());
  delete item;
  EXPECT_EQ(1, data.releases);
}

TEST_F(FollowerRegistry, DestroyReleasesPendingOnceAndAFreshInstanceStartsEmpty) {
  LogCapture log;
  OstrelTest::Reports& reports = OstrelTest::Reports::install();
  CountedUserData a, b, c;
  ASSERT_TRUE(addFar(1, 1, 0x00, 0x00, 0, &a));
  ASSERT_TRUE(addFar(2, 1, 0x12, 0x4E, 0, &b));
  ASSERT_TRUE(addFar(3, 1, 0x0100, 0x02, 0, &c, 0));  // due at once, perhaps not yet reported
  reports.waitForCount(1);
  Item* lent = RequestFollower::get(1);  // get leaves the ownership with the registry
  ASSERT_NE(nullptr, lent);
  EXPECT_TRUE(RequestFollower::destroy());
  EXPECT_EQ(1, a.releases);
  EXPECT_EQ(1, b.releases);
  EXPECT_EQ(1, c.releases);
  EXPECT_EQ(1u, reports.all().size());  // only the due one, never the dropped ones
  EXPECT_FALSE(RequestFollower::destroy());
  EXPECT_EQ(1, log.count("RequestFollower: Instance not found!"));
  EXPECT_EQ(nullptr, RequestFollower::get(1));  // answered by a fresh instance
  EXPECT_EQ(0u, RequestFollowerTestPeer::pendingCount());
  EXPECT_TRUE(addFar(1, 1, 0x00, 0x00, 0));
}

TEST_F(FollowerRegistry, DestroyWithoutInstanceFailsAndLogs) {
  LogCapture log;
  EXPECT_FALSE(RequestFollower::destroy());
  EXPECT_EQ(std::vector<std::string>{"RequestFollower: Instance not found!"}, log.messages());
  EXPECT_EQ("RequestFollower", log.lines().at(0).module);
  EXPECT_EQ(4, log.lines().at(0).level);
}
