// The core. Every synchronous operation runs one dispatch: create, fill,
// send, delete, read the answer. Its error paths are tested once, with a row
// per operation; then what each operation puts in its command and reads back.
// Then table requests, from the cache or through the server and the follower,
// and the injected data that answers them.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <tuple>
#include <vector>

#include "Cacher.h"
#include "CountedTable.h"
#include "CountedUserData.h"
#include "LogCapture.h"
#include "OstrelGingaCommonCore.h"
#include "RecordingServer.h"
#include "RequestFollower.h"
#include "Sections.h"
#include "TGetTunerListResponse.h"
#include "TPATTable.h"
#include "TPMTTable.h"
#include "TReserveKeyCommand.h"
#include "TVideoCheckSize.h"
#include "TVideoGetDefaultSize.h"
#include "TVideoGetSize.h"
#include "TVideoGetSourceVideoSize.h"
#include "TVideoSetSize.h"

using namespace Ostrel;
using namespace OstrelTest;

namespace {

// One call of the notification callback, with what was read during it.
struct Notification {
  unsigned int requestId;
  unsigned char status;
  void* userData;
  TISDBTTable* table;
  int releasesAtCall;            // of the CountedUserData, -1 without one
  unsigned short programNumber;  // read from a PMT during the call, else 0
};

// The core bound to a recording server that delivers to it, with a callback
// that records every notification and answers s_verdict. Afterwards every
// command made is gone (but the open requests the server holds), the follower
// is destroyed and the caches of tuners 1 to 3 are empty.
class CoreTest : public testing::Test {
 protected:
  void SetUp() override {
    m_core = OstrelGingaCommonCore::getInstance();
    m_core->setServer(&m_server);
    m_server.setDataDestination(m_core);
    m_core->setRequestNotificationCallback(&callback);
    std::lock_guard<std::mutex> lock(s_mutex);
    s_seen.clear();
    s_verdict = 1;
    m_liveBefore = TCommand::getLiveCount() - m_server.getOpenRequestCount();
  }
  void TearDown() override {
    EXPECT_EQ(m_liveBefore, TCommand::getLiveCount() - m_server.getOpenRequestCount());
    RequestFollower::destroy();
    for (int tuner = 1; tuner <= 3; ++tuner)
      Cacher::getInstance(tuner)->flush();
  }

  static std::vector<Notification> notifications() {
    std::lock_guard<std::mutex> lock(s_mutex);
    return s_seen;
  }
  static void setVerdict(int verdict) { s_verdict = verdict; }
  // A request in server-only mode, with the release of CountedUserData.
  int request(unsigned int id, int tuner, short pid, short tableId, short ext,
              CountedUserData* data, short* error = nullptr) {
    return m_core->requestData(id, 2, tuner, pid, tableId, ext, data, &CountedUserData::release,
                               error);
  }

  OstrelGingaCommonCore* m_core = nullptr;
  RecordingServer m_server;
  long m_liveBefore = 0;

 private:
  static inline std::mutex s_mutex;
  static inline std::vector<Notification> s_seen;
  static inline std::atomic<int> s_verdict{1};

  // User data in these tests is a CountedUserData or null.
  static int callback(unsigned int requestId, unsigned char status, void* userData,
                      TISDBTTable* table) {
    Notification n{requestId, status, userData, table, -1, 0};
    if (userData)
      n.releasesAtCall = static_cast<CountedUserData*>(userData)->releases;
    if (auto* pmt = dynamic_cast<TPMTTable*>(table))
      n.programNumber = pmt->getProgramNumber();
    std::lock_guard<std::mutex> lock(s_mutex);
    s_seen.push_back(n);
    return s_verdict;
  }
};

// While it lives, the command factory gives make() for one code, counting the
// requests, and the built-in command for every other.
struct FactoryOverride {
  static inline unsigned short s_code;
  static inline std::function<TCommand*()> s_make;
  static inline int s_requests;
  FactoryOverride(unsigned short code, std::function<TCommand*()> make) {
    s_code = code, s_make = std::move(make), s_requests = 0;
    TCommand::setFactoryHook([](unsigned short c) {
      return c == s_code ? (++s_requests, s_make()) : TCommand::createDefault(c);
    });
  }
  ~FactoryOverride() { TCommand::setFactoryHook(nullptr); }
  int requests() const { return s_requests; }
};

struct Geometry {
  short sx, sy;
  unsigned short sw, sh;
  short dx, dy;
  unsigned short dw, dh;
  auto tie() const { return std::tie(sx, sy, sw, sh, dx, dy, dw, dh); }
  bool operator==(const Geometry& o) const { return tie() == o.tie(); }
};

// A geometry's eight values, and the addresses of its eight variables, as the
// video operations take them.
#define FIELDS_OF(g) g.sx, g.sy, g.sw, g.sh, g.dx, g.dy, g.dw, g.dh
#define OUT_OF(g) &g.sx, &g.sy, &g.sw, &g.sh, &g.dx, &g.dy, &g.dw, &g.dh

const Geometry kUntouched{101, -102, 103, 104, -105, 106, 107, 108};
const Geometry kInputs{-1, -2, 3000, 4000, -5, -6, 700, 800};
const Geometry kAnswer{10, 20, 1920, 1080, -30, 40, 960, 540};

int s_idsPlace = 0;
unsigned char s_typesPlace = 0;

// The caller's variables of every operation. A failure leaves them as they
// were; arrays handed over by getTunerList are freed with free.
struct Outputs {
  Geometry g = kUntouched;
  int* ids = &s_idsPlace;
  unsigned char* types = &s_typesPlace;
  ~Outputs() {
    if (ids != &s_idsPlace)
      free(ids);
    if (types != &s_typesPlace)
      free(types);
  }
  bool untouched() const { return g == kUntouched && ids == &s_idsPlace && types == &s_typesPlace; }
};

Geometry sentOf(const RecordedCommand& c) {
  return {FIELDS_OF(c)};
}

template <class T>
TCommand* answerOf(const Geometry& g) {
  T* a = new T();
  a->setSx(g.sx), a->setSy(g.sy), a->setSw(g.sw), a->setSh(g.sh);
  a->setDx(g.dx), a->setDy(g.dy), a->setDw(g.dw), a->setDh(g.dh);
  return a;
}

TCommand* tunersOf(const std::vector<std::pair<int, unsigned char>>& tuners) {
  auto* answer = new TGetTunerListResponse();
  for (const auto& t : tuners)
    answer->addTuner(t.first, t.second);
  return answer;
}

CountedUserData s_data;

using AnswerMaker = std::function<TCommand*()>;
using Call = std::function<int(OstrelGingaCommonCore*, Outputs*, short*)>;
struct Operation {
  const char* name;
  unsigned short code;
  const char* sendFailure;            // logged when send fails; null: the answer decides, not send
  std::function<TCommand*()> answer;  // a right answer; null: none is read
  Call call;
};

const Operation kOperations[] = {
    {"reserveKey", 0x209, "Could not notify status change.", nullptr,
     [](OstrelGingaCommonCore* c, Outputs*, short* e) { return c->reserveKey("l", 0x26, e); }},
    {"releaseKey", 0x210, "Could not notify status change.", nullptr,
     [](OstrelGingaCommonCore* c, Outputs*, short* e) { return c->releaseKey("l", 0x26, e); }},
    {"notifyAppStatusChange", 0x300, "Could not notify status change.", nullptr,
     [](OstrelGingaCommonCore* c, Outputs*, short* e) {
       return c->notifyAppStatusChange("app", 7, e);
     }},
    {"getVideoSize", 0x400, "Could not request data.",
     [] { return answerOf<TVideoGetSize>(kAnswer); },
     [](OstrelGingaCommonCore* c, Outputs* o, short* e) {
       return c->getVideoSize(7, 3, OUT_OF(o->g), e);
     }},
    {"getDefaultVideoSize", 0x401, "Could not request data.",
     [] { return answerOf<TVideoGetDefaultSize>(kAnswer); },
     [](OstrelGingaCommonCore* c, Outputs* o, short* e) {
       return c->getDefaultVideoSize(7, 3, OUT_OF(o->g), e);
     }},
    {"getSourceVideoSize", 0x402, "Could not request data.",
     [] { return answerOf<TVideoGetSourceVideoSize>(kAnswer); },
     [](OstrelGingaCommonCore* c, Outputs* o, short* e) {
       return c->getSourceVideoSize(7, 3, &o->g.sw, &o->g.sh, e);
     }},
    {"setVideoSize", 0x403, "Could not request data.", nullptr,
     [](OstrelGingaCommonCore* c, Outputs*, short* e) {
       return c->setVideoSize(7, 3, FIELDS_OF(kInputs), e);
     }},
    {"checkVideoSize", 0x404, "Could not request data.",
     [] { return answerOf<TVideoCheckSize>(kAnswer); },
     [](OstrelGingaCommonCore* c, Outputs* o, short* e) {
       return c->checkVideoSize(7, 3, FIELDS_OF(kInputs), OUT_OF(o->g), e);
     }},
    {"getTunerList", 0x500, nullptr,
     [] {
       return tunersOf({{5, 1}, {7, 2}});
     },
     [](OstrelGingaCommonCore* c, Outputs* o, short* e) {
       return c->getTunerList(&o->ids, &o->types, e);
     }},
    {"requestData", 0x600, "Could not request data.", nullptr,
     [](OstrelGingaCommonCore* c, Outputs*, short* e) {
       return c->requestData(1, 2, 1, 0x0000, 0x00, 0, &s_data, &CountedUserData::release, e);
     }},
    {"requestDataSync", 0x601, "Could not request data.", nullptr,
     [](OstrelGingaCommonCore* c, Outputs*, short* e) {
       return c->requestDataSync(1, 2, 1, 0x0000, 0x00, 0, &s_data, &CountedUserData::release, e);
     }},
};

std::string message(const Operation& op, const char* text) {
  return std::string("GingaCommonCore: ") + op.name + ": ERROR: " + text;
}

class Commands : public CoreTest {};

const char kNotice[] =
    "GingaCommonCore: getTimeout: Unknown pid/tableId/tableIdExt. Using 1s timeout.";
const char kParseError[] = "GingaCommonCore: injectData: ERROR: Could not parse data!";
const char kNoCallback[] =
    "GingaCommonCore: dispatchRequestFeedback: No Request notification callback set!";
const char kRefused[] =
    "GingaCommonCore: dispatchRequestFeedback: Request filled notification failed!";

class Requests : public CoreTest {
 protected:
  CountedTable* cache(short pid, unsigned int type = TISDBTTable::kTypePmt) {
    auto* table = new CountedTable(type);
    Cacher::getInstance(1)->add(pid, 2, 0, table, 100);
    return table;
  }
  // Also checks the error code of the lookup: 0 on a hit, -12 on a miss.
  bool cached(short pid, int tuner = 1) {
    short error = 5;
    const bool hit = m_core->getFromCache(tuner, pid, 0, 0, nullptr, &error) != nullptr;
    EXPECT_EQ(hit ? 0 : -12, error);
    return hit;
  }
  int inject(short pid, short tableId, short ext, const std::vector<unsigned char>& section,
             int tuner = 1) {
    return m_server.deliver(tuner, pid, tableId, ext, section);
  }
  // User data outlives TearDown, where destroy releases what is still pending.
  CountedUserData a, b, c, other;
};

}  // namespace

// Before any setServer: the commands go out without an end point, their send
// fails (as when a server refuses them), and they leave the outputs and the
// user data as they were.
TEST(CommandsUnbound, CommandsFailToSendAndWaitBusyCommandsFails) {
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  LogCapture log;
  const long before = TCommand::getLiveCount();
  for (const auto& op : kOperations) {
    Outputs out;
    short error = 0;
    EXPECT_EQ(0, op.call(core, &out, &error)) << op.name;
    EXPECT_EQ(op.sendFailure ? -5 : -4, error) << op.name;
    EXPECT_TRUE(out.untouched()) << op.name;
    EXPECT_EQ(1, log.count(message(op, op.sendFailure ? op.sendFailure : "No answer received.")));
  }
  EXPECT_EQ(before, TCommand::getLiveCount());
  EXPECT_EQ(0, s_data.releases.load());
  EXPECT_EQ(nullptr, RequestFollower::get(1u));
  log.clear();
  short error = -3;
  EXPECT_EQ(0, core->waitBusyCommands(&error));
  EXPECT_EQ(-3, error);
  EXPECT_TRUE(log.lines().empty());
}

TEST_F(Commands, NoCommandFromTheFactoryIsMinus3WithoutServerContact) {
  const int released = s_data.releases;
  for (const auto& op : kOperations) {
    const bool video = (op.code & 0xF00) == 0x400;
    for (bool wrongClass : {false, true}) {
      SCOPED_TRACE(std::string(op.name) + (wrongClass ? " (another class)" : ""));
      LogCapture log;
      FactoryOverride factory(op.code, [&]() -> TCommand* {
        return !wrongClass ? nullptr
               : video     ? static_cast<TCommand*>(new TReserveKeyCommand())
                           : new TVideoGetSize();
      });
      Outputs out;
      short error = 0;
      EXPECT_EQ(0, op.call(m_core, &out, &error));
      EXPECT_EQ(-3, error);
      EXPECT_EQ(0, op.call(m_core, &out, nullptr));
      EXPECT_EQ(2, factory.requests());
      EXPECT_TRUE(out.untouched());
      ASSERT_EQ(2u, log.lines().size());
      const LogLine line = log.lines()[0];
      EXPECT_EQ(std::make_tuple(4, std::string("GingaCommonCore"),
                                message(op, "Could not create command.")),
                std::make_tuple(line.level, line.module, line.message));
    }
  }
  EXPECT_EQ(0u, m_server.commandCount());
  EXPECT_EQ(released, s_data.releases.load());
  EXPECT_EQ(nullptr, RequestFollower::get(1u));
}

// A sent command succeeds with 0, whatever the errorCode pointer; one that
// reads an answer needs one of its class (else -4, outputs untouched), one
// that reads nothing deletes any answer unread.
TEST_F(Commands, TheAnswerDecidesForTheOperationsThatReadOne) {
  for (const auto& op : kOperations) {
    SCOPED_TRACE(op.name);
    LogCapture log;
    m_server.setAnswer(
        op.code, op.answer ? op.answer : [] { return new TVideoSetSize(); });
    short error = -5;
    Outputs out, again;
    EXPECT_LT(0, op.call(m_core, &out, &error));
    EXPECT_EQ(0, error);
    EXPECT_LT(0, op.call(m_core, &again, nullptr));
    EXPECT_TRUE(log.lines().empty());
    EXPECT_EQ(&m_server, m_server.last().endPoint);
    for (auto wrong : {AnswerMaker(), AnswerMaker([] { return new TReserveKeyCommand(); })}) {
      m_server.setAnswer(op.code, wrong);
      Outputs without;
      EXPECT_EQ(op.answer ? 0 : 1, op.call(m_core, &without, &error));
      EXPECT_EQ(op.answer ? -4 : 0, error);
      EXPECT_TRUE(without.untouched());
    }
    EXPECT_EQ(op.answer ? 2 : 0, log.count(message(op, "No answer received.")));
  }
}

TEST_F(Commands, KeysAndStatusReachTheServerUnchanged) {
  ASSERT_EQ(1, m_core->reserveKey("listener-a", 0x26, nullptr));
  ASSERT_EQ(1, m_core->releaseKey("first", 0x1D, nullptr));
  ASSERT_EQ(1, m_core->notifyAppStatusChange("app/1", 200, nullptr));
  auto sent = m_server.commands();
  ASSERT_EQ(3u, sent.size());
  const std::tuple<unsigned short, unsigned int, std::string, std::string, int> expected[] = {
      {0x209, 0x26, "listener-a", "", 0},
      {0x210, 0x1D, "", "", 0},  // no listener id
      {0x300, 0, "", "app/1", 200}};
  for (size_t i = 0; i < sent.size(); ++i) {
    EXPECT_EQ(expected[i], std::make_tuple(sent[i].code, sent[i].keyCode, sent[i].listenerId,
                                           sent[i].appId, int(sent[i].notificationCode)))
        << i;
  }
}

// Geometries go out unchanged; each answer comes back unchanged, to the right
// operation's outputs.
TEST_F(Commands, VideoGeometriesPassThroughBothWaysUnchanged) {
  const Geometry& g = kInputs;
  const unsigned short tsId = 0xFFF1, layer = 1;
  ASSERT_EQ(1, m_core->setVideoSize(tsId, layer, FIELDS_OF(g), nullptr));
  RecordedCommand sent = m_server.last();
  ASSERT_TRUE(g == sentOf(sent) && tsId == sent.tsId && layer == sent.layerId);
  m_server.setAnswer(0x404, [] { return answerOf<TVideoCheckSize>(kAnswer); });
  Geometry out = kUntouched;
  ASSERT_EQ(1, m_core->checkVideoSize(tsId, layer, FIELDS_OF(g), OUT_OF(out), nullptr));
  sent = m_server.last();
  ASSERT_TRUE(g == sentOf(sent) && tsId == sent.tsId && layer == sent.layerId);
  ASSERT_TRUE(kAnswer == out);  // the answer, never the inputs
  m_server.setAnswer(0x400, [] { return answerOf<TVideoGetSize>(kInputs); });
  m_server.setAnswer(0x401, [] { return answerOf<TVideoGetDefaultSize>(kAnswer); });
  m_server.setAnswer(0x402, [] { return answerOf<TVideoGetSourceVideoSize>(kInputs); });
  Outputs get, def, source;
  ASSERT_EQ(1, kOperations[3].call(m_core, &get, nullptr));
  ASSERT_EQ(1, kOperations[4].call(m_core, &def, nullptr));
  ASSERT_EQ(1, kOperations[5].call(m_core, &source, nullptr));
  ASSERT_TRUE(kInputs == get.g && kAnswer == def.g);
  Geometry sizeOnly = kUntouched;
  sizeOnly.sw = g.sw, sizeOnly.sh = g.sh;
  ASSERT_TRUE(sizeOnly == source.g);           // the source position is never asked for
  for (const auto& c : m_server.commands()) {  // the gets submit no geometry
    if (c.code == 0x400 || c.code == 0x401 || c.code == 0x402) {
      EXPECT_TRUE(Geometry{} == sentOf(c) && c.tsId == 7 && c.layerId == 3);
    }
  }
}

TEST_F(Commands, ANullTunerDestinationIsMinus1BeforeAnyCommand) {
  FactoryOverride counting(0x500, [] { return TCommand::createDefault(0x500); });
  Outputs out;
  const std::pair<int**, unsigned char**> rows[] = {
      {&out.ids, nullptr}, {nullptr, &out.types}, {nullptr, nullptr}};
  for (const auto& row : rows) {
    LogCapture log;
    short error = 0;
    EXPECT_EQ(0, m_core->getTunerList(row.first, row.second, &error));
    EXPECT_EQ(-1, error);
    EXPECT_EQ(0, m_core->getTunerList(row.first, row.second, nullptr));
    EXPECT_EQ(2, log.count("GingaCommonCore: getTunerList: ERROR: Invalid Parameter."));
  }
  EXPECT_TRUE(out.untouched());
  EXPECT_EQ(0, counting.requests());
}

TEST_F(Commands, TunersAreCopiedInIndexOrderUpToTheFirst256) {
  using Tuners = std::vector<std::pair<int, unsigned char>>;
  Tuners many;
  for (int i = 0; i < 300; ++i)
    many.emplace_back(1000 + i, static_cast<unsigned char>(i * 3));
  const std::pair<Tuners, int> rows[] = {
      {{}, 0},
      {{{5, 1}, {7, 2}, {9, 1}}, 3},
      {Tuners(many.begin(), many.begin() + 255), 255},
      {Tuners(many.begin(), many.begin() + 256), 256},
      {many, 256},
  };
  m_server.setResult(0x500, 0);  // an answer counts, whatever send says
  for (const auto& row : rows) {
    SCOPED_TRACE(row.first.size());
    m_server.setAnswer(0x500, [&] { return tunersOf(row.first); });
    Outputs out;
    short error = -5;
    ASSERT_EQ(row.second, m_core->getTunerList(&out.ids, &out.types, &error));
    EXPECT_EQ(0, error);
    EXPECT_FALSE(out.ids == &s_idsPlace || out.types == &s_typesPlace);  // malloc(0) too
    Tuners copied;
    for (int i = 0; i < row.second; ++i)
      copied.emplace_back(out.ids[i], out.types[i]);
    EXPECT_EQ(Tuners(row.first.begin(), row.first.begin() + row.second), copied);
  }
}

TEST_F(Commands, BindingsNullServerIsRefusedNullCallbackClears) {
  RecordingServer other;
  EXPECT_EQ(0, m_core->setServer(nullptr));
  EXPECT_EQ(1, m_core->reserveKey("l", 1, nullptr));
  EXPECT_EQ(1u, m_server.commandCount());  // the old binding stays
  EXPECT_EQ(1, m_core->setServer(&other));
  EXPECT_EQ(1, m_core->reserveKey("l", 1, nullptr));
  EXPECT_EQ(1u, other.commandCount());
  EXPECT_EQ(1u, m_server.commandCount());

  short error = -3;
  EXPECT_EQ(1, m_core->waitBusyCommands(&error));
  EXPECT_EQ(0, error);
  EXPECT_EQ(1, m_core->waitBusyCommands(nullptr));
  EXPECT_EQ(2, other.waitCount());
  EXPECT_EQ(0, m_server.waitCount());

  LogCapture log;
  error = -3;
  EXPECT_EQ(1, m_core->dispatchRequestFeedback(1, 0, nullptr, nullptr, &error));
  EXPECT_EQ(0, error);
  EXPECT_EQ(1, m_core->setRequestNotificationCallback(nullptr));
  EXPECT_EQ(0, m_core->dispatchRequestFeedback(1, 0, nullptr, nullptr, &error));
  EXPECT_EQ(-7, error);
  EXPECT_EQ(std::vector<std::string>{kNoCallback}, log.messages());
}

TEST(RequestTimeouts, FollowTheFixedTable) {
  struct Row {
    short pid, tableId;
    long seconds;
  };
  const Row rows[] = {
      {0x0000, 0x00, 2},  {0x0000, 0x02, 2}, {0x0001, 0x01, 20}, {0x0010, 0x40, 4},
      {0x0011, 0x42, 4},  {0x0012, 0x4E, 6}, {0x0012, 0x4F, 6},  {0x0012, 0x50, 60},
      {0x0014, 0x73, 60}, {0x0024, 0x00, 4}, {0x0026, 0x00, 6},  {0x0100, 0x02, 2},
      {-1, 0x02, 2},      {0x0002, 0x02, 2}, {-1, 0x42, 1},      {0x0100, 0x42, 1},
      {0x0027, 0x4E, 1},  {0x0025, 0x00, 1}, {0x0013, 0x02, 2},  {0x1FFF, 0x03, 1},
  };
  for (const Row& row : rows) {
    LogCapture log;
    timeval t = OstrelGingaCommonCore::getTimeout(row.pid, row.tableId, 0x7FFF);
    EXPECT_EQ(row.seconds, t.tv_sec) << row.pid << "/" << row.tableId;
    EXPECT_EQ(0, t.tv_usec);
    EXPECT_EQ(row.seconds == 1 ? std::vector<std::string>{kNotice} : std::vector<std::string>{},
              log.messages());
  }
}

TEST_F(Requests, CacheHitInModesZeroAndOneIsAnsweredAtOnceAndReleased) {
  CountedTable* table = cache(0x100);
  for (signed char mode : {0, 1}) {
    short error = 123;
    EXPECT_EQ(1, m_core->requestData(40 + mode, mode, 1, 0x100, 2, 9, &a, &CountedUserData::release,
                                     &error));
    EXPECT_EQ(123, error) << "a cache answer leaves errorCode as it was";
  }
  EXPECT_EQ(1,
            m_core->requestDataSync(42, 1, 1, 0x100, 2, 0, &a, &CountedUserData::release, nullptr));
  auto seen = notifications();
  ASSERT_EQ(3u, seen.size());
  for (unsigned int i = 0; i < 3; ++i) {  // each released after its notification
    EXPECT_EQ(std::make_tuple(40 + i, 0, static_cast<void*>(&a), static_cast<TISDBTTable*>(table),
                              int(i)),
              std::make_tuple(seen[i].requestId, int(seen[i].status), seen[i].userData,
                              seen[i].table, seen[i].releasesAtCall));
  }
  EXPECT_EQ(3, a.releases.load());
  EXPECT_EQ(0u, m_server.commandCount());
  EXPECT_TRUE(table->isAlive());
}

TEST_F(Requests, CacheOnlyMissIsMinus12AndServerOnlyModesNeverReadTheCache) {
  short error = 0;
  EXPECT_EQ(0, m_core->requestData(1, 0, 1, 0x100, 2, 0, &a, &CountedUserData::release, &error));
  EXPECT_EQ(-12, error);
  error = 0;
  EXPECT_EQ(0,
            m_core->requestDataSync(1, 0, 1, 0x100, 2, 0, &a, &CountedUserData::release, &error));
  EXPECT_EQ(-12, error);
  EXPECT_EQ(0u, m_server.commandCount());
  cache(0x100);
  for (signed char mode : {2, -1, 127, -128}) {
    EXPECT_EQ(1, m_core->requestData(mode & 0xFF, mode, 1, 0x100, 2, 0, nullptr, nullptr, nullptr));
  }
  EXPECT_EQ(4u, m_server.commandCount());
  EXPECT_TRUE(notifications().empty());
  EXPECT_EQ(0, a.releases.load());
}

TEST_F(Requests, AFailedCacheAnswerIsFinalAndReleasesNothing) {
  cache(0x100);
  LogCapture log;
  m_core->setRequestNotificationCallback(nullptr);
  short error = 33;
  EXPECT_EQ(0, m_core->requestData(1, 1, 1, 0x100, 2, 0, &a, &CountedUserData::release, &error));
  SetUp();
  setVerdict(0);
  EXPECT_EQ(0, m_core->requestData(1, 1, 1, 0x100, 2, 0, &a, &CountedUserData::release, &error));
  EXPECT_EQ(33, error) << "a cache answer leaves errorCode as it was";
  EXPECT_EQ(0, m_core->dispatchRequestFeedback(1, 0, nullptr, nullptr, &error));
  EXPECT_EQ(-8, error);
  EXPECT_EQ((std::vector<std::string>{kNoCallback, kRefused, kRefused}), log.messages());
  EXPECT_EQ(0, a.releases.load());
  EXPECT_EQ(0u, m_server.commandCount());
}

TEST_F(Requests, AMissGoesToTheServerAndIsFollowedWithItsTimeOut) {
  struct Row {
    short pid, tableId;
    unsigned int commandTimeOut;
  };
  int taken = 0;
  for (Row row : {Row{0x0012, 0x50, 61}, Row{0x0012, 0x4E, 7}, Row{0x0100, 0x02, 3}}) {
    short error = 5;
    ASSERT_EQ(1, m_core->requestData(77, 1, 2, row.pid, row.tableId, 3, &a,
                                     &CountedUserData::release, &error));
    EXPECT_EQ(0, error);
    // Open, counter 1, and the time-out plus one second; the follower gets it as it is.
    const RecordedCommand c = m_server.last();
    EXPECT_EQ(
        std::make_tuple(0x600, &m_server, 1, 1, 2, row.pid, row.tableId, 3, row.commandTimeOut),
        std::make_tuple(int(c.code), c.endPoint, c.open, int(c.requestCounter), c.tunerId, c.pid,
                        c.tableId, int(c.tableIdExt), c.timeOut));
    std::unique_ptr<RequestFollower::RequestFollowerItem> item(RequestFollower::remove(77u));
    ASSERT_NE(nullptr, item);
    timeval now;
    gettimeofday(&now, nullptr);
    EXPECT_NEAR(now.tv_sec + row.commandTimeOut - 1, item->getTimeOut().tv_sec, 1);
    EXPECT_EQ(&a, item->getUserData());
    EXPECT_EQ(taken++, a.releases.load()) << "released only when the item goes";
  }
}

TEST_F(Requests, AnUnfollowableRequestIsSentButRefusedWithMinus10) {
  LogCapture log;
  short error = 0;
  EXPECT_EQ(0, request(9, 1, 0x100, 0x42, 0, &a, &error));
  EXPECT_EQ(-10, error);
  EXPECT_EQ(std::vector<std::string>({kNotice}), log.messages());
  EXPECT_EQ(2u, m_server.last().timeOut);
  EXPECT_EQ(0, a.releases.load()) << "the caller keeps the user data";
  EXPECT_EQ(nullptr, RequestFollower::get(9u));
}

TEST_F(Requests, ASynchronousRequestReleasesOnceAndNotifiesNothing) {
  short error = 4;
  EXPECT_EQ(1,
            m_core->requestDataSync(3, 2, 1, 0x10, 0x40, 5, &a, &CountedUserData::release, &error));
  EXPECT_EQ(0, error);
  EXPECT_EQ(1, a.releases.load());
  const RecordedCommand sent = m_server.last();
  EXPECT_EQ(std::make_tuple(0x601, 0x10, 0x40, 5, 1),
            std::make_tuple(int(sent.code), sent.pid, sent.tableId, sent.tableIdExt, sent.tunerId));
  EXPECT_EQ(nullptr, RequestFollower::get(3u));
  EXPECT_EQ(1, m_core->requestDataSync(3, 2, 1, 0x10, 0x40, 0, nullptr, &CountedUserData::release,
                                       nullptr));
  EXPECT_EQ(1, m_core->requestDataSync(3, 2, 1, 0x10, 0x40, 0, &a, nullptr, nullptr));
  EXPECT_EQ(1, a.releases.load());
  EXPECT_TRUE(notifications().empty());
}

TEST_F(Requests, RequestTimedOutReportsStatusOneWithoutTable) {
  LogCapture log;
  const timeval deadline = {100, 0};
  setVerdict(0);
  EXPECT_EQ(0, m_core->requestTimedOut(8, 1, 0, 0, 0, &a, deadline, 1));
  EXPECT_TRUE(log.lines().empty()) << "a refused time-out is the monitor's to log";
  setVerdict(7);
  EXPECT_EQ(7, m_core->requestTimedOut(9, 1, 0, 0, 0, &a, deadline, 1));
  auto seen = notifications();
  ASSERT_EQ(2u, seen.size());
  EXPECT_TRUE(seen[1].requestId == 9 && seen[1].status == 1 && seen[1].userData == &a &&
              seen[1].table == nullptr);
  m_core->setRequestNotificationCallback(nullptr);
  EXPECT_EQ(0, m_core->requestTimedOut(8, 1, 0, 0, 0, nullptr, deadline, 1));
  EXPECT_EQ(1,
            log.count("GingaCommonCore: requestTimedOut: No Request notification callback set!"));
  EXPECT_EQ(0, a.releases.load());
}

// The parser follows the PID, and table id 2 on other PIDs. Whatever does not
// parse changes nothing: the waiting request stays, nothing is cached or
// notified, and the one parse error is logged.
TEST_F(Requests, DataIsParsedByPidAndWhatDoesNotParseChangesNothing) {
  const auto pat = patSection();
  const auto pmt = pmtSection();
  auto damaged = pmt;
  damaged[damaged.size() - 1] ^= 0x01;
  struct Row {
    short pid, tableId;
    const std::vector<unsigned char>* section;
    bool parsed;
  };
  const Row rows[] = {
      {0x0000, 0x00, &pat, true},      {0x0000, 0x02, &pat, true},  {0x0100, 0x02, &pmt, true},
      {-1, 0x02, &pmt, true},          {0x0000, 0x02, &pmt, false}, {0x0001, 0x02, &pmt, false},
      {0x0012, 0x02, &pmt, false},     {0x0024, 0x02, &pmt, false}, {0x0026, 0x02, &pmt, false},
      {0x0100, 0x03, &pmt, false},     {0x0100, 0x02, &pat, false}, {0x0010, 0x02, &pmt, false},
      {0x0100, 0x02, &damaged, false},
  };
  unsigned int id = 100;
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.pid << "/" << row.tableId << " #" << id);
    CountedUserData data;
    const bool followed = request(++id, 1, row.pid, row.tableId, 0, &data) == 1;
    LogCapture log;
    EXPECT_EQ(row.parsed && followed ? 1 : 0, inject(row.pid, row.tableId, 0, *row.section));
    EXPECT_EQ(row.parsed, cached(row.pid));
    if (row.parsed) {
      EXPECT_TRUE(log.lines().empty());
    } else {
      EXPECT_EQ(std::vector<std::string>{kParseError}, log.messages());
      EXPECT_EQ(0, data.releases.load());
      std::unique_ptr<RequestFollower::RequestFollowerItem> left(RequestFollower::remove(id));
      EXPECT_EQ(followed, left != nullptr);
    }
    Cacher::getInstance(1)->flush();
    EXPECT_EQ(row.parsed && followed, notifications().size() == 1);
    SetUp();
  }
  LogCapture log;
  EXPECT_EQ(0, m_core->injectData(1, 0x100, 2, 0, nullptr, nullptr, 0));
  EXPECT_EQ(1, log.count(kParseError));
}

TEST_F(Requests, AnUnaskedTableIsCachedWithItsSectionSize) {
  EXPECT_EQ(0, inject(0x0000, 0, 0, patSection(0x1234)));
  TISDBTTable* table = nullptr;
  unsigned int size = 0;
  ASSERT_EQ(1, Cacher::getInstance(1)->get(0, 0, 0, &table, &size));
  EXPECT_EQ(patSection(0x1234).size(), size);
  EXPECT_EQ(0x1234, static_cast<TPATTable*>(table)->getTransportStreamId());
  EXPECT_TRUE(notifications().empty());
}

TEST(TableTypes, CacheableAndEventDataCodes) {
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  const std::pair<unsigned int, int> rows[] = {
      // type, 1 cacheable / 2 event data / 0
      {0x00000000, 1}, {0x00010000, 1}, {0x00100000, 1}, {0x00110000, 1}, {0x00120000, 1},
      {0x0012004E, 1}, {0x0012004F, 1}, {0x00140000, 1}, {0x00240000, 1}, {0x00260000, 1},
      {0xFFFF0002, 1}, {0xFFFF0074, 1}, {0x00120050, 0}, {0x00130000, 0}, {0x00000002, 0},
      {0x003D0000, 2}, {0xFFFF0000, 0}, {0xFFFFFFFF, 0}, {0x00140073, 0}, {0x00250000, 0},
  };
  for (const auto& row : rows) {
    CountedTable table(row.first);
    EXPECT_EQ(row.second == 1, core->isCacheable(&table) == 1) << std::hex << row.first;
    EXPECT_EQ(row.second == 2, core->isEventData(&table) == 1) << std::hex << row.first;
  }
}

// Against a model: outstanding requests per key, in order of request. Each
// injection answers exactly the model's list for its key, in order, with one
// table, each released once after its notification, whether the callback
// accepts it or not; the table is then cached, and answers a cache request
// in the call. A destroy drops every request silently.
TEST_F(Requests, RandomRequestsAndInjectionsFollowTheModel) {
  struct Key {
    int tuner;
    short pid, tableId, ext;
  };
  const Key keys[] = {
      {1, 0, 0, 0}, {2, 0, 0, 0}, {1, 0x100, 2, 1}, {1, 0x100, 2, 2}, {3, 0x101, 2, 1}};
  std::map<int, std::vector<unsigned int>> outstanding;  // by index in keys
  std::vector<std::unique_ptr<CountedUserData>> data(1);
  std::mt19937 random(3);
  for (int step = 0; step < 600; ++step) {
    const int k = random() % 5, what = random() % 10;
    const Key& key = keys[k];
    setVerdict(what % 2);
    const size_t before = notifications().size();
    if (what < 6) {
      data.push_back(std::make_unique<CountedUserData>());
      const auto id = static_cast<unsigned int>(data.size() - 1);
      ASSERT_EQ(1, request(id, key.tuner, key.pid, key.tableId, key.ext, data[id].get()));
      outstanding[k].push_back(id);
    } else if (what < 9) {
      ASSERT_EQ(outstanding[k].empty() ? 0 : 1,
                inject(key.pid, key.tableId, key.ext, key.pid ? pmtSection(key.ext) : patSection(),
                       key.tuner));
      auto seen = notifications();
      ASSERT_EQ(before + outstanding[k].size(), seen.size()) << step;
      for (size_t i = 0; i < outstanding[k].size(); ++i) {
        const Notification& n = seen[before + i];
        ASSERT_EQ(outstanding[k][i], n.requestId) << step;
        ASSERT_EQ(data[n.requestId].get(), n.userData);
        ASSERT_EQ(seen[before].table, n.table);
        ASSERT_EQ(key.pid ? key.ext : 0, n.programNumber);
        ASSERT_EQ(0, n.releasesAtCall);
        ASSERT_EQ(1, data[n.requestId]->releases.load());
      }
      outstanding[k].clear();
      setVerdict(1);
      ASSERT_EQ(1, m_core->requestData(0, 1, key.tuner, key.pid, key.tableId, key.ext, nullptr,
                                       nullptr, nullptr));
      ASSERT_EQ(key.pid ? key.ext : 0, notifications().back().programNumber);
    } else {
      RequestFollower::destroy();
      ASSERT_EQ(before, notifications().size());
      outstanding.clear();
    }
    Cacher::getInstance(key.tuner)->flush();
  }
  RequestFollower::destroy();
  for (size_t id = 1; id < data.size(); ++id)
    EXPECT_EQ(1, data[id]->releases.load()) << id;
  EXPECT_EQ(data.size() - 1, m_server.commandCount()) << "cache answers send nothing";
}

namespace {

// User data whose release asks again, as a middleware that re-requests a
// table when its old request goes away.
struct Reasking {
  int releases = 0;
  int newResult = -1;
  CountedUserData* newData = nullptr;
  static void release(void* userData) {
    auto* r = static_cast<Reasking*>(userData);
    ++r->releases;
    r->newResult = OstrelGingaCommonCore::getInstance()->requestData(
        2, 2, 1, 0x0000, 0x00, 0, r->newData, &CountedUserData::release, nullptr);
  }
};

bool s_destroyOnFirst = false;
int destroyingCallback(unsigned int, unsigned char, void*, TISDBTTable*) {
  if (s_destroyOnFirst) {
    s_destroyOnFirst = false;
    EXPECT_TRUE(RequestFollower::destroy());
  }
  return 1;
}

}  // namespace

TEST_F(Requests, AReleaseRunByTheTeardownMayRequestAgain) {
  Reasking reasking;
  reasking.newData = &a;
  ASSERT_EQ(1,
            m_core->requestData(1, 2, 1, 0x0000, 0x00, 0, &reasking, &Reasking::release, nullptr));
  ASSERT_TRUE(RequestFollower::destroy());  // releases request 1, which asks again
  EXPECT_EQ(1, reasking.releases);
  EXPECT_EQ(1, reasking.newResult);
  ASSERT_NE(nullptr, RequestFollower::get(2u));  // in a new follower, answered like any other
  EXPECT_EQ(1, inject(0x0000, 0x00, 0, patSection()));
  ASSERT_EQ(1u, notifications().size());
  EXPECT_EQ(2u, notifications()[0].requestId);
  EXPECT_EQ(1, a.releases.load());
}

TEST_F(Requests, ACallbackThatDestroysTheFollowerLeavesTakenRequestsToTheInjection) {
  m_core->setRequestNotificationCallback(&destroyingCallback);
  s_destroyOnFirst = true;
  request(1, 1, 0x0000, 0x00, 0, &a);
  request(2, 1, 0x0000, 0x00, 0, &b);
  request(3, 1, 0x0011, 0x42, 0, &other);
  EXPECT_EQ(1, inject(0x0000, 0x00, 0, patSection()));
  // Both PAT requests had left the follower before the first notification:
  // the destroy drops only the SDT request, silently.
  EXPECT_EQ(1, a.releases.load());
  EXPECT_EQ(1, b.releases.load());
  EXPECT_EQ(1, other.releases.load());
  EXPECT_EQ(nullptr, RequestFollower::get(3u));
}
