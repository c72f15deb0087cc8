// Several threads on one tuner's cache: adds, lookups, clean-ups and flushes
// of the same PIDs while borrowers go on using the tables they were lent. Meant
// for ThreadSanitizer and AddressSanitizer (the tables poison themselves).
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "Cacher.h"
#include "CountedTable.h"
#include "cache_test_support.h"

using namespace Ostrel;
using OstrelTest::CountedTable;

namespace {

constexpr int kThreads = 4;
constexpr short kPids = 6;

// Starts every thread at once so that their operations overlap.
class StartLine {
 public:
  void wait() {
    ++m_ready;
    while (m_ready.load() < kThreads)
      std::this_thread::yield();
  }

 private:
  std::atomic<int> m_ready{0};
};

struct Counts {
  std::atomic<int> made{0};
  std::atomic<int> destroyed{0};
  std::atomic<int> deadSeen{0};
  std::atomic<int> oversized{0};
};

// The tables a borrower holds and keeps using for a while.
class Borrower {
 public:
  explicit Borrower(Counts* counts) : m_counts(counts) {}

  void hold(std::shared_ptr<TISDBTTable> table) { m_held[m_next++ % m_held.size()] = table; }

  void use() const {
    for (const auto& table : m_held) {
      if (!table)
        continue;
      const auto* counted = static_cast<const CountedTable*>(table.get());
      if (!counted->isAlive() || counted->getType() != TISDBTTable::kTypePmt)
        ++m_counts->deadSeen;
    }
  }

 private:
  Counts* m_counts;
  std::vector<std::shared_ptr<TISDBTTable>> m_held = std::vector<std::shared_ptr<TISDBTTable>>(4);
  size_t m_next = 0;
};

void work(Cacher* cache, unsigned int seed, int rounds, Counts* counts, StartLine* start) {
  std::mt19937 rng(seed);
  Borrower borrower(counts);
  auto newTable = [&] {
    ++counts->made;
    return new CountedTable(TISDBTTable::kTypePmt, &counts->destroyed);
  };
  start->wait();
  for (int i = 0; i < rounds; ++i) {
    const short pid = static_cast<short>(rng() % kPids);
    const unsigned int size = 1 + rng() % 1100;
    const unsigned int op = rng() % 20;
    if (op < 6) {  // the injection: adds and goes on delivering its table
      std::shared_ptr<TISDBTTable> table(newTable());
      cache->add(pid, 0x02, pid, table, size);
      borrower.hold(table);
    } else if (op < 8) {
      cache->add(pid, 0x02, pid, newTable(), size);
    } else if (op < 16) {  // the request path: looks up and delivers
      std::shared_ptr<TISDBTTable> table;
      unsigned int dataSize = 0;
      if (cache->get(pid, 0x02, 0, &table, &dataSize)) {
        if (dataSize > static_cast<unsigned int>(Cacher::s_iMaxCacheSize))
          ++counts->oversized;
        borrower.hold(table);
      }
    } else if (op < 18) {
      TISDBTTable* table = nullptr;
      unsigned int dataSize = 0;
      if (cache->get(pid, 0x02, 0, &table, &dataSize) && !table)
        ++counts->deadSeen;
    } else if (op < 19) {
      cache->cleanUp();
    } else {
      cache->flush();
    }
    borrower.use();
  }
}

}  // namespace

TEST(CacheConcurrencyTest, FirstUseFromManyThreadsMakesOneCache) {
  const int tuner = OstrelTest::freshTunerId();
  StartLine start;
  std::vector<Cacher*> seen(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      start.wait();
      seen[t] = Cacher::getInstance(tuner);
    });
  }
  for (auto& thread : threads)
    thread.join();
  for (Cacher* cache : seen)
    EXPECT_EQ(Cacher::getInstance(tuner), cache);
}

TEST(CacheConcurrencyTest, LentTablesStayValidWhileOtherThreadsAddGetAndFlush) {
  Cacher* cache = Cacher::getInstance(OstrelTest::freshTunerId());
  Counts counts;
  StartLine start;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back(work, cache, 17u + t, 4000, &counts, &start);
  }
  for (auto& thread : threads)
    thread.join();

  EXPECT_EQ(0, counts.deadSeen.load());
  EXPECT_EQ(0, counts.oversized.load());

  // What is left respects the bound, one table per PID.
  unsigned int sum = 0;
  for (short pid = 0; pid < kPids; ++pid) {
    unsigned int size = 0;
    if (OstrelTest::lend(cache, pid, &size))
      sum += size;
  }
  EXPECT_LE(sum, static_cast<unsigned int>(Cacher::s_iMaxCacheSize));

  // Every borrower has let go: flushing leaves no table behind, none twice.
  cache->flush();
  EXPECT_GT(counts.made.load(), 0);
  EXPECT_EQ(counts.made.load(), counts.destroyed.load());
}
