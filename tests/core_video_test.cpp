// The video size commands: what reaches the server, what comes back, and what
// is left alone when a command fails.
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <functional>
#include <ostream>
#include <string>
#include <thread>
#include <vector>

#include "FactoryOverride.h"
#include "GingaServer.h"
#include "LogCapture.h"
#include "OstrelGingaCommonCore.h"
#include "RecordingServer.h"
#include "TReserveKeyCommand.h"
#include "TVideoCheckSize.h"
#include "TVideoGetDefaultSize.h"
#include "TVideoGetSize.h"
#include "TVideoGetSourceVideoSize.h"
#include "TVideoSetSize.h"

using namespace Ostrel;
using OstrelTest::FactoryFailure;
using OstrelTest::FactoryOverride;
using OstrelTest::LogCapture;
using OstrelTest::RecordedCommand;
using OstrelTest::RecordingServer;

namespace {

struct Geometry {
  short sx, sy;
  unsigned short sw, sh;
  short dx, dy;
  unsigned short dw, dh;
};

bool operator==(const Geometry& a, const Geometry& b) {
  return a.sx == b.sx && a.sy == b.sy && a.sw == b.sw && a.sh == b.sh && a.dx == b.dx &&
         a.dy == b.dy && a.dw == b.dw && a.dh == b.dh;
}

std::ostream& operator<<(std::ostream& os, const Geometry& g) {
  return os << "{" << g.sx << "," << g.sy << "," << g.sw << "," << g.sh << " / " << g.dx << ","
            << g.dy << "," << g.dw << "," << g.dh << "}";
}

Geometry sentOf(const RecordedCommand& c) {
  return Geometry{c.sx, c.sy, c.sw, c.sh, c.dx, c.dy, c.dw, c.dh};
}

// What the caller's variables hold before a call: a failure must leave it.
const Geometry kUntouched{101, -102, 103, 104, -105, 106, 107, 108};
// The caller's inputs to set and check, unlike any answer below.
const Geometry kInputs{-1, -2, 3, 4, -5, -6, 7, 8};
// A typical answer from the server.
const Geometry kAnswer{10, 20, 1920, 1080, -30, 40, 960, 540};

void fill(TVideoCommand* command, const Geometry& g) {
  command->setSx(g.sx);
  command->setSy(g.sy);
  command->setSw(g.sw);
  command->setSh(g.sh);
  command->setDx(g.dx);
  command->setDy(g.dy);
  command->setDw(g.dw);
  command->setDh(g.dh);
}

template <class T>
TCommand* answerOf(const Geometry& g) {
  T* answer = new T();
  fill(answer, g);
  return answer;
}

// One operation of the family that reads an answer, called with tsId 7 and
// layer 3 and writing into *out.
struct GetOperation {
  const char* name;
  unsigned short code;
  std::function<TCommand*(const Geometry&)> makeAnswer;
  std::function<int(OstrelGingaCommonCore*, Geometry*, short*)> call;
  bool sourceSizeOnly;
};

const GetOperation kGets[] = {
    {"getVideoSize", 0x400, answerOf<TVideoGetSize>,
     [](OstrelGingaCommonCore* c, Geometry* g, short* e) {
       return c->getVideoSize(7, 3, &g->sx, &g->sy, &g->sw, &g->sh, &g->dx, &g->dy, &g->dw, &g->dh,
                              e);
     },
     false},
    {"getDefaultVideoSize", 0x401, answerOf<TVideoGetDefaultSize>,
     [](OstrelGingaCommonCore* c, Geometry* g, short* e) {
       return c->getDefaultVideoSize(7, 3, &g->sx, &g->sy, &g->sw, &g->sh, &g->dx, &g->dy, &g->dw,
                                     &g->dh, e);
     },
     false},
    {"getSourceVideoSize", 0x402, answerOf<TVideoGetSourceVideoSize>,
     [](OstrelGingaCommonCore* c, Geometry* g, short* e) {
       return c->getSourceVideoSize(7, 3, &g->sw, &g->sh, e);
     },
     true},
    {"checkVideoSize", 0x404, answerOf<TVideoCheckSize>,
     [](OstrelGingaCommonCore* c, Geometry* g, short* e) {
       const Geometry& in = kInputs;
       return c->checkVideoSize(7, 3, in.sx, in.sy, in.sw, in.sh, in.dx, in.dy, in.dw, in.dh,
                                &g->sx, &g->sy, &g->sw, &g->sh, &g->dx, &g->dy, &g->dw, &g->dh, e);
     },
     false},
};

// What a successful call leaves in the caller's variables.
Geometry expectedAfter(const GetOperation& op, const Geometry& answer) {
  if (!op.sourceSizeOnly)
    return answer;
  Geometry g = kUntouched;
  g.sw = answer.sw;
  g.sh = answer.sh;
  return g;
}

std::string message(const char* op, const char* text) {
  return std::string("GingaCommonCore: ") + op + ": ERROR: " + text;
}

int setInputs(OstrelGingaCommonCore* core, unsigned short tsId, unsigned short layerId,
              const Geometry& in, short* errorCode) {
  return core->setVideoSize(tsId, layerId, in.sx, in.sy, in.sw, in.sh, in.dx, in.dy, in.dw, in.dh,
                            errorCode);
}

class VideoCommands : public testing::Test {
 protected:
  void SetUp() override {
    m_core = OstrelGingaCommonCore::getInstance();
    m_core->setServer(&m_server);
    m_liveBefore = TCommand::getLiveCount();
  }
  // Every command and answer made during a test is gone by its end.
  void TearDown() override { EXPECT_EQ(m_liveBefore, TCommand::getLiveCount()); }

  OstrelGingaCommonCore* m_core = nullptr;
  RecordingServer m_server;
  long m_liveBefore = 0;
};

}  // namespace

// Runs first in its program, before any server is bound (and alone under CTest).
TEST(VideoUnbound, CommandsGoOutWithoutEndPointAndFailToSend) {
  LogCapture log;
  const long before = TCommand::getLiveCount();
  for (const auto& op : kGets) {
    Geometry out = kUntouched;
    short error = 0;
    EXPECT_EQ(0, op.call(OstrelGingaCommonCore::getInstance(), &out, &error)) << op.name;
    EXPECT_EQ(-5, error) << op.name;
    EXPECT_EQ(kUntouched, out) << op.name;
    EXPECT_EQ(1, log.count(message(op.name, "Could not request data."))) << op.name;
  }
  short error = 0;
  EXPECT_EQ(0, setInputs(OstrelGingaCommonCore::getInstance(), 1, 1, kInputs, &error));
  EXPECT_EQ(-5, error);
  EXPECT_EQ(1, log.count(message("setVideoSize", "Could not request data.")));
  EXPECT_EQ(before, TCommand::getLiveCount());
}

TEST_F(VideoCommands, FailedGetsLeaveEveryOutputUntouched) {
  for (const auto& op : kGets) {
    SCOPED_TRACE(op.name);
    const size_t sentBefore = m_server.commandCount();
    m_server.setAnswer(op.code, [&op] { return op.makeAnswer(kAnswer); });
    {  // -3: no command, no server contact
      LogCapture log;
      FactoryFailure failure(op.code);
      Geometry out = kUntouched;
      short error = 0;
      EXPECT_EQ(0, op.call(m_core, &out, &error));
      EXPECT_EQ(-3, error);
      EXPECT_EQ(kUntouched, out);
      EXPECT_EQ(1, failure.requests());
      EXPECT_EQ(std::vector<std::string>{message(op.name, "Could not create command.")},
                log.messages());
      EXPECT_EQ(4, log.lines()[0].level);
      EXPECT_EQ("GingaCommonCore", log.lines()[0].module);
      EXPECT_EQ(0, op.call(m_core, &out, nullptr));
      EXPECT_EQ(kUntouched, out);
    }
    EXPECT_EQ(sentBefore, m_server.commandCount());
    {  // -5: send failed
      LogCapture log;
      m_server.setResult(op.code, 0);
      m_server.setAnswer(op.code, nullptr);
      Geometry out = kUntouched;
      short error = 0;
      EXPECT_EQ(0, op.call(m_core, &out, &error));
      EXPECT_EQ(-5, error);
      EXPECT_EQ(kUntouched, out);
      EXPECT_EQ(std::vector<std::string>{message(op.name, "Could not request data.")},
                log.messages());
      EXPECT_EQ(0, op.call(m_core, &out, nullptr));
      EXPECT_EQ(kUntouched, out);
      m_server.setResult(op.code, 1);
    }
    EXPECT_EQ(sentBefore + 2, m_server.commandCount());
  }
}

TEST_F(VideoCommands, ASentGetWithoutItsAnswerIsMinus4AndWritesNothing) {
  for (const auto& op : kGets) {
    SCOPED_TRACE(op.name);
    const std::vector<std::string> noAnswer{message(op.name, "No answer received.")};
    {  // success without an answer object
      LogCapture log;
      Geometry out = kUntouched;
      short error = 0;
      EXPECT_EQ(0, op.call(m_core, &out, &error));
      EXPECT_EQ(-4, error);
      EXPECT_EQ(kUntouched, out);
      EXPECT_EQ(noAnswer, log.messages());
    }
    {  // an answer of another class is no answer, and is deleted
      LogCapture log;
      m_server.setAnswer(op.code, [] { return new TReserveKeyCommand(); });
      Geometry out = kUntouched;
      short error = 0;
      EXPECT_EQ(0, op.call(m_core, &out, &error));
      EXPECT_EQ(-4, error);
      EXPECT_EQ(kUntouched, out);
      EXPECT_EQ(noAnswer, log.messages());
      m_server.setAnswer(op.code, [] { return answerOf<TVideoSetSize>(kAnswer); });
      EXPECT_EQ(0, op.call(m_core, &out, nullptr));
      EXPECT_EQ(kUntouched, out);
      m_server.setAnswer(op.code, nullptr);
    }
  }
}

TEST_F(VideoCommands, SuccessfulGetsWriteTheAnswerNotTheInputs) {
  for (const auto& op : kGets) {
    SCOPED_TRACE(op.name);
    LogCapture log;
    m_server.setAnswer(op.code, [&op] { return op.makeAnswer(kAnswer); });
    Geometry out = kUntouched;
    short error = -5;
    EXPECT_EQ(1, op.call(m_core, &out, &error));
    EXPECT_EQ(0, error);
    EXPECT_EQ(expectedAfter(op, kAnswer), out);
    out = kUntouched;
    EXPECT_EQ(1, op.call(m_core, &out, nullptr));
    EXPECT_EQ(expectedAfter(op, kAnswer), out);
    EXPECT_TRUE(log.lines().empty());

    const RecordedCommand sent = m_server.last();
    EXPECT_EQ(op.code, sent.code);
    EXPECT_EQ(&m_server, sent.endPoint);
    EXPECT_EQ(7, sent.tsId);
    EXPECT_EQ(3, sent.layerId);
  }
  // Only check submits a geometry; the gets send none.
  for (const auto& c : m_server.commands()) {
    EXPECT_EQ(c.code == 0x404 ? kInputs : Geometry{}, sentOf(c)) << c.code;
  }
}

TEST_F(VideoCommands, ExtremeValuesPassThroughBothWaysUnchanged) {
  const Geometry rows[] = {
      {SHRT_MIN, SHRT_MIN, 0xFFFF, 0xFFFF, SHRT_MIN, SHRT_MIN, 0xFFFF, 0xFFFF},
      {SHRT_MAX, SHRT_MAX, 0, 0, SHRT_MAX, SHRT_MAX, 0, 0},
      {-1, -32767, 0x8000, 1, -1, 0, 0x7FFF, 0xFFFE},
      {0, 0, 0, 0, 0, 0, 0, 0},
  };
  const unsigned short ids[][2] = {{0xFFFF, 0xFFFF}, {0, 0}, {0x8000, 1}, {1, 0x8000}};
  for (size_t i = 0; i < sizeof(rows) / sizeof(rows[0]); ++i) {
    SCOPED_TRACE(i);
    const Geometry& row = rows[i];
    // Inputs out to the server
    ASSERT_EQ(1, setInputs(m_core, ids[i][0], ids[i][1], row, nullptr));
    RecordedCommand sent = m_server.last();
    EXPECT_EQ(0x403, sent.code);
    EXPECT_EQ(row, sentOf(sent));
    EXPECT_EQ(ids[i][0], sent.tsId);
    EXPECT_EQ(ids[i][1], sent.layerId);
    Geometry out = kUntouched;
    const Geometry& other = rows[(i + 1) % 4];
    m_server.setAnswer(0x404, [&other] { return answerOf<TVideoCheckSize>(other); });
    ASSERT_EQ(1, m_core->checkVideoSize(ids[i][0], ids[i][1], row.sx, row.sy, row.sw, row.sh,
                                        row.dx, row.dy, row.dw, row.dh, &out.sx, &out.sy, &out.sw,
                                        &out.sh, &out.dx, &out.dy, &out.dw, &out.dh, nullptr));
    sent = m_server.last();
    EXPECT_EQ(row, sentOf(sent));
    EXPECT_EQ(ids[i][0], sent.tsId);
    EXPECT_EQ(ids[i][1], sent.layerId);
    // and answers back to the caller
    EXPECT_EQ(other, out);
    for (const auto& op : kGets) {
      m_server.setAnswer(op.code, [&op, &row] { return op.makeAnswer(row); });
      out = kUntouched;
      ASSERT_EQ(1, op.call(m_core, &out, nullptr)) << op.name;
      EXPECT_EQ(expectedAfter(op, row), out) << op.name;
    }
  }
}

TEST_F(VideoCommands, SetVideoSizeSendsTheGeometryAndReadsNoAnswer) {
  LogCapture log;
  const std::function<TCommand*()> answers[] = {
      nullptr,                                            // no answer
      [] { return answerOf<TVideoSetSize>(kAnswer); },    // its own class
      [] { return answerOf<TVideoCheckSize>(kAnswer); },  // another video class
      [] { return new TReserveKeyCommand(); },            // not a video class at all
  };
  for (const auto& answer : answers) {
    m_server.setAnswer(0x403, answer);
    short error = -5;
    EXPECT_EQ(1, setInputs(m_core, 7, 3, kInputs, &error));
    EXPECT_EQ(0, error);
    EXPECT_EQ(1, setInputs(m_core, 7, 3, kInputs, nullptr));
  }
  EXPECT_TRUE(log.lines().empty());
  for (const auto& c : m_server.commands()) {
    EXPECT_EQ(0x403, c.code);
    EXPECT_EQ(&m_server, c.endPoint);
    EXPECT_EQ(7, c.tsId);
    EXPECT_EQ(3, c.layerId);
    EXPECT_EQ(kInputs, sentOf(c));
  }

  short error = 0;
  {
    FactoryFailure failure(0x403);
    EXPECT_EQ(0, setInputs(m_core, 7, 3, kInputs, &error));
    EXPECT_EQ(-3, error);
  }
  m_server.setResult(0x403, 0);
  m_server.setAnswer(0x403, nullptr);
  EXPECT_EQ(0, setInputs(m_core, 7, 3, kInputs, &error));
  EXPECT_EQ(-5, error);
  EXPECT_EQ((std::vector<std::string>{message("setVideoSize", "Could not create command."),
                                      message("setVideoSize", "Could not request data.")}),
            log.messages());
}

TEST_F(VideoCommands, AFactoryGivingAnotherClassCountsAsNoCommand) {
  for (const auto& op : kGets) {
    LogCapture log;
    FactoryOverride wrong(op.code, [] { return new TVideoSetSize(); });
    Geometry out = kUntouched;
    short error = 0;
    EXPECT_EQ(0, op.call(m_core, &out, &error)) << op.name;
    EXPECT_EQ(-3, error);
    EXPECT_EQ(kUntouched, out);
    EXPECT_EQ(1, log.count(message(op.name, "Could not create command.")));
  }
  EXPECT_EQ(0u, m_server.commandCount());
}

namespace {

// Records when a command or an answer of the video family is destroyed.
std::vector<std::string> s_events;

template <class T>
class Traced : public T {
 public:
  explicit Traced(const char* what) : m_what(what) {}
  ~Traced() override { s_events.push_back(m_what); }

 private:
  const char* m_what;
};

TVideoCommand* tracedOf(unsigned short code, const char* what) {
  switch (code) {
    case 0x400:
      return new Traced<TVideoGetSize>(what);
    case 0x401:
      return new Traced<TVideoGetDefaultSize>(what);
    case 0x402:
      return new Traced<TVideoGetSourceVideoSize>(what);
    default:
      return new Traced<TVideoCheckSize>(what);
  }
}

}  // namespace

// The command is deleted as soon as send returns, the answer once it is read.
TEST_F(VideoCommands, EachCallDeletesItsCommandAndThenItsAnswerOnce) {
  for (const auto& op : kGets) {
    SCOPED_TRACE(op.name);
    const unsigned short code = op.code;
    FactoryOverride factory(code, [code] { return tracedOf(code, "command"); });
    m_server.setExecuteHook([](TCommand*) { s_events.push_back("send"); });
    m_server.setAnswer(code, [code] {
      TVideoCommand* answer = tracedOf(code, "answer");
      fill(answer, kAnswer);
      return answer;
    });
    s_events.clear();
    Geometry out = kUntouched;
    EXPECT_EQ(1, op.call(m_core, &out, nullptr));
    EXPECT_EQ(expectedAfter(op, kAnswer), out);
    EXPECT_EQ((std::vector<std::string>{"send", "command", "answer"}), s_events);

    s_events.clear();
    m_server.setAnswer(code, nullptr);
    m_server.setResult(code, 0);
    EXPECT_EQ(0, op.call(m_core, &out, nullptr));
    EXPECT_EQ((std::vector<std::string>{"send", "command"}), s_events);
    m_server.setResult(code, 1);
    m_server.setExecuteHook(nullptr);
  }
}

namespace {

// Answers every video command with its own class: the geometry it was given,
// with tsId in sx and the layer in sw, so that each caller can tell its answer
// from another thread's.
class EchoServer : public GingaServer {
 public:
  int execute(TCommand* command, TCommand** response) override {
    auto* asked = dynamic_cast<TVideoCommand*>(command);
    if (!asked || !response)
      return 0;
    auto* answer = dynamic_cast<TVideoCommand*>(TCommand::createDefault(command->getCode()));
    fill(answer, echoOf(*asked));
    *response = answer;
    return 1;
  }

  static Geometry echoOf(const TVideoCommand& c) {
    return Geometry{static_cast<short>(c.getTsId()),
                    c.getSy(),
                    c.getLayerId(),
                    c.getSh(),
                    c.getDx(),
                    c.getDy(),
                    c.getDw(),
                    c.getDh()};
  }
};

}  // namespace

TEST(VideoConcurrency, ConcurrentCallersEachGetTheirOwnAnswer) {
  EchoServer server;
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  core->setServer(&server);
  const long before = TCommand::getLiveCount();
  std::atomic<int> mismatches{0};
  std::atomic<bool> go{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&, t] {
      while (!go)
        std::this_thread::yield();
      for (int i = 0; i < 300; ++i) {
        const auto tsId = static_cast<unsigned short>(t * 1000 + i);
        const auto layer = static_cast<unsigned short>(i * 7 + t);
        const short tsIdAsPosition = static_cast<short>(tsId);
        Geometry out = kUntouched;
        Geometry expected = kUntouched;
        short error = 1;
        switch (i % 3) {
          case 0:
            core->getVideoSize(tsId, layer, &out.sx, &out.sy, &out.sw, &out.sh, &out.dx, &out.dy,
                               &out.dw, &out.dh, &error);
            expected = Geometry{tsIdAsPosition, 0, layer, 0, 0, 0, 0, 0};
            break;
          case 1:
            core->getSourceVideoSize(tsId, layer, &out.sw, &out.sh, &error);
            expected.sw = layer;
            expected.sh = 0;
            break;
          default:
            core->checkVideoSize(tsId, layer, kInputs.sx, kInputs.sy, kInputs.sw, kInputs.sh,
                                 kInputs.dx, kInputs.dy, kInputs.dw, kInputs.dh, &out.sx, &out.sy,
                                 &out.sw, &out.sh, &out.dx, &out.dy, &out.dw, &out.dh, &error);
            expected = kInputs;
            expected.sx = tsIdAsPosition;
            expected.sw = layer;
            break;
        }
        if (error != 0 || !(expected == out))
          ++mismatches;
      }
    });
  }
  go = true;
  for (auto& th : threads)
    th.join();
  EXPECT_EQ(0, mismatches.load());
  EXPECT_EQ(before, TCommand::getLiveCount());
}
