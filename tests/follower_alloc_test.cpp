// add and remove by key when the allocator fails part-way: this program
// replaces the global operator new so that the n-th allocation on the test's
// thread throws. Each failure must leave the registry exactly as it was: no
// request added or taken out, no user data released.
#include <gtest/gtest.h>
#include <pthread.h>

#include <atomic>
#include <cstdlib>
#include <list>
#include <new>
#include <vector>

#include "CountedUserData.h"
#include "RequestFollower.h"
#include "follower_peer.h"
#include "follower_reports.h"

using Ostrel::RequestFollower;
using Ostrel::RequestFollowerTestPeer;
using OstrelTest::CountedUserData;
using OstrelTest::tv;

namespace {

std::atomic<long> s_failAfter{-1};  // allocations left before one fails; -1: never
pthread_t s_testThread;
std::atomic<bool> s_armed{false};

void* allocate(std::size_t size) {
  if (s_armed && pthread_equal(pthread_self(), s_testThread) && s_failAfter.fetch_sub(1) == 0) {
    throw std::bad_alloc();
  }
  void* p = std::malloc(size ? size : 1);
  if (!p)
    throw std::bad_alloc();
  return p;
}

}  // namespace

// The replacements pair malloc with free; GCC cannot see that through them.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

void* operator new(std::size_t size) {
  return allocate(size);
}
void* operator new[](std::size_t size) {
  return allocate(size);
}
void operator delete(void* p) noexcept {
  std::free(p);
}
void operator delete[](void* p) noexcept {
  std::free(p);
}
void operator delete(void* p, std::size_t) noexcept {
  std::free(p);
}
void operator delete[](void* p, std::size_t) noexcept {
  std::free(p);
}

TEST(FollowerAllocation, FailedAddLeavesEverythingAsItWas) {
  s_testThread = pthread_self();
  // Neighbours in the same category, before and after the new one's deadline.
  CountedUserData keep;
  ASSERT_TRUE(
      RequestFollower::add(1, 1, 0x11, 0x42, 0, &keep, &CountedUserData::release, tv(100, 0), 1));
  ASSERT_TRUE(RequestFollower::add(2, 1, 0x11, 0x42, 0, nullptr, nullptr, tv(300, 0), 1));
  ASSERT_TRUE(RequestFollower::add(7, 2, 0x11, 0x42, 0, nullptr, nullptr, tv(250, 0), 1));
  RequestFollower::RequestFollowerItem* firstSeven = RequestFollower::get(7);
  const std::vector<unsigned int> before = RequestFollowerTestPeer::timeOutOrder();

  int failures = 0;
  for (long n = 0;; ++n) {
    SCOPED_TRACE(n);
    CountedUserData data;
    bool added = false;
    s_failAfter = n;
    s_armed = true;
    try {
      added = RequestFollower::add(8, 1, 0x11, 0x42, 0, &data, &CountedUserData::release,
                                   tv(200, 0), 1);
    } catch (const std::bad_alloc&) {
      s_armed = false;
      ++failures;
      EXPECT_EQ(0, data.releases);
      EXPECT_EQ(before, RequestFollowerTestPeer::timeOutOrder());
      EXPECT_EQ(nullptr, RequestFollower::get(8));
      EXPECT_EQ(firstSeven, RequestFollower::get(7));
      EXPECT_EQ("", RequestFollowerTestPeer::inconsistency());
      continue;
    }
    s_armed = false;
    ASSERT_TRUE(added);
    EXPECT_EQ((std::vector<unsigned int>{1, 8, 7, 2}), RequestFollowerTestPeer::timeOutOrder());
    EXPECT_EQ("", RequestFollowerTestPeer::inconsistency());
    delete RequestFollower::remove(8);
    EXPECT_EQ(1, data.releases);
    break;
  }
  EXPECT_EQ(1, failures);  // one allocation per request: the item, its links inside
  EXPECT_TRUE(RequestFollower::destroy());
  EXPECT_EQ(1, keep.releases);
}

TEST(FollowerAllocation, FailedRemoveByKeyLeavesEveryMatchPending) {
  s_testThread = pthread_self();
  CountedUserData first, second;
  ASSERT_TRUE(
      RequestFollower::add(1, 1, 0x11, 0x42, 0, &first, &CountedUserData::release, tv(100, 0), 1));
  ASSERT_TRUE(
      RequestFollower::add(2, 1, 0x11, 0x42, 0, &second, &CountedUserData::release, tv(50, 0), 1));
  ASSERT_TRUE(RequestFollower::add(3, 2, 0x11, 0x42, 0, nullptr, nullptr, tv(70, 0), 1));
  int failures = 0;
  for (long n = 0;; ++n) {
    SCOPED_TRACE(n);
    std::list<RequestFollower::RequestFollowerItem*>* taken = nullptr;
    s_failAfter = n;
    s_armed = true;
    try {
      taken = RequestFollower::remove(1, 0x11, 0x42, 0);
    } catch (const std::bad_alloc&) {
      s_armed = false;
      ++failures;
      EXPECT_EQ((std::vector<unsigned int>{2, 3, 1}), RequestFollowerTestPeer::timeOutOrder());
      EXPECT_NE(nullptr, RequestFollower::get(1));
      EXPECT_NE(nullptr, RequestFollower::get(2));
      EXPECT_EQ("", RequestFollowerTestPeer::inconsistency());
      continue;
    }
    s_armed = false;
    ASSERT_EQ(2u, taken->size());
    EXPECT_EQ(2u, taken->front()->getRequestId());
    for (RequestFollower::RequestFollowerItem* item : *taken)
      delete item;
    delete taken;
    break;
  }
  EXPECT_EQ(3, failures);  // the list, then each of its two nodes
  EXPECT_EQ(1, first.releases);
  EXPECT_EQ(1, second.releases);
  EXPECT_EQ((std::vector<unsigned int>{3}), RequestFollowerTestPeer::timeOutOrder());
  EXPECT_TRUE(RequestFollower::destroy());
}
