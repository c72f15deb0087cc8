// Calls into the library at awkward moments of the follower's life: from the
// release functions that its teardown runs, and from a notification that
// destroys it while an injection is still answering requests it took out.
#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "Cacher.h"
#include "CountedUserData.h"
#include "OstrelGingaCommonCore.h"
#include "RecordingServer.h"
#include "RequestFollower.h"
#include "Sections.h"

using namespace Ostrel;
using OstrelTest::CountedUserData;

namespace {

const int kTuner = 4;

// User data whose release makes a new request, as a middleware that re-asks
// for a table when its old request goes away.
struct Reasking {
  std::atomic<int> releases{0};
  unsigned int newId = 0;
  int newResult = -1;
  CountedUserData* newData = nullptr;

  static void release(void* userData) {
    Reasking* r = static_cast<Reasking*>(userData);
    ++r->releases;
    r->newResult = OstrelGingaCommonCore::getInstance()->requestData(
        r->newId, 2, kTuner, 0x0000, 0x00, 0, r->newData, &CountedUserData::release, nullptr);
  }
};

std::vector<unsigned int> s_notified;
bool s_destroyOnFirst = false;

int destroyingCallback(unsigned int requestId, unsigned char, void*, TISDBTTable*) {
  s_notified.push_back(requestId);
  if (s_destroyOnFirst && s_notified.size() == 1) {
    EXPECT_TRUE(RequestFollower::destroy());
  }
  return 1;
}

}  // namespace

TEST(RobustTeardown, ReleaseFunctionsRunByTheTeardownMayMakeNewRequests) {
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  OstrelTest::RecordingServer server;
  core->setServer(&server);
  core->setRequestNotificationCallback(&destroyingCallback);
  CountedUserData fresh;
  Reasking reasking;
  reasking.newId = 2;
  reasking.newData = &fresh;
  ASSERT_EQ(
      1, core->requestData(1, 2, kTuner, 0x0000, 0x00, 0, &reasking, &Reasking::release, nullptr));

  ASSERT_TRUE(RequestFollower::destroy());  // releases request 1, which asks again
  EXPECT_EQ(1, reasking.releases.load());
  EXPECT_EQ(1, reasking.newResult);
  EXPECT_EQ(0, fresh.releases.load());
  // The new request lives in a new follower and is answered like any other.
  ASSERT_NE(nullptr, RequestFollower::get(2u));
  std::vector<unsigned char> pat = OstrelTest::patSection();
  EXPECT_EQ(1, core->injectData(kTuner, 0x0000, 0x00, 0, nullptr, pat.data(),
                                static_cast<unsigned int>(pat.size())));
  EXPECT_EQ(std::vector<unsigned int>{2u}, s_notified);
  EXPECT_EQ(1, fresh.releases.load());
  EXPECT_EQ(1, reasking.releases.load());
  RequestFollower::destroy();
  Cacher::getInstance(kTuner)->flush();
  core->setRequestNotificationCallback(nullptr);
}

TEST(RobustTeardown, ACallbackThatDestroysTheFollowerLeavesTakenRequestsToTheInjection) {
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  OstrelTest::RecordingServer server;
  core->setServer(&server);
  core->setRequestNotificationCallback(&destroyingCallback);
  s_notified.clear();
  s_destroyOnFirst = true;
  CountedUserData a, b, other;
  ASSERT_EQ(
      1, core->requestData(1, 2, kTuner, 0x0000, 0x00, 0, &a, &CountedUserData::release, nullptr));
  ASSERT_EQ(
      1, core->requestData(2, 2, kTuner, 0x0000, 0x00, 0, &b, &CountedUserData::release, nullptr));
  ASSERT_EQ(1, core->requestData(3, 2, kTuner, 0x0011, 0x42, 0, &other, &CountedUserData::release,
                                 nullptr));

  std::vector<unsigned char> pat = OstrelTest::patSection();
  EXPECT_EQ(1, core->injectData(kTuner, 0x0000, 0x00, 0, nullptr, pat.data(),
                                static_cast<unsigned int>(pat.size())));
  // Both PAT requests had left the follower before the first notification:
  // the destroy drops only the SDT request, silently.
  EXPECT_EQ((std::vector<unsigned int>{1u, 2u}), s_notified);
  EXPECT_EQ(1, a.releases.load());
  EXPECT_EQ(1, b.releases.load());
  EXPECT_EQ(1, other.releases.load());
  EXPECT_EQ(nullptr, RequestFollower::get(3u));
  s_destroyOnFirst = false;
  RequestFollower::destroy();
  Cacher::getInstance(kTuner)->flush();
  core->setRequestNotificationCallback(nullptr);
}
