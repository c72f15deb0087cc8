// The core before any server is bound. No test here binds one.
#include <gtest/gtest.h>

#include "LogCapture.h"
#include "OstrelGingaCommonCore.h"
#include "TCommand.h"

using namespace Ostrel;
using OstrelTest::LogCapture;

TEST(CoreUnbound, WaitBusyCommandsFailsWithoutTouchingErrorCode) {
  LogCapture log;
  short error = -3;
  EXPECT_EQ(0, OstrelGingaCommonCore::getInstance()->waitBusyCommands(&error));
  EXPECT_EQ(-3, error);
  EXPECT_EQ(0, OstrelGingaCommonCore::getInstance()->waitBusyCommands(nullptr));
  EXPECT_TRUE(log.lines().empty());
}

TEST(CoreUnbound, CommandsGoOutWithoutEndPointAndFailToSend) {
  LogCapture log;
  const long before = TCommand::getLiveCount();
  short error = 0;
  EXPECT_EQ(0, OstrelGingaCommonCore::getInstance()->reserveKey("x", 1, &error));
  EXPECT_EQ(-5, error);
  EXPECT_EQ(1, log.count("GingaCommonCore: reserveKey: ERROR: Could not notify status change."));
  EXPECT_EQ(before, TCommand::getLiveCount());
}
