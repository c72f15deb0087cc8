// The request path through the core: a cache-hit requestData (call to
// callback return) and injectData of a real PMT answering 0, 1 and 8
// outstanding requests.
#include <benchmark/benchmark.h>

#include <vector>

#include "BenchSections.h"
#include "Cacher.h"
#include "OstrelGingaCommonCore.h"
#include "RecordingServer.h"
#include "RequestFollower.h"
#include "Sections.h"
#include "TPMTTable.h"

using namespace Ostrel;
using OstrelTest::countingCallback;
using NullServer = OstrelTest::RecordingServer;

namespace {

OstrelGingaCommonCore* boundCore(NullServer* server) {
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  core->setServer(server);
  core->setRequestNotificationCallback(&countingCallback);
  return core;
}

void BM_RequestDataCacheHit(benchmark::State& state) {
  NullServer server;
  OstrelGingaCommonCore* core = boundCore(&server);
  const int tuner = 100 + static_cast<int>(state.thread_index());
  std::vector<unsigned char> pmt = OstrelTest::pmtSection(0x0101, 4);
  for (short pid = 0x0100; pid < 0x0110; ++pid) {  // 16 PIDs cached
    Cacher::getInstance(tuner)->add(
        pid, 2, 0, TPMTTable::parse(pmt.data(), pmt.size(), 1, 1, nullptr, nullptr), 64);
  }
  long answered = 0;
  short pid = 0x0100;
  for (auto _ : state) {
    core->requestData(1, 1, tuner, pid, 2, 0x0101, &answered, nullptr, nullptr);
    pid = static_cast<short>(0x0100 + ((pid + 1) & 0x0F));
  }
  if (answered != static_cast<long>(state.iterations()))
    state.SkipWithError("not answered");
}
BENCHMARK(BM_RequestDataCacheHit)->Threads(1)->Threads(2)->UseRealTime();

void BM_InjectPmt(benchmark::State& state) {
  NullServer server;
  OstrelGingaCommonCore* core = boundCore(&server);
  std::vector<unsigned char> pmt = OstrelTest::pmt288();
  const int outstanding = static_cast<int>(state.range(0));
  long answered = 0;
  timeval timeOut = {60, 0};
  for (auto _ : state) {
    state.PauseTiming();
    for (int i = 0; i < outstanding; ++i) {
      RequestFollower::add(i + 1, 1, 0x0100, 2, 0x0101, &answered, nullptr, timeOut, 1);
    }
    state.ResumeTiming();
    core->injectData(1, 0x0100, 2, 0x0101, nullptr, pmt.data(),
                     static_cast<unsigned int>(pmt.size()));
  }
  state.counters["section_bytes"] = static_cast<double>(pmt.size());
  if (answered != outstanding * static_cast<long>(state.iterations())) {
    state.SkipWithError("not every request answered");
  }
  RequestFollower::destroy();
}
BENCHMARK(BM_InjectPmt)->Arg(0)->Arg(1)->Arg(8);

}  // namespace

BENCHMARK_MAIN();
