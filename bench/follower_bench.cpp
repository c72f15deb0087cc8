// Request follower costs: add, remove by id and remove by key with 10 to
// 100 000 requests outstanding, with the time-outs that the core chooses, and
// add with time-outs of the caller's own (each an ordered insert); and the
// lateness of time-out reports (report time minus deadline) with 1 000
// requests pending.
#include <benchmark/benchmark.h>
#include <sys/time.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <list>
#include <mutex>
#include <vector>

#include "OstrelGingaCommonCore.h"
#include "OstrelLogger.h"
#include "RequestFollower.h"

using Ostrel::RequestFollower;
using Item = RequestFollower::RequestFollowerItem;

namespace {

// Every request has a key of its own, for a TOT (60 s, from the core's
// getTimeout: one time-out per category, so its list stays in deadline order).
void addRequest(unsigned int id) {
  static const timeval timeOut = Ostrel::OstrelGingaCommonCore::getTimeout(0x14, 0x73, 0);
  RequestFollower::add(id, static_cast<int>(id >> 15), 0x14, 0x73, static_cast<short>(id & 0x7FFF),
                       nullptr, nullptr, timeOut, 1);
}

// The same key, with a deadline of its own spread over a quarter of an hour,
// so that it lands anywhere in its category list.
void addOwnTimeOut(unsigned int id) {
  timeval timeOut;
  timeOut.tv_sec = 1000 + (id * 7919u) % 900;
  timeOut.tv_usec = (id * 104729u) % 1000000;
  RequestFollower::add(id, static_cast<int>(id >> 15), 0x14, 0x73, static_cast<short>(id & 0x7FFF),
                       nullptr, nullptr, timeOut, 1);
}

void removeByKey(unsigned int id) {
  std::list<Item*>* taken = RequestFollower::remove(static_cast<int>(id >> 15), 0x14, 0x73,
                                                    static_cast<short>(id & 0x7FFF));
  for (Item* item : *taken)
    delete item;
  delete taken;
}

void prefill(unsigned int count, void (*add)(unsigned int)) {
  RequestFollower::destroy();
  for (unsigned int id = 1; id <= count; ++id)
    add(id);
}

// Each operation runs against `outstanding` pending requests plus at most one
// batch, refilled or drained outside the timing.
unsigned int batchFor(unsigned int outstanding) {
  return std::min(outstanding, 256u);
}

template <void (*Add)(unsigned int)>
void addBench(benchmark::State& state) {
  const unsigned int n = static_cast<unsigned int>(state.range(0));
  const unsigned int batch = batchFor(n);
  prefill(n, Add);
  unsigned int next = n + 1, inBatch = 0;
  for (auto _ : state) {
    Add(next++);
    if (++inBatch == batch) {
      state.PauseTiming();
      for (unsigned int id = next - batch; id < next; ++id)
        delete RequestFollower::remove(id);
      inBatch = 0;
      state.ResumeTiming();
    }
  }
  RequestFollower::destroy();
}

void BM_Add(benchmark::State& state) {
  addBench<&addRequest>(state);
}
void BM_AddOwnTimeOut(benchmark::State& state) {
  addBench<&addOwnTimeOut>(state);
}

template <void (*Remove)(unsigned int)>
void removeBench(benchmark::State& state) {
  const unsigned int n = static_cast<unsigned int>(state.range(0));
  const unsigned int batch = batchFor(n);
  prefill(n, &addRequest);
  unsigned int next = n + 1, left = 0;
  for (auto _ : state) {
    if (left == 0) {
      state.PauseTiming();
      for (unsigned int i = 0; i < batch; ++i)
        addRequest(next + i);
      left = batch;
      state.ResumeTiming();
    }
    Remove(next++);
    --left;
  }
  RequestFollower::destroy();
}

void removeById(unsigned int id) {
  delete RequestFollower::remove(id);
}

void BM_RemoveById(benchmark::State& state) {
  removeBench<&removeById>(state);
}
void BM_RemoveByKey(benchmark::State& state) {
  removeBench<&removeByKey>(state);
}

// ---- Lateness of time-out reports ----

struct Lateness {
  std::mutex mutex;
  std::condition_variable done;
  std::vector<std::pair<unsigned int, timeval>> reports;  // request id, time of the report
};
Lateness* s_pLateness = nullptr;

int recordLateness(unsigned int requestId, unsigned char, void*, Ostrel::TISDBTTable*) {
  timeval now;
  gettimeofday(&now, nullptr);
  std::lock_guard<std::mutex> lock(s_pLateness->mutex);
  s_pLateness->reports.push_back(std::make_pair(requestId, now));
  s_pLateness->done.notify_all();
  return 1;
}

long long percentile(std::vector<long long> v, double p) {
  std::sort(v.begin(), v.end());
  return v[static_cast<size_t>(p * (v.size() - 1))];
}

// 1 000 requests with deadlines spread evenly over one second, starting 200 ms
// after they are all filed.
void BM_TimeOutLateness(benchmark::State& state) {
  const unsigned int n = 1000;
  Ostrel::OstrelGingaCommonCore::getInstance()->setRequestNotificationCallback(&recordLateness);
  std::vector<long long> all;
  for (auto _ : state) {
    Lateness lateness;
    std::vector<timeval> deadlines(n);
    s_pLateness = &lateness;
    RequestFollower::destroy();
    for (unsigned int id = 1; id <= n; ++id) {
      timeval timeOut;
      timeOut.tv_sec = 0;
      timeOut.tv_usec = 200000 + (id - 1) * 800;
      RequestFollower::add(id, 0, 0x0100, 0x02, static_cast<short>(id), nullptr, nullptr, timeOut,
                           1);
      deadlines[id - 1] = RequestFollower::get(id)->getTimeOut();
    }
    auto start = std::chrono::steady_clock::now();
    std::unique_lock<std::mutex> lock(lateness.mutex);
    lateness.done.wait(lock, [&] { return lateness.reports.size() == n; });
    state.SetIterationTime(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    for (const auto& r : lateness.reports) {
      const timeval& d = deadlines[r.first - 1];
      all.push_back((r.second.tv_sec - d.tv_sec) * 1000000LL + (r.second.tv_usec - d.tv_usec));
    }
    lock.unlock();
    RequestFollower::destroy();
    s_pLateness = nullptr;
  }
  Ostrel::OstrelGingaCommonCore::getInstance()->setRequestNotificationCallback(nullptr);
  state.counters["late_median_us"] = static_cast<double>(percentile(all, 0.5));
  state.counters["late_p99_us"] = static_cast<double>(percentile(all, 0.99));
  state.counters["late_max_us"] = static_cast<double>(percentile(all, 1.0));
  state.counters["early"] =
      static_cast<double>(std::count_if(all.begin(), all.end(), [](long long v) { return v < 0; }));
}

}  // namespace

BENCHMARK(BM_Add)->Arg(10)->Arg(1000)->Arg(10000)->Arg(100000);
// Linear in the requests of the category that are due later: the registry is
// built for the handful a receiver keeps, with the core's time-outs.
BENCHMARK(BM_AddOwnTimeOut)->Arg(10)->Arg(100)->Arg(1000)->Arg(10000);
BENCHMARK(BM_RemoveById)->Arg(10)->Arg(1000)->Arg(10000)->Arg(100000);
BENCHMARK(BM_RemoveByKey)->Arg(10)->Arg(1000)->Arg(10000)->Arg(100000);
BENCHMARK(BM_TimeOutLateness)->UseManualTime()->Iterations(3)->Unit(benchmark::kMillisecond);

// Teardowns of an absent instance log a notice; keep the figures readable.
static void dropMessage(int, const char*, const char*, void*) {}

int main(int argc, char** argv) {
  ostrel_log_set_sink(&dropMessage, nullptr);
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv))
    return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
