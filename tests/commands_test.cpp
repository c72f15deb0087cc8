#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <typeinfo>
#include <vector>

#include "FactoryOverride.h"
#include "GingaServer.h"
#include "RecordingServer.h"
#include "TDataRequestCommand.h"
#include "TGetTunerListCommand.h"
#include "TGetTunerListResponse.h"
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

namespace {

template <class T>
bool madeAs(unsigned short code) {
  std::unique_ptr<TCommand> command(TCommand::commandFactory(code));
  return command && typeid(*command) == typeid(T) && command->getCode() == code;
}

}  // namespace

TEST(CommandFactory, EveryCodeGivesItsClassAndUnknownCodesGiveNull) {
  EXPECT_TRUE(madeAs<TReserveKeyCommand>(0x209));
  EXPECT_TRUE(madeAs<TReleaseKeyCommand>(0x210));
  EXPECT_TRUE(madeAs<TNotifyStatusChange>(0x300));
  EXPECT_TRUE(madeAs<TVideoGetSize>(0x400));
  EXPECT_TRUE(madeAs<TVideoGetDefaultSize>(0x401));
  EXPECT_TRUE(madeAs<TVideoGetSourceVideoSize>(0x402));
  EXPECT_TRUE(madeAs<TVideoSetSize>(0x403));
  EXPECT_TRUE(madeAs<TVideoCheckSize>(0x404));
  EXPECT_TRUE(madeAs<TGetTunerListCommand>(0x500));
  EXPECT_TRUE(madeAs<TDataRequestCommand>(0x600));
  EXPECT_TRUE(madeAs<TSyncDataRequestCommand>(0x601));
  for (unsigned short code : {0x000, 0x20A, 0x405, 0x501, 0x602, 0xFFFF}) {
    EXPECT_EQ(nullptr, TCommand::commandFactory(code)) << std::hex << code;
  }
}

TEST(CommandFactory, HookReplacesTheFactoryUntilCleared) {
  {
    OstrelTest::FactoryFailure failure(0x209);
    EXPECT_EQ(nullptr, TCommand::commandFactory(0x209));
    EXPECT_TRUE(madeAs<TReleaseKeyCommand>(0x210));  // other codes pass through
  }
  EXPECT_TRUE(madeAs<TReserveKeyCommand>(0x209));
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
    response = nullptr;
  }
}

TEST(OpenDataRequest, IsNeverLeakedWhateverTheEndPointDoes) {
  const long before = TCommand::getLiveCount();
  {  // no end point: send deletes it
    auto* request = new TDataRequestCommand();
    request->setOpen(1);
    EXPECT_EQ(0, request->send(nullptr));
    EXPECT_EQ(before, TCommand::getLiveCount());
  }
  {  // refused: closed at once
    RecordingServer server;
    server.setResult(0x600, 0);
    auto* request = new TDataRequestCommand();
    request->setOpen(1);
    request->setEndPoint(&server);
    EXPECT_EQ(0, request->send(nullptr));
    EXPECT_EQ(0u, server.getOpenRequestCount());
    EXPECT_EQ(before, TCommand::getLiveCount());
  }
  {  // accepted and closed by the server
    RecordingServer server;
    TDataRequestCommand* seen = nullptr;
    server.setExecuteHook([&](TCommand* c) {
      seen = static_cast<TDataRequestCommand*>(c);
      return RecordingServer::kConfigured;
    });
    auto* request = new TDataRequestCommand();
    request->setOpen(1);
    request->setEndPoint(&server);
    EXPECT_EQ(1, request->send(nullptr));
    EXPECT_EQ(1u, server.getOpenRequestCount());
    EXPECT_TRUE(server.closeOpenRequest(seen));
    EXPECT_FALSE(server.closeOpenRequest(seen));  // closed once only
    EXPECT_EQ(before, TCommand::getLiveCount());
  }
  {  // accepted and forgotten: the server deletes it when it goes
    RecordingServer server;
    for (int i = 0; i < 3; ++i) {
      auto* request = new TDataRequestCommand();
      request->setOpen(1);
      request->setEndPoint(&server);
      EXPECT_EQ(1, request->send(nullptr));
    }
    EXPECT_EQ(3u, server.getOpenRequestCount());
  }
  EXPECT_EQ(before, TCommand::getLiveCount());
}

TEST(OpenDataRequest, ConcurrentSendsAndClosesKeepTheCount) {
  const long before = TCommand::getLiveCount();
  RecordingServer server;
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

TEST(TunerListResponse, AnswersByIndexAndRefusesIndicesPastTheEnd) {
  TGetTunerListResponse response;
  EXPECT_EQ(0u, response.getTunerCounter());
  response.addTuner(5, 1);
  response.addTuner(-7, 255);
  int id = 42;
  unsigned char type = 42;
  EXPECT_EQ(1, response.getTunerId(1, &id));
  EXPECT_EQ(1, response.getTunerType(1, &type));
  EXPECT_EQ(-7, id);
  EXPECT_EQ(255, type);
  EXPECT_EQ(0, response.getTunerId(2, &id));
  EXPECT_EQ(0, response.getTunerType(2, &type));
  EXPECT_EQ(-7, id);
  EXPECT_EQ(255, type);
}
