// The per-tuner table cache: lookups that hit and miss, adds that fit and adds
// that start the clean-up, at one and two threads on one tuner's cache.
#include <benchmark/benchmark.h>

#include "Cacher.h"
#include "TISDBTTable.h"

using Ostrel::Cacher;
using Ostrel::TISDBTTable;

namespace {

// One tuner per benchmark, so that none sees another's entries.
enum Tuner { kGetHit = 9001, kGetMiss, kAddFits, kAddCleansUp };

// Eight tables of 256: the cache is exactly full.
Cacher* fullCache(int tuner) {
  Cacher* cache = Cacher::getInstance(tuner);
  cache->flush();
  for (short pid = 0; pid < 8; ++pid) {
    cache->add(pid, 0x02, 1, new TISDBTTable(TISDBTTable::kTypePmt), 256);
  }
  return cache;
}

void BM_GetHit(benchmark::State& state) {
  static Cacher* cache;
  if (state.thread_index() == 0)
    cache = fullCache(kGetHit);
  const short pid = static_cast<short>(state.thread_index() % 8);
  for (auto _ : state) {
    TISDBTTable* table = nullptr;
    unsigned int size = 0;
    benchmark::DoNotOptimize(cache->get(pid, 0x02, 1, &table, &size));
  }
}
BENCHMARK(BM_GetHit)->Threads(1)->Threads(2)->UseRealTime();

void BM_GetMiss(benchmark::State& state) {
  static Cacher* cache;
  if (state.thread_index() == 0)
    cache = fullCache(kGetMiss);
  for (auto _ : state) {
    TISDBTTable* table = nullptr;
    unsigned int size = 0;
    benchmark::DoNotOptimize(cache->get(0x1FFF, 0x02, 1, &table, &size));
  }
}
BENCHMARK(BM_GetMiss)->Threads(1)->Threads(2)->UseRealTime();

// Replaces a PID's table with a new one of the same size: the sum stays in
// bounds.
void BM_AddWithoutCleanUp(benchmark::State& state) {
  static Cacher* cache;
  if (state.thread_index() == 0)
    cache = fullCache(kAddFits);
  const short pid = static_cast<short>(state.thread_index() % 8);
  for (auto _ : state) {
    cache->add(pid, 0x02, 1, new TISDBTTable(TISDBTTable::kTypePmt), 256);
  }
}
BENCHMARK(BM_AddWithoutCleanUp)->Threads(1)->Threads(2)->UseRealTime();

// A new PID into a full cache, as the injection adds: a newly parsed table each
// time; each add sorts the nine entries and evicts one.
void BM_AddWithCleanUp(benchmark::State& state) {
  static Cacher* cache;
  if (state.thread_index() == 0)
    cache = fullCache(kAddCleansUp);
  short pid = static_cast<short>(0x100 * (state.thread_index() + 1));
  for (auto _ : state) {
    cache->add(pid, 0x02, 1, new TISDBTTable(TISDBTTable::kTypePmt), 256);
    pid = static_cast<short>(pid + 1);
  }
}
BENCHMARK(BM_AddWithCleanUp)->Threads(1)->Threads(2)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
