#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <vector>

#include "Cacher.h"
#include "CountedTable.h"
#include "CountedUserData.h"
#include "FactoryOverride.h"
#include "LogCapture.h"
#include "OstrelGingaCommonCore.h"
#include "RecordingServer.h"
#include "RequestFollower.h"

using namespace Ostrel;
using OstrelTest::CountedTable;
using OstrelTest::CountedUserData;
using OstrelTest::FactoryFailure;
using OstrelTest::LogCapture;
using OstrelTest::RecordingServer;

namespace {

struct Notification {
  unsigned int requestId;
  unsigned char status;
  void* userData;
  TISDBTTable* table;
};

std::mutex s_mutex;
std::vector<Notification> s_notifications;
int s_verdict = 1;

int recordingCallback(unsigned int requestId, unsigned char status, void* userData,
                      TISDBTTable* table) {
  std::lock_guard<std::mutex> lock(s_mutex);
  s_notifications.push_back(Notification{requestId, status, userData, table});
  return s_verdict;
}

const char kNotice[] =
    "GingaCommonCore: getTimeout: Unknown pid/tableId/tableIdExt. Using 1s timeout.";

class TableRequests : public testing::Test {
 protected:
  void SetUp() override {
    m_core = OstrelGingaCommonCore::getInstance();
    m_core->setServer(&m_server);
    m_core->setRequestNotificationCallback(&recordingCallback);
    std::lock_guard<std::mutex> lock(s_mutex);
    s_notifications.clear();
    s_verdict = 1;
  }
  void TearDown() override {
    RequestFollower::destroy();  // drops what is still pending, releasing it
    Cacher::getInstance(m_tuner)->flush();
  }

  std::vector<Notification> notifications() {
    std::lock_guard<std::mutex> lock(s_mutex);
    return s_notifications;
  }
  // Caches a table of type under pid for the test's tuner.
  CountedTable* cache(short pid, unsigned int type = TISDBTTable::kTypePmt) {
    auto* table = new CountedTable(type);
    Cacher::getInstance(m_tuner)->add(pid, 2, 0, table, 100);
    return table;
  }

  OstrelGingaCommonCore* m_core = nullptr;
  RecordingServer m_server;
  CountedUserData m_data;
  const int m_tuner = 7;
};

}  // namespace

TEST_F(TableRequests, CacheHitInModesZeroAndOneIsAnsweredAtOnceAndReleased) {
  for (signed char mode : {0, 1}) {
    SetUp();
    CountedTable* table = cache(0x100);
    short error = 123;
    EXPECT_EQ(1, m_core->requestData(40 + mode, mode, m_tuner, 0x100, 2, 9, &m_data,
                                     &CountedUserData::release, &error));
    EXPECT_EQ(123, error) << "a cache answer leaves errorCode as it was";
    auto seen = notifications();
    ASSERT_EQ(1u, seen.size());
    EXPECT_EQ(40u + mode, seen[0].requestId);
    EXPECT_EQ(0, seen[0].status);
    EXPECT_EQ(&m_data, seen[0].userData);
    EXPECT_EQ(table, seen[0].table);
    EXPECT_EQ(mode + 1, m_data.releases.load());
  }
  EXPECT_EQ(0u, m_server.commandCount());
}

TEST_F(TableRequests, CacheHitIsAlsoTheAnswerOfTheSynchronousRequest) {
  cache(0x11, TISDBTTable::kTypeSdt);
  EXPECT_EQ(1, m_core->requestDataSync(5, 1, m_tuner, 0x11, 0x42, 0, &m_data,
                                       &CountedUserData::release, nullptr));
  EXPECT_EQ(1u, notifications().size());
  EXPECT_EQ(1, m_data.releases.load());
  EXPECT_EQ(0u, m_server.commandCount());
}

TEST_F(TableRequests, CacheOnlyMissEndsWithMinus12AndNothingElse) {
  short error = 0;
  EXPECT_EQ(0, m_core->requestData(1, 0, m_tuner, 0x100, 2, 0, &m_data, &CountedUserData::release,
                                   &error));
  EXPECT_EQ(-12, error);
  error = 0;
  EXPECT_EQ(0, m_core->requestDataSync(1, 0, m_tuner, 0x100, 2, 0, &m_data,
                                       &CountedUserData::release, &error));
  EXPECT_EQ(-12, error);
  EXPECT_EQ(0u, m_server.commandCount());
  EXPECT_TRUE(notifications().empty());
  EXPECT_EQ(0, m_data.releases.load());
}

TEST_F(TableRequests, MissInModeOneGoesToTheServerAndIsFollowed) {
  short error = 5;
  EXPECT_EQ(1, m_core->requestData(77, 1, m_tuner, 0x0012, 0x50, 3, &m_data,
                                   &CountedUserData::release, &error));
  EXPECT_EQ(0, error);
  auto sent = m_server.last();
  EXPECT_EQ(0x600, sent.code);
  EXPECT_EQ(&m_server, sent.endPoint);
  EXPECT_EQ(1, sent.open);
  EXPECT_EQ(m_tuner, sent.tunerId);
  EXPECT_EQ(0x12, sent.pid);
  EXPECT_EQ(0x50, sent.tableId);
  EXPECT_EQ(3, sent.tableIdExt);
  EXPECT_EQ(61u, sent.timeOut) << "the command gets the time-out plus one second";
  EXPECT_EQ(1, sent.requestCounter);
  RequestFollower::RequestFollowerItem* item = RequestFollower::get(77u);
  ASSERT_NE(nullptr, item);
  timeval now;
  gettimeofday(&now, nullptr);
  EXPECT_NEAR(now.tv_sec + 60, item->getTimeOut().tv_sec, 2) << "the follower gets it unchanged";
  EXPECT_EQ(&m_data, item->getUserData());
  EXPECT_EQ(1u, item->getRequestCounter());
  EXPECT_EQ(0, m_data.releases.load());
}

TEST_F(TableRequests, ServerOnlyModesNeverReadTheCache) {
  cache(0x100);
  for (signed char mode : {2, -1, 127, -128}) {
    EXPECT_EQ(
        1, m_core->requestData(mode & 0xFF, mode, m_tuner, 0x100, 2, 0, nullptr, nullptr, nullptr));
  }
  EXPECT_EQ(4u, m_server.commandCount());
  EXPECT_TRUE(notifications().empty());
}

TEST_F(TableRequests, CacheAnswerWithoutCallbackOrRefusedFailsWithoutRelease) {
  cache(0x100);
  LogCapture log;
  m_core->setRequestNotificationCallback(nullptr);
  short error = 33;
  EXPECT_EQ(0, m_core->requestData(1, 1, m_tuner, 0x100, 2, 0, &m_data, &CountedUserData::release,
                                   &error));
  EXPECT_EQ(33, error);
  EXPECT_EQ(1, log.count("GingaCommonCore: dispatchRequestFeedback: No Request notification "
                         "callback set!"));
  m_core->setRequestNotificationCallback(&recordingCallback);
  s_verdict = 0;
  EXPECT_EQ(0, m_core->requestData(1, 1, m_tuner, 0x100, 2, 0, &m_data, &CountedUserData::release,
                                   &error));
  EXPECT_EQ(33, error);
  EXPECT_EQ(1, log.count("GingaCommonCore: dispatchRequestFeedback: Request filled notification "
                         "failed!"));
  EXPECT_EQ(0, m_data.releases.load());
  EXPECT_EQ(0u, m_server.commandCount()) << "a failed cache answer is final";
}

TEST_F(TableRequests, CommandFailuresGiveMinus3AndMinus5WithTheirMessages) {
  struct Case {
    bool sync;
    const char* name;
  };
  for (Case c : {Case{false, "requestData"}, Case{true, "requestDataSync"}}) {
    auto call = [&](short* error) {
      return c.sync ? m_core->requestDataSync(1, 2, m_tuner, 0, 0, 0, &m_data,
                                              &CountedUserData::release, error)
                    : m_core->requestData(1, 2, m_tuner, 0, 0, 0, &m_data,
                                          &CountedUserData::release, error);
    };
    const unsigned short code = c.sync ? 0x601 : 0x600;
    LogCapture log;
    short error = 0;
    {
      FactoryFailure failure(code);
      EXPECT_EQ(0, call(&error));
      EXPECT_EQ(-3, error);
    }
    m_server.setResult(code, 0);
    EXPECT_EQ(0, call(&error));
    EXPECT_EQ(-5, error);
    m_server.setResult(code, 1);
    std::string prefix = std::string("GingaCommonCore: ") + c.name + ": ERROR: ";
    EXPECT_EQ(std::vector<std::string>(
                  {prefix + "Could not create command.", prefix + "Could not request data."}),
              log.messages());
  }
  EXPECT_EQ(0, m_data.releases.load());
  EXPECT_EQ(nullptr, RequestFollower::get(1u));
}

TEST_F(TableRequests, UnfollowableRequestIsSentButRefusedWithMinus10) {
  LogCapture log;
  short error = 0;
  EXPECT_EQ(0, m_core->requestData(9, 2, m_tuner, 0x100, 0x42, 0, &m_data,
                                   &CountedUserData::release, &error));
  EXPECT_EQ(-10, error);
  EXPECT_EQ(std::vector<std::string>({kNotice}), log.messages());
  EXPECT_EQ(2u, m_server.last().timeOut);
  EXPECT_EQ(0, m_data.releases.load()) << "the caller keeps the user data";
  EXPECT_EQ(nullptr, RequestFollower::get(9u));
}

TEST_F(TableRequests, SynchronousRequestReleasesOnceAndNotifiesNothing) {
  short error = 4;
  EXPECT_EQ(1, m_core->requestDataSync(3, 2, m_tuner, 0x10, 0x40, 0, &m_data,
                                       &CountedUserData::release, &error));
  EXPECT_EQ(0, error);
  EXPECT_EQ(1, m_data.releases.load());
  auto sent = m_server.last();
  EXPECT_EQ(0x601, sent.code);
  EXPECT_EQ(0, sent.open);
  EXPECT_EQ(0u, sent.timeOut);
  EXPECT_EQ(0x10, sent.pid);
  EXPECT_EQ(0x40, sent.tableId);
  EXPECT_TRUE(notifications().empty());
  EXPECT_EQ(nullptr, RequestFollower::get(3u));
  EXPECT_EQ(1, m_core->requestDataSync(3, 2, m_tuner, 0x10, 0x40, 0, nullptr,
                                       &CountedUserData::release, nullptr));
  EXPECT_EQ(1, m_core->requestDataSync(3, 2, m_tuner, 0x10, 0x40, 0, &m_data, nullptr, nullptr));
  EXPECT_EQ(1, m_data.releases.load());
}

TEST(RequestTimeouts, FollowTheFixedTable) {
  struct Row {
    short pid, tableId;
    long seconds;
    bool notice;
  };
  const Row rows[] = {
      {0x0000, 0x00, 2, false}, {0x0000, 0x02, 2, false},  {0x0001, 0x01, 20, false},
      {0x0010, 0x40, 4, false}, {0x0011, 0x42, 4, false},  {0x0012, 0x4E, 6, false},
      {0x0012, 0x4F, 6, false}, {0x0012, 0x50, 60, false}, {0x0014, 0x73, 60, false},
      {0x0024, 0x00, 4, false}, {0x0026, 0x00, 6, false},  {0x0100, 0x02, 2, false},
      {-1, 0x02, 2, false},     {-1, 0x42, 1, true},       {0x0100, 0x42, 1, true},
      {0x0027, 0x4E, 1, true},  {0x0002, 0x02, 2, false},  {0x1FFF, 0x03, 1, true},
  };
  for (const Row& row : rows) {
    LogCapture log;
    timeval t = OstrelGingaCommonCore::getTimeout(row.pid, row.tableId, 0x7FFF);
    EXPECT_EQ(row.seconds, t.tv_sec) << row.pid << "/" << row.tableId;
    EXPECT_EQ(0, t.tv_usec);
    EXPECT_EQ(row.notice ? 1 : 0, log.count(kNotice)) << row.pid << "/" << row.tableId;
    EXPECT_EQ(row.notice ? 1u : 0u, log.lines().size());
  }
}

TEST(RequestTimedOut, ReportsStatusOneWithoutTableAndReturnsTheVerdict) {
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  LogCapture log;
  timeval deadline = {100, 0};
  core->setRequestNotificationCallback(nullptr);
  EXPECT_EQ(0, core->requestTimedOut(8, 1, 0, 0, 0, nullptr, deadline, 1));
  EXPECT_EQ(1,
            log.count("GingaCommonCore: requestTimedOut: No Request notification callback set!"));
  core->setRequestNotificationCallback(&recordingCallback);
  log.clear();
  int data = 0;
  {
    std::lock_guard<std::mutex> lock(s_mutex);
    s_notifications.clear();
    s_verdict = 0;
  }
  EXPECT_EQ(0, core->requestTimedOut(8, 1, 0, 0, 0, &data, deadline, 1));
  EXPECT_TRUE(log.lines().empty()) << "a refused time-out is the monitor's to log";
  s_verdict = 1;
  EXPECT_EQ(1, core->requestTimedOut(9, 1, 0, 0, 0, &data, deadline, 1));
  ASSERT_EQ(2u, s_notifications.size());
  EXPECT_EQ(9u, s_notifications[1].requestId);
  EXPECT_EQ(1, s_notifications[1].status);
  EXPECT_EQ(&data, s_notifications[1].userData);
  EXPECT_EQ(nullptr, s_notifications[1].table);
}
