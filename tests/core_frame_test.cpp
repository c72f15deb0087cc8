#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

#include "LogCapture.h"
#include "OstrelGingaCommonCore.h"
#include "RecordingServer.h"

using namespace Ostrel;
using OstrelTest::LogCapture;
using OstrelTest::RecordingServer;

namespace {

std::atomic<int> s_calls{0};
int acceptingCallback(unsigned int, unsigned char, void*, TISDBTTable*) {
  ++s_calls;
  return 1;
}

}  // namespace

TEST(CoreInstance, ConcurrentFirstCallsMakeExactlyOneInstance) {
  std::vector<std::thread> threads;
  std::vector<OstrelGingaCommonCore*> seen(16, nullptr);
  std::atomic<bool> go{false};
  for (size_t i = 0; i < seen.size(); ++i) {
    threads.emplace_back([&, i] {
      while (!go) std::this_thread::yield();
      seen[i] = OstrelGingaCommonCore::getInstance();
    });
  }
  go = true;
  for (auto& t : threads) t.join();
  std::set<OstrelGingaCommonCore*> distinct(seen.begin(), seen.end());
  ASSERT_EQ(1u, distinct.size());
  EXPECT_NE(nullptr, *distinct.begin());
  EXPECT_EQ(*distinct.begin(), OstrelGingaCommonCore::getInstance());
}

TEST(CoreBinding, NullServerIsRefusedAndTheOldBindingStays) {
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  RecordingServer a, b;
  EXPECT_EQ(1, core->setServer(&a));
  EXPECT_EQ(0, core->setServer(nullptr));
  EXPECT_EQ(1, core->reserveKey("l", 1, nullptr));
  EXPECT_EQ(1u, a.commandCount());
  EXPECT_EQ(&a, a.last().endPoint);
  EXPECT_EQ(1, core->setServer(&b));  // a later server replaces it
  EXPECT_EQ(1, core->reserveKey("l", 1, nullptr));
  EXPECT_EQ(1u, a.commandCount());
  EXPECT_EQ(1u, b.commandCount());
}

TEST(CoreBinding, NullCallbackIsAcceptedAndClearsTheCallback) {
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  LogCapture log;
  EXPECT_EQ(1, core->setRequestNotificationCallback(&acceptingCallback));
  short error = 99;
  EXPECT_EQ(1, core->dispatchRequestFeedback(1, 0, nullptr, nullptr, &error));
  EXPECT_EQ(0, error);
  EXPECT_EQ(1, core->setRequestNotificationCallback(nullptr));
  EXPECT_EQ(0, core->dispatchRequestFeedback(1, 0, nullptr, nullptr, &error));
  EXPECT_EQ(-7, error);
  EXPECT_EQ(1, log.count("GingaCommonCore: dispatchRequestFeedback: No Request notification "
                         "callback set!"));
}

TEST(CoreBinding, WaitBusyCommandsWaitsOnTheBoundServer) {
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  RecordingServer server;
  core->setServer(&server);
  short error = -3;
  EXPECT_EQ(1, core->waitBusyCommands(&error));
  EXPECT_EQ(0, error);
  EXPECT_EQ(1, core->waitBusyCommands(nullptr));
  EXPECT_EQ(2, server.waitCount());
  EXPECT_EQ(0u, server.commandCount());
}
