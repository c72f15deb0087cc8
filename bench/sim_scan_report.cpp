// The scan against the stream: a real-time scan of the sample multiplex,
// tuned in at eight points of its two-second loop, takes this long to the
// complete channel table; the stream itself allows no less than the time at
// which the last section the table needs first arrives after the scan starts
// (its carriage bound). Prints both and their ratio; exits 1 above 1.2.
#include <algorithm>
#include <cstdio>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "ChannelScan.h"
#include "OstrelGingaCommonCore.h"
#include "OstrelLogger.h"
#include "ReceiverSimulator.h"
#include "RequestFollower.h"
#include "SampleStream.h"
#include "SectionDemux.h"
#include "SectionSink.h"

using namespace Ostrel;

namespace {

typedef std::vector<unsigned char> Bytes;
const double kPacketSeconds = 188.0 * 8 / SampleStream::kBitRate;
const unsigned int kStarts = 8;
const double kLimit = 1.2;

// Notes the packet at which each section the channel table needs first
// completes: every PAT, NIT and SDT section, the TOT and each carried PMT.
class FirstArrivals : public SectionSink {
 public:
  unsigned int packet = 0;
  std::map<std::pair<unsigned short, unsigned int>, unsigned int> first;

  void onSection(int, unsigned short pid, const unsigned char* data, unsigned int size) override {
    const bool longForm = size >= 8 && (data[1] & 0x80);
    const std::pair<unsigned short, unsigned int> key(pid, longForm ? data[6] : 0);
    first.insert(std::make_pair(key, packet));
  }
};

double carriageBound(const Bytes& stream) {
  FirstArrivals arrivals;
  SectionDemux demux(0, &arrivals);
  const unsigned short pids[] = {0x0000,
                                 0x0010,
                                 0x0011,
                                 0x0014,
                                 SampleStream::kHdPmtPid,
                                 SampleStream::kDataPmtPid,
                                 SampleStream::kOneSegPmtPid};
  for (unsigned short pid : pids) {
    demux.enablePid(pid);
  }
  for (size_t at = 0; at < stream.size(); at += 188, ++arrivals.packet) {
    demux.pushPacket(&stream[at]);
  }
  unsigned int last = 0;
  for (const auto& arrival : arrivals.first) {
    last = std::max(last, arrival.second);
  }
  return (last + 1) * kPacketSeconds;
}

void quiet(int, const char*, const char*, void*) {}

// Seconds from the scan's first request to the last answer the table needs.
double scanSeconds(const Bytes& stream) {
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  ReceiverSimulator sim;
  sim.setPacing(ReceiverSimulator::kByPcr, 0);
  sim.addMemoryTuner(stream, "sample", true);
  core->setServer(&sim);
  sim.setDataDestination(core);
  ChannelScan scan(core, 0, 2);
  scan.startOn(&sim);
  scan.waitFor(std::chrono::seconds(10));
  double last = 0;
  for (const ChannelScan::Request& request : scan.getResult().requests) {
    if (request.outcome == ChannelScan::kDelivered) {
      last = std::max(last, request.endedMs);
    }
  }
  sim.stop();
  return last / 1000;
}

}  // namespace

int main() {
  ostrel_log_set_sink(&quiet, NULL);
  const Bytes sample = SampleStream::build();
  double scanned = 0, bound = 0;
  for (unsigned int i = 0; i < kStarts; ++i) {
    // Tuned in at packet k: the loop played from there.
    const size_t k = (SampleStream::kPacketCount * i / kStarts + 37) * 188;
    Bytes stream(sample.begin() + k, sample.end());
    stream.insert(stream.end(), sample.begin(), sample.begin() + k);
    bound += carriageBound(stream);
    scanned += scanSeconds(stream);
  }
  RequestFollower::destroy();
  const double ratio = scanned / bound;
  std::printf("%-58s %10.1f ms  reference %8.1f ms  ratio %.2f (at most %.1f)\n",
              "real-time scan of the sample to the complete channel table",
              1000 * scanned / kStarts, 1000 * bound / kStarts, ratio, kLimit);
  return ratio <= kLimit ? 0 : 1;
}
