#include <gtest/gtest.h>

#include <map>
#include <set>

#include "Cacher.h"
#include "ChannelScan.h"
#include "OstrelGingaCommonCore.h"
#include "ReceiverSimulator.h"
#include "RequestFollower.h"
#include "SampleStream.h"
#include "ScanReport.h"
#include "TCommand.h"
#include "TPATBuilder.h"
#include "TPMTBuilder.h"
#include "TsPacketWriter.h"

using namespace Ostrel;
typedef ChannelScan::Outcome Outcome;
typedef std::map<std::string, Outcome> Outcomes;

namespace {

const Outcome kDel = ChannelScan::kDelivered;
const Outcome kOut = ChannelScan::kNotCarried;

const char kSampleChannelTable[] =
    "Network    0x0640 \"Rede Ostrel\", version 0\n"
    "Transport  0x0640 \"OSTREL\", original network 0x0640, remote control key 5\n"
    "Delivery   575.142857 MHz, mode 3, guard interval 1/16\n"
    "Time       2026-03-01 12:00:00 local (UTC-03:00), 2026-03-01 15:00:00 UTC\n"
    "\n"
    "Service  Type       Name            Provider  PMT     Streams\n"
    "0xE760   TV         Ostrel HD       Ostrel    0x0100  video H.264 0x0111 (PCR, tag 0x00), "
    "audio AAC 0x0112 (tag 0x10), private PES 0x0114 (tag 0x30)\n"
    "0xE761   TV         Ostrel Extra    Ostrel    0x0130  PMT not in the stream\n"
    "0xE768   data       Ostrel Dados    Ostrel    0x0110  DSM-CC 0x0121 (tag 0x40), PCR 0x1FFF\n"
    "0xE778   TV 1seg    Ostrel 1seg     Ostrel    0x1FC8  video H.264 0x0181 (PCR, tag 0x81), "
    "audio AAC 0x0183 (tag 0x83)\n";

const Outcomes kSampleOutcomes = {{"PAT", kDel},        {"PAT (more)", kDel}, {"NIT", kDel},
                                  {"NIT (more)", kDel}, {"SDT", kDel},        {"SDT (more)", kDel},
                                  {"TOT", kDel},        {"PMT 0xE760", kDel}, {"PMT 0xE761", kOut},
                                  {"PMT 0xE768", kDel}, {"PMT 0xE778", kDel}};

Outcomes outcomes(const ChannelScan::Result& result) {
  Outcomes byWhat;  // the last of each
  for (const auto& request : result.requests)
    byWhat[request.what] = request.outcome;
  return byWhat;
}

// The sample with the packets of one section of a PID made null packets.
std::vector<unsigned char> withoutSection(unsigned short pid, unsigned char number) {
  std::vector<unsigned char> stream = SampleStream::build();
  for (size_t at = 0; at < stream.size(); at += 188) {
    unsigned char* p = &stream[at];
    // One packet per section here: pointer field 0, section_number at 6.
    if ((((p[1] & 0x1F) << 8) | p[2]) == pid && (p[1] & 0x40) && p[4 + 1 + 6] == number) {
      p[1] = 0x1F;
      p[2] = 0xFF;
    }
  }
  return stream;
}

// The sample (or a stream made from it) played in the simulator, bound to
// the core. Tears down in the order a program must: receiver, then follower.
class SampleScan : public testing::Test {
 protected:
  void SetUp() override { m_liveBefore = TCommand::getLiveCount(); }
  void TearDown() override {
    m_trace.reset();
    m_sim.reset();
    RequestFollower::destroy();
    EXPECT_EQ(m_liveBefore, TCommand::getLiveCount()) << "a command leaked";
  }
  // Bit rate 0 plays as fast as possible.
  void play(uint64_t bitRate, bool loop, std::vector<unsigned char> stream = SampleStream::build(),
            const FaultPlan& faults = FaultPlan()) {
    m_sim.reset(new ReceiverSimulator());
    m_sim->setPacing(bitRate ? ReceiverSimulator::kByBitRate : ReceiverSimulator::kAsFastAsPossible,
                     bitRate);
    m_sim->setFaultPlan(faults);
    m_sim->addMemoryTuner(std::move(stream), "sample", loop);
    m_core = OstrelGingaCommonCore::getInstance();
    m_core->setServer(m_sim.get());
    m_sim->setDataDestination(m_core);
  }
  // Server only by default: the core's cache is process-wide. The tuner
  // starts once the first requests are out, as ostrel-scan does.
  ChannelScan::Result scan(signed char mode = 2, bool probe = true) {
    ChannelScan scan(m_core, 0, mode);
    if (probe)
      scan.setCarriageProbe(ChannelScan::probeOf(m_sim.get(), 0));
    scan.start();
    m_sim->startTuner(0);
    EXPECT_TRUE(scan.waitFor(std::chrono::seconds(30)));
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

TEST_F(SampleScan, OneRoundGivesTheWholeTableOnceOrLoopingFastOrPaced) {
  struct Case {
    uint64_t bitRate;
    bool loop, probe;  // without a probe, the missing PMT ends at its 2 s time-out
  } const cases[] = {{0, false, true},
                     {0, true, true},
                     {10ull * SampleStream::kBitRate, false, true},
                     {10ull * SampleStream::kBitRate, true, false}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "bit rate " << c.bitRate << ", loop " << c.loop);
    play(c.bitRate, c.loop);
    ChannelScan::Result result = scan(2, c.probe);
    Outcomes expected = kSampleOutcomes;
    std::string table = kSampleChannelTable;
    if (!c.probe) {
      expected["PMT 0xE761"] = ChannelScan::kTimedOut;
      table.replace(table.find("not in the stream"), 17, "timed out");
    }
    EXPECT_EQ(table, ScanReport::channelTable(result));
    EXPECT_EQ(expected, outcomes(result));
    EXPECT_EQ(expected.size(), result.requests.size());
  }
}

TEST_F(SampleScan, WhatTheStreamLacksEndsAfterOnePassNotAtItsTimeOut) {
  struct Case {
    std::vector<unsigned char> stream;
    std::set<unsigned short> hidden;
    Outcomes expected;  // the outcomes that differ from the sample's
    const char* lines;  // lines of the channel table
  } const cases[] = {
      // Asked for more, the receiver has nothing new: a repetition is no answer.
      {withoutSection(0x0011, 1), {}, {{"SDT (more)", kOut}}, "Incomplete SDT: 1 of 2 sections\n"},
      {withoutSection(0x0000, 0), {}, {{"PAT (more)", kOut}}, "Incomplete PAT: 1 of 2 sections\n"},
      {SampleStream::build(), {0x0014}, {{"TOT", kOut}}, "Time       (no TOT)\n"},
      {SampleStream::build(),
       {0x0000, 0x0010},
       {{"PAT", kOut}, {"NIT", kOut}},
       "Network    (no NIT)\nTransport  (no PAT)\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.lines);
    FaultPlan faults;
    faults.hiddenPids = c.hidden;
    play(10ull * SampleStream::kBitRate, true, c.stream, faults);
    ChannelScan::Result result = scan();
    std::string table = ScanReport::channelTable(result);
    EXPECT_NE(std::string::npos, table.find(c.lines)) << table;
    Outcomes expected = kSampleOutcomes;
    for (const auto& change : c.expected)
      expected[change.first] = change.second;
    // Not every request is made (no PAT: no PMT), but each made ends as told.
    for (const auto& got : outcomes(result)) {
      ASSERT_TRUE(expected.count(got.first)) << got.first;
      EXPECT_EQ(expected[got.first], got.second) << got.first;
    }
  }
}

TEST_F(SampleScan, SecondScanIsAnsweredFromTheCacheThenTheReceiverForMoreSections) {
  // The sample's tables exceed one tuner's 2048 bytes, and which of them the
  // least-recently-used clean-up keeps depends on whole seconds of scan time.
  struct RoomyCache {
    int bound = Ostrel::Cacher::s_iMaxCacheSize;
    RoomyCache() { Ostrel::Cacher::s_iMaxCacheSize = 1 << 20; }
    ~RoomyCache() { Ostrel::Cacher::s_iMaxCacheSize = bound; }
  } roomy;
  play(10ull * SampleStream::kBitRate, true);
  scan();
  ChannelScan::Result again = scan(1);
  EXPECT_EQ(kSampleChannelTable, ScanReport::channelTable(again));
  Outcomes got = outcomes(again);
  for (const char* what : {"PAT", "NIT", "SDT", "TOT", "PMT 0xE760", "PMT 0xE768", "PMT 0xE778"})
    EXPECT_EQ(ChannelScan::kFromCache, got[what]) << what;
  EXPECT_EQ(kDel, got["SDT (more)"]);
}

TEST_F(SampleScan, ACacheAnswerThatIsAnotherTableIsAskedOfTheReceiver) {
  // The cache keeps one table per PID: the PAT under PID 0, which this PAT
  // also names as programme 1's PMT PID, and one of the two PMTs that share
  // PID 0x0100.
  std::vector<unsigned char> stream;
  TsPacketWriter writer(&stream);
  const std::vector<unsigned char> pat = TPATBuilder()
                                             .setTransportStreamId(1)
                                             .addProgram(1, 0x0000)
                                             .addProgram(2, 0x0100)
                                             .addProgram(3, 0x0100)
                                             .build();
  for (int round = 0; round < 4; ++round) {
    writer.writeSection(0x0000, pat);
    for (unsigned short program : {2, 3}) {
      writer.writeSection(0x0100, TPMTBuilder()
                                      .setProgramNumber(program)
                                      .setPcrPid(0x1FFF)
                                      .addStream(0x1B, static_cast<unsigned short>(0x200 + program))
                                      .build());
    }
  }
  play(0, true, stream);
  const std::string first = ScanReport::channelTable(scan(1));
  EXPECT_NE(std::string::npos, first.find("0x0202")) << first;
  EXPECT_NE(std::string::npos, first.find("0x0203")) << first;
  for (int i = 0; i < 2; ++i) {  // the second time from the cache, as far as it holds
    ChannelScan::Result result = scan(1);
    EXPECT_EQ(first, ScanReport::channelTable(result));
    EXPECT_EQ(kOut, outcomes(result)["PMT 0x0001"]);
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
  for (const Case& c : cases)
    EXPECT_EQ(c.text, ScanReport::formatTime(c.seconds)) << c.seconds;
}

// Every fact of the model is in the JSON (as "key": value) and, unless it is a
// code named beside it or a flag that is false, in the text; names are
// escaped once, alike in both; a count that cannot be seen is null and "n/a",
// never 0.
TEST(ScanReportModel, TextAndJsonSayTheSameOfEveryFact) {
  ChannelScan::Result full;
  full.hasNit = full.hasPat = full.hasTot = true;
  full.networkId = 0x0640;
  full.networkName = "Rede \"Ostrel\"\\\r\nSul";  // a CR LF is one line break
  full.transportStreamId = 7;
  full.frequenciesHz = {575142857};
  full.transmissionMode = 3, full.guardInterval = 1;
  full.utcSeconds = 1772377200;
  ChannelScan::Service service;
  service.id = 1, service.pmtPid = 0x100;
  service.inPat = service.inSdt = true;
  service.name = "Sao Paulo\rCanal\tde nome muito longo";
  service.provider = "S\xC3\xA3o";
  service.pmt = ChannelScan::kFromCache;
  service.pcrPid = 0x1FF;
  service.streams.push_back(ChannelScan::Stream());
  service.streams.back().pid = 0x111;
  full.services.push_back(service);
  service.id = 2, service.name = "Dois\n", service.inPat = false;
  full.services.push_back(service);
  ChannelScan::Request failed;
  failed.what = "PAT", failed.outcome = ChannelScan::kFailed, failed.errorCode = -3;
  full.requests.push_back(failed);
  full.incomplete.push_back("SDT: 2 of 5 sections");

  ChannelScan::Result noPat;  // the NIT's delivery without a PAT
  noPat.frequenciesHz = {473142857};
  noPat.transmissionMode = 2, noPat.guardInterval = 3;

  StreamHealth measured;
  measured.measured = measured.byPcr = true;
  measured.streamSeconds = 2;
  measured.pids.resize(2);
  measured.pids[0].crcErrors = measured.pids[0].ccErrors = 0;
  measured.pids[1].pid = 0x1FFF;  // not read as sections, not counted
  measured.tables.resize(1);
  measured.tables[0].tableId = 0x42;
  measured.tables[0].minMs = 10, measured.tables[0].maxMs = 2500;
  StreamHealth filters;  // kernel section filters: no packets seen
  filters.pids.resize(1);
  filters.pids[0].crcErrors = 4;

  struct Case {
    const char* what;
    const ChannelScan::Result* result;
    const StreamHealth* health;
    std::vector<std::string> inText, inJson, inNeither;
  } const cases[] = {
      {"names and states",
       &full,
       NULL,
       {"Rede \\\"Ostrel\\\"\\\\\\nSul\", version 0", "Sao Paulo\\nCanal\\u0009de nome", "Dois\\n ",
        "not in the PAT", "S\xC3\xA3o", "type 0x00 0x0111, PCR 0x01FF",
        "Incomplete SDT: 2 of 5 sections", "failed (-3)", "Health     (not measured)"},
       {"\"Rede \\\"Ostrel\\\"\\\\\\nSul\"", "\"Sao Paulo\\nCanal\\u0009de nome muito longo\"",
        "\"pmt\": \"not in the PAT\"", "\"pmt\": \"from cache\"", "\"errorCode\": -3",
        "\"health\": null", "\"originalNetworkId\": null", "\"name\": null"},
       {"\\n\\n", "\\r", "\\u000d"}},
      {"delivery without a PAT",
       &noPat,
       &measured,
       {"Transport  (no PAT)", "Delivery   473.142857 MHz, mode 2, guard interval 1/4",
        "Network    (no NIT)", "Time       (no TOT)", "2.000 s of stream by its PCR",
        "25 ms to 2000 ms", "too soon and too late", "0x1FFF  0         n/a         n/a"},
       {"\"transportStream\": null", "\"transmissionMode\": 2", "\"guardInterval\": \"1/4\"",
        "\"crcErrors\": 0, \"ccErrors\": 0", "\"crcErrors\": null, \"ccErrors\": null",
        "\"verdict\": \"too soon and too late\"", "\"clock\": \"PCR\""},
       {}},
      {"section filters",
       &noPat,
       &filters,
       {"stream time not seen", "0x0000  n/a       4           n/a"},
       {"\"streamSeconds\": null", "\"packets\": null, \"crcErrors\": 4, \"ccErrors\": null",
        "\"healthTables\": []"},
       {"Shortest", "\"ccErrors\": 0"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const ReportModel model = ScanReport::model(*c.result, c.health, true);
    const std::string text = ScanReport::channelTable(model) + ScanReport::requestTable(model) +
                             ScanReport::healthTable(model);
    const std::string json = ScanReport::json(model);
    for (const ReportModel::Part& part : model.parts) {
      EXPECT_NE(std::string::npos, json.find("\"" + part.key + "\": ")) << part.key;
      for (const ReportModel::Record& record : part.records) {
        for (const ReportModel::Field& field : record) {
          const std::string pair =
              field.key.empty() ? field.json : "\"" + field.key + "\": " + field.json;
          EXPECT_NE(std::string::npos, json.find(pair)) << pair << "\n" << json;
          EXPECT_NE(std::string::npos, text.find(field.text)) << field.text << "\n" << text;
          EXPECT_TRUE(!field.text.empty() || field.json == "false" || field.json == "null" ||
                      field.key == "type" || field.key == "tableId" || field.key == "utcSeconds" ||
                      field.key == "tableIdExt" || field.key == "pcrPid" || field.key == "pmt")
              << part.key << "." << field.key << " is in the JSON only";
        }
      }
    }
    // Columns widen for long names, in characters, not bytes: every service
    // row's provider column starts where the heading's does.
    const size_t heading = text.find("\nService  "),
                 column = text.find("Provider", heading) - heading;
    for (const ChannelScan::Service& service : c.result->services) {
      char id[8];
      std::snprintf(id, sizeof(id), "\n0x%04X", service.id);
      const size_t row = text.find(id, heading);
      EXPECT_EQ(' ', text[row + column - 1]) << text;
      EXPECT_NE(' ', text[row + column]) << text;
    }
    auto check = [](const std::string& in, const std::vector<std::string>& parts, bool there) {
      for (const std::string& part : parts)
        EXPECT_EQ(there, in.find(part) != std::string::npos) << part << "\n" << in;
    };
    check(text, c.inText, true), check(json, c.inJson, true);
    check(text, c.inNeither, false), check(json, c.inNeither, false);
  }
}
