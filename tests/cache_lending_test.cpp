// Tables lent by the cache stay valid for their borrower, whatever other
// threads do to the entry meanwhile; and each is destroyed exactly once.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "Cacher.h"
#include "CountedTable.h"
#include "cache_test_support.h"

using namespace Ostrel;
using OstrelTest::CacheFakeClock;
using OstrelTest::CountedTable;

namespace {

class CacheLendingTest : public testing::Test {
 protected:
  void SetUp() override { m_cache = Cacher::getInstance(OstrelTest::freshTunerId()); }
  void TearDown() override { m_cache->flush(); }

  std::shared_ptr<TISDBTTable> shared(std::atomic<int>* destroyed) {
    return std::make_shared<CountedTable>(TISDBTTable::kTypeSdt, destroyed);
  }

  // Runs what on a thread of its own and waits for it: the borrower stays on
  // the test's thread.
  static void onOtherThread(const std::function<void()>& what) { std::thread(what).join(); }

  static bool alive(const std::shared_ptr<TISDBTTable>& table) {
    return static_cast<CountedTable*>(table.get())->isAlive();
  }

  CacheFakeClock m_clock;
  Cacher* m_cache = nullptr;
};

}  // namespace

TEST_F(CacheLendingTest, AHandleLentByGetOutlivesReplaceEvictionAndFlush) {
  struct Case {
    const char* name;
    std::function<void(Cacher*)> ending;
  };
  std::atomic<int> otherDestroyed{0};
  const Case cases[] = {
      {"replace",
       [&](Cacher* c) { c->add(0x10, 0x42, 0, new CountedTable(0, &otherDestroyed), 5); }},
      {"eviction",
       [&](Cacher* c) { c->add(0x11, 0x42, 0, new CountedTable(0, &otherDestroyed), 2048); }},
      {"flush", [](Cacher* c) { c->flush(); }},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    std::atomic<int> destroyed{0};
    m_cache->add(0x10, 0x02, 1, new CountedTable(TISDBTTable::kTypePmt, &destroyed), 100);
    m_clock.advance();

    std::shared_ptr<TISDBTTable> lent;
    unsigned int size = 0;
    ASSERT_EQ(1, m_cache->get(0x10, 0x02, 1, &lent, &size));
    EXPECT_EQ(100u, size);

    onOtherThread([&] { test.ending(m_cache); });
    EXPECT_NE(lent, OstrelTest::lend(m_cache, 0x10));  // the entry has let it go
    EXPECT_EQ(0, destroyed.load());
    EXPECT_TRUE(alive(lent));

    lent.reset();  // the last holder lets go
    EXPECT_EQ(1, destroyed.load());
    m_cache->flush();
    m_clock.advance();
  }
  EXPECT_EQ(2, otherDestroyed.load());
}

TEST_F(CacheLendingTest, ATableTheCallerKeepsAfterASharedAddOutlivesTheEntry) {
  std::atomic<int> destroyed{0};
  {
    SCOPED_TRACE("evicted by its own add, as a large injected table is");
    auto table = shared(&destroyed);
    m_cache->add(0x12, 0x00, 0, table, 4096);
    EXPECT_EQ(nullptr, OstrelTest::lend(m_cache, 0x12));
    EXPECT_TRUE(alive(table));
    EXPECT_EQ(1, table.use_count());
  }
  EXPECT_EQ(1, destroyed.load());
  {
    SCOPED_TRACE("replaced, evicted and flushed by other threads");
    auto table = shared(&destroyed);
    m_cache->add(0x12, 0x00, 0, table, 1000);
    EXPECT_EQ(2, table.use_count());  // the cache keeps one reference
    EXPECT_EQ(table, OstrelTest::lend(m_cache, 0x12));

    onOtherThread([&] { m_cache->add(0x12, 0x00, 0, shared(&destroyed), 1000); });
    EXPECT_TRUE(alive(table));
    EXPECT_EQ(1, table.use_count());

    m_cache->add(0x13, 0x00, 0, table, 1000);
    m_clock.advance();
    onOtherThread([&] { m_cache->add(0x14, 0x00, 0, shared(&destroyed), 2048); });
    EXPECT_TRUE(alive(table));

    m_cache->add(0x13, 0x00, 0, table, 1000);
    onOtherThread([&] { m_cache->flush(); });
    EXPECT_TRUE(alive(table));
    EXPECT_EQ(1, table.use_count());
    EXPECT_EQ(3, destroyed.load());  // the others, each once
  }
  EXPECT_EQ(4, destroyed.load());
}

TEST_F(CacheLendingTest, TheSameSharedTableReAddedKeepsOneCacheReference) {
  std::atomic<int> destroyed{0};
  auto table = shared(&destroyed);
  m_cache->add(0x20, 0x00, 0, table, 10);
  m_cache->add(0x20, 0x00, 0, table, 10);
  m_cache->add(0x21, 0x00, 0, table, 10);  // one table under two PIDs
  EXPECT_EQ(3, table.use_count());
  m_cache->flush();
  EXPECT_EQ(1, table.use_count());
  table.reset();
  EXPECT_EQ(1, destroyed.load());
}

TEST_F(CacheLendingTest, ARawLookupLendsTheCachedObjectItself) {
  std::atomic<int> destroyed{0};
  auto* table = new CountedTable(TISDBTTable::kTypeTot, &destroyed);
  m_cache->add(0x14, 0x73, 0, table, 30);
  TISDBTTable* raw = nullptr;
  unsigned int size = 0;
  ASSERT_EQ(1, m_cache->get(0x14, 0x73, 0, &raw, &size));
  EXPECT_EQ(table, raw);
  std::shared_ptr<TISDBTTable> lent;
  ASSERT_EQ(1, m_cache->get(0x14, 0x70, 0, &lent, &size));
  EXPECT_EQ(table, lent.get());
  lent.reset();
  EXPECT_EQ(0, destroyed.load());  // still the cache's
  m_cache->flush();
  EXPECT_EQ(1, destroyed.load());
}
