// One cache entry: what it keeps, its last access, its order and its table.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>

#include "CacherItem.h"
#include "CountedTable.h"
#include "cache_test_support.h"

using namespace Ostrel;
using OstrelTest::CacheFakeClock;
using OstrelTest::CountedTable;

TEST(CacherItemTest, KeepsPidTableAndSizeAndStartsAtTheClock) {
  CacheFakeClock clock(5000);
  std::atomic<int> destroyed{0};
  auto* table = new CountedTable(TISDBTTable::kTypeNit, &destroyed);
  {
    Cacher::CacherItem item(-2, 0x40, 0x1234, table, 0xFFFFFFFFu);
    EXPECT_EQ(-2, item.getPid());
    EXPECT_EQ(table, item.getData());
    EXPECT_EQ(table, item.getSharedData().get());
    EXPECT_EQ(0xFFFFFFFFu, item.getDataSize());
    EXPECT_EQ(5000, item.getLastAccess());

    clock.set(5007);
    item.updateLastAccess();
    EXPECT_EQ(5007, item.getLastAccess());
    EXPECT_EQ(0, destroyed.load());
  }
  EXPECT_EQ(1, destroyed.load());  // the entry owned its table
}

TEST(CacherItemTest, ASharedTableOutlivesItsEntry) {
  CacheFakeClock clock;
  std::atomic<int> destroyed{0};
  std::shared_ptr<TISDBTTable> table = std::make_shared<CountedTable>(0u, &destroyed);
  {
    Cacher::CacherItem item(0x11, 0x42, 1, table, 12);
    EXPECT_EQ(table.get(), item.getData());
    EXPECT_EQ(2, table.use_count());
  }
  EXPECT_EQ(1, table.use_count());
  EXPECT_EQ(0, destroyed.load());
  EXPECT_TRUE(static_cast<CountedTable*>(table.get())->isAlive());
}

TEST(CacherItemTest, OrderIsLeastRecentlyUsedFirst) {
  CacheFakeClock clock;
  struct Row {
    time_t first, second;  // the clock at each entry's making
    bool firstIsLess, secondIsLess;
  };
  const Row rows[] = {
      {100, 200, true, false},
      {200, 100, false, true},
      {-5, 3, true, false},  // signed seconds
      {0x7FFFFFFF, -0x7FFFFFFF - 1, false, true},
      {100, 100, true, false},  // same second: the earlier making
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(testing::Message() << row.first << " vs " << row.second);
    clock.set(row.first);
    Cacher::CacherItem first(1, 0, 0, new TISDBTTable(), 1);
    clock.set(row.second);
    Cacher::CacherItem second(2, 0, 0, new TISDBTTable(), 1);
    EXPECT_EQ(row.firstIsLess, first < second);
    EXPECT_EQ(row.secondIsLess, second < first);
    EXPECT_FALSE(first < first);
  }
}

TEST(CacherItemTest, AReadInTheSameSecondMovesAnEntryBehind) {
  CacheFakeClock clock;
  Cacher::CacherItem a(1, 0, 0, new TISDBTTable(), 1);
  Cacher::CacherItem b(2, 0, 0, new TISDBTTable(), 1);
  EXPECT_TRUE(a < b);
  a.updateLastAccess();
  EXPECT_TRUE(b < a);
  EXPECT_FALSE(a < b);
}

TEST(CacherItemTest, NullClockRestoresTheSystemClock) {
  { CacheFakeClock clock(1); }  // restores with setClock(nullptr)
  Cacher::setClock(nullptr);
  const time_t before = ::time(nullptr);
  Cacher::CacherItem item(1, 0, 0, new TISDBTTable(), 1);
  const time_t after = ::time(nullptr);
  EXPECT_LE(before, item.getLastAccess());
  EXPECT_GE(after, item.getLastAccess());
}
