// The simulator: section demultiplexing against a plain read of the same
// page-cached file, and the wall time of a whole scan of the sample stream.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "ChannelScan.h"
#include "OstrelGingaCommonCore.h"
#include "OstrelLogger.h"
#include "ReceiverSimulator.h"
#include "SampleStream.h"
#include "SectionDemux.h"
#include "SectionSink.h"
#include "TransportStreamSource.h"
#include "TsPacketizer.h"

using namespace Ostrel;

namespace {

const size_t kReadChunk = 256 * 1024;

// A large stream file: the sample over and over (about 200 MB), written once
// to /tmp, or the file named by OSTREL_BENCH_TS.
const std::string& largeFile() {
  static std::string path;
  if (!path.empty()) {
    return path;
  }
  if (const char* given = std::getenv("OSTREL_BENCH_TS")) {
    path = given;
    return path;
  }
  path = "/tmp/ostrel_sim_bench.ts";
  std::vector<unsigned char> sample = SampleStream::build();
  std::FILE* out = std::fopen(path.c_str(), "wb");
  if (out) {
    for (int i = 0; i < 200; ++i) {
      std::fwrite(sample.data(), 1, sample.size(), out);
    }
    std::fclose(out);
  }
  return path;
}

struct CountingSink : SectionSink {
  uint64_t sections = 0;
  void onSection(int, unsigned short, const unsigned char*, unsigned int) override { ++sections; }
};

void BM_PlainRead(benchmark::State& state) {
  std::vector<unsigned char> buffer(kReadChunk);
  uint64_t bytes = 0;
  for (auto _ : state) {
    int fd = open(largeFile().c_str(), O_RDONLY);
    if (fd < 0) {
      state.SkipWithError("cannot open the stream file");
      return;
    }
    ssize_t got = 0;
    unsigned char sum = 0;
    while ((got = read(fd, buffer.data(), buffer.size())) > 0) {
      sum ^= buffer[static_cast<size_t>(got) - 1];
      bytes += static_cast<uint64_t>(got);
    }
    benchmark::DoNotOptimize(sum);
    close(fd);
  }
  state.SetBytesProcessed(static_cast<int64_t>(bytes));
}

// The tuner's path without pacing: read, cut into packets, reassemble and
// check the sections of the service-information PIDs and the PMTs.
void BM_Demux(benchmark::State& state) {
  uint64_t bytes = 0;
  uint64_t sections = 0;
  for (auto _ : state) {
    std::string error;
    std::unique_ptr<TransportStreamSource> source =
        TransportStreamSource::openFile(largeFile(), &error);
    if (!source) {
      state.SkipWithError(error.c_str());
      return;
    }
    source->setLoop(false);
    CountingSink sink;
    SectionDemux demux(0, &sink);
    for (unsigned short pid = 0; pid <= 0x1F; ++pid)
      demux.enablePid(pid);
    for (unsigned short pid : {SampleStream::kHdPmtPid, SampleStream::kDataPmtPid,
                               SampleStream::kOneSegPmtPid, SampleStream::kMissingPmtPid}) {
      demux.enablePid(pid);
    }
    TsPacketizer packetizer;
    while (source->read(&packetizer, kReadChunk, 0) == TransportStreamSource::kData) {
      packetizer.process(&demux);
    }
    packetizer.finish(&demux);
    bytes += source->getSize();
    sections += sink.sections;
  }
  state.SetBytesProcessed(static_cast<int64_t>(bytes));
  state.counters["sections/s"] =
      benchmark::Counter(static_cast<double>(sections), benchmark::Counter::kIsRate);
}

void quiet(int, const char*, const char*, void*) {}

// A whole scan of the sample played as fast as possible; bounded below by
// the 2 s time-out of the PMT that is never carried.
void BM_SampleScan(benchmark::State& state) {
  ostrel_log_set_sink(&quiet, NULL);
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  for (auto _ : state) {
    ReceiverSimulator sim;
    sim.addTuner(TransportStreamSource::fromMemory(SampleStream::build(), "sample"));
    core->setServer(&sim);
    sim.setDataDestination(core);
    sim.start();
    ChannelScan scan(core, 0, 2);
    if (!scan.run(std::chrono::seconds(30))) {
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
