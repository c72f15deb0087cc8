// The per-tuner table cache: instances, the bound and its clean-up, replacement,
// lookups, refusals and flushing.
#include <gtest/gtest.h>
#include <limits.h>

#include <atomic>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "Cacher.h"
#include "CountedTable.h"
#include "LogCapture.h"
#include "cache_test_support.h"

using namespace Ostrel;
using OstrelTest::CacheFakeClock;
using OstrelTest::CountedTable;
using OstrelTest::LogCapture;

namespace {

const std::string kEmptyItem = "Cacher: add: Can't add an empty item...";
const std::string kInvalidDestination = "Cacher: get: ERROR: Invalid destination pointer(s).";

class CacheTest : public testing::Test {
 protected:
  void TearDown() override {
    // Tables count into this fixture: none may outlive it inside a cache.
    for (Cacher* cache : m_caches)
      cache->flush();
  }

  Cacher* freshCache() {
    Cacher* cache = Cacher::getInstance(OstrelTest::freshTunerId());
    m_caches.push_back(cache);
    return cache;
  }

  CountedTable* table(std::atomic<int>* destroyed = nullptr) {
    return new CountedTable(TISDBTTable::kTypePat, destroyed ? destroyed : &m_destroyed);
  }

  // Adds one table per size, PIDs 1, 2, ..., one second apart.
  void addSizes(Cacher* cache, std::initializer_list<unsigned int> sizes) {
    short pid = 1;
    for (unsigned int size : sizes) {
      cache->add(pid++, 0x00, 0, table(), size);
      m_clock.advance();
    }
  }

  // The PIDs among candidates that are cached (the lookups refresh them).
  static std::vector<short> cachedPids(Cacher* cache, std::initializer_list<short> candidates) {
    std::vector<short> pids;
    for (short pid : candidates) {
      if (OstrelTest::lend(cache, pid))
        pids.push_back(pid);
    }
    return pids;
  }

  CacheFakeClock m_clock;
  LogCapture m_log;
  std::atomic<int> m_destroyed{0};
  std::vector<Cacher*> m_caches;
};

}  // namespace

TEST_F(CacheTest, GetInstanceGivesOneCachePerTunerId) {
  const int tuner = OstrelTest::freshTunerId();
  Cacher* first = Cacher::getInstance(tuner);
  ASSERT_NE(nullptr, first);
  EXPECT_EQ(first, Cacher::getInstance(tuner));
  EXPECT_EQ(tuner, first->getTunerId());

  Cacher* other = Cacher::getInstance(tuner + 1000000);
  EXPECT_NE(first, other);
  EXPECT_EQ(tuner + 1000000, other->getTunerId());

  ScopedLock lock(&Cacher::s_pStaticMutex);
  EXPECT_EQ(first, Cacher::s_pInstances.at(tuner));
  EXPECT_EQ(other, Cacher::s_pInstances.at(tuner + 1000000));
}

TEST_F(CacheTest, EntriesUpToTheBoundAreKeptAndOneByteMoreCleansUp) {
  EXPECT_EQ(2048, Cacher::s_iMaxCacheSize);
  struct Row {
    std::initializer_list<unsigned int> sizes;
    std::vector<short> kept;
  };
  const Row rows[] = {
      {{2048}, {1}},
      {{2049}, {}},  // too big on its own: goes at once
      {{1024, 1024}, {1, 2}},
      {{1024, 1025}, {2}},
      {{2047, 1}, {1, 2}},
      {{2047, 2}, {2}},
      {{1, 2047, 1}, {2, 3}},
      {{1000, 1000, 48}, {1, 2, 3}},
      {{1000, 1000, 49}, {2, 3}},
      {{600, 600, 600, 600}, {2, 3, 4}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::PrintToString(std::vector<unsigned int>(row.sizes)));
    Cacher* cache = freshCache();
    m_destroyed = 0;
    addSizes(cache, row.sizes);
    EXPECT_EQ(row.kept, cachedPids(cache, {1, 2, 3, 4}));
    EXPECT_EQ(static_cast<int>(row.sizes.size() - row.kept.size()), m_destroyed.load());
    cache->flush();
    EXPECT_EQ(static_cast<int>(row.sizes.size()), m_destroyed.load());
  }
  EXPECT_TRUE(m_log.lines().empty());
}

TEST_F(CacheTest, LeastRecentlyUsedOfThreeEntriesOf1000Goes) {
  {
    SCOPED_TRACE("no reads: the oldest goes");
    Cacher* cache = freshCache();
    addSizes(cache, {1000, 1000, 1000});
    EXPECT_EQ((std::vector<short>{2, 3}), cachedPids(cache, {1, 2, 3}));
  }
  {
    SCOPED_TRACE("the oldest read after the second was made: the second goes");
    Cacher* cache = freshCache();
    addSizes(cache, {1000, 1000});
    unsigned int size = 0;
    ASSERT_NE(nullptr, OstrelTest::lend(cache, 1, &size));
    EXPECT_EQ(1000u, size);
    m_clock.advance();
    cache->add(3, 0x00, 0, table(), 1000);
    EXPECT_EQ((std::vector<short>{1, 3}), cachedPids(cache, {1, 2, 3}));
  }
  {
    SCOPED_TRACE("the raw get refreshes as well");
    Cacher* cache = freshCache();
    addSizes(cache, {1000, 1000});
    TISDBTTable* raw = nullptr;
    unsigned int size = 0;
    ASSERT_EQ(1, cache->get(1, 0, 0, &raw, &size));
    m_clock.advance();
    cache->add(3, 0x00, 0, table(), 1000);
    EXPECT_EQ((std::vector<short>{1, 3}), cachedPids(cache, {1, 2, 3}));
  }
  EXPECT_EQ(3, m_destroyed.load());
}

TEST_F(CacheTest, ReplacingAPidDestroysTheOldTableOnceAndAccountsItsSize) {
  Cacher* cache = freshCache();
  std::atomic<int> oldDestroyed{0};
  cache->add(0x10, 0x40, 1, table(&oldDestroyed), 1000);
  m_clock.advance();
  cache->add(0x11, 0x40, 1, table(), 1000);
  m_clock.advance();

  CountedTable* replacement = table();
  cache->add(0x10, 0x42, 9, replacement, 48);  // other table id and extension
  EXPECT_EQ(1, oldDestroyed.load());
  EXPECT_TRUE(replacement->isAlive());
  m_clock.advance();

  // 48 + 1000 + 1000: exactly the bound, so nothing goes.
  cache->add(0x12, 0x40, 1, table(), 1000);
  m_clock.advance();
  EXPECT_EQ(0, m_destroyed.load());

  // One byte over: 0x11 is now the least recently used, not the replaced PID.
  cache->add(0x13, 0x40, 1, table(), 1);
  EXPECT_EQ(1, m_destroyed.load());
  EXPECT_EQ((std::vector<short>{0x10, 0x12, 0x13}), cachedPids(cache, {0x10, 0x11, 0x12, 0x13}));

  // Found by PID alone, whatever table id and extension are asked for.
  TISDBTTable* found = nullptr;
  unsigned int size = 0;
  EXPECT_EQ(1, cache->get(0x10, 0x7F, -1, &found, &size));
  EXPECT_EQ(replacement, found);
  EXPECT_EQ(48u, size);

  cache->flush();
  EXPECT_EQ(1, oldDestroyed.load());
  EXPECT_EQ(4, m_destroyed.load());
}

TEST_F(CacheTest, GetOfAnUncachedPidReturnsZeroAndLeavesTheOutputsAlone) {
  Cacher* cache = freshCache();
  for (int filled = 0; filled < 2; ++filled) {
    SCOPED_TRACE(filled ? "other PIDs cached" : "empty cache");
    if (filled) {
      cache->add(0x00, 0x00, 0, table(), 10);
      cache->add(0x12, 0x00, 0, table(), 10);
    }
    for (short pid : {short(0x11), short(0x1FFF), short(-1), short(0x7FFF)}) {
      TISDBTTable* const rawSentinel = reinterpret_cast<TISDBTTable*>(0x1234);
      TISDBTTable* raw = rawSentinel;
      unsigned int size = 77;
      EXPECT_EQ(0, cache->get(pid, 0x00, 0, &raw, &size));
      EXPECT_EQ(rawSentinel, raw);
      EXPECT_EQ(77u, size);

      auto sentinel = std::make_shared<TISDBTTable>();
      std::shared_ptr<TISDBTTable> shared = sentinel;
      EXPECT_EQ(0, cache->get(pid, 0x00, 0, &shared, &size));
      EXPECT_EQ(sentinel, shared);
      EXPECT_EQ(77u, size);
    }
  }
  EXPECT_TRUE(m_log.lines().empty());  // a miss is no error
}

TEST_F(CacheTest, NullOutputsAreRefusedWithTheirMessageAndDoNotRefresh) {
  Cacher* cache = freshCache();
  addSizes(cache, {1000, 1000});

  TISDBTTable* raw = nullptr;
  std::shared_ptr<TISDBTTable> shared;
  unsigned int size = 0;
  EXPECT_EQ(0, cache->get(1, 0, 0, static_cast<TISDBTTable**>(nullptr), &size));
  EXPECT_EQ(0, cache->get(1, 0, 0, &raw, nullptr));
  EXPECT_EQ(0, cache->get(1, 0, 0, static_cast<TISDBTTable**>(nullptr), nullptr));
  EXPECT_EQ(0, cache->get(1, 0, 0, static_cast<std::shared_ptr<TISDBTTable>*>(nullptr), &size));
  EXPECT_EQ(0, cache->get(1, 0, 0, &shared, nullptr));
  EXPECT_EQ(nullptr, raw);
  EXPECT_EQ(nullptr, shared);
  EXPECT_EQ(0u, size);

  const auto lines = m_log.lines();
  ASSERT_EQ(5u, lines.size());
  for (const auto& line : lines) {
    EXPECT_EQ(4, line.level);
    EXPECT_EQ("Cacher", line.module);
    EXPECT_EQ(kInvalidDestination, line.message);
  }

  // PID 1 was not refreshed: it is still the one to go.
  m_clock.advance();
  cache->add(3, 0x00, 0, table(), 1000);
  EXPECT_EQ((std::vector<short>{2, 3}), cachedPids(cache, {1, 2, 3}));
}

TEST_F(CacheTest, EmptyAddsAreRefusedWithTheirMessageAndChangeNothing) {
  Cacher* cache = freshCache();
  CountedTable* cached = table();
  cache->add(0x20, 0x02, 1, cached, 100);

  std::atomic<int> refusedDestroyed{0};
  CountedTable* refused = table(&refusedDestroyed);
  auto refusedShared = std::make_shared<CountedTable>(TISDBTTable::kTypePmt, &refusedDestroyed);

  cache->add(0x20, 0x02, 1, static_cast<TISDBTTable*>(nullptr), 100);
  cache->add(0x20, 0x02, 1, refused, 0);
  cache->add(0x20, 0x02, 1, std::shared_ptr<TISDBTTable>(), 100);
  cache->add(0x20, 0x02, 1, refusedShared, 0);
  cache->add(0x21, 0x02, 1, refused, 0);  // a new PID is not made either

  EXPECT_EQ(5, m_log.count(kEmptyItem));
  for (const auto& line : m_log.lines()) {
    EXPECT_EQ(4, line.level);
    EXPECT_EQ("Cacher", line.module);
  }
  // The caller keeps what was refused; the cache holds no reference to it.
  EXPECT_TRUE(refused->isAlive());
  EXPECT_EQ(1, refusedShared.use_count());
  EXPECT_EQ(0, refusedDestroyed.load());
  delete refused;

  TISDBTTable* found = nullptr;
  unsigned int size = 0;
  EXPECT_EQ(1, cache->get(0x20, 0, 0, &found, &size));
  EXPECT_EQ(cached, found);
  EXPECT_EQ(100u, size);
  EXPECT_EQ(0, cache->get(0x21, 0, 0, &found, &size));
  EXPECT_EQ(0, m_destroyed.load());

  // The size of the one entry is all that counts: 100 + 1948 fits.
  cache->add(0x22, 0x02, 1, table(), 1948);
  EXPECT_EQ(0, m_destroyed.load());
}

TEST_F(CacheTest, CachesOfDifferentTunersAreIndependent) {
  Cacher* a = freshCache();
  Cacher* b = freshCache();
  std::atomic<int> destroyedA{0}, destroyedB{0};
  for (short pid : {short(0x00), short(0x10)}) {
    a->add(pid, 0x00, 0, table(&destroyedA), 1024);
    b->add(pid, 0x00, 0, table(&destroyedB), 1024);
  }
  // Each has the whole bound to itself.
  EXPECT_EQ((std::vector<short>{0x00, 0x10}), cachedPids(a, {0x00, 0x10}));
  EXPECT_EQ((std::vector<short>{0x00, 0x10}), cachedPids(b, {0x00, 0x10}));
  EXPECT_NE(OstrelTest::lend(a, 0x00), OstrelTest::lend(b, 0x00));

  b->add(0x11, 0x00, 0, table(&destroyedB), 1);  // cleans b only
  EXPECT_EQ(0, destroyedA.load());
  EXPECT_EQ(1, destroyedB.load());

  a->flush();
  EXPECT_EQ(2, destroyedA.load());
  EXPECT_EQ(1, destroyedB.load());
  // 0x00 was read last (above), so 0x10 was b's least recently used.
  EXPECT_EQ((std::vector<short>{0x00, 0x11}), cachedPids(b, {0x00, 0x10, 0x11}));
  b->flush();
  EXPECT_EQ(3, destroyedB.load());
}

TEST_F(CacheTest, FlushDestroysEveryTableOnceAndEmptiesTheSum) {
  Cacher* cache = freshCache();
  cache->flush();  // empty: nothing to do
  EXPECT_EQ(0, m_destroyed.load());

  for (short pid : {short(-5), short(0), short(0x10), short(0x11), short(0x1FFF)}) {
    cache->add(pid, 0x00, 0, table(), 400);
  }
  cache->flush();
  EXPECT_EQ(5, m_destroyed.load());
  EXPECT_TRUE(cachedPids(cache, {-5, 0, 0x10, 0x11, 0x1FFF}).empty());
  cache->flush();
  EXPECT_EQ(5, m_destroyed.load());

  // The sum starts again from 0: a full bound fits.
  cache->add(0x10, 0x00, 0, table(), 2048);
  EXPECT_EQ(5, m_destroyed.load());
  EXPECT_EQ((std::vector<short>{0x10}), cachedPids(cache, {0x10}));
}

TEST_F(CacheTest, CleanUpOnlyRemovesWhatExceedsTheBound) {
  Cacher* cache = freshCache();
  addSizes(cache, {1000, 1000});
  cache->cleanUp();
  EXPECT_EQ(0, m_destroyed.load());
  EXPECT_EQ((std::vector<short>{1, 2}), cachedPids(cache, {1, 2}));
}

TEST_F(CacheTest, TheBoundIsTunable) {
  const int saved = Cacher::s_iMaxCacheSize;
  Cacher::s_iMaxCacheSize = 100;
  Cacher* cache = freshCache();
  addSizes(cache, {60, 40});
  EXPECT_EQ(0, m_destroyed.load());
  addSizes(cache, {1});  // PID 1 again, 1 byte: 41 in all
  EXPECT_EQ(1, m_destroyed.load());
  cache->add(3, 0x00, 0, table(), 60);  // 101: PID 2 is the oldest now
  EXPECT_EQ((std::vector<short>{1, 3}), cachedPids(cache, {1, 2, 3}));
  Cacher::s_iMaxCacheSize = saved;
}

TEST_F(CacheTest, ReAddingTheCachedTableUnderItsPidKeepsOneOwner) {
  Cacher* cache = freshCache();
  CountedTable* cached = table();
  cache->add(0x30, 0x00, 0, cached, 10);
  m_clock.advance();
  cache->add(0x30, 0x00, 0, cached, 20);
  EXPECT_TRUE(cached->isAlive());
  EXPECT_EQ(0, m_destroyed.load());

  unsigned int size = 0;
  EXPECT_EQ(cached, OstrelTest::lend(cache, 0x30, &size).get());
  EXPECT_EQ(20u, size);
  cache->flush();
  EXPECT_EQ(1, m_destroyed.load());
}

TEST_F(CacheTest, AHugeDataSizeCannotWrapTheSum) {
  for (unsigned int huge : {UINT_MAX, UINT_MAX - 1000u, 0x80000000u}) {
    SCOPED_TRACE(huge);
    Cacher* cache = freshCache();
    m_destroyed = 0;
    addSizes(cache, {1000, 1000});
    cache->add(3, 0x00, 0, table(), huge);
    // Nothing fits beside a table that exceeds the bound on its own.
    EXPECT_EQ(3, m_destroyed.load());
    EXPECT_TRUE(cachedPids(cache, {1, 2, 3}).empty());

    cache->add(4, 0x00, 0, table(), 2048);  // the sum is exact again
    EXPECT_EQ(3, m_destroyed.load());
    EXPECT_EQ((std::vector<short>{4}), cachedPids(cache, {4}));
    cache->flush();
  }
}

TEST_F(CacheTest, AccessesWithinOneSecondKeepTheirOrder) {
  {
    SCOPED_TRACE("a read in the same second counts");
    Cacher* cache = freshCache();
    cache->add(0x30, 0x00, 0, table(), 1000);
    cache->add(0x20, 0x00, 0, table(), 1000);
    ASSERT_NE(nullptr, OstrelTest::lend(cache, 0x30));
    cache->add(0x10, 0x00, 0, table(), 1000);
    EXPECT_EQ((std::vector<short>{0x10, 0x30}), cachedPids(cache, {0x10, 0x20, 0x30}));
  }
  {
    SCOPED_TRACE("the newest entry outlives an older one of the same second");
    Cacher* cache = freshCache();
    cache->add(0x50, 0x00, 0, table(), 2000);
    cache->add(0x05, 0x00, 0, table(), 100);
    EXPECT_EQ((std::vector<short>{0x05}), cachedPids(cache, {0x05, 0x50}));
  }
  EXPECT_EQ(2, m_destroyed.load());
}

TEST_F(CacheTest, DestroyingACacheDestroysItsTables) {
  const int tuner = OstrelTest::freshTunerId();
  Cacher* cache = Cacher::getInstance(tuner);
  cache->add(0x00, 0x00, 0, table(), 10);
  cache->add(0x10, 0x40, 0, table(), 10);
  auto kept = OstrelTest::lend(cache, 0x10);
  OstrelTest::destroyCache(tuner);
  EXPECT_EQ(1, m_destroyed.load());
  ASSERT_NE(nullptr, kept);
  EXPECT_TRUE(static_cast<CountedTable*>(kept.get())->isAlive());
  kept.reset();
  EXPECT_EQ(2, m_destroyed.load());
  // The tuner id gets a new, empty cache on its next use.
  EXPECT_EQ(nullptr, OstrelTest::lend(Cacher::getInstance(tuner), 0x00));
  OstrelTest::destroyCache(tuner);
}
