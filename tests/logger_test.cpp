#include <gtest/gtest.h>

#include <string>

#include "LogCapture.h"
#include "OstrelLogger.h"

using OstrelTest::LogCapture;

TEST(Logger, SinkReceivesTheWholeFormattedMessageWithLevelAndModule) {
  LogCapture capture;
  const std::string text(5000, 'x');
  ostrel_log_std_generic(4, "Cacher", "%s: add: %d items %s", "Cacher", 3, text.c_str());
  auto lines = capture.lines();
  ASSERT_EQ(1u, lines.size());
  EXPECT_EQ(4, lines[0].level);
  EXPECT_EQ("Cacher", lines[0].module);
  EXPECT_EQ("Cacher: add: 3 items " + text, lines[0].message);
}

TEST(Logger, DefaultSinkWritesOneStampedLineToStandardError) {
  { LogCapture capture; }  // installing and removing a sink restores the default
  testing::internal::CaptureStderr();
  ostrel_log_std_generic(4, "GingaCommonCore", "%s: hello", "GingaCommonCore");
  std::string out = testing::internal::GetCapturedStderr();
  ASSERT_FALSE(out.empty());
  EXPECT_EQ('\n', out.back());
  EXPECT_EQ(out.size() - 1, out.find('\n'));  // one line
  EXPECT_NE(std::string::npos, out.find(" GingaCommonCore GingaCommonCore: hello\n"));
  // "YYYY-MM-DD hh:mm:ss.mmm"
  ASSERT_GT(out.size(), 23u);
  EXPECT_EQ('-', out[4]);
  EXPECT_EQ(':', out[13]);
  EXPECT_EQ('.', out[19]);
}
