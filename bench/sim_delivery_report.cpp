// Sections per second from the simulator to injectData, against a bare
// demultiplexer of the same stream: the simulator's tuner plays the delivery
// stream (DeliveryStream.h) from memory as fast as possible, in a loop, and
// the server engine injects each section into a counting destination that
// asks again from each injection; the reference cuts the same bytes into
// packets and sections (TsPacketizer, SectionDemux, the same PIDs enabled) on
// one thread into a sink that only counts. Medians of interleaved runs.
#include <cstdio>
#include <vector>

#include "DeliveryStream.h"
#include "OstrelLogger.h"
#include "ReceiverSimulator.h"
#include "SectionDemux.h"
#include "SectionSink.h"
#include "TsPacketizer.h"

using namespace Ostrel;
using namespace OstrelBench;

namespace {

const unsigned int kCounted = 20000;  // about two and a half passes
const int kRuns = 5;
const double kAim = 0.5;
const size_t kChunk = 256 * 1024;  // the simulator's read size, as fast as possible

struct CountingSink : SectionSink {
  unsigned int sections = 0;
  void onSection(int, unsigned short, const unsigned char*, unsigned int) override { ++sections; }
};

// The bare demultiplexer: the PIDs the simulator's tuner reassembles (its
// service-information PIDs and the open filter's).
double bareDemux(const Bytes& stream) {
  CountingSink sink;
  SectionDemux demux(0, &sink);
  for (unsigned short pid = 0; pid <= 0x1F; ++pid) {
    demux.enablePid(pid);
  }
  demux.enablePid(0x24);
  demux.enablePid(0x26);
  demux.enablePid(kDeliveryPid);
  TsPacketizer packetizer;
  const Clock::time_point start = Clock::now();
  while (sink.sections < kCounted) {
    for (size_t at = 0; at < stream.size() && sink.sections < kCounted; at += kChunk) {
      packetizer.push(&stream[at], std::min(kChunk, stream.size() - at));
      packetizer.process(&demux);
    }
  }
  return sink.sections / std::chrono::duration<double>(Clock::now() - start).count();
}

double simulated(const Bytes& stream) {
  ReceiverSimulator sim;
  sim.setPacing(ReceiverSimulator::kAsFastAsPossible, 0);
  sim.addMemoryTuner(stream, "delivery", true);
  const double rate = measureDelivery(&sim, kCounted, [&sim] { sim.startTuner(0); });
  sim.stop();
  return rate;
}

void quiet(int, const char*, const char*, void*) {}

}  // namespace

int main() {
  ostrel_log_set_sink(&quiet, NULL);
  const Bytes stream = deliveryStream();
  std::vector<double> ours, bare;
  for (int i = 0; i < kRuns; ++i) {
    ours.push_back(simulated(stream));
    bare.push_back(bareDemux(stream));
  }
  ostrel_log_set_sink(NULL, NULL);
  const double a = median(ours), b = median(bare);
  const double ratio = b > 0 ? a / b : 0;
  std::printf("%-58s %10.0f /s  reference %8.0f /s  ratio %.2f (at least %.1f: %s)\n",
              "sections from the simulator to injectData / bare demux", a, b, ratio, kAim,
              ratio >= kAim ? "met" : "NOT met");
  return 0;
}
