#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "FactoryOverride.h"
#include "LogCapture.h"
#include "OstrelGingaCommonCore.h"
#include "RecordingServer.h"
#include "TReserveKeyCommand.h"
#include "TVideoGetSize.h"

using namespace Ostrel;
using OstrelTest::FactoryFailure;
using OstrelTest::FactoryOverride;
using OstrelTest::LogCapture;
using OstrelTest::RecordingServer;

namespace {

struct KeyOperation {
  const char* name;
  unsigned short code;
  std::function<int(OstrelGingaCommonCore*, short*)> call;
};

const KeyOperation kOperations[] = {
    {"reserveKey", 0x209,
     [](OstrelGingaCommonCore* c, short* e) { return c->reserveKey("listener", 0x1234, e); }},
    {"releaseKey", 0x210,
     [](OstrelGingaCommonCore* c, short* e) { return c->releaseKey("listener", 0x1234, e); }},
    {"notifyAppStatusChange", 0x300,
     [](OstrelGingaCommonCore* c, short* e) { return c->notifyAppStatusChange("app", 7, e); }},
};

class KeyCommands : public testing::Test {
 protected:
  void SetUp() override {
    m_core = OstrelGingaCommonCore::getInstance();
    m_core->setServer(&m_server);
    m_liveBefore = TCommand::getLiveCount();
  }
  void TearDown() override { EXPECT_EQ(m_liveBefore, TCommand::getLiveCount()); }

  OstrelGingaCommonCore* m_core = nullptr;
  RecordingServer m_server;
  long m_liveBefore = 0;
};

std::string message(const KeyOperation& op, const char* text) {
  return std::string("GingaCommonCore: ") + op.name + ": ERROR: " + text;
}

}  // namespace

TEST_F(KeyCommands, FactoryFailureGivesMinus3WithItsMessageAndNoServerContact) {
  for (const auto& op : kOperations) {
    LogCapture log;
    FactoryFailure failure(op.code);
    short error = 0;
    EXPECT_EQ(0, op.call(m_core, &error)) << op.name;
    EXPECT_EQ(-3, error) << op.name;
    EXPECT_EQ(1, failure.requests());
    ASSERT_EQ(1u, log.lines().size()) << op.name;
    EXPECT_EQ(message(op, "Could not create command."), log.lines()[0].message);
    EXPECT_EQ("GingaCommonCore", log.lines()[0].module);
    EXPECT_EQ(4, log.lines()[0].level);
    EXPECT_EQ(0, op.call(m_core, nullptr));  // null errorCode: same outcome
  }
  EXPECT_EQ(0u, m_server.commandCount());
}

TEST_F(KeyCommands, FactoryGivingAnotherClassCountsAsNoCommand) {
  LogCapture log;
  FactoryOverride wrong(0x209, [] { return new TVideoGetSize(); });
  short error = 0;
  EXPECT_EQ(0, m_core->reserveKey("l", 1, &error));
  EXPECT_EQ(-3, error);
  EXPECT_EQ(1, log.count("GingaCommonCore: reserveKey: ERROR: Could not create command."));
  EXPECT_EQ(0u, m_server.commandCount());
}

TEST_F(KeyCommands, SendFailureGivesMinus5WithItsMessageAndDeletesTheCommand) {
  for (const auto& op : kOperations) {
    LogCapture log;
    m_server.setResult(op.code, 0);
    short error = 0;
    EXPECT_EQ(0, op.call(m_core, &error)) << op.name;
    EXPECT_EQ(-5, error);
    EXPECT_EQ(1, log.count(message(op, "Could not notify status change."))) << op.name;
    EXPECT_EQ(1u, log.lines().size());
  }
  EXPECT_EQ(3u, m_server.commandCount());
}

TEST_F(KeyCommands, SuccessWritesZeroWithOrWithoutAnAnswerWhichIsDeletedUnread) {
  for (const auto& op : kOperations) {
    LogCapture log;
    short error = -5;
    EXPECT_EQ(1, op.call(m_core, &error)) << op.name;
    EXPECT_EQ(0, error);
    m_server.setAnswer(op.code, [] { return new TReserveKeyCommand(); });
    error = -5;
    EXPECT_EQ(1, op.call(m_core, &error)) << op.name;  // any answer object: deleted unread
    EXPECT_EQ(0, error);
    EXPECT_EQ(1, op.call(m_core, nullptr));
    EXPECT_TRUE(log.lines().empty());
  }
}

TEST_F(KeyCommands, ValuesReachTheServerUnchangedAndInOrder) {
  ASSERT_EQ(1, m_core->reserveKey("", 0xFFFFFFFFu, nullptr));
  ASSERT_EQ(1, m_core->reserveKey("listener-a", 0x26, nullptr));
  ASSERT_EQ(1, m_core->notifyAppStatusChange("", 255, nullptr));
  ASSERT_EQ(1, m_core->notifyAppStatusChange("app/1", 0, nullptr));
  auto sent = m_server.commands();
  ASSERT_EQ(4u, sent.size());
  EXPECT_EQ(0x209, sent[0].code);
  EXPECT_EQ(0xFFFFFFFFu, sent[0].keyCode);
  EXPECT_EQ("", sent[0].listenerId);
  EXPECT_EQ("listener-a", sent[1].listenerId);
  EXPECT_EQ(0x26u, sent[1].keyCode);
  EXPECT_EQ(0x300, sent[2].code);
  EXPECT_EQ(255, sent[2].notificationCode);
  EXPECT_EQ("", sent[2].appId);
  EXPECT_EQ("app/1", sent[3].appId);
  EXPECT_EQ(0, sent[3].notificationCode);
  for (const auto& c : sent) EXPECT_EQ(&m_server, c.endPoint);
}

TEST_F(KeyCommands, ReleaseKeyNeverPassesTheListenerId) {
  ASSERT_EQ(1, m_core->releaseKey("first", 0x1D, nullptr));
  ASSERT_EQ(1, m_core->releaseKey("second", 0x1D, nullptr));
  auto sent = m_server.commands();
  ASSERT_EQ(2u, sent.size());
  for (const auto& c : sent) {
    EXPECT_EQ(0x210, c.code);
    EXPECT_EQ(0x1Du, c.keyCode);
    EXPECT_EQ("", c.listenerId);
  }
}
