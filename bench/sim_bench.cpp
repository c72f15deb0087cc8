// The simulator: section demultiplexing against a plain read of the same
// page-cached file, and the wall time of a whole scan of the sample stream.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "BenchStream.h"
#include "ChannelScan.h"
#include "OstrelGingaCommonCore.h"
#include "OstrelLogger.h"
#include "ReceiverSimulator.h"
#include "SampleStream.h"
#include "TransportStreamSource.h"

using namespace Ostrel;

namespace {

void BM_PlainRead(benchmark::State& state) {
  const std::string& path = OstrelBench::largeStreamFile();
  std::vector<unsigned char> buffer;
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

void BM_Demux(benchmark::State& state) {
  const std::string& path = OstrelBench::largeStreamFile();
  uint64_t bytes = 0;
  uint64_t sections = 0;
  for (auto _ : state) {
    std::string error;
    if (!OstrelBench::demuxWhole(path, &bytes, &sections, &error)) {
      state.SkipWithError(error.c_str());
      return;
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(bytes));
  state.counters["sections/s"] =
      benchmark::Counter(static_cast<double>(sections), benchmark::Counter::kIsRate);
}

void quiet(int, const char*, const char*, void*) {}

// A whole scan of the sample played as fast as possible, as ostrel-scan
// --fast does: the tuner starts once the first requests are out, and what the
// stream lacks ends after one pass.
void BM_SampleScan(benchmark::State& state) {
  ostrel_log_set_sink(&quiet, NULL);
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  for (auto _ : state) {
    ReceiverSimulator sim;
    sim.addMemoryTuner(SampleStream::build(), "sample", true);
    core->setServer(&sim);
    sim.setDataDestination(core);
    ChannelScan scan(core, 0, 2);
    scan.startOn(&sim);
    if (!scan.waitFor(std::chrono::seconds(30)) || !scan.getResult().hasPat) {
      state.SkipWithError("no PAT");
    }
    sim.stop();
  }
  ostrel_log_set_sink(NULL, NULL);
}

}  // namespace

BENCHMARK(BM_PlainRead)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_Demux)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_SampleScan)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);

BENCHMARK_MAIN();
