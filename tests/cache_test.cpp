// The per-tuner table cache through its published operations: instances, the
// bound and its clean-up, replacement, lookups, refusals, flushing, and the
// tables the core lends from it while it delivers them. This program defines
// time() itself, which the cache's last-access times resolve to.
#include <gtest/gtest.h>
#include <time.h>

#include <atomic>
#include <thread>
#include <vector>

#include "Cacher.h"
#include "CountedTable.h"
#include "LogCapture.h"
#include "OstrelGingaCommonCore.h"
#include "RecordingServer.h"
#include "ScopedLock.h"
#include "Sections.h"
#include "TPATTable.h"

using Ostrel::Cacher;
using Ostrel::OstrelGingaCommonCore;
using Ostrel::TISDBTTable;
using OstrelTest::CountedTable;
using OstrelTest::LogCapture;

namespace {

std::atomic<time_t> s_now{1000};

}  // namespace

extern "C" time_t time(time_t* out) {
  time_t now = s_now;
  if (out)
    *out = now;
  return now;
}

namespace {

class CacheTest : public testing::Test {
 protected:
  Cacher* freshCache() {
    static std::atomic<int> next{1000};
    return Cacher::getInstance(next++);
  }
  CountedTable* table() {
    ++m_made;
    return new CountedTable(TISDBTTable::kTypePat, &m_destroyed);
  }

  // One table per size under PIDs 1, 2, ..., one second apart.
  void addSizes(Cacher* cache, const std::vector<unsigned int>& sizes) {
    short pid = 1;
    for (unsigned int size : sizes) {
      cache->add(pid++, 0x00, 0, table(), size);
      ++s_now;
    }
  }
  // The PIDs in 1..8 that are cached; each lookup refreshes its entry.
  static std::vector<short> cached(Cacher* cache) {
    std::vector<short> pids;
    for (short pid = 1; pid <= 8; ++pid) {
      TISDBTTable* found = nullptr;
      unsigned int size = 0;
      if (cache->get(pid, 0, 0, &found, &size))
        pids.push_back(pid);
    }
    return pids;
  }

  LogCapture m_log;
  std::atomic<int> m_made{0};
  std::atomic<int> m_destroyed{0};
};

TEST_F(CacheTest, OneCachePerTunerIdEvenWhenManyThreadsAskFirst) {
  std::vector<Cacher*> seen(8);
  std::vector<std::thread> threads;
  for (size_t i = 0; i < seen.size(); ++i)
    threads.emplace_back([&seen, i] { seen[i] = Cacher::getInstance(77); });
  for (std::thread& thread : threads)
    thread.join();
  for (Cacher* cache : seen)
    EXPECT_EQ(seen[0], cache);
  EXPECT_NE(seen[0], Cacher::getInstance(78));
  Ostrel::ScopedLock lock(&Cacher::s_pStaticMutex);
  EXPECT_EQ(seen[0], Cacher::s_pInstances.at(77));
}

TEST_F(CacheTest, TheBoundKeepsTheMostRecentlyUsedEntries) {
  ASSERT_EQ(2048, Cacher::s_iMaxCacheSize);
  struct Row {
    std::vector<unsigned int> sizes;
    std::vector<short> kept;
    int destroyed;
  };
  const Row rows[] = {
      {{2048}, {1}, 0},
      {{2049}, {}, 1},  // too big on its own: goes at once
      {{1024, 1024}, {1, 2}, 0},
      {{1024, 1025}, {2}, 1},
      {{2047, 2}, {2}, 1},
      {{1, 2047, 1}, {2, 3}, 1},
      {{1000, 1000, 48}, {1, 2, 3}, 0},
      {{1000, 1000, 49}, {2, 3}, 1},
      {{600, 600, 600, 600}, {2, 3, 4}, 1},
      {{1000, 1000, 2000}, {3}, 2},         // one add evicts two entries
      {{500, 500, 500, 2049}, {}, 4},       // and every entry, the new one last
      {{500, 500, 1048, 1000}, {3, 4}, 2},  // two, down to the bound exactly
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::PrintToString(row.sizes));
    Cacher* cache = freshCache();
    m_destroyed = 0;
    addSizes(cache, row.sizes);
    EXPECT_EQ(row.kept, cached(cache));
    EXPECT_EQ(row.destroyed, m_destroyed);
  }
}

// A read, of any table id and extension, makes an entry the most recently
// used; within one second the entry used first goes first.
TEST_F(CacheTest, AReadMakesAnEntryTheMostRecentlyUsed) {
  Cacher* cache = freshCache();
  addSizes(cache, {1000, 1000});
  TISDBTTable* found = nullptr;
  unsigned int size = 0;
  ASSERT_EQ(1, cache->get(1, 0x42, 7, &found, &size));
  EXPECT_EQ(1000u, size);
  ++s_now;
  cache->add(3, 0, 0, table(), 1000);
  EXPECT_EQ((std::vector<short>{1, 3}), cached(cache));
  Cacher* sameSecond = freshCache();
  sameSecond->add(5, 0, 0, table(), 700);
  sameSecond->add(2, 0, 0, table(), 700);
  sameSecond->add(8, 0, 0, table(), 600);
  ASSERT_EQ(1, sameSecond->get(2, 0, 0, &found, &size));
  sameSecond->add(7, 0, 0, table(), 100);  // 2100: one entry must go
  EXPECT_EQ((std::vector<short>{2, 7, 8}), cached(sameSecond));
}

TEST_F(CacheTest, ReplacingAPidDestroysTheOldTableAndCountsOnlyTheNewSize) {
  Cacher* cache = freshCache();
  CountedTable* first = table();
  cache->add(0x11, 0x42, 1, first, 1000);
  CountedTable* second = table();
  cache->add(0x11, 0x46, 2, second, 48);  // another table id: replaced all the same
  EXPECT_EQ(1, m_destroyed);
  cache->add(1, 0, 0, table(), 1000);
  cache->add(2, 0, 0, table(), 1000);  // 48 + 2000: exactly the bound
  EXPECT_EQ(1, m_destroyed);
  TISDBTTable* found = nullptr;
  unsigned int size = 0;
  ASSERT_EQ(1, cache->get(0x11, 0, 0, &found, &size));
  EXPECT_EQ(second, found);
  EXPECT_EQ(48u, size);
  cache->add(0x11, 0x46, 2, second, 40);  // the table it holds: kept, not owned twice
  EXPECT_TRUE(second->isAlive());
  cache->flush();
  EXPECT_EQ(4, m_destroyed);
}

TEST_F(CacheTest, RefusalsAndMissesChangeNothingAndWriteNothing) {
  Cacher* cache = freshCache();
  addSizes(cache, {1000, 1000});
  CountedTable* refused = table();
  cache->add(3, 0, 0, refused, 0);
  cache->add(4, 0, 0, nullptr, 10);
  EXPECT_EQ(2, m_log.count("Cacher: add: Can't add an empty item..."));
  EXPECT_TRUE(refused->isAlive());  // still the caller's
  delete refused;

  TISDBTTable* found = reinterpret_cast<TISDBTTable*>(0x1);
  unsigned int size = 77;
  EXPECT_EQ(0, cache->get(5, 0, 0, &found, &size));
  EXPECT_EQ(reinterpret_cast<TISDBTTable*>(0x1), found);
  EXPECT_EQ(77u, size);
  EXPECT_EQ(0, cache->get(1, 0, 0, nullptr, &size));
  EXPECT_EQ(0, cache->get(1, 0, 0, &found, nullptr));
  EXPECT_EQ(2, m_log.count("Cacher: get: ERROR: Invalid destination pointer(s)."));

  // Neither refused lookup refreshed PID 1: it is still the one to go.
  ++s_now;
  cache->add(6, 0, 0, table(), 48);
  cache->add(7, 0, 0, table(), 1);
  EXPECT_EQ((std::vector<short>{2, 6, 7}), cached(cache));
}

TEST_F(CacheTest, FlushAndCleanUpDestroyEachTableOnce) {
  Cacher* cache = freshCache();
  addSizes(cache, {500, 500, 500});
  cache->cleanUp();  // within the bound: nothing goes
  EXPECT_EQ(0, m_destroyed);
  cache->flush();
  EXPECT_EQ(3, m_destroyed);
  EXPECT_TRUE(cached(cache).empty());
  cache->flush();
  EXPECT_EQ(3, m_destroyed);
  addSizes(cache, {2048});  // the sum started again from 0
  EXPECT_EQ((std::vector<short>{1}), cached(cache));
}

TEST_F(CacheTest, TheBoundIsTunableAndAHugeSizeCannotWrapTheSum) {
  Cacher* cache = freshCache();
  Cacher::s_iMaxCacheSize = 100;
  addSizes(cache, {60, 60});
  Cacher::s_iMaxCacheSize = 2048;
  EXPECT_EQ((std::vector<short>{2}), cached(cache));

  addSizes(cache, {1000, 0xFFFFFFF0u});
  EXPECT_TRUE(cached(cache).empty());
  addSizes(cache, {2048});
  EXPECT_EQ((std::vector<short>{1}), cached(cache));
}

// Caches are never destroyed, at exit included: a cached table whose
// destructor uses a global of the program would run after that global is gone
// (AddressSanitizer reports the use).
std::vector<int> s_globalOfTheProgram(1);

struct TableUsingAGlobal : TISDBTTable {
  TableUsingAGlobal() : TISDBTTable(kTypePat) {}
  ~TableUsingAGlobal() override { s_globalOfTheProgram.push_back(1); }
};

TEST_F(CacheTest, CachedTablesOutliveTheProgramsGlobals) {
  Cacher::getInstance(8)->add(1, 0, 0, new TableUsingAGlobal, 10);
  EXPECT_EQ(1u, s_globalOfTheProgram.size());
}

// The core lends cached tables to its callback: whatever the callback does to
// the cache meanwhile, the table it was given stays valid for the whole call,
// and is destroyed once afterwards.
CountedTable* s_lent = nullptr;
std::atomic<int> s_lentDestroyed{0};
bool s_aliveAfterChanges = false;

int replaceAndFlush(unsigned int requestId, unsigned char status, void*, TISDBTTable* table) {
  if (requestId == 1) {  // a second loan of the same table, given back first
    OstrelGingaCommonCore::getInstance()->requestData(2, 0, 5, 0x30, 2, 1, nullptr, nullptr,
                                                      nullptr);
  } else {
    Cacher::getInstance(5)->add(0x30, 0, 0, new CountedTable(TISDBTTable::kTypePat), 10);
    Cacher::getInstance(5)->flush();
  }
  s_aliveAfterChanges = status == 0 && table == s_lent && s_lent->isAlive() && s_lentDestroyed == 0;
  return 1;
}

TEST_F(CacheTest, ATableLentToTheCallbackOutlivesReplaceAndFlush) {
  s_lent = new CountedTable(TISDBTTable::kTypePat, &s_lentDestroyed);
  Cacher::getInstance(5)->add(0x30, 0, 0, s_lent, 10);
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  core->setRequestNotificationCallback(&replaceAndFlush);
  EXPECT_EQ(1, core->requestData(1, 0, 5, 0x30, 0x02, 1, nullptr, nullptr, nullptr));
  EXPECT_TRUE(s_aliveAfterChanges);
  EXPECT_EQ(1, s_lentDestroyed);
}

std::atomic<int> s_patsRead{0};

int readPatAfterFlush(unsigned int, unsigned char, void*, TISDBTTable* table) {
  Cacher::getInstance(6)->flush();
  s_patsRead += static_cast<Ostrel::TPATTable*>(table)->getTransportStreamId() == 0x0640;
  return 1;
}

TEST_F(CacheTest, AnInjectedTableEvictedAtOnceIsStillDeliveredToEachRequest) {
  OstrelTest::RecordingServer server;
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  core->setServer(&server);
  core->setRequestNotificationCallback(&readPatAfterFlush);
  ASSERT_EQ(1, core->requestData(2, 2, 6, 0, 0, 0, nullptr, nullptr, nullptr));
  ASSERT_EQ(1, core->requestData(3, 2, 6, 0, 0, 0, nullptr, nullptr, nullptr));
  std::vector<unsigned char> pat = OstrelTest::patSection(0x0640);
  Cacher::s_iMaxCacheSize = 1;  // the clean-up takes the new table at once
  EXPECT_EQ(1, core->injectData(6, 0, 0, 0, nullptr, pat.data(), pat.size()));
  Cacher::s_iMaxCacheSize = 2048;
  EXPECT_EQ(2, s_patsRead) << "each delivery reads the table it was lent";
}

// Borrowers on the test's thread read tables through the core while other
// threads replace, evict and flush them (run under the sanitizers).
int touch(unsigned int, unsigned char, void*, TISDBTTable* table) {
  return static_cast<CountedTable*>(table)->isAlive() ? 1 : 0;
}

TEST_F(CacheTest, LentTablesStayValidWhileOtherThreadsChangeTheCache) {
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  core->setRequestNotificationCallback(&touch);
  Cacher* cache = Cacher::getInstance(7);
  std::atomic<bool> stop{false};
  std::vector<std::thread> writers;
  for (int w = 0; w < 2; ++w) {
    writers.emplace_back([&, w] {
      for (int i = 0; !stop; ++i) {
        cache->add(static_cast<short>(i % 4), 0, 0, table(), 700);
        if (i % 16 == 15 - w)
          cache->flush();
      }
    });
  }
  int refused = 0;
  for (int i = 0; i < 20000; ++i) {
    short error = 0;
    if (!core->requestData(i, 0, 7, static_cast<short>(i % 4), 0x02, 0, nullptr, nullptr, &error) &&
        error == 0)
      ++refused;  // answered from the cache, but the table was dead
  }
  stop = true;
  for (std::thread& writer : writers)
    writer.join();
  EXPECT_EQ(0, refused);
  cache->flush();
  EXPECT_EQ(m_made, m_destroyed);
}

}  // namespace
