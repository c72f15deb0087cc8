// The platform stand-ins: the command library (the factory, send, and the
// ownership of open data requests, which the core hands over and never
// deletes) and the logger.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

#include "LogCapture.h"
#include "OstrelLogger.h"
#include "RecordingServer.h"
#include "TDataRequestCommand.h"
#include "TGetTunerListCommand.h"
#include "TNotifyStatusChange.h"
#include "TReleaseKeyCommand.h"
#include "TReserveKeyCommand.h"
#include "TSyncDataRequestCommand.h"
#include "TVideoCheckSize.h"
#include "TVideoGetDefaultSize.h"
#include "TVideoGetSize.h"
#include "TVideoGetSourceVideoSize.h"
#include "TVideoSetSize.h"

using namespace Ostrel;
using OstrelTest::RecordingServer;

TEST(CommandFactory, EveryCodeGivesItsClassAndUnknownCodesGiveNull) {
  const std::pair<unsigned short, const std::type_info*> rows[] = {
      {0x209, &typeid(TReserveKeyCommand)},
      {0x210, &typeid(TReleaseKeyCommand)},
      {0x300, &typeid(TNotifyStatusChange)},
      {0x400, &typeid(TVideoGetSize)},
      {0x401, &typeid(TVideoGetDefaultSize)},
      {0x402, &typeid(TVideoGetSourceVideoSize)},
      {0x403, &typeid(TVideoSetSize)},
      {0x404, &typeid(TVideoCheckSize)},
      {0x500, &typeid(TGetTunerListCommand)},
      {0x600, &typeid(TDataRequestCommand)},
      {0x601, &typeid(TSyncDataRequestCommand)},
      {0x000, nullptr},
      {0x20A, nullptr},
      {0x405, nullptr},
      {0x501, nullptr},
      {0x602, nullptr},
      {0xFFFF, nullptr}};
  for (const auto& row : rows) {
    std::unique_ptr<TCommand> command(TCommand::commandFactory(row.first));
    ASSERT_EQ(row.second != nullptr, command != nullptr) << std::hex << row.first;
    EXPECT_TRUE(!command || (typeid(*command) == *row.second && command->getCode() == row.first));
  }
}

// send gives the end point's result and answer through, on failure too; with
// no end point it fails and sets nothing.
TEST(CommandSend, PassesResultAndAnswerThrough) {
  TReserveKeyCommand alone, untouched;
  TCommand* response = &untouched;
  EXPECT_EQ(0, alone.send(&response));
  EXPECT_EQ(&untouched, response);
  for (int result : {0, 1, 7}) {
    RecordingServer server;
    server.setResult(0x400, result);
    server.setAnswer(0x400, [] { return new TVideoGetSize(); });
    TVideoGetSize command;
    command.setEndPoint(&server);
    EXPECT_EQ(result, command.send(&response));
    ASSERT_NE(nullptr, response);
    delete response;
  }
}

// Sent without an end point or refused, an open request is deleted at once;
// accepted, the server holds it until it closes it (once) or goes itself.
TEST(OpenDataRequest, IsNeverLeakedWhateverTheEndPointDoes) {
  const long before = TCommand::getLiveCount();
  auto send = [](RecordingServer* server) {
    auto* request = new TDataRequestCommand();
    request->setOpen(1);
    if (server)
      request->setEndPoint(server);
    return std::make_pair(request->send(nullptr), request);
  };
  EXPECT_EQ(0, send(nullptr).first);
  EXPECT_EQ(before, TCommand::getLiveCount());
  {
    RecordingServer refusing, holding;
    refusing.setResult(0x600, 0);
    EXPECT_EQ(0, send(&refusing).first);
    EXPECT_EQ(0u, refusing.getOpenRequestCount());
    EXPECT_EQ(before, TCommand::getLiveCount());
    auto held = send(&holding);
    EXPECT_EQ(1, held.first);
    EXPECT_TRUE(holding.closeOpenRequest(held.second));
    EXPECT_FALSE(holding.closeOpenRequest(held.second));
    EXPECT_EQ(before, TCommand::getLiveCount());
    for (int i = 0; i < 3; ++i)
      send(&holding);
    EXPECT_EQ(3u, holding.getOpenRequestCount());
  }
  EXPECT_EQ(before, TCommand::getLiveCount());
}

TEST(OpenDataRequest, ConcurrentSendsAndClosesKeepTheCount) {
  const long before = TCommand::getLiveCount();
  RecordingServer server(true);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&server] {
      for (int i = 0; i < 500; ++i) {
        auto* request = new TDataRequestCommand();
        request->setOpen(1);
        request->setEndPoint(&server);
        ASSERT_EQ(1, request->send(nullptr));
        if (i % 2)
          server.closeOpenRequest(request);
      }
    });
  }
  for (auto& t : threads)
    t.join();
  EXPECT_EQ(1000u, server.getOpenRequestCount());
  EXPECT_EQ(before + 1000, TCommand::getLiveCount());
}

TEST(Logger, SinkReceivesTheWholeFormattedMessageWithLevelAndModule) {
  OstrelTest::LogCapture capture;
  const std::string text(5000, 'x');
  ostrel_log_std_generic(4, "Cacher", "%s: add: %d items %s", "Cacher", 3, text.c_str());
  auto lines = capture.lines();
  ASSERT_EQ(1u, lines.size());
  EXPECT_EQ(4, lines[0].level);
  EXPECT_EQ("Cacher", lines[0].module);
  EXPECT_EQ("Cacher: add: 3 items " + text, lines[0].message);
}

TEST(Logger, DefaultSinkWritesOneStampedLineToStandardError) {
  { OstrelTest::LogCapture capture; }  // installing and removing a sink restores the default
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
