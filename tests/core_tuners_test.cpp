// The tuner list: parameters, the answer that decides, the arrays handed over.
#include <gtest/gtest.h>

#include <atomic>
#include <climits>
#include <cstdlib>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "FactoryOverride.h"
#include "LogCapture.h"
#include "OstrelGingaCommonCore.h"
#include "RecordingServer.h"
#include "TGetTunerListResponse.h"
#include "TVideoGetSize.h"

using namespace Ostrel;
using OstrelTest::FactoryFailure;
using OstrelTest::FactoryOverride;
using OstrelTest::LogCapture;
using OstrelTest::RecordingServer;

namespace {

const unsigned short kCode = 0x500;
const std::string kNoAnswer = "GingaCommonCore: getTunerList: ERROR: No answer received.";

using Tuners = std::vector<std::pair<int, unsigned char>>;

TCommand* listOf(const Tuners& tuners) {
  auto* answer = new TGetTunerListResponse();
  for (const auto& t : tuners)
    answer->addTuner(t.first, t.second);
  return answer;
}

// Stand-ins for the caller's pointers, so that a write to them shows.
int s_idsPlace = 0;
unsigned char s_typesPlace = 0;
int* const kIdsUntouched = &s_idsPlace;
unsigned char* const kTypesUntouched = &s_typesPlace;

// The arrays one call hands over; freed with free, as a caller must.
struct Handed {
  int* ids = kIdsUntouched;
  unsigned char* types = kTypesUntouched;

  Handed() = default;
  Handed(const Handed&) = delete;
  Handed& operator=(const Handed&) = delete;
  ~Handed() {
    if (ids != kIdsUntouched)
      free(ids);
    if (types != kTypesUntouched)
      free(types);
  }
  bool untouched() const { return ids == kIdsUntouched && types == kTypesUntouched; }
  Tuners tuners(int count) const {
    Tuners out;
    for (int i = 0; i < count; ++i)
      out.emplace_back(ids[i], types[i]);
    return out;
  }
};

class TunerList : public testing::Test {
 protected:
  void SetUp() override {
    m_core = OstrelGingaCommonCore::getInstance();
    m_core->setServer(&m_server);
    m_liveBefore = TCommand::getLiveCount();
  }
  // Every command and answer made during a test is gone by its end.
  void TearDown() override { EXPECT_EQ(m_liveBefore, TCommand::getLiveCount()); }

  int list(Handed* handed, short* errorCode) {
    return m_core->getTunerList(&handed->ids, &handed->types, errorCode);
  }

  OstrelGingaCommonCore* m_core = nullptr;
  RecordingServer m_server;
  long m_liveBefore = 0;
};

}  // namespace

// Runs first in its program, before any server is bound (and alone under CTest).
TEST(TunerListUnbound, WithoutAServerThereIsNoAnswer) {
  LogCapture log;
  Handed handed;
  short error = 0;
  EXPECT_EQ(0,
            OstrelGingaCommonCore::getInstance()->getTunerList(&handed.ids, &handed.types, &error));
  EXPECT_EQ(-4, error);
  EXPECT_TRUE(handed.untouched());
  EXPECT_EQ(std::vector<std::string>{kNoAnswer}, log.messages());
}

TEST_F(TunerList, ANullDestinationIsMinus1BeforeAnyCommand) {
  FactoryOverride counting(kCode, [] { return TCommand::createDefault(kCode); });
  m_server.setAnswer(kCode, [] { return listOf({{5, 1}}); });
  Handed handed;
  struct Row {
    int** ids;
    unsigned char** types;
  } rows[] = {{&handed.ids, nullptr}, {nullptr, &handed.types}, {nullptr, nullptr}};
  for (const auto& row : rows) {
    LogCapture log;
    short error = 0;
    EXPECT_EQ(0, m_core->getTunerList(row.ids, row.types, &error));
    EXPECT_EQ(-1, error);
    EXPECT_EQ(std::vector<std::string>{"GingaCommonCore: getTunerList: ERROR: Invalid Parameter."},
              log.messages());
    EXPECT_EQ(4, log.lines()[0].level);
    EXPECT_EQ(0, m_core->getTunerList(row.ids, row.types, nullptr));
  }
  EXPECT_TRUE(handed.untouched());
  EXPECT_EQ(0, counting.requests());
  EXPECT_EQ(0u, m_server.commandCount());
}

TEST_F(TunerList, NoCommandIsMinus3WithoutServerContact) {
  m_server.setAnswer(kCode, [] { return listOf({{5, 1}}); });
  const std::function<TCommand*()> factories[] = {
      [] { return nullptr; },
      [] { return new TVideoGetSize(); },  // another class: not a tuner-list command
  };
  for (const auto& make : factories) {
    LogCapture log;
    FactoryOverride factory(kCode, make);
    Handed handed;
    short error = 0;
    EXPECT_EQ(0, list(&handed, &error));
    EXPECT_EQ(-3, error);
    EXPECT_TRUE(handed.untouched());
    EXPECT_EQ(
        std::vector<std::string>{"GingaCommonCore: getTunerList: ERROR: Could not create command."},
        log.messages());
  }
  EXPECT_EQ(0u, m_server.commandCount());
}

TEST_F(TunerList, TheAnswerObjectDecidesNotTheResultOfSend) {
  struct Row {
    const char* what;
    int sendResult;
    std::function<TCommand*()> answer;
    int expected;
    short expectedError;
  };
  const Row rows[] = {
      {"success without an answer", 1, nullptr, 0, -4},
      {"failure without an answer", 0, nullptr, 0, -4},
      {"failure with an answer", 0,
       [] {
         return listOf({{5, 1}, {7, 2}});
       },
       2, 0},
      {"success with an answer of another class", 1, [] { return new TVideoGetSize(); }, 0, -4},
      {"failure with an answer of another class", 0, [] { return new TVideoGetSize(); }, 0, -4},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    LogCapture log;
    m_server.setResult(kCode, row.sendResult);
    m_server.setAnswer(kCode, row.answer);
    Handed handed;
    short error = 1;
    EXPECT_EQ(row.expected, list(&handed, &error));
    EXPECT_EQ(row.expectedError, error);
    if (row.expectedError == 0) {
      EXPECT_EQ((Tuners{{5, 1}, {7, 2}}), handed.tuners(2));
      EXPECT_TRUE(log.lines().empty());
    } else {
      EXPECT_TRUE(handed.untouched());
      EXPECT_EQ(std::vector<std::string>{kNoAnswer}, log.messages());
    }
    EXPECT_EQ(&m_server, m_server.last().endPoint);
    EXPECT_EQ(kCode, m_server.last().code);
  }
}

TEST_F(TunerList, TunersAreCopiedInIndexOrderIntoNewArrays) {
  const Tuners cases[] = {
      {},
      {{5, 1}, {7, 2}, {9, 1}},
      {{INT_MIN, 0}, {-1, 255}, {INT_MAX, 128}, {0, 1}},
  };
  for (const auto& tuners : cases) {
    SCOPED_TRACE(tuners.size());
    m_server.setAnswer(kCode, [&tuners] { return listOf(tuners); });
    LogCapture log;
    for (bool withErrorCode : {false, true}) {
      Handed handed;
      short error = -5;
      const int count = list(&handed, withErrorCode ? &error : nullptr);
      EXPECT_EQ(static_cast<int>(tuners.size()), count);
      EXPECT_EQ(withErrorCode ? 0 : -5, error);
      // Even for no tuners both arrays come from malloc (freed by Handed).
      EXPECT_NE(kIdsUntouched, handed.ids);
      EXPECT_NE(kTypesUntouched, handed.types);
      EXPECT_EQ(tuners, handed.tuners(count));
    }
    EXPECT_TRUE(log.lines().empty());
  }
}

TEST_F(TunerList, AtMostTheFirst256TunersAreCopiedAndCounted) {
  const std::pair<int, int> rows[] = {{255, 255}, {256, 256}, {257, 256}, {300, 256}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.first);
    Tuners tuners;
    for (int i = 0; i < row.first; ++i) {
      tuners.emplace_back(1000 + i, static_cast<unsigned char>(i * 3));
    }
    m_server.setAnswer(kCode, [&tuners] { return listOf(tuners); });
    Handed handed;
    short error = 1;
    const int count = list(&handed, &error);
    EXPECT_EQ(row.second, count);
    EXPECT_EQ(0, error);
    // Reading past the arrays would show under AddressSanitizer.
    EXPECT_EQ(Tuners(tuners.begin(), tuners.begin() + row.second), handed.tuners(count));
  }
}

TEST_F(TunerList, ConcurrentCallersEachGetWholeLists) {
  const Tuners tuners{{5, 1}, {7, 2}, {9, 1}};
  m_server.setAnswer(kCode, [&tuners] { return listOf(tuners); });
  std::atomic<int> wrong{0};
  std::atomic<bool> go{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      while (!go)
        std::this_thread::yield();
      for (int i = 0; i < 200; ++i) {
        Handed handed;
        short error = 1;
        const int count = list(&handed, &error);
        if (count != 3 || error != 0 || handed.tuners(count) != tuners)
          ++wrong;
      }
    });
  }
  go = true;
  for (auto& th : threads)
    th.join();
  EXPECT_EQ(0, wrong.load());
  EXPECT_EQ(800u, m_server.commandCount());
}
