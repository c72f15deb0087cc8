// The performance report: each of our figures measured beside a reference
// that does the bare minimum of the same job, in the same run, and printed as
// one table of ratios. Repetitions run interleaved in random order, so both
// sides of a pair see the same machine; the table takes the median of each.
//
//   report_bench [--quick] [Google Benchmark flags]
//
// --quick runs every benchmark once, briefly (CI). OSTREL_REPORT_HEAP32="heap
// item" adds the heap row measured on a 32-bit target (bench/run sets it).
#include <benchmark/benchmark.h>

#include <pthread.h>
#include <sys/time.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "BenchSections.h"
#include "Cacher.h"
#include "GingaServer.h"
#include "OstrelGingaCommonCore.h"
#include "OstrelLogger.h"
#include "RecordingServer.h"
#include "RequestFollower.h"
#include "Sections.h"
#include "TCrc32.h"
#include "TDescriptorBuilder.h"
#include "TPMTBuilder.h"
#include "TPMTTable.h"
#include "report_heap.h"

#ifdef OSTREL_BENCH_DVBPSI
#include "tables_dvbpsi.h"  // libdvbpsi, included once
#endif
#ifdef OSTREL_REPORT_SIM
#include "BenchStream.h"
#endif

using namespace Ostrel;
using Bytes = std::vector<unsigned char>;
using OstrelTest::countingCallback;
using OstrelTest::pmt288;
using OstrelTest::withVersion;
using NullServer = OstrelTest::RecordingServer;

namespace {

// Keeps a call through a function pointer from being inlined away.
template <class T>
T opaque(T value) {
  benchmark::DoNotOptimize(value);
  return value;
}

// ---- Cache-hit requestData round trip ----

const short kFirstPid = 0x0100;
const int kCachedPids = 16;

void BM_RoundTrip_Ours(benchmark::State& state) {
  NullServer server;
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  core->setServer(&server);
  core->setRequestNotificationCallback(&countingCallback);
  const int tuner = 100;
  Bytes pmt = OstrelTest::pmtSection(0x0101, 4);
  for (short pid = kFirstPid; pid < kFirstPid + kCachedPids; ++pid) {
    Cacher::getInstance(tuner)->add(
        pid, 2, 0, TPMTTable::parse(pmt.data(), pmt.size(), 1, 1, nullptr, nullptr), 64);
  }
  long answered = 0;
  short pid = kFirstPid;
  for (auto _ : state) {
    core->requestData(1, 1, tuner, pid, 2, 0x0101, &answered, nullptr, nullptr);
    pid = static_cast<short>(kFirstPid + ((pid + 1) & 0x0F));
  }
  if (answered != static_cast<long>(state.iterations()))
    state.SkipWithError("not answered");
  Cacher::getInstance(tuner)->flush();
  core->setServer(nullptr);
}

// The least any cache-hit answer costs: lock, look the PID up among 16,
// call the callback through a pointer, unlock.
void BM_RoundTrip_Ref(benchmark::State& state) {
  pthread_mutexattr_t attr;
  pthread_mutexattr_init(&attr);
  pthread_mutexattr_settype(&attr, PTHREAD_MUTEX_RECURSIVE);
  pthread_mutex_t mutex;
  pthread_mutex_init(&mutex, &attr);
  pthread_mutexattr_destroy(&attr);
  std::map<short, TISDBTTable*> tables;
  std::vector<std::unique_ptr<TISDBTTable>> owned;
  for (short pid = kFirstPid; pid < kFirstPid + kCachedPids; ++pid) {
    owned.emplace_back(new TISDBTTable());
    tables[pid] = owned.back().get();
  }
  int (*callback)(unsigned int, unsigned char, void*, TISDBTTable*) = opaque(&countingCallback);
  long answered = 0;
  short pid = kFirstPid;
  for (auto _ : state) {
    pthread_mutex_lock(&mutex);
    std::map<short, TISDBTTable*>::iterator it = tables.find(pid);
    TISDBTTable* table = it == tables.end() ? nullptr : it->second;
    pthread_mutex_unlock(&mutex);
    if (table)
      callback(1, 0, &answered, table);
    pid = static_cast<short>(kFirstPid + ((pid + 1) & 0x0F));
  }
  if (answered != static_cast<long>(state.iterations()))
    state.SkipWithError("not answered");
  pthread_mutex_destroy(&mutex);
}

// ---- Injection of a 288-byte PMT answering one request ----

// Sections per iteration: the requests are filed outside the timing, a batch
// at a time, so that pausing the clock costs little per section.
const int kInjectBatch = 64;

void BM_Inject_Ours(benchmark::State& state) {
  NullServer server;
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  core->setServer(&server);
  core->setRequestNotificationCallback(&countingCallback);
  Bytes pmt = pmt288();
  const timeval timeOut = {60, 0};
  long answered = 0;
  for (auto _ : state) {
    state.PauseTiming();
    for (int i = 0; i < kInjectBatch; ++i) {
      RequestFollower::add(static_cast<unsigned int>(i + 1), 1, kFirstPid, 2, static_cast<short>(i),
                           &answered, nullptr, timeOut, 1);
    }
    state.ResumeTiming();
    for (int i = 0; i < kInjectBatch; ++i) {
      core->injectData(1, kFirstPid, 2, static_cast<short>(i), nullptr, pmt.data(),
                       static_cast<unsigned int>(pmt.size()));
    }
  }
  if (answered != kInjectBatch * static_cast<long>(state.iterations()))
    state.SkipWithError("not every request answered");
  RequestFollower::destroy();
  Cacher::getInstance(1)->flush();
  core->setServer(nullptr);
}

#ifdef OSTREL_BENCH_DVBPSI

// libdvbpsi decodes only what is pushed as transport stream packets; two
// versions alternate so that every push yields a new table (CRC checked,
// decoded, handed to its callback and deleted).
void BM_Inject_Ref(benchmark::State& state) {
  Bytes section = pmt288();
  OstrelDvbpsi::Decoder decoder(OstrelDvbpsi::Decoder::kPmt, 0xE760, false);
  unsigned int counter = 0;
  Bytes variants[2];
  for (int v = 0; v < 2; ++v)
    variants[v] = OstrelDvbpsi::packetize(withVersion(section, v), kFirstPid, &counter);
  const size_t packets = variants[0].size() / OstrelDvbpsi::kPacketSize;
  counter = 0;
  int64_t pushed = 0;
  for (auto _ : state) {
    for (int i = 0; i < kInjectBatch; ++i) {
      Bytes& p = variants[pushed & 1];
      for (size_t k = 0; k < packets; ++k)  // continuity counters carry on
        p[k * OstrelDvbpsi::kPacketSize + 3] =
            static_cast<unsigned char>(0x10 | (counter++ & 0x0F));
      decoder.push(p);
      ++pushed;
    }
  }
  if (decoder.tables() != pushed)
    state.SkipWithError("libdvbpsi missed tables");
}
#endif

// ---- CRC-32 over 4 KiB ----

Bytes crcData() {
  Bytes data(4096);
  for (size_t i = 0; i < data.size(); ++i)
    data[i] = static_cast<unsigned char>(i * 7);
  return data;
}

void BM_Crc_Ours(benchmark::State& state) {
  Bytes data = crcData();
  for (auto _ : state)
    benchmark::DoNotOptimize(TCrc32::compute(data.data(), static_cast<unsigned int>(data.size())));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data.size()));
}

// One 256-entry table, one byte per step: how libdvbpsi computes it.
void BM_Crc_Ref(benchmark::State& state) {
  uint32_t table[256];
  for (uint32_t i = 0; i < 256; ++i) {
    uint32_t r = i << 24;
    for (int bit = 0; bit < 8; ++bit)
      r = (r & 0x80000000u) ? (r << 1) ^ 0x04C11DB7u : r << 1;
    table[i] = r;
  }
  Bytes data = crcData();
  if (TCrc32::compute(data.data(), static_cast<unsigned int>(data.size())) == 0)
    state.SkipWithError("unexpected CRC");
  for (auto _ : state) {
    uint32_t crc = 0xFFFFFFFFu;
    for (unsigned char byte : data)
      crc = (crc << 8) ^ table[(crc >> 24) ^ byte];
    benchmark::DoNotOptimize(crc);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * data.size()));
}

// ---- Follower add + remove by key, 100 000 outstanding ----

const int kOutstanding = 100000;
const int kPidSpan = 0x1E00;

void quiet(int, const char*, const char*, void*) {}

// Deadlines 15 to 30 minutes ahead, so that insertions land all over.
timeval spreadTimeOut(std::minstd_rand* random) {
  timeval t;
  t.tv_sec = 900 + static_cast<long>((*random)() % 900);
  t.tv_usec = static_cast<long>((*random)() % 1000000);
  return t;
}

// Requests as requestData files them: for a TOT (PID 0x14, 60 s), with the
// time-out that the core's getTimeout gives, one key each.
void BM_Follower_Ours(benchmark::State& state) {
  RequestFollower::destroy();
  const timeval timeOut = OstrelGingaCommonCore::getTimeout(0x14, 0x73, 0);
  for (int i = 0; i < kOutstanding; ++i) {
    RequestFollower::add(static_cast<unsigned int>(i + 1), 2 + i / kPidSpan, 0x14, 0x73,
                         static_cast<short>(i % kPidSpan), nullptr, nullptr, timeOut, 1);
  }
  unsigned int id = kOutstanding + 1;
  short ext = 0;
  for (auto _ : state) {
    RequestFollower::add(id, 1, 0x14, 0x73, ext, nullptr, nullptr, timeOut, 1);
    std::list<RequestFollower::RequestFollowerItem*>* taken =
        RequestFollower::remove(1, 0x14, 0x73, ext);
    for (RequestFollower::RequestFollowerItem* item : *taken)
      delete item;
    if (taken->size() != 1)
      state.SkipWithError("not taken");
    delete taken;
    ++id;
    ext = static_cast<short>((ext + 1) & 0x3FFF);
  }
  RequestFollower::destroy();
}

// The reference again, with what the registry's rule adds to every change
// of the pending requests: a broadcast to a thread that sleeps on a far
// deadline as the monitor does, wakes, takes the lock, reads the clock and
// sleeps again. Two changes (insert, erase), two wake-ups.
class SleepingMonitor {
 public:
  SleepingMonitor() : m_thread([this] { run(); }) {}
  ~SleepingMonitor() {
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_bStop = true;
    }
    m_cond.notify_all();
    m_thread.join();
  }
  // Broadcasts after the lock is let go, as the follower does.
  void change() {
    { std::lock_guard<std::mutex> lock(m_mutex); }
    m_cond.notify_all();
  }

 private:
  void run() {
    std::unique_lock<std::mutex> lock(m_mutex);
    const auto far = std::chrono::system_clock::now() + std::chrono::hours(1);
    while (!m_bStop) {
      m_cond.wait_until(lock, far);
      timeval now;
      gettimeofday(&now, nullptr);
      benchmark::DoNotOptimize(now);
    }
  }

  std::mutex m_mutex;
  std::condition_variable m_cond;
  bool m_bStop = false;
  std::thread m_thread;
};

// The same number of entries in one ordered tree, each new entry landing at
// a random place as a new deadline does; erased again by its key. changed()
// runs after each of the two changes.
template <class Changed>
void multimapPairs(benchmark::State& state, Changed changed) {
  std::minstd_rand random(7);
  auto deadlineKey = [&random] {
    timeval t = spreadTimeOut(&random);
    return uint64_t(t.tv_sec) * 1000000u + uint64_t(t.tv_usec);
  };
  std::multimap<uint64_t, void*> map;
  for (int i = 0; i < kOutstanding; ++i)
    map.insert(std::make_pair(deadlineKey(), &map));
  for (auto _ : state) {
    const uint64_t key = deadlineKey();
    map.insert(std::make_pair(key, &map));
    changed();
    if (map.erase(key) == 0)
      state.SkipWithError("not taken");
    changed();
  }
}

void BM_Follower_Ref(benchmark::State& state) {
  multimapPairs(state, [] {});
}

void BM_Follower_RefWake(benchmark::State& state) {
  SleepingMonitor monitor;
  multimapPairs(state, [&monitor] { monitor.change(); });
}

// ---- Time-out lateness, 1 000 pending ----

const unsigned int kPending = 1000;

struct Reports {
  std::mutex mutex;
  std::condition_variable done;
  std::vector<timeval> at;  // by request id - 1
  unsigned int count = 0;
};
Reports* s_pReports = nullptr;

int recordReport(unsigned int requestId, unsigned char, void*, TISDBTTable*) {
  timeval now;
  gettimeofday(&now, nullptr);
  std::lock_guard<std::mutex> lock(s_pReports->mutex);
  if (requestId >= 1 && requestId <= s_pReports->at.size()) {
    s_pReports->at[requestId - 1] = now;
    if (++s_pReports->count == s_pReports->at.size())
      s_pReports->done.notify_all();
  }
  return 1;
}

long long microsecondsAfter(const timeval& a, const timeval& b) {
  return (a.tv_sec - b.tv_sec) * 1000000LL + (a.tv_usec - b.tv_usec);
}

// The i-th relative time-out: 1 000 deadlines spread evenly over one second,
// starting 200 ms after they are all filed.
long timeOutMicroseconds(unsigned int i) {
  return 200000L + static_cast<long>(i) * 800L;
}

std::vector<long long> lateOurs() {
  Reports reports;
  reports.at.resize(kPending);
  s_pReports = &reports;
  OstrelGingaCommonCore::getInstance()->setRequestNotificationCallback(&recordReport);
  RequestFollower::destroy();
  std::vector<timeval> deadlines(kPending);
  for (unsigned int i = 0; i < kPending; ++i) {
    timeval timeOut = {0, timeOutMicroseconds(i)};
    RequestFollower::add(i + 1, 0, kFirstPid, 2, static_cast<short>(i), nullptr, nullptr, timeOut,
                         1);
    deadlines[i] = RequestFollower::get(i + 1)->getTimeOut();
  }
  {
    std::unique_lock<std::mutex> lock(reports.mutex);
    reports.done.wait(lock, [&] { return reports.count == kPending; });
  }
  RequestFollower::destroy();
  OstrelGingaCommonCore::getInstance()->setRequestNotificationCallback(nullptr);
  s_pReports = nullptr;
  std::vector<long long> late(kPending);
  for (unsigned int i = 0; i < kPending; ++i)
    late[i] = microsecondsAfter(reports.at[i], deadlines[i]);
  return late;
}

// A bare thread sleeping on a condition variable to each of the same
// deadlines in turn.
std::vector<long long> lateReference() {
  std::vector<timeval> deadlines(kPending);
  timeval now;
  gettimeofday(&now, nullptr);
  for (unsigned int i = 0; i < kPending; ++i) {
    long usec = now.tv_usec + timeOutMicroseconds(i);
    deadlines[i].tv_sec = now.tv_sec + usec / 1000000L;
    deadlines[i].tv_usec = usec % 1000000L;
  }
  std::vector<long long> late(kPending);
  pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
  pthread_cond_t cond = PTHREAD_COND_INITIALIZER;
  pthread_mutex_lock(&mutex);
  for (unsigned int i = 0; i < kPending; ++i) {
    timespec limit;
    limit.tv_sec = deadlines[i].tv_sec;
    limit.tv_nsec = deadlines[i].tv_usec * 1000L;
    while (pthread_cond_timedwait(&cond, &mutex, &limit) != ETIMEDOUT) {
    }
    timeval at;
    gettimeofday(&at, nullptr);
    late[i] = microsecondsAfter(at, deadlines[i]);
  }
  pthread_mutex_unlock(&mutex);
  return late;
}

double percentile(std::vector<long long> v, double p) {
  std::sort(v.begin(), v.end());
  return static_cast<double>(v[static_cast<size_t>(p * (v.size() - 1))]);
}

// Both sides several times, alternating, each side's reports pooled before the
// percentiles are taken: a stall of the machine (tens of milliseconds on this
// shared guest) then moves a few of the thousands of pooled reports of one
// side instead of a whole repetition's 99th percentile.
int g_iLatenessRounds = 6;  // 1 with --quick

void BM_Lateness(benchmark::State& state) {
  for (auto _ : state) {
    std::vector<long long> ours;
    std::vector<long long> ref;
    for (int round = 0; round < g_iLatenessRounds; ++round) {
      std::vector<long long>* first = round % 2 == 0 ? &ours : &ref;
      std::vector<long long>* second = round % 2 == 0 ? &ref : &ours;
      std::vector<long long> a = round % 2 == 0 ? lateOurs() : lateReference();
      std::vector<long long> b = round % 2 == 0 ? lateReference() : lateOurs();
      first->insert(first->end(), a.begin(), a.end());
      second->insert(second->end(), b.begin(), b.end());
    }
    state.counters["ours_p99_us"] = percentile(ours, 0.99);
    state.counters["ref_p99_us"] = percentile(ref, 0.99);
    state.counters["ours_median_us"] = percentile(ours, 0.5);
    state.counters["ref_median_us"] = percentile(ref, 0.5);
    state.counters["early"] = static_cast<double>(
        std::count_if(ours.begin(), ours.end(), [](long long v) { return v < 0; }));
  }
}

// ---- Simulator demux against a plain read ----

#ifdef OSTREL_REPORT_SIM
void BM_Demux_Ref(benchmark::State& state) {
  const std::string& path = OstrelBench::largeStreamFile();  // written before the clock runs
  Bytes buffer;
  uint64_t bytes = 0;
  for (auto _ : state) {
    const long long got = OstrelBench::plainRead(path, &buffer);
    if (got < 0) {
      state.SkipWithError("cannot open the stream file");
      return;
    }
    bytes += static_cast<uint64_t>(got);
  }
  state.SetBytesProcessed(static_cast<int64_t>(bytes));
}

void BM_Demux_Ours(benchmark::State& state) {
  const std::string& path = OstrelBench::largeStreamFile();  // written before the clock runs
  uint64_t bytes = 0;
  for (auto _ : state) {
    std::string error;
    uint64_t sections = 0;
    if (!OstrelBench::demuxWhole(path, &bytes, &sections, &error)) {
      state.SkipWithError(error.c_str());
      return;
    }
    if (sections == 0)
      state.SkipWithError("no sections");
  }
  state.SetBytesProcessed(static_cast<int64_t>(bytes));
}
#endif

// ---- Heap per outstanding request ----

void BM_Heap(benchmark::State& state) {
  RequestFollower::destroy();
  for (auto _ : state) {
    OstrelReport::HeapFigure figure = OstrelReport::measureHeapPerRequest();
    state.counters["heap"] = figure.dHeapPerRequest;
    state.counters["item"] = figure.uiItemSize;
  }
}

// ---- The table ----

struct Figure {
  double dCpuNs = 0;
  std::map<std::string, double> mapCounters;
};

// Keeps the median of each benchmark (or its only run) by function name.
class Collector : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
      const bool single = run.run_type == Run::RT_Iteration && run.repetitions <= 1;
      if (run.error_occurred) {
        std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
        m_mapFailed[run.run_name.function_name] = true;
        continue;
      }
      if (!median && !single)
        continue;
      Figure& f = m_mapFigures[run.run_name.function_name];
      f.dCpuNs = run.GetAdjustedCPUTime() * (1e9 / benchmark::GetTimeUnitMultiplier(run.time_unit));
      for (const auto& c : run.counters)
        f.mapCounters[c.first] = c.second.value;
      std::fprintf(stderr, ".");
    }
  }
  bool anyFailed() const { return !m_mapFailed.empty(); }
  const Figure* find(const std::string& name) const {
    if (m_mapFailed.count(name))
      return nullptr;
    auto it = m_mapFigures.find(name);
    return it == m_mapFigures.end() ? nullptr : &it->second;
  }

 private:
  std::map<std::string, Figure> m_mapFigures;
  std::map<std::string, bool> m_mapFailed;
};

std::string formatTime(double ns) {
  char text[32];
  if (ns >= 1e6)
    std::snprintf(text, sizeof text, "%.1f ms", ns / 1e6);
  else if (ns >= 1e3)
    std::snprintf(text, sizeof text, "%.2f µs", ns / 1e3);
  else
    std::snprintf(text, sizeof text, "%.1f ns", ns);
  return text;
}

std::string format(const char* fmt, double value) {
  char text[48];
  std::snprintf(text, sizeof text, fmt, value);
  return text;
}

int g_iMissed = 0;

// One line: what, ours, reference, ratio, target and whether it holds.
void row(const std::string& what, const std::string& ours, const std::string& ref, double ratio,
         const char* target, bool held) {
  if (!held)
    ++g_iMissed;
  std::printf("| %s | %s | %s | %.2f | %s | %s |\n", what.c_str(), ours.c_str(), ref.c_str(), ratio,
              target, held ? "met" : "**missed**");
}

// A line for information only: no target of its own.
void infoRow(const std::string& what, const std::string& ours, const std::string& ref,
             double ratio) {
  std::printf("| %s | %s | %s | %.2f | - | information |\n", what.c_str(), ours.c_str(),
              ref.c_str(), ratio);
}

void missing(const std::string& what) {
  std::printf("| %s | - | - | - | - | not measured |\n", what.c_str());
}

// Ours over reference by CPU time per iteration, at most the target.
void timeRow(const Collector& c, const std::string& what, const char* ours, const char* ref,
             double per, double target, const char* targetText) {
  const Figure* o = c.find(ours);
  const Figure* r = c.find(ref);
  if (!o || !r)
    return missing(what);
  const double ratio = o->dCpuNs / r->dCpuNs;
  row(what, formatTime(o->dCpuNs / per), formatTime(r->dCpuNs / per), ratio, targetText,
      ratio <= target);
}

void printTable(const Collector& c) {
  std::printf("\n| what | ours | reference in the same run | ratio | target | |\n");
  std::printf("|---|---|---|---|---|---|\n");
  timeRow(c, "cache-hit `requestData` round trip / lock + map of 16 + indirect call",
          "BM_RoundTrip_Ours", "BM_RoundTrip_Ref", 1, 6, "at most 6");
  timeRow(c, "`injectData` 288-byte PMT, one request / libdvbpsi PMT decode with CRC",
          "BM_Inject_Ours", "BM_Inject_Ref", kInjectBatch, 0.5, "at most 0.5");
  timeRow(c, "CRC-32 over 4 KiB / byte-wise table", "BM_Crc_Ours", "BM_Crc_Ref", 1, 0.25,
          "at most 0.25");
  timeRow(c, "follower `add` + `remove` by key, 100 000 outstanding / `std::multimap`",
          "BM_Follower_Ours", "BM_Follower_Ref", 1, 3, "at most 3");
  timeRow(c, "the same, calling thread's CPU only (no monitor wake-ups)", "BM_Follower_OursCaller",
          "BM_Follower_Ref", 1, 3, "at most 3");
  if (const Figure* o = c.find("BM_Follower_Ours")) {
    if (const Figure* w = c.find("BM_Follower_RefWake"))
      infoRow("the same pair / `std::multimap` plus two wake-ups of a sleeping monitor thread",
              formatTime(o->dCpuNs), formatTime(w->dCpuNs), o->dCpuNs / w->dCpuNs);
  }
  if (const Figure* l = c.find("BM_Lateness")) {
    const double ours = l->mapCounters.at("ours_p99_us");
    const double ref = l->mapCounters.at("ref_p99_us");
    const double ratio = ours / std::max(ref, 1.0);
    row("time-out lateness p99, 1 000 pending / bare `pthread_cond_timedwait`",
        format("%.0f µs", ours), format("%.0f µs", ref), ratio, "at most 1.2", ratio <= 1.2);
  } else {
    missing("time-out lateness p99, 1 000 pending");
  }
  const Figure* d = c.find("BM_Demux_Ours");
  const Figure* p = c.find("BM_Demux_Ref");
  if (d && p) {
    // A speed: the plain read's time over the demux's.
    const double ratio = p->dCpuNs / d->dCpuNs;
    row("simulator demux of a page-cached 200 MB stream / plain read (speed)",
        formatTime(d->dCpuNs), formatTime(p->dCpuNs), ratio, "at least 0.33", ratio >= 0.33);
  } else {
    missing("simulator demux / plain read");
  }
  if (const Figure* h = c.find("BM_Heap")) {
    const double heap = h->mapCounters.at("heap");
    const double item = h->mapCounters.at("item");
    const std::string what = "heap per outstanding request (" + std::to_string(sizeof(void*) * 8) +
                             "-bit host) / item size";
    if (sizeof(void*) == 4)
      row(what, format("%.0f B", heap), format("%.0f B", item), heap / item, "at most 3",
          heap / item <= 3);
    else  // the target is the receiver's, 32-bit: its row follows
      infoRow(what, format("%.0f B", heap), format("%.0f B", item), heap / item);
  }
  double heap32 = 0;
  double item32 = 0;
  const char* given = std::getenv("OSTREL_REPORT_HEAP32");
  if (given && std::sscanf(given, "%lf %lf", &heap32, &item32) == 2 && item32 > 0) {
    row("heap per outstanding request (32-bit, qemu) / item size", format("%.0f B", heap32),
        format("%.0f B", item32), heap32 / item32, "at most 192 B", heap32 <= 192);
  } else {
    missing("heap per outstanding request (32-bit)");
  }
  std::printf(
      "\nCPU time per operation, medians over the repetitions (the follower pair "
      "counts every thread of the process); %d target(s) missed.\n",
      g_iMissed);
}

}  // namespace

BENCHMARK(BM_RoundTrip_Ours);
BENCHMARK(BM_RoundTrip_Ref);
BENCHMARK(BM_Inject_Ours);
#ifdef OSTREL_BENCH_DVBPSI
BENCHMARK(BM_Inject_Ref);
#endif
BENCHMARK(BM_Crc_Ours);
BENCHMARK(BM_Crc_Ref);
BENCHMARK(BM_Follower_Ours)->MeasureProcessCPUTime();
// The same, the calling thread's CPU time only (the monitor's wake-ups left out).
BENCHMARK(BM_Follower_Ours)->Name("BM_Follower_OursCaller");
BENCHMARK(BM_Follower_Ref)->MeasureProcessCPUTime();
BENCHMARK(BM_Follower_RefWake)->MeasureProcessCPUTime();
BENCHMARK(BM_Lateness)->Iterations(1)->Repetitions(1)->UseRealTime();
#ifdef OSTREL_REPORT_SIM
BENCHMARK(BM_Demux_Ours);
BENCHMARK(BM_Demux_Ref);
#endif
BENCHMARK(BM_Heap)->Iterations(1);

int main(int argc, char** argv) {
  ostrel_log_set_sink(&quiet, nullptr);
  bool quick = false;
  std::vector<char*> args{argv[0]};
  std::string repetitions = "--benchmark_repetitions=5";
  std::string minTime = "--benchmark_min_time=0.2";
  std::string interleave = "--benchmark_enable_random_interleaving=true";
  std::string aggregates = "--benchmark_report_aggregates_only=true";
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--quick") == 0)
      quick = true;
  }
  if (quick) {
    repetitions = "--benchmark_repetitions=1";
    minTime = "--benchmark_min_time=0.01";
    g_iLatenessRounds = 1;
  }
  args.push_back(&repetitions[0]);
  args.push_back(&minTime[0]);
  args.push_back(&interleave[0]);
  args.push_back(&aggregates[0]);
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--quick") != 0)
      args.push_back(argv[i]);
  }
  int count = static_cast<int>(args.size());
  benchmark::Initialize(&count, args.data());
  if (benchmark::ReportUnrecognizedArguments(count, args.data()))
    return 1;
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  benchmark::Shutdown();
  std::fprintf(stderr, "\n");
  printTable(collector);
  ostrel_log_set_sink(nullptr, nullptr);
  return collector.anyFailed() ? 1 : 0;
}
