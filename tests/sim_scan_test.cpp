#include <gtest/gtest.h>

#include <map>

#include "Cacher.h"
#include "ChannelScan.h"
#include "OstrelGingaCommonCore.h"
#include "ReceiverSimulator.h"
#include "RequestFollower.h"
#include "RequestTrace.h"
#include "SampleStream.h"
#include "ScanReport.h"
#include "TCommand.h"
#include "TransportStreamSource.h"

using namespace Ostrel;

namespace {

const char kSampleChannelTable[] =
    "Network    0x0640 \"Rede Ostrel\"\n"
    "Transport  0x0640 \"OSTREL\", original network 0x0640, remote control key 5\n"
    "Delivery   575.142857 MHz, mode 3, guard interval 1/16\n"
    "Time       2026-03-01 12:00:00 local (UTC-03:00), 2026-03-01 15:00:00 UTC\n"
    "\n"
    "Service  Type       Name            Provider  PMT     Streams\n"
    "0xE760   TV         Ostrel HD       Ostrel    0x0100  video H.264 0x0111 (PCR), audio AAC "
    "0x0112, private PES 0x0114\n"
    "0xE761   TV         Ostrel Extra    Ostrel    0x0130  PMT timed out\n"
    "0xE768   data       Ostrel Dados    Ostrel    0x0110  DSM-CC 0x0121\n"
    "0xE778   TV 1seg    Ostrel 1seg     Ostrel    0x1FC8  video H.264 0x0181 (PCR), audio AAC "
    "0x0183\n";

std::map<std::string, ChannelScan::Outcome> outcomes(const ChannelScan::Result& result) {
  std::map<std::string, ChannelScan::Outcome> byWhat;
  for (const auto& request : result.requests) {
    byWhat[request.what] = request.outcome;
  }
  return byWhat;
}

// A simulator that plays the sample ten times faster than real time, bound to
// the core. Tears down in the order a program must: receiver, then follower.
class SampleScan : public testing::Test {
 protected:
  void SetUp() override {
    m_liveBefore = TCommand::getLiveCount();
    m_sim.reset(new ReceiverSimulator());
    m_sim->setPacing(StreamPacer::kByBitRate, 10ull * SampleStream::kBitRate);
    m_sim->addTuner(TransportStreamSource::fromMemory(SampleStream::build(), "sample"));
    m_core = OstrelGingaCommonCore::getInstance();
    m_core->setServer(m_sim.get());
    m_sim->setDataDestination(m_core);
    m_sim->start();
  }
  void TearDown() override {
    m_trace.reset();
    m_sim.reset();
    RequestFollower::destroy();
    EXPECT_EQ(m_liveBefore, TCommand::getLiveCount()) << "a command leaked";
  }
  // Server only by default: the core's cache is process-wide.
  ChannelScan::Result scan(signed char mode = 2, RequestTrace* trace = nullptr) {
    ChannelScan scan(m_core, 0, mode);
    scan.setTrace(trace);
    scan.run(std::chrono::seconds(30));
    EXPECT_EQ(0u, scan.getPendingCount());
    ChannelScan::Result result = scan.getResult();
    // Shown with any failure that follows, to tell a slow machine from a fault.
    m_trace.reset();  // traces are a stack: the old one goes first
    m_trace.reset(
        new testing::ScopedTrace(__FILE__, __LINE__, ScanReport::requestTable(result, true)));
    return result;
  }

  std::unique_ptr<ReceiverSimulator> m_sim;
  std::unique_ptr<testing::ScopedTrace> m_trace;
  OstrelGingaCommonCore* m_core = nullptr;
  long m_liveBefore = 0;
};

}  // namespace

TEST_F(SampleScan, GivesTheSampleChannelTableAndTimesOutTheMissingPmt) {
  RequestTrace trace;
  ChannelScan::Result result = scan(2, &trace);
  ASSERT_TRUE(result.hasPat);
  EXPECT_EQ(kSampleChannelTable, ScanReport::channelTable(result));
  std::map<std::string, ChannelScan::Outcome> expected = {
      {"PAT", ChannelScan::kDelivered},        {"NIT", ChannelScan::kDelivered},
      {"SDT", ChannelScan::kDelivered},        {"TOT", ChannelScan::kDelivered},
      {"PMT 0xE760", ChannelScan::kDelivered}, {"PMT 0xE761", ChannelScan::kTimedOut},
      {"PMT 0xE768", ChannelScan::kDelivered}, {"PMT 0xE778", ChannelScan::kDelivered}};
  EXPECT_EQ(expected, outcomes(result));
  for (const auto& request : result.requests) {
    if (request.what == "PMT 0xE761") {
      EXPECT_GE(request.endedMs - request.sentMs, 1990.0);  // the PMT time-out is 2 s
    }
  }
  // Every request begins and ends once in the trace.
  std::string json = trace.toJson();
  size_t begins = 0, ends = 0;
  for (size_t at = json.find("\"ph\":\"b\""); at != std::string::npos;
       at = json.find("\"ph\":\"b\"", at + 1)) {
    ++begins;
  }
  for (size_t at = json.find("\"ph\":\"e\""); at != std::string::npos;
       at = json.find("\"ph\":\"e\"", at + 1)) {
    ++ends;
  }
  EXPECT_EQ(8u, begins);
  EXPECT_EQ(8u, ends);
  EXPECT_NE(std::string::npos, json.find("\"outcome\":\"timed out\""));
}

TEST_F(SampleScan, SecondScanIsAnsweredFromTheCacheExceptWhatNeverCame) {
  // The sample's tables exceed one tuner's 2048 bytes, and which of them the
  // least-recently-used clean-up keeps depends on whole seconds of scan time.
  // With room for all of them the answer does not depend on the machine's speed.
  struct RoomyCache {
    int bound = Ostrel::Cacher::s_iMaxCacheSize;
    RoomyCache() { Ostrel::Cacher::s_iMaxCacheSize = 1 << 20; }
    ~RoomyCache() { Ostrel::Cacher::s_iMaxCacheSize = bound; }
  } roomy;
  scan();
  ChannelScan::Result again = scan(1);
  EXPECT_EQ(kSampleChannelTable, ScanReport::channelTable(again));
  std::map<std::string, ChannelScan::Outcome> got = outcomes(again);
  EXPECT_EQ(ChannelScan::kFromCache, got["PAT"]);
  EXPECT_EQ(ChannelScan::kFromCache, got["NIT"]);
  EXPECT_EQ(ChannelScan::kFromCache, got["SDT"]);
  EXPECT_EQ(ChannelScan::kFromCache, got["TOT"]);
  EXPECT_EQ(ChannelScan::kFromCache, got["PMT 0xE760"]);
  EXPECT_EQ(ChannelScan::kFromCache, got["PMT 0xE768"]);
  EXPECT_EQ(ChannelScan::kFromCache, got["PMT 0xE778"]);
  EXPECT_EQ(ChannelScan::kTimedOut, got["PMT 0xE761"]);
  // Server only: everything goes to the receiver again.
  ChannelScan::Result fresh = scan(2);
  EXPECT_EQ(ChannelScan::kDelivered, outcomes(fresh)["PAT"]);
  EXPECT_EQ(kSampleChannelTable, ScanReport::channelTable(fresh));
}

TEST_F(SampleScan, HiddenPatMeansNoPmtRequestsAndAFailedScan) {
  FaultPlan plan;
  plan.hiddenPids.insert(0x0000);
  m_sim->setFaultPlan(plan);
  ChannelScan::Result result = scan();
  EXPECT_FALSE(result.hasPat);
  std::map<std::string, ChannelScan::Outcome> expected = {{"PAT", ChannelScan::kTimedOut},
                                                          {"NIT", ChannelScan::kDelivered},
                                                          {"SDT", ChannelScan::kDelivered},
                                                          {"TOT", ChannelScan::kDelivered}};
  EXPECT_EQ(expected, outcomes(result));
  EXPECT_NE(std::string::npos, ScanReport::channelTable(result).find("(no PAT)"));
}

TEST_F(SampleScan, DroppedAndDamagedSectionsEndInAnswersOrTimeOutsNeverACrash) {
  FaultPlan plan;
  plan.dropShare = 0.6;
  plan.corruptShare = 0.6;
  plan.delayMs = 30;
  plan.seed = 4;
  m_sim->setFaultPlan(plan);
  for (int round = 0; round < 2; ++round) {
    ChannelScan::Result result = scan(2);
    for (const auto& request : result.requests) {
      SCOPED_TRACE(request.what);
      EXPECT_TRUE(request.outcome == ChannelScan::kDelivered ||
                  request.outcome == ChannelScan::kTimedOut);
    }
    EXPECT_GT(m_sim->getCounters().faultCorrupted, 0u);
  }
}

TEST_F(SampleScan, EveryHiddenTableTimesOutAfterItsOwnTimeOut) {
  FaultPlan plan;
  plan.hiddenPids = {0x0000, 0x0010, 0x0011};  // the TOT's time-out is a minute: it comes
  m_sim->setFaultPlan(plan);
  ChannelScan::Result result = scan();
  ASSERT_EQ(4u, result.requests.size());  // no PAT: no PMT requests
  const std::map<std::string, double> timeOutMs = {{"PAT", 2000}, {"NIT", 4000}, {"SDT", 4000}};
  for (const auto& request : result.requests) {
    SCOPED_TRACE(request.what);
    if (request.what == "TOT") {
      EXPECT_EQ(ChannelScan::kDelivered, request.outcome);
      continue;
    }
    EXPECT_EQ(ChannelScan::kTimedOut, request.outcome);
    EXPECT_GE(request.endedMs - request.sentMs, timeOutMs.at(request.what) - 10);
  }
}

TEST(ScanReportTime, FormatsDatesBeyondThirtyTwoBitsAndBeforeTheEpoch) {
  struct Case {
    long long seconds;
    const char* text;
  };
  const Case cases[] = {{0, "1970-01-01 00:00:00"},
                        {951782400, "2000-02-29 00:00:00"},
                        {1772377200, "2026-03-01 15:00:00"},
                        {2147483648LL, "2038-01-19 03:14:08"},
                        {4102444799LL, "2099-12-31 23:59:59"},
                        {-1, "1969-12-31 23:59:59"},
                        {-86400, "1969-12-31 00:00:00"}};
  for (const Case& c : cases) {
    EXPECT_EQ(c.text, ScanReport::formatTime(c.seconds)) << c.seconds;
  }
}

TEST(ScanReportJson, EscapesNamesAndKeepsTheShape) {
  ChannelScan::Result result;
  result.hasNit = true;
  result.networkName = "Rede \"Ostrel\"\\\n";
  ChannelScan::Service service;
  service.id = 1;
  service.inSdt = true;
  service.name = "S\xC3\xA3o Paulo";
  result.services.push_back(service);
  std::string json = ScanReport::json(result, false);
  EXPECT_NE(std::string::npos, json.find("\"name\": \"Rede \\\"Ostrel\\\"\\\\\\u000a\""));
  EXPECT_NE(std::string::npos, json.find("\"S\xC3\xA3o Paulo\""));
  EXPECT_NE(std::string::npos, json.find("\"transportStream\": null"));
  EXPECT_NE(std::string::npos, json.find("\"time\": null"));
}
