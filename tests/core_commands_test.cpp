// Every synchronous operation of the core runs one dispatch: create, fill,
// send, delete, read the answer. Its error paths are tested once, with a row
// per operation; then what each operation puts in its command and reads back.
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstdlib>
#include <functional>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "CoreFixture.h"
#include "FactoryOverride.h"
#include "LogCapture.h"
#include "TGetTunerListResponse.h"
#include "TReserveKeyCommand.h"
#include "TVideoCheckSize.h"
#include "TVideoGetDefaultSize.h"
#include "TVideoGetSize.h"
#include "TVideoGetSourceVideoSize.h"
#include "TVideoSetSize.h"

using namespace Ostrel;
using namespace OstrelTest;

namespace {

struct Geometry {
  short sx, sy;
  unsigned short sw, sh;
  short dx, dy;
  unsigned short dw, dh;
  auto tie() const { return std::tie(sx, sy, sw, sh, dx, dy, dw, dh); }
  bool operator==(const Geometry& o) const { return tie() == o.tie(); }
};

const Geometry kUntouched{101, -102, 103, 104, -105, 106, 107, 108};
const Geometry kInputs{-1, -2, 3, 4, -5, -6, 7, 8};
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
  return {c.sx, c.sy, c.sw, c.sh, c.dx, c.dy, c.dw, c.dh};
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
       Geometry& g = o->g;
       return c->getVideoSize(7, 3, &g.sx, &g.sy, &g.sw, &g.sh, &g.dx, &g.dy, &g.dw, &g.dh, e);
     }},
    {"getDefaultVideoSize", 0x401, "Could not request data.",
     [] { return answerOf<TVideoGetDefaultSize>(kAnswer); },
     [](OstrelGingaCommonCore* c, Outputs* o, short* e) {
       Geometry& g = o->g;
       return c->getDefaultVideoSize(7, 3, &g.sx, &g.sy, &g.sw, &g.sh, &g.dx, &g.dy, &g.dw, &g.dh,
                                     e);
     }},
    {"getSourceVideoSize", 0x402, "Could not request data.",
     [] { return answerOf<TVideoGetSourceVideoSize>(kAnswer); },
     [](OstrelGingaCommonCore* c, Outputs* o, short* e) {
       return c->getSourceVideoSize(7, 3, &o->g.sw, &o->g.sh, e);
     }},
    {"setVideoSize", 0x403, "Could not request data.", nullptr,
     [](OstrelGingaCommonCore* c, Outputs*, short* e) {
       const Geometry& i = kInputs;
       return c->setVideoSize(7, 3, i.sx, i.sy, i.sw, i.sh, i.dx, i.dy, i.dw, i.dh, e);
     }},
    {"checkVideoSize", 0x404, "Could not request data.",
     [] { return answerOf<TVideoCheckSize>(kAnswer); },
     [](OstrelGingaCommonCore* c, Outputs* o, short* e) {
       const Geometry& i = kInputs;
       Geometry& g = o->g;
       return c->checkVideoSize(7, 3, i.sx, i.sy, i.sw, i.sh, i.dx, i.dy, i.dw, i.dh, &g.sx, &g.sy,
                                &g.sw, &g.sh, &g.dx, &g.dy, &g.dw, &g.dh, e);
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

}  // namespace

// Before any setServer: the commands go out without an end point and fail.
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
        if (!wrongClass)
          return nullptr;
        return video ? static_cast<TCommand*>(new TReserveKeyCommand()) : new TVideoGetSize();
      });
      Outputs out;
      short error = 0;
      EXPECT_EQ(0, op.call(m_core, &out, &error));
      EXPECT_EQ(-3, error);
      EXPECT_EQ(0, op.call(m_core, &out, nullptr));
      EXPECT_EQ(2, factory.requests());
      EXPECT_TRUE(out.untouched());
      ASSERT_EQ(2u, log.lines().size());
      EXPECT_EQ(message(op, "Could not create command."), log.lines()[0].message);
      EXPECT_EQ("GingaCommonCore", log.lines()[0].module);
      EXPECT_EQ(4, log.lines()[0].level);
    }
  }
  EXPECT_EQ(0u, m_server.commandCount());
  EXPECT_EQ(released, s_data.releases.load());
  EXPECT_EQ(nullptr, RequestFollower::get(1u));
}

TEST_F(Commands, FailedSendIsMinus5AndLeavesTheOutputsAndTheUserData) {
  const int released = s_data.releases;
  for (const auto& op : kOperations) {
    SCOPED_TRACE(op.name);
    LogCapture log;
    m_server.setResult(op.code, 0);
    Outputs out;
    short error = 0;
    int result = op.call(m_core, &out, &error);
    if (op.sendFailure) {
      EXPECT_EQ(0, result);
      EXPECT_EQ(-5, error);
      EXPECT_TRUE(out.untouched());
      EXPECT_EQ(std::vector<std::string>{message(op, op.sendFailure)}, log.messages());
    } else {  // the tuner list: an answer counts, whatever send says
      m_server.setAnswer(op.code, op.answer);
      EXPECT_EQ(2, op.call(m_core, &out, &error));
      EXPECT_EQ(0, error);
    }
  }
  EXPECT_EQ(released, s_data.releases.load());
  EXPECT_EQ(nullptr, RequestFollower::get(1u));
}

TEST_F(Commands, ASentCommandWithoutItsAnswerIsMinus4) {
  for (const auto& op : kOperations) {
    if (!op.answer)
      continue;
    SCOPED_TRACE(op.name);
    for (bool wrongClass : {false, true}) {  // another class is no answer, and is deleted
      LogCapture log;
      if (wrongClass)
        m_server.setAnswer(op.code, [] { return new TReserveKeyCommand(); });
      Outputs out;
      short error = 0;
      EXPECT_EQ(0, op.call(m_core, &out, &error));
      EXPECT_EQ(-4, error);
      EXPECT_TRUE(out.untouched());
      EXPECT_EQ(std::vector<std::string>{message(op, "No answer received.")}, log.messages());
    }
  }
}

TEST_F(Commands, SuccessWritesZeroWhetherOrNotAnAnswerComes) {
  for (const auto& op : kOperations) {
    SCOPED_TRACE(op.name);
    LogCapture log;
    // Operations that read nothing delete any answer unread.
    m_server.setAnswer(
        op.code, op.answer ? op.answer : [] { return new TVideoSetSize(); });
    short error = -5;
    Outputs out, again;
    EXPECT_LT(0, op.call(m_core, &out, &error));
    EXPECT_EQ(0, error);
    EXPECT_LT(0, op.call(m_core, &again, nullptr));  // a null errorCode changes only the write
    m_server.setAnswer(op.code, nullptr);
    Outputs without;
    EXPECT_EQ(op.answer ? 0 : 1, op.call(m_core, &without, nullptr));
    EXPECT_EQ(op.answer ? 1u : 0u, log.lines().size());
    EXPECT_EQ(op.code, m_server.last().code);
    EXPECT_EQ(&m_server, m_server.last().endPoint);
  }
}

TEST_F(Commands, KeysAndStatusReachTheServerUnchanged) {
  ASSERT_EQ(1, m_core->reserveKey("", 0xFFFFFFFFu, nullptr));
  ASSERT_EQ(1, m_core->reserveKey("listener-a", 0x26, nullptr));
  ASSERT_EQ(1, m_core->releaseKey("first", 0x1D, nullptr));
  ASSERT_EQ(1, m_core->releaseKey("second", 0x1D, nullptr));
  ASSERT_EQ(1, m_core->notifyAppStatusChange("", 255, nullptr));
  ASSERT_EQ(1, m_core->notifyAppStatusChange("app/1", 0, nullptr));
  auto sent = m_server.commands();
  ASSERT_EQ(6u, sent.size());
  const std::tuple<unsigned short, unsigned int, std::string, std::string, int> expected[] = {
      {0x209, 0xFFFFFFFFu, "", "", 0}, {0x209, 0x26, "listener-a", "", 0},
      {0x210, 0x1D, "", "", 0},        {0x210, 0x1D, "", "", 0},  // no listener id
      {0x300, 0, "", "", 255},         {0x300, 0, "", "app/1", 0},
  };
  for (size_t i = 0; i < sent.size(); ++i) {
    EXPECT_EQ(expected[i], std::make_tuple(sent[i].code, sent[i].keyCode, sent[i].listenerId,
                                           sent[i].appId, int(sent[i].notificationCode)))
        << i;
  }
}

// Any geometry, extremes first, goes out unchanged and comes back unchanged.
TEST_F(Commands, VideoGeometriesPassThroughBothWaysUnchanged) {
  std::vector<Geometry> rows = {
      {SHRT_MIN, SHRT_MIN, 0xFFFF, 0xFFFF, SHRT_MIN, SHRT_MIN, 0xFFFF, 0xFFFF},
      {SHRT_MAX, SHRT_MAX, 0, 0, SHRT_MAX, SHRT_MAX, 0, 0},
  };
  std::mt19937 random(5);
  for (int i = 0; i < 100; ++i) {
    auto s = [&] { return static_cast<short>(random()); };
    auto u = [&] { return static_cast<unsigned short>(random()); };
    rows.push_back({s(), s(), u(), u(), s(), s(), u(), u()});
  }
  for (size_t i = 0; i < rows.size(); ++i) {
    const Geometry& g = rows[i];
    const Geometry& other = rows[(i + 1) % rows.size()];
    const auto tsId = static_cast<unsigned short>(random()), layer = static_cast<unsigned short>(i);
    ASSERT_EQ(1, m_core->setVideoSize(tsId, layer, g.sx, g.sy, g.sw, g.sh, g.dx, g.dy, g.dw, g.dh,
                                      nullptr));
    RecordedCommand sent = m_server.last();
    ASSERT_TRUE(g == sentOf(sent) && tsId == sent.tsId && layer == sent.layerId) << i;
    m_server.setAnswer(0x404, [&] { return answerOf<TVideoCheckSize>(other); });
    Geometry out = kUntouched;
    ASSERT_EQ(1, m_core->checkVideoSize(tsId, layer, g.sx, g.sy, g.sw, g.sh, g.dx, g.dy, g.dw, g.dh,
                                        &out.sx, &out.sy, &out.sw, &out.sh, &out.dx, &out.dy,
                                        &out.dw, &out.dh, nullptr));
    sent = m_server.last();
    ASSERT_TRUE(g == sentOf(sent) && tsId == sent.tsId && layer == sent.layerId) << i;
    ASSERT_TRUE(other == out) << i;  // the answer, never the inputs
    m_server.setAnswer(0x400, [&] { return answerOf<TVideoGetSize>(g); });
    m_server.setAnswer(0x401, [&] { return answerOf<TVideoGetDefaultSize>(other); });
    m_server.setAnswer(0x402, [&] { return answerOf<TVideoGetSourceVideoSize>(g); });
    Outputs get, def, source;
    ASSERT_EQ(1, kOperations[3].call(m_core, &get, nullptr));
    ASSERT_EQ(1, kOperations[4].call(m_core, &def, nullptr));
    ASSERT_EQ(1, kOperations[5].call(m_core, &source, nullptr));
    ASSERT_TRUE(g == get.g && other == def.g) << i;
    Geometry sizeOnly = kUntouched;
    sizeOnly.sw = g.sw, sizeOnly.sh = g.sh;
    ASSERT_TRUE(sizeOnly == source.g) << i;  // the source position is never asked for
  }
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
      {{{INT_MIN, 0}, {-1, 255}, {INT_MAX, 128}}, 3},
      {Tuners(many.begin(), many.begin() + 255), 255},
      {Tuners(many.begin(), many.begin() + 256), 256},
      {many, 256},
  };
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

TEST(CoreInstance, ConcurrentFirstCallsMakeExactlyOneInstance) {
  std::vector<OstrelGingaCommonCore*> seen(16, nullptr);
  std::atomic<bool> go{false};
  std::vector<std::thread> threads;
  for (size_t i = 0; i < seen.size(); ++i) {
    threads.emplace_back([&, i] {
      while (!go)
        std::this_thread::yield();
      seen[i] = OstrelGingaCommonCore::getInstance();
    });
  }
  go = true;
  for (auto& t : threads)
    t.join();
  EXPECT_EQ(1u, std::set<OstrelGingaCommonCore*>(seen.begin(), seen.end()).size());
  EXPECT_EQ(seen[0], OstrelGingaCommonCore::getInstance());
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
  EXPECT_EQ(1, m_core->dispatchRequestFeedback(1, 0, nullptr, nullptr, &error));
  EXPECT_EQ(0, error);
  EXPECT_EQ(1, m_core->setRequestNotificationCallback(nullptr));
  EXPECT_EQ(0, m_core->dispatchRequestFeedback(1, 0, nullptr, nullptr, &error));
  EXPECT_EQ(-7, error);
  EXPECT_EQ(
      std::vector<std::string>{"GingaCommonCore: dispatchRequestFeedback: No Request notification "
                               "callback set!"},
      log.messages());
}
