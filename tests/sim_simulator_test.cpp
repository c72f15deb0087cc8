#include <gtest/gtest.h>

#include <thread>
#include <tuple>

#include "LogCapture.h"
#include "ReceiverSimulator.h"
#include "SectionMatch.h"
#include "TCommand.h"
#include "TDataRequestCommand.h"
#include "TNotifyStatusChange.h"
#include "TReleaseKeyCommand.h"
#include "TReserveKeyCommand.h"
#include "TSyncDataRequestCommand.h"
#include "TVideoCheckSize.h"
#include "TVideoGetDefaultSize.h"
#include "TVideoGetSize.h"
#include "TVideoGetSourceVideoSize.h"
#include "TVideoSetSize.h"
#include "VideoGeometry.h"
#include "sim_test_stream.h"

using namespace Ostrel;
using namespace SimTest;

namespace {

const unsigned short kPmtPid = 0x0100;

ReceiverSimulator::Options quickOptions() {
  ReceiverSimulator::Options options;
  options.filterStartMs = 0;
  return options;
}

int sendSyncRequest(GingaServer* server, int tuner, short pid, short tableId, short ext) {
  TSyncDataRequestCommand request;
  request.setEndPoint(server), request.setTunerId(tuner);
  request.setPid(pid), request.setTableId(tableId), request.setTableIdExt(ext);
  return request.send(NULL);
}

template <class T>
int sendCommand(GingaServer* server, T* command, TCommand** response = nullptr) {
  command->setEndPoint(server);
  return command->send(response);
}

Bytes pmtSection(unsigned short program, unsigned char version = 0) {
  return longSection(0x02, program, {0xE1, 0x00, 0xF0, 0x00, 0x1B, 0xE1, 0x01, 0xF0, 0x00},
                     version);
}

void feedSections(ReceiverSimulator* sim, int tuner, unsigned short pid,
                  const std::vector<Bytes>& sections, unsigned char* cc) {
  Bytes stream = join(packetize(pid, sections, cc));
  // Null packets after them, as in any stream: the packetizer hands a packet
  // on once it sees where the next one starts.
  for (int i = 0; i < 6; ++i) {
    Bytes null = packet(0x1FFF, false, 0, {});
    stream.insert(stream.end(), null.begin(), null.end());
  }
  sim->feed(tuner, stream.data(), stream.size());
}

class Simulator : public testing::Test {
 protected:
  void SetUp() override { m_liveBefore = TCommand::getLiveCount(); }
  void TearDown() override {
    m_sim.reset();
    EXPECT_EQ(m_liveBefore, TCommand::getLiveCount()) << "a command leaked";
  }
  ReceiverSimulator* make(const ReceiverSimulator::Options& options = quickOptions()) {
    m_sim.reset(new ReceiverSimulator(options));
    m_sim->setDataDestination(&m_destination);
    m_sim->addFedTuner();
    return m_sim.get();
  }

  RecordingDestination m_destination;
  std::unique_ptr<ReceiverSimulator> m_sim;
  long m_liveBefore = 0;
};

}  // namespace

TEST(SectionMatchRule, ExtensionIsComparedOnlyWhereTheMiddlewareKnowsIt) {
  struct Case {
    const char* name;
    short tableId, ext;  // the request
    Bytes section;
    bool matches;
  };
  const Case cases[] = {
      {"PMT same programme", 0x02, 7, pmtSection(7), true},
      {"PMT other programme", 0x02, 7, pmtSection(8), false},
      {"PAT any ts id", 0x00, 0, longSection(0x00, 0x0421, {}), true},
      {"NIT any network id", 0x40, -1, longSection(0x40, 0x7FE1, {0xF0, 0}), true},
      {"SDT actual any ts id", 0x42, 0, longSection(0x42, 0x0421, {0, 1, 0xFF}), true},
      {"SDT other is another table", 0x42, 0, longSection(0x46, 0x0421, {0, 1, 0xFF}), false},
      {"TOT short form", 0x73, 0x1234, shortSection(0x73, filler(11)), true},
      {"TDT is not the TOT", 0x73, 0, shortSection(0x70, filler(5)), false},
      {"EIT p/f by service id", 0x4E, 0x00E8, longSection(0x4E, 0x00E8, filler(6)), true},
      {"EIT p/f other service", 0x4E, 0x00E8, longSection(0x4E, 0x00E9, filler(6)), false},
      {"table id above 8 bits never matches", 0x102, 7, pmtSection(7), false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    EXPECT_EQ(c.matches, SectionMatch::matches(c.tableId, c.ext, c.section.data(),
                                               static_cast<unsigned int>(c.section.size())));
  }
}

// One request, one answer: the next new section of the table waits for the
// next request, and a repetition of what was delivered is not delivered again.
TEST_F(Simulator, EachRequestGetsTheNextNewSectionOfItsTableUnderItsKey) {
  ReceiverSimulator* sim = make();
  ASSERT_EQ(1, openRequest(sim, kPmtPid, 0x02, 7, 1));
  unsigned char cc = 0;
  const Bytes body = {0xE1, 0x00, 0xF0, 0x00};
  Bytes s0 = longSection(0x02, 7, body, 0, 0, 1), s1 = longSection(0x02, 7, body, 0, 1, 1);
  feedSections(sim, 0, kPmtPid, {s0, pmtSection(8), s0, s1}, &cc);
  ASSERT_TRUE(m_destination.waitFor(1, 2000));
  sim->waitBusyCommands();
  EXPECT_EQ(0u, sim->getOpenRequestCount());
  ASSERT_EQ(1, openRequest(sim, kPmtPid, 0x02, 7, 1));
  ASSERT_TRUE(m_destination.waitFor(2, 2000));
  feedSections(sim, 0, kPmtPid, {s0}, &cc);  // the table has come: a new request starts over
  ASSERT_EQ(1, openRequest(sim, kPmtPid, 0x02, 7, 1));
  for (int i = 0; i < 300 && sim->getOpenRequestCount() > 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  std::vector<RecordingDestination::Injection> got = m_destination.injections();
  ASSERT_EQ(2u, got.size());
  EXPECT_EQ(s0, got[0].data);
  EXPECT_EQ(s1, got[1].data);
  for (const auto& i : got) {
    EXPECT_EQ(std::make_tuple(0, short(kPmtPid), short(2), short(7)),
              std::make_tuple(i.tunerId, i.pid, i.tableId, i.tableIdExt));
  }
  ServerEngine::Counters counters = sim->getCounters();
  EXPECT_EQ(3u, counters.requestsOpened);
  EXPECT_EQ(1u, counters.timedOut);
  EXPECT_EQ(1u, counters.tablesCompleted);
}

// Asks for the PMT of program 1 from the notification of each PAT.
class PmtAsker : public RecordingDestination {
 public:
  explicit PmtAsker(GingaServer* server) : m_pServer(server) {}
  int injectData(int tunerId, short pid, short tableId, short ext, void* reserved,
                 unsigned char* data, unsigned int size) override {
    RecordingDestination::injectData(tunerId, pid, tableId, ext, reserved, data, size);
    if (pid == 0) {
      openRequest(m_pServer, kPmtPid, 0x02, 1, 1, tunerId);
    }
    return 1;
  }

 private:
  GingaServer* m_pServer;
};

// The reader runs ahead of the engine; a request sent from a notification
// still gets the section right after the notified one, not a later one.
TEST_F(Simulator, ARequestFromANotificationGetsTheVeryNextSection) {
  ReceiverSimulator* sim = make();
  PmtAsker asker(sim);
  sim->setDataDestination(&asker);
  ASSERT_EQ(1, openRequest(sim, 0x0000, 0x00, 0, 1));
  unsigned char patCc = 0, pmtCc = 0;
  const Bytes pat = longSection(0x00, 0x0421, {0x00, 0x01, 0xE1, 0x00}, 0);
  const Bytes pmt0 = pmtSection(1, 0), pmt1 = pmtSection(1, 1);
  Bytes stream = join(packetize(0x0000, {pat}, &patCc));
  const Bytes pmts = join(packetize(kPmtPid, {pmt0, pmt1}, &pmtCc));
  stream.insert(stream.end(), pmts.begin(), pmts.end());
  for (int i = 0; i < 6; ++i) {
    const Bytes null = packet(0x1FFF, false, 0, {});
    stream.insert(stream.end(), null.begin(), null.end());
  }
  sim->feed(0, stream.data(), stream.size());
  sim->waitBusyCommands();
  m_sim.reset();  // before the destination goes
  const std::vector<RecordingDestination::Injection> got = asker.injections();
  ASSERT_EQ(2u, got.size());
  EXPECT_EQ(pat, got[0].data);
  EXPECT_EQ(pmt0, got[1].data);
}

// A server nobody gave a destination says so once, instead of only timing out.
TEST_F(Simulator, AServerWithoutADestinationSaysSoOnce) {
  ReceiverSimulator* sim = make();
  sim->setDataDestination(nullptr);
  OstrelTest::LogCapture log;
  unsigned char cc = 0;
  for (short ext : {7, 8}) {
    ASSERT_EQ(1, openRequest(sim, kPmtPid, 0x02, ext, 1));
    feedSections(sim, 0, kPmtPid, {pmtSection(ext)}, &cc);
  }
  for (int i = 0; i < 200 && sim->getCounters().deliveries < 2; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  sim->waitBusyCommands();
  EXPECT_EQ(1, log.count("ServerEngine: injectData: ERROR: no data destination: sections are "
                         "dropped (setDataDestination was not called)"));
}

TEST_F(Simulator, ANewRequestIsAnsweredOnlyAfterItsStartUpTime) {
  ReceiverSimulator::Options options = quickOptions();
  options.filterStartMs = 300;
  ReceiverSimulator* sim = make(options);
  // A tuner already playing carries the section every few milliseconds, long
  // before the request's start-up time has passed: held until then, not lost.
  unsigned char cc = 0;
  Bytes stream = join(packetize(kPmtPid, {pmtSection(7)}, &cc));
  const Bytes null = packet(0x1FFF, false, 0, {});
  for (int i = 0; i < 6; ++i)
    stream.insert(stream.end(), null.begin(), null.end());
  sim->setPacing(ReceiverSimulator::kByBitRate, 2000000);
  const int tuner = sim->addMemoryTuner(stream, "pmt", true);
  sim->start();
  const auto sent = std::chrono::steady_clock::now();
  ASSERT_EQ(1, openRequest(sim, kPmtPid, 0x02, 7, 2, tuner));
  ASSERT_TRUE(m_destination.waitFor(1, 2000));
  EXPECT_GE(std::chrono::steady_clock::now() - sent, std::chrono::milliseconds(300));
}

TEST_F(Simulator, RefusedRequestsAreClosedAndNothingLeaks) {
  ReceiverSimulator* sim = make();
  EXPECT_EQ(0, openRequest(sim, kPmtPid, 0x02, 7, 1, 5));   // no such tuner
  EXPECT_EQ(0, openRequest(sim, kPmtPid, 0x02, 7, 1, -1));  // no such tuner
  EXPECT_EQ(0, openRequest(sim, 0x2000, 0x02, 7, 1));    // no such PID
  EXPECT_EQ(0, openRequest(sim, static_cast<short>(0xFFFF), 0x02, 7, 1));
  EXPECT_EQ(0u, sim->getOpenRequestCount());
  EXPECT_EQ(4u, sim->getCounters().commandsRefused);
  TCommand unknown(0x777);
  EXPECT_EQ(0, sendCommand(sim, &unknown));
}

TEST_F(Simulator, ShutdownClosesOpenFiltersAndDropsQueuedDeliveries) {
  ReceiverSimulator* sim = make();
  FaultPlan plan;
  plan.delayMs = 5000;
  sim->setFaultPlan(plan);
  for (short ext = 1; ext <= 5; ++ext) {
    ASSERT_EQ(1, openRequest(sim, kPmtPid, 0x02, ext, 60));
  }
  unsigned char cc = 0;
  feedSections(sim, 0, kPmtPid, {pmtSection(1), pmtSection(2)}, &cc);
  EXPECT_EQ(5u, sim->getOpenRequestCount());
  m_sim.reset();  // TearDown checks that every request was deleted
  EXPECT_TRUE(m_destination.injections().empty());
}

TEST_F(Simulator, SyncRequestAnswersFromWhatTheStreamCarriedBeforeItReturns) {
  ReceiverSimulator* sim = make();
  EXPECT_EQ(0, sendSyncRequest(sim, 0, 0x0000, 0x00, 0));
  unsigned char cc = 0;
  Bytes pat0 = longSection(0x00, 0x0421, {0x00, 0x01, 0xE1, 0x00}, 0);
  Bytes pat1 = longSection(0x00, 0x0421, {0x00, 0x01, 0xE1, 0x00}, 1);
  feedSections(sim, 0, 0x0000, {pat0, pat1}, &cc);
  ASSERT_EQ(1, sendSyncRequest(sim, 0, 0x0000, 0x00, 0x7777));
  std::vector<RecordingDestination::Injection> got = m_destination.injections();
  ASSERT_EQ(1u, got.size());  // the latest version only
  EXPECT_EQ(pat1, got[0].data);
  EXPECT_EQ(0x7777, got[0].tableIdExt);
  EXPECT_EQ(0, sendSyncRequest(sim, 0, 0x0000, 0x02, 0));  // nothing of that table id
  EXPECT_EQ(0, sendSyncRequest(sim, 1, 0x0000, 0x00, 0));  // no such tuner
  // The PAT named PID 0x100: its PMT is now reassembled too.
  feedSections(sim, 0, kPmtPid, {pmtSection(1)}, &cc);
  EXPECT_EQ(1, sendSyncRequest(sim, 0, kPmtPid, 0x02, 1));
  EXPECT_EQ(0, sendSyncRequest(sim, 0, kPmtPid, 0x02, 2));
}

TEST_F(Simulator, KeysAreHeldByOneListenerAtATimeAndStatusChangesAreKept) {
  ReceiverSimulator* sim = make();
  struct Step {
    const char* listener;  // null: release
    unsigned int key;
    int result;
    const char* holder;  // of the key afterwards
  } const steps[] = {{"a", 0x25, 1, "a"}, {"b", 0x25, 0, "a"},    {"a", 0x25, 1, "a"},
                     {"b", 0x26, 1, "b"}, {nullptr, 0x25, 1, ""}, {nullptr, 0x25, 0, ""},
                     {"b", 0x25, 1, "b"}, {nullptr, 0x99, 0, ""}};
  for (const Step& step : steps) {
    TReserveKeyCommand reserve;
    TReleaseKeyCommand release;
    reserve.setListenerId(step.listener ? step.listener : ""), reserve.setKeyCode(step.key);
    release.setKeyCode(step.key);
    EXPECT_EQ(step.result, step.listener ? sendCommand(sim, &reserve) : sendCommand(sim, &release))
        << step.key;
    EXPECT_EQ(step.holder, sim->getKeyHolder(step.key));
  }
  TNotifyStatusChange status;
  status.setAppId("app.one");
  status.setNotificationCode(200);
  EXPECT_EQ(1, sendCommand(sim, &status));
  std::vector<std::pair<std::string, unsigned char>> expected = {{"app.one", 200}};
  EXPECT_EQ(expected, sim->getAppStatusChanges());
}

TEST(VideoGeometryClip, CutsToTheScreenAndKeepsTheScale) {
  // Source then destination rectangles (x, y, w, h): given, and clipped to a
  // 1920x1080 picture on a 1920x1080 screen.
  struct Case {
    const char* name;
    int in[8], out[8];
  };
  const Case cases[] = {
      {"inside", {0, 0, 1920, 1080, 100, 50, 960, 540}, {0, 0, 1920, 1080, 100, 50, 960, 540}},
      {"off the left at scale 2",
       {0, 0, 1920, 1080, -100, 0, 960, 540},
       {200, 0, 1720, 1080, 0, 0, 860, 540}},
      {"off the bottom right",
       {0, 0, 1920, 1080, 1000, 600, 1920, 1080},
       {0, 0, 920, 480, 1000, 600, 920, 480}},
      {"wholly off screen", {0, 0, 1920, 1080, 2000, 0, 100, 100}, {0, 0, 0, 0, 1920, 0, 0, 0}},
      {"source beyond the picture",
       {1800, 1000, 400, 400, 0, 0, 400, 400},
       {1800, 1000, 120, 80, 0, 0, 400, 400}},
      {"extreme values",
       {-32768, -32768, 65535, 65535, -32768, 32767, 65535, 65535},
       {0, 0, 0, 0, 0, 1080, 0, 0}},
  };
  auto rect = [](const int* v) {
    VideoGeometry::Rect r;
    r.x = static_cast<short>(v[0]);
    r.y = static_cast<short>(v[1]);
    r.w = static_cast<unsigned short>(v[2]);
    r.h = static_cast<unsigned short>(v[3]);
    return r;
  };
  for (const Case& c : cases) {
    VideoGeometry g;
    g.source = rect(c.in);
    g.destination = rect(c.in + 4);
    VideoGeometry out = g.clipped(1920, 1080, 1920, 1080);
    const int got[8] = {out.source.x,      out.source.y,      out.source.w,      out.source.h,
                        out.destination.x, out.destination.y, out.destination.w, out.destination.h};
    EXPECT_EQ(std::vector<int>(c.out, c.out + 8), std::vector<int>(got, got + 8)) << c.name;
  }
}

TEST_F(Simulator, VideoGeometryIsKeptPerVideoAndCheckedWithoutBeingSet) {
  ReceiverSimulator::Options options = quickOptions();
  options.screenWidth = 1280;
  options.screenHeight = 720;
  ReceiverSimulator* sim = make(options);
  // Sends a command of video (1, layer), placed at destination x, y, w, h with
  // source w, h if given; gives its answer's sx, sw, sh, dx, dw, dh.
  using V = std::vector<int>;
  auto ask = [&](TVideoCommand* c, unsigned short layer, V place = V()) {
    c->setTsId(1), c->setLayerId(layer);
    if (!place.empty()) {
      c->setDx(place[0]), c->setDy(place[1]), c->setDw(place[2]), c->setDh(place[3]);
      c->setSw(place[4]), c->setSh(place[5]);
    }
    TCommand* answer = nullptr;
    EXPECT_EQ(1, sendCommand(sim, c, &answer));
    std::unique_ptr<TVideoCommand> a(dynamic_cast<TVideoCommand*>(answer));
    return a ? V{a->getSx(), a->getSw(), a->getSh(), a->getDx(), a->getDw(), a->getDh()} : V();
  };
  TVideoGetSize get;
  TVideoCheckSize check;
  TVideoSetSize set;
  TVideoGetDefaultSize defaults;
  TVideoGetSourceVideoSize source;
  EXPECT_EQ(1280, ask(&get, 2).at(4));  // full screen at first
  EXPECT_EQ((V{0, 960, 540, 640, 640, 360}), ask(&check, 2, {640, 360, 1280, 720, 1920, 1080}));
  EXPECT_EQ(1280, ask(&get, 2).at(4));  // checking changed nothing
  EXPECT_EQ(V(), ask(&set, 2, {-100, 0, 400, 300, 800, 600}));
  const V now = ask(&get, 2);
  EXPECT_EQ((V{200, 600, 0, 300}), (V{now[0], now[1], now[3], now[4]}));
  EXPECT_EQ(1280, ask(&get, 0).at(4));  // another layer keeps its own
  EXPECT_EQ(1280, ask(&defaults, 0).at(4));
  const V picture = ask(&source, 0);
  EXPECT_EQ((V{1920, 1080}), (V{picture[1], picture[2]}));
  // Without a place for the answer, nothing is made and nothing leaks.
  EXPECT_EQ(1, sendCommand(sim, &defaults, nullptr));
}

// A hidden PID passes nothing, not even to a synchronous request; damaged
// sections are counted and never delivered, dropped ones are lost; none of
// them stops the next intact repetition. (The delay is seen in the shutdown test.)
TEST_F(Simulator, HiddenDamagedOrDroppedSectionsDoNotStopTheNextRepetition) {
  ReceiverSimulator* sim = make();
  ASSERT_EQ(1, openRequest(sim, kPmtPid, 0x02, 7, 5));
  ASSERT_EQ(1, openRequest(sim, kPmtPid, 0x02, 8, 5));
  unsigned char cc = 0;
  Bytes pmt7 = pmtSection(7), pmt8 = pmtSection(8);
  FaultPlan hide, corrupt, drop;
  hide.hiddenPids.insert(kPmtPid);
  corrupt.corruptShare = 1.0;
  drop.dropShare = 1.0;
  sim->setFaultPlan(hide);
  feedSections(sim, 0, kPmtPid, {pmt7, pmt8}, &cc);
  EXPECT_EQ(0, sendSyncRequest(sim, 0, kPmtPid, 0x02, 7));
  sim->setFaultPlan(corrupt);
  for (int i = 0; i < 4; ++i)
    feedSections(sim, 0, kPmtPid, {pmt7}, &cc);
  sim->setFaultPlan(drop);
  for (int i = 0; i < 4; ++i)
    feedSections(sim, 0, kPmtPid, {pmt8}, &cc);
  sim->setFaultPlan(FaultPlan());
  for (int i = 0; i < 4; ++i)
    feedSections(sim, 0, kPmtPid, {pmt7, pmt8}, &cc);
  sim->waitBusyCommands();
  std::vector<RecordingDestination::Injection> got = m_destination.injections();
  ASSERT_EQ(2u, got.size());  // damaged ones never, then each intact once
  EXPECT_EQ(pmt7, got[0].data);
  EXPECT_EQ(pmt8, got[1].data);
  EXPECT_EQ(4u, sim->getFaultCounts().corrupted);
  EXPECT_EQ(4u, sim->getFaultCounts().dropped);
  EXPECT_EQ(4u, sim->getCounters().crcErrors);
}
