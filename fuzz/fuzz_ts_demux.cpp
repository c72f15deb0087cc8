// libFuzzer target: the simulator's transport-stream input, packetizer and
// section demultiplexer, on arbitrary bytes. Every PID is enabled. Each
// section handed on must be whole and checked: 3 header bytes and exactly its
// section_length after them, at most 4096 bytes, a long-form section (and a
// time-offset table) with a CRC_32 that checks; and the statistics must
// agree with what the sink and the packetizer saw.
//
// Input: one flag byte, then the stream.
//   bits 0-1: 0 packets straight to the demux, cut at the stride of bits 2-3
//             (188, 192, 204), sync byte not examined;
//             1 the packetizer, all bytes at once, then end of input;
//             2 the packetizer, in pieces of 1 to 256 bytes (sizes taken from
//             the stream itself), then end of input;
//             3 as 2, and half way every PID seen so far gets a packet with
//             the transport error flag set, which drops its section in
//             progress and its continuity counter.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "SectionDemux.h"
#include "SectionSink.h"
#include "TCrc32.h"
#include "TsPacket.h"
#include "TsPacketSink.h"
#include "TsPacketizer.h"

namespace {

using namespace Ostrel;

volatile unsigned long long g_sink = 0;

class CheckingSink : public SectionSink {
 public:
  void onSection(int tunerId, unsigned short pid, const unsigned char* data,
                 unsigned int size) override {
    ++m_sections;
    if (tunerId != 5 || pid >= TsPacket::kPidCount || !data || size < 3 ||
        size > SectionDemux::kMaxSectionSize)
      std::abort();
    unsigned int length = ((data[1] & 0x0F) << 8) | data[2];
    if (size != 3 + length)
      std::abort();
    bool longForm = (data[1] & 0x80) != 0;
    if ((longForm || data[0] == 0x73) && TCrc32::compute(data, size) != 0)
      std::abort();
    if (data[0] == 0xFF)
      std::abort();  // stuffing is never a section
    for (unsigned int i = 0; i < size; ++i)
      g_sink += data[i];
  }
  unsigned long long m_sections = 0;
};

// The PIDs that packets were fed on.
class SeenPids {
 public:
  void note(const unsigned char* first, unsigned int count, unsigned int stride) {
    for (unsigned int i = 0; i < count; ++i)
      m_pids.push_back(TsPacket::getPid(first + static_cast<size_t>(i) * stride));
  }
  // A packet with the transport error flag on each PID seen: its section in
  // progress and its continuity counter are dropped, as in a new demux.
  void forget(SectionDemux* demux) {
    unsigned char packet[TsPacket::kSize] = {TsPacket::kSyncByte, 0x80, 0, 0x10};
    for (unsigned short pid : m_pids) {
      packet[1] = static_cast<unsigned char>(0x80 | (pid >> 8));
      packet[2] = static_cast<unsigned char>(pid);
      demux->pushPacket(packet);
    }
    m_pids.clear();
  }
  size_t size() const { return m_pids.size(); }

 private:
  std::vector<unsigned short> m_pids;
};

// Counts what the packetizer hands on before passing it to the demux.
class CountingSink : public TsPacketSink {
 public:
  CountingSink(SectionDemux* demux, SeenPids* seen) : m_pDemux(demux), m_pSeen(seen) {}
  void onPackets(const unsigned char* first, unsigned int count, unsigned int stride) override {
    if (stride != 188 && stride != 192 && stride != 204)
      std::abort();
    m_packets += count;
    m_pSeen->note(first, count, stride);
    m_pDemux->onPackets(first, count, stride);
  }
  SectionDemux* m_pDemux;
  SeenPids* m_pSeen;
  unsigned long long m_packets = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0)
    return 0;
  const unsigned int mode = data[0] & 0x03;
  const unsigned int strides[] = {188, 192, 204, 188};
  const unsigned int stride = strides[(data[0] >> 2) & 0x03];
  // The stream in an exact-size heap block.
  std::vector<unsigned char> stream(data + 1, data + size);

  // One demux and one packetizer for the whole run (a megabyte of buffer and
  // 8192 PIDs are too dear to make or reset per input): forgetting the PIDs
  // seen and the packetizer's end of input leave each as new, but for their
  // statistics, which are compared as differences.
  static CheckingSink sections;
  static SectionDemux demux(5, &sections);
  static TsPacketizer packetizer;
  static bool enabled = false;
  if (!enabled) {
    for (unsigned int pid = 0; pid < TsPacket::kPidCount; ++pid)
      demux.enablePid(static_cast<unsigned short>(pid));
    enabled = true;
  }
  SeenPids seen;
  const SectionDemux::Statistics before = demux.getStatistics();
  const unsigned long long sectionsBefore = sections.m_sections;

  unsigned long long packets = 0;
  if (mode == 0) {
    unsigned int count = static_cast<unsigned int>(stream.size() / stride);
    // The last packet may end the block with no stride padding after it.
    if (stream.size() % stride >= TsPacket::kSize)
      ++count;
    if (count > 0) {
      seen.note(stream.data(), count, stride);
      demux.onPackets(stream.data(), count, stride);
    }
    packets = count;
  } else {
    const unsigned long long packetizedBefore = packetizer.getStatistics().packets;
    CountingSink counting(&demux, &seen);
    size_t at = 0;
    size_t half = stream.size() / 2;
    bool wasCut = false;
    while (at < stream.size()) {
      size_t piece = mode == 1 ? stream.size() : 1 + stream[at];
      if (piece > stream.size() - at)
        piece = stream.size() - at;
      packetizer.push(stream.data() + at, piece);
      packetizer.process(&counting);
      at += piece;
      if (mode == 3 && !wasCut && at >= half) {
        packets += seen.size();
        seen.forget(&demux);
        wasCut = true;
      }
    }
    packetizer.finish(&counting);
    if (counting.m_packets != packetizer.getStatistics().packets - packetizedBefore)
      std::abort();
    packets += counting.m_packets;
  }
  const SectionDemux::Statistics& after = demux.getStatistics();
  if (after.packets - before.packets != packets ||
      after.sections - before.sections != sections.m_sections - sectionsBefore)
    std::abort();
  seen.forget(&demux);
  return 0;
}
