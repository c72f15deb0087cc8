// The platform stand-ins: the command library (the factory and the ownership
// of open data requests, which the core hands over and never deletes) and the
// logger.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "LogCapture.h"
#include "OstrelLogger.h"
#include "RecordingServer.h"
#include "TDataRequestCommand.h"

using namespace Ostrel;
using OstrelTest::RecordingServer;

// Each known code gives its own class: every core operation needs it (see the
// core's error-path table). Codes beside them give nothing.
TEST(CommandFactory, UnknownCodesGiveNull) {
  for (unsigned short code :
       {0x000, 0x208, 0x20A, 0x2FF, 0x301, 0x3FF, 0x405, 0x4FF, 0x501, 0x5FF, 0x602, 0xFFFF}) {
    std::unique_ptr<TCommand> command(TCommand::commandFactory(code));
    EXPECT_EQ(nullptr, command.get()) << std::hex << code;
  }
}

// An accepted open request is the server's until it closes it, once, or goes
// itself. (Refused or unsent requests are deleted at once: the core's tests
// count the live commands after each failed send.)
TEST(OpenDataRequest, IsHeldUntilClosedOnceOrUntilTheServerGoes) {
  const long before = TCommand::getLiveCount();
  {
    RecordingServer holding;
    std::vector<TDataRequestCommand*> sent;
    for (int i = 0; i < 3; ++i) {
      sent.push_back(new TDataRequestCommand());
      sent.back()->setOpen(1), sent.back()->setEndPoint(&holding);
      EXPECT_EQ(1, sent.back()->send(nullptr));
    }
    EXPECT_TRUE(holding.closeOpenRequest(sent[1]));
    EXPECT_FALSE(holding.closeOpenRequest(sent[1]));
    EXPECT_EQ(2u, holding.getOpenRequestCount());
    EXPECT_EQ(before + 2, TCommand::getLiveCount());
  }
  EXPECT_EQ(before, TCommand::getLiveCount());
}

TEST(Logger, SinkReceivesTheWholeFormattedMessageWithLevelAndModule) {
  OstrelTest::LogCapture capture;
  const std::string text(5000, 'x');
  ostrel_log_std_generic(4, "Cacher", "%s: add: %d items %s", "Cacher", 3, text.c_str());
  auto lines = capture.lines();
  ASSERT_EQ(1u, lines.size());
  EXPECT_EQ(std::make_tuple(4, std::string("Cacher"), "Cacher: add: 3 items " + text),
            std::make_tuple(lines[0].level, lines[0].module, lines[0].message));
}

TEST(Logger, DefaultSinkWritesOneStampedLineToStandardError) {
  { OstrelTest::LogCapture capture; }  // installing and removing a sink restores the default
  testing::internal::CaptureStderr();
  ostrel_log_std_generic(4, "GingaCommonCore", "%s: hello", "GingaCommonCore");
  std::string out = testing::internal::GetCapturedStderr();
  ASSERT_FALSE(out.empty());
  EXPECT_EQ('\n', out.back());
  EXPECT_EQ(out.size() - 1, out.find('\n'));  // one line
  // "YYYY-MM-DD hh:mm:ss.mmm", then the message, which names its module once.
  ASSERT_GT(out.size(), 23u);
  EXPECT_EQ(" GingaCommonCore: hello\n", out.substr(23));
  EXPECT_EQ('-', out[4]);
  EXPECT_EQ(':', out[13]);
  EXPECT_EQ('.', out[19]);
}
