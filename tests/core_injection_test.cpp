#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <vector>

#include "Cacher.h"
#include "CountedTable.h"
#include "CountedUserData.h"
#include "LogCapture.h"
#include "OstrelGingaCommonCore.h"
#include "RecordingServer.h"
#include "RequestFollower.h"
#include "Sections.h"
#include "TPATTable.h"
#include "TPMTTable.h"

using namespace Ostrel;
using OstrelTest::CountedTable;
using OstrelTest::CountedUserData;
using OstrelTest::LogCapture;
using OstrelTest::RecordingServer;

namespace {

struct Seen {
  unsigned int requestId;
  unsigned char status;
  void* userData;
  TISDBTTable* table;
  int releasesAtCall;            // releases of the user data when the callback ran
  unsigned short programNumber;  // read from the table during the call
};

std::mutex s_mutex;
std::vector<Seen> s_seen;
int s_verdict = 1;

int recordingCallback(unsigned int requestId, unsigned char status, void* userData,
                      TISDBTTable* table) {
  Seen seen{requestId, status, userData, table, -1, 0};
  if (userData)
    seen.releasesAtCall = static_cast<CountedUserData*>(userData)->releases;
  if (auto* pmt = dynamic_cast<TPMTTable*>(table))
    seen.programNumber = pmt->getProgramNumber();
  std::lock_guard<std::mutex> lock(s_mutex);
  s_seen.push_back(seen);
  return s_verdict;
}

const char kParseError[] = "GingaCommonCore: injectData: ERROR: Could not parse data!";

class Injection : public testing::Test {
 protected:
  void SetUp() override {
    m_core = OstrelGingaCommonCore::getInstance();
    m_core->setServer(&m_server);
    m_core->setRequestNotificationCallback(&recordingCallback);
    s_verdict = 1;
    s_seen.clear();
  }
  void TearDown() override {
    RequestFollower::destroy();
    Cacher::getInstance(kTuner)->flush();
    Cacher::getInstance(kTuner + 1)->flush();
  }
  int inject(short pid, short tableId, short ext, std::vector<unsigned char> section,
             int tuner = kTuner) {
    return m_core->injectData(tuner, pid, tableId, ext, nullptr, section.data(),
                              static_cast<unsigned int>(section.size()));
  }
  void request(unsigned int id, short pid, short tableId, short ext, CountedUserData* data,
               int tuner = kTuner) {
    ASSERT_EQ(1, m_core->requestData(id, 2, tuner, pid, tableId, ext, data,
                                     &CountedUserData::release, nullptr));
  }
  bool cached(short pid, int tuner = kTuner) {
    TISDBTTable* table = nullptr;
    unsigned int size = 0;
    return Cacher::getInstance(tuner)->get(pid, 0, 0, &table, &size) == 1;
  }

  static const int kTuner = 3;
  // User data outlives TearDown, where destroy releases what is still pending.
  CountedUserData a, b, c, other;
  OstrelGingaCommonCore* m_core = nullptr;
  RecordingServer m_server;
};

}  // namespace

TEST_F(Injection, ParserIsChosenByPidAndForOtherPidsByTableIdTwo) {
  const auto pat = OstrelTest::patSection();
  const auto pmt = OstrelTest::pmtSection();
  struct Row {
    short pid, tableId;
    const std::vector<unsigned char>* section;
    bool parsed;
  };
  const Row rows[] = {
      {0x0000, 0x00, &pat, true},  {0x0000, 0x02, &pat, true},   // PAT PID: whatever the id
      {0x0000, 0x02, &pmt, false}, {0x0001, 0x02, &pmt, false},  // never parsed
      {0x0012, 0x02, &pmt, false}, {0x0024, 0x02, &pmt, false},
      {0x0026, 0x02, &pmt, false}, {0x0100, 0x02, &pmt, true},
      {0x0100, 0x03, &pmt, false}, {-1, 0x02, &pmt, true},       // PID 0xFFFF as PMT
      {0x0100, 0x02, &pat, false}, {0x0010, 0x02, &pmt, false},  // NIT parser refuses a PMT
  };
  for (const Row& row : rows) {
    LogCapture log;
    Cacher::getInstance(kTuner)->flush();
    EXPECT_EQ(0, inject(row.pid, row.tableId, 0, *row.section)) << row.pid << "/" << row.tableId;
    EXPECT_EQ(row.parsed ? 0 : 1, log.count(kParseError)) << row.pid << "/" << row.tableId;
    EXPECT_EQ(row.parsed, cached(row.pid)) << row.pid << "/" << row.tableId;
  }
}

TEST_F(Injection, UnparsableDataLeavesRequestsOutstanding) {
  request(1, 0x0012, 0x4E, 0, &a);
  LogCapture log;
  std::vector<unsigned char> section = OstrelTest::pmtSection();
  EXPECT_EQ(0, inject(0x0012, 0x4E, 0, section));
  section[5] ^= 0x01;  // a damaged section never parses
  EXPECT_EQ(0, inject(0x0100, 0x02, 0, section));
  EXPECT_EQ(0, m_core->injectData(kTuner, 0x100, 2, 0, nullptr, nullptr, 0));
  EXPECT_EQ(3, log.count(kParseError));
  EXPECT_NE(nullptr, RequestFollower::get(1u));
  EXPECT_EQ(0, a.releases.load());
  EXPECT_TRUE(s_seen.empty());
}

TEST_F(Injection, EveryWaitingRequestIsAnsweredInOrderWithTheSameTableAndReleased) {
  request(11, 0x0100, 2, 0xE760, &a);
  request(12, 0x0100, 2, 0xE760, &b);
  request(13, 0x0100, 2, 0xE760, &c);
  request(20, 0x0100, 2, 0xE761, &other);              // another extension
  request(21, 0x0100, 2, 0xE760, &other, kTuner + 1);  // another tuner
  EXPECT_EQ(1, inject(0x0100, 2, static_cast<short>(0xE760), OstrelTest::pmtSection()));
  ASSERT_EQ(3u, s_seen.size());
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(11u + i, s_seen[i].requestId);
    EXPECT_EQ(0, s_seen[i].status);
    EXPECT_EQ(s_seen[0].table, s_seen[i].table);
    EXPECT_EQ(0, s_seen[i].releasesAtCall) << "released after its notification";
    EXPECT_EQ(0xE760, s_seen[i].programNumber);
  }
  EXPECT_EQ(&a, s_seen[0].userData);
  EXPECT_EQ(&b, s_seen[1].userData);
  EXPECT_EQ(&c, s_seen[2].userData);
  EXPECT_EQ(1, a.releases.load());
  EXPECT_EQ(1, b.releases.load());
  EXPECT_EQ(1, c.releases.load());
  EXPECT_EQ(0, other.releases.load());
  EXPECT_EQ(nullptr, RequestFollower::get(11u));
  EXPECT_NE(nullptr, RequestFollower::get(20u));
  EXPECT_NE(nullptr, RequestFollower::get(21u));
  EXPECT_TRUE(cached(0x0100));
  EXPECT_EQ(0, inject(0x0100, 2, static_cast<short>(0xE760), OstrelTest::pmtSection()))
      << "answered requests are gone";
}

TEST_F(Injection, RequestIsEndedEvenWhenTheCallbackRefusesOrIsMissing) {
  request(1, 0x0000, 0, 0, &a);
  s_verdict = 0;
  LogCapture log;
  EXPECT_EQ(1, inject(0x0000, 0, 0, OstrelTest::patSection()));
  EXPECT_EQ(1, a.releases.load());
  EXPECT_EQ(1, log.count("GingaCommonCore: dispatchRequestFeedback: Request filled notification "
                         "failed!"));
  request(2, 0x0000, 0, 0, &b);
  m_core->setRequestNotificationCallback(nullptr);
  EXPECT_EQ(1, inject(0x0000, 0, 0, OstrelTest::patSection()));
  EXPECT_EQ(1, b.releases.load());
  EXPECT_EQ(nullptr, RequestFollower::get(2u));
}

TEST_F(Injection, UnaskedCacheableTableIsCachedAndAnswersNothing) {
  EXPECT_EQ(0, inject(0x0000, 0, 0, OstrelTest::patSection(0x1234)));
  TISDBTTable* table = nullptr;
  unsigned int size = 0;
  ASSERT_EQ(1, Cacher::getInstance(kTuner)->get(0, 0, 0, &table, &size));
  EXPECT_EQ(OstrelTest::patSection(0x1234).size(), size) << "the section's byte count is its size";
  EXPECT_EQ(0x1234, static_cast<TPATTable*>(table)->getTransportStreamId());
  EXPECT_FALSE(cached(0x0000, kTuner + 1));
  EXPECT_TRUE(s_seen.empty());
}

TEST_F(Injection, TableEvictedByItsOwnCleanUpStaysValidForEveryDelivery) {
  const int bound = Cacher::s_iMaxCacheSize;
  Cacher::s_iMaxCacheSize = 1;  // every table is evicted as soon as it is added
  request(1, 0x0100, 2, 0x10, &a);
  request(2, 0x0100, 2, 0x10, &b);
  EXPECT_EQ(1, inject(0x0100, 2, 0x10, OstrelTest::pmtSection(0x10)));
  Cacher::s_iMaxCacheSize = bound;
  ASSERT_EQ(2u, s_seen.size());
  EXPECT_EQ(0x10, s_seen[0].programNumber);  // read inside the call: no use after free
  EXPECT_EQ(0x10, s_seen[1].programNumber);
  EXPECT_FALSE(cached(0x0100));
}

TEST(TableTypes, CacheableAndEventDataCodes) {
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  const unsigned int cacheable[] = {0x00000000, 0x00010000, 0x00100000, 0x00110000,
                                    0x00120000, 0x0012004E, 0x0012004F, 0x00140000,
                                    0x00240000, 0x00260000, 0xFFFF0002, 0xFFFF0074};
  for (unsigned int type : cacheable) {
    CountedTable table(type);
    EXPECT_EQ(1, core->isCacheable(&table)) << std::hex << type;
    EXPECT_EQ(0, core->isEventData(&table)) << std::hex << type;
  }
  const unsigned int others[] = {0x00120050, 0x00130000, 0x00000002, 0x003D0000,
                                 0xFFFF0000, 0xFFFFFFFF, 0x00140073, 0x00250000};
  for (unsigned int type : others) {
    CountedTable table(type);
    EXPECT_EQ(0, core->isCacheable(&table)) << std::hex << type;
    EXPECT_EQ(type == 0x003D0000 ? 1 : 0, core->isEventData(&table)) << std::hex << type;
  }
}
