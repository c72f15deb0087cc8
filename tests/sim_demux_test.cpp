#include <gtest/gtest.h>

#include <random>
#include <tuple>

#include "SectionDemux.h"
#include "TsPacketizer.h"
#include "sim_test_stream.h"

using namespace Ostrel;
using namespace SimTest;

namespace {

const unsigned short kPid = 0x0100;

struct Demux {
  SectionRecorder sink;
  SectionDemux demux{3, &sink};
  TsPacketizer packetizer;

  Demux() { demux.enablePid(kPid); }
  void push(const Bytes& bytes) {
    packetizer.push(bytes.data(), bytes.size());
    packetizer.process(&demux);
  }
  void finish() { packetizer.finish(&demux); }
  void pushPackets(const std::vector<Bytes>& packets) {
    for (const Bytes& p : packets)
      demux.pushPacket(p.data());
  }
};

}  // namespace

TEST(SectionDemux, ReassemblesSectionsAcrossPacketsSeveralPerPacketAndSplitHeaders) {
  Demux d;
  // The first packet: pointer 0, first (181 bytes), then 2 bytes of the
  // 3-byte header of second; the next packet has the rest.
  const Bytes first = longSection(0x02, 1, filler(181 - 12)), second = longSection(0x02, 2, {});
  const Bytes big = longSection(0x02, 7, filler(1000)),
              small1 = longSection(0x02, 8, filler(10, 3));
  const Bytes small2 = longSection(0x02, 9, filler(20, 5)),
              small3 = shortSection(0x70, filler(5, 9));
  const std::vector<Bytes> expected = {first, second, big, small1, small2, small3, big};
  unsigned char cc = 4;
  const std::vector<Bytes> packets = packetize(kPid, expected, &cc);
  ASSERT_EQ(Bytes(second.begin(), second.begin() + 2),
            Bytes(packets[0].end() - 2, packets[0].end()));
  d.pushPackets(packets);
  ASSERT_EQ(expected.size(), d.sink.entries.size());
  for (size_t i = 0; i < expected.size(); ++i)
    EXPECT_EQ(expected[i], d.sink.entries[i].data) << i;
  EXPECT_EQ(3, d.sink.entries[0].tunerId);
  EXPECT_EQ(kPid, d.sink.entries[0].pid);
  EXPECT_EQ(0u, d.demux.getStatistics().ccErrors);
}

TEST(SectionDemux, RepeatedPacketIsIgnoredAndAdaptationOnlyPacketKeepsTheCounter) {
  Demux d;
  Bytes big = longSection(0x02, 7, filler(400));
  unsigned char cc = 0;
  std::vector<Bytes> packets = packetize(kPid, {big}, &cc);
  packets.insert(packets.begin() + 1, packets[0]);  // duplicate
  Bytes adaptationOnly = packet(kPid, false, packets[1][3] & 0x0F, {});
  adaptationOnly[3] = static_cast<unsigned char>(0x20 | (packets[1][3] & 0x0F));
  adaptationOnly[4] = 183;
  adaptationOnly[5] = 0x00;
  packets.insert(packets.begin() + 2, adaptationOnly);
  d.pushPackets(packets);
  ASSERT_EQ(1u, d.sink.entries.size());
  EXPECT_EQ(big, d.sink.entries[0].data);
  EXPECT_EQ(1u, d.demux.getStatistics().duplicates);
  EXPECT_EQ(0u, d.demux.getStatistics().ccErrors);
}

TEST(SectionDemux, BadInputIsCountedAndNeverDelivered) {
  using Statistics = SectionDemux::Statistics;
  Bytes good = longSection(0x02, 7, filler(600)), bad = good;
  bad[20] ^= 0x01;
  unsigned char cc = 0;
  const std::vector<Bytes> badCrc = packetize(kPid, {bad}, &cc);
  cc = 0;
  std::vector<Bytes> goodPackets = packetize(kPid, {good}, &cc), transportError = goodPackets,
                     lost = goodPackets;
  ASSERT_GE(goodPackets.size(), 3u);
  transportError[1][1] |= 0x80;  // in the middle
  lost.erase(lost.begin() + 1);
  const std::tuple<const char*, std::vector<Bytes>, uint64_t Statistics::*> cases[] = {
      {"bad CRC", badCrc, &Statistics::crcErrors},
      {"transport error", transportError, &Statistics::transportErrors},
      {"lost packet", lost, &Statistics::ccErrors},
      {"pointer field beyond the packet",
       {packet(kPid, true, 0, {200, 0x02, 0xB0, 0x10})},
       &Statistics::malformed},
      {"section length above the maximum",
       {packet(kPid, true, 0, {0, 0x02, 0xBF, 0xFF, 1, 2})},
       &Statistics::malformed},
      {"long form too short for its header",
       {packet(kPid, true, 0, {0, 0x02, 0xB0, 0x02, 1, 2})},
       &Statistics::malformed},
      {"new section starts before the last one ended",
       {goodPackets[0], packet(kPid, true, 1, {0x00, 0xFF})},
       &Statistics::dropped},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::get<0>(c));
    Demux d;
    d.pushPackets(std::get<1>(c));
    EXPECT_TRUE(d.sink.entries.empty());
    EXPECT_EQ(1u, d.demux.getStatistics().*std::get<2>(c));
    // A section cut short never reaches the CRC check.
    EXPECT_EQ(std::get<2>(c) == &Statistics::crcErrors, d.demux.getStatistics().crcErrors);
    // The PID recovers with the next good section.
    cc = 9;
    d.pushPackets(packetize(kPid, {good}, &cc));
    ASSERT_EQ(1u, d.sink.entries.size());
    EXPECT_EQ(good, d.sink.entries[0].data);
  }
}

TEST(TsPacketizer, FindsPacketSizeAndSurvivesGarbageTornPacketsAndATruncatedTail) {
  const Bytes a = longSection(0x02, 1, filler(700, 1)), b = longSection(0x02, 2, filler(350, 2)),
              c = longSection(0x02, 3, filler(90, 3));
  struct Case {
    const char* name;
    unsigned int recordSize;    // 188, 192 (time stamp first) or 204 (parity after)
    unsigned char extra;        // the bytes of the time stamp or parity (0x47: sync-like)
    size_t garbageBefore;       // bytes of garbage at the start
    int tornAfterPacket;        // -1 none; else this packet is cut short...
    size_t garbageAfterPacket;  // ...or followed by garbage
    size_t expectedSections;
  };
  const Case cases[] = {
      {"plain", 188, 0, 0, -1, 0, 3},
      {"time-stamped 192", 192, 0x47, 0, -1, 0, 3},
      {"with parity 204", 204, 0x47, 0, -1, 0, 3},
      {"garbage before", 188, 0, 1000, -1, 0, 3},
      {"garbage before 204", 204, 0xAA, 777, -1, 0, 3},
      // Once locked, a whole packet followed by garbage is kept.
      {"garbage between packets", 188, 0, 0, 5, 61, 3},
      {"garbage between 192", 192, 0x01, 5, 5, 13, 3},
      {"garbage between 204", 204, 0xAA, 0, 4, 300, 3},
      // Packet 5 is cut short: b and c, which it carries, are lost; a is whole.
      {"torn packet", 188, 0, 0, 5, 0, 1},
  };
  for (const Case& tc : cases) {
    SCOPED_TRACE(tc.name);
    unsigned char cc = 0;
    std::vector<Bytes> packets = packetize(kPid, {a, b, c}, &cc);
    ASSERT_GE(packets.size(), 7u);
    Bytes stream = filler(tc.garbageBefore, 0x11);
    for (auto& byte : stream) {
      if (byte == 0x47)
        byte = 0x46;
    }
    // The records, then a truncated one, thrown away as skipped or truncated bytes.
    for (size_t i = 0; i <= packets.size(); ++i) {
      Bytes record = packets[i % packets.size()];
      if (tc.recordSize == 192)
        record.insert(record.begin(), 4, tc.extra);
      if (tc.recordSize == 204)
        record.insert(record.end(), 16, tc.extra);
      if (i == packets.size())
        record.resize(50);
      if (static_cast<int>(i) == tc.tornAfterPacket && tc.garbageAfterPacket == 0)
        record.resize(100);
      stream.insert(stream.end(), record.begin(), record.end());
      if (static_cast<int>(i) == tc.tornAfterPacket && tc.garbageAfterPacket > 0) {
        Bytes garbage(tc.garbageAfterPacket, 0x00);
        stream.insert(stream.end(), garbage.begin(), garbage.end());
      }
    }
    // Fed in awkward pieces, as reads come.
    Demux d;
    std::mt19937 rng(7);
    for (size_t pos = 0; pos < stream.size();) {
      size_t n = std::min<size_t>(1 + rng() % 500, stream.size() - pos);
      d.push(Bytes(stream.begin() + pos, stream.begin() + pos + n));
      pos += n;
    }
    d.finish();
    EXPECT_EQ(tc.expectedSections, d.sink.entries.size());
    if (tc.tornAfterPacket < 0 || tc.garbageAfterPacket > 0) {
      EXPECT_EQ(packets.size(), d.packetizer.getStatistics().packets);
      // 192: the first time stamp goes before the lock, and of the truncated
      // record only the 46 bytes after its time stamp.
      const auto& stats = d.packetizer.getStatistics();
      EXPECT_EQ(tc.garbageBefore + tc.garbageAfterPacket + (tc.recordSize == 192 ? 4 + 46 : 50),
                stats.skippedBytes + stats.truncatedBytes);
    }
    EXPECT_EQ(tc.tornAfterPacket < 0 ? 0u : 1u, d.packetizer.getStatistics().syncLosses);
    ASSERT_FALSE(d.sink.entries.empty());
    EXPECT_EQ(a, d.sink.entries.front().data);
    EXPECT_EQ(tc.expectedSections == 3 ? c : a, d.sink.entries.back().data);
  }
}
