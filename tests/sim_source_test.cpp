#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <thread>

#include "ReceiverSimulator.h"
#include "SampleStream.h"
#include "SimulatorTuners.h"
#include "StreamPacer.h"
#include "TransportStreamSource.h"
#include "TsPacketSink.h"
#include "TsPacketWriter.h"
#include "TsPacketizer.h"
#include "TunerInput.h"
#include "sim_test_stream.h"

using namespace Ostrel;
using SimTest::Bytes;

namespace {

Bytes pcrPacket(uint64_t pcr) {
  Bytes out;
  TsPacketWriter writer(&out);
  writer.writePcr(0x0111, pcr);
  return out;
}

double secondsFromNow(StreamPacer::Clock::time_point at) {
  return std::chrono::duration<double>(at - StreamPacer::Clock::now()).count();
}

// Keeps every packet handed on, 188 bytes each.
struct PacketCollector : TsPacketSink {
  Bytes bytes;
  void onPackets(const unsigned char* first, unsigned int count, unsigned int stride) override {
    for (unsigned int i = 0; i < count; ++i)
      bytes.insert(bytes.end(), first + i * stride, first + i * stride + 188);
  }
};

sockaddr_in loopback(uint16_t port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  return address;
}

// A loopback UDP port that nothing uses at the moment.
uint16_t freeUdpPort() {
  int fd = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address = loopback(0);
  socklen_t size = sizeof(address);
  bind(fd, reinterpret_cast<sockaddr*>(&address), size);
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  close(fd);
  return ntohs(address.sin_port);
}

// An RTP header (version 2, payload type 33) with csrcs CSRC entries, an
// extension of extensionWords words when asked, and padding bytes after the
// payload.
Bytes rtp(const Bytes& payload, unsigned int csrcs, int extensionWords, unsigned int padding) {
  const unsigned char first = (padding ? 0xA0 : 0x80) | (extensionWords >= 0 ? 0x10 : 0) | csrcs;
  Bytes out = {first, 33, 0x12, 0x34, 0, 0, 0, 1, 0xCA, 0xFE, 0xBA, 0xBE};
  out.insert(out.end(), 4 * csrcs, 0x47);  // CSRCs that look like sync bytes
  if (extensionWords >= 0) {
    out.insert(out.end(), {0xBE, 0xDE, 0, static_cast<unsigned char>(extensionWords)});
    out.insert(out.end(), 4 * extensionWords, 0x47);
  }
  out.insert(out.end(), payload.begin(), payload.end());
  for (unsigned int i = 0; i < padding; ++i)
    out.push_back(i + 1 == padding ? static_cast<unsigned char>(padding) : 0);
  return out;
}

}  // namespace

TEST(StreamPacer, FollowsThePcrOrTheBitRateOrNothing) {
  const uint64_t second = 27000000ull;
  StreamPacer pacer;
  // When a PCR packet on the clock's PID is due, in seconds from now.
  auto due = [&pacer](uint64_t pcr) {
    Bytes packet = pcrPacket(pcr);
    return secondsFromNow(pacer.pace(packet.data(), 1, 188));
  };
  // Before the first PCR the bit rate keeps time: here 1000 packets a second.
  pacer.setMode(StreamPacer::kByPcr, 188 * 8 * 1000);
  Bytes noPcr = SimTest::packet(0x0111, false, 0, {});
  EXPECT_NEAR(0.5, secondsFromNow(pacer.pace(noPcr.data(), 500, 0)), 0.2);
  due(10 * second);  // anchors the clock
  EXPECT_NEAR(1.0, due(11 * second), 0.2);
  // Not the clock's PID (0x0120): no time at all.
  Bytes otherPid = pcrPacket(50 * second);
  otherPid[2] = 0x20;
  EXPECT_EQ(StreamPacer::Clock::time_point(), pacer.pace(otherPid.data(), 1, 188));
  // A jump back (or far ahead) carries on from the last good PCR.
  EXPECT_NEAR(1.0, due(2 * second), 0.2);
  EXPECT_NEAR(2.0, due(3 * second), 0.2);
  // The 33-bit base wraps without a jump.
  pacer.restart();
  due((1ull << 33) * 300ull - second / 2);
  EXPECT_NEAR(1.0, due(second / 2), 0.2);
  // By bit rate, whatever the packets carry; with no rate, no pacing.
  pacer.restart();
  pacer.setMode(StreamPacer::kByBitRate, 188 * 8 * 1000);
  EXPECT_NEAR(1.0, secondsFromNow(pacer.pace(pcrPacket(0).data(), 1000, 0)), 0.2);
  EXPECT_NEAR(1.5, secondsFromNow(pacer.pace(noPcr.data(), 500, 0)), 0.2);
  pacer.setMode(StreamPacer::kByBitRate, 0);
  EXPECT_EQ(StreamPacer::kAsFastAsPossible, pacer.getMode());
  EXPECT_EQ(StreamPacer::Clock::time_point(), pacer.pace(noPcr.data(), 1000, 0));
}

TEST(TransportStreamSource, ReadsStandardInputUntilItCloses) {
  int fds[2];
  ASSERT_EQ(0, pipe(fds));
  int savedStdin = dup(STDIN_FILENO);
  ASSERT_EQ(STDIN_FILENO, dup2(fds[0], STDIN_FILENO));
  close(fds[0]);
  Bytes stream = SampleStream::build();
  std::thread writer([&] {
    // In pieces, with pauses: the reader must wait, not end.
    for (size_t at = 0; at < stream.size(); at += 100000) {
      size_t n = std::min<size_t>(100000, stream.size() - at);
      ASSERT_EQ(static_cast<ssize_t>(n), write(fds[1], stream.data() + at, n));
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    close(fds[1]);
  });
  std::string error;
  std::unique_ptr<TransportStreamSource> source = TransportStreamSource::openFile("-", &error);
  ASSERT_TRUE(source);
  EXPECT_FALSE(source->isSeekable());
  source->setLoop(true);  // a pipe cannot loop, whatever is asked
  EXPECT_FALSE(source->isLooping());
  ReceiverSimulator sim;
  int tuner = SimulatorTuners::add(&sim, std::move(source));
  sim.start();
  bool ended = sim.waitForEnd(tuner, std::chrono::seconds(20));
  writer.join();
  dup2(savedStdin, STDIN_FILENO);
  close(savedStdin);
  ASSERT_TRUE(ended);
  TunerInput::Progress progress = SimulatorTuners::get(sim, tuner)->getProgress();
  EXPECT_EQ("", progress.error);
  EXPECT_EQ(SampleStream::kPacketCount, progress.packetizer.packets);
  EXPECT_EQ(0u, progress.demux.ccErrors);
}

// Inputs are chosen by scheme: udp:// takes plain packets or RTP, rtp:// takes
// RTP only (header, CSRCs, extension and padding stripped). An unknown scheme
// or a malformed address is refused in scan_cli_test.
TEST(TransportStreamSource, NetworkInputsByScheme) {
  Bytes stream = SampleStream::build();
  const Bytes packets(stream.begin(), stream.begin() + 7 * 188);  // one datagram's worth
  struct Row {
    const char* name;
    const char* scheme;
    Bytes datagram;
    bool delivered;  // the seven packets come out; else nothing does
  } rows[] = {
      {"udp, plain packets", "udp://", packets, true},
      {"udp, RTP", "udp://", rtp(packets, 0, -1, 0), true},
      {"rtp, bare header", "rtp://", rtp(packets, 0, -1, 0), true},
      {"rtp, CSRCs, extension, padding", "rtp://", rtp(packets, 2, 3, 5), true},
      {"rtp, plain packets dropped", "rtp://", packets, false},
      {"rtp, header only dropped", "rtp://", rtp(Bytes(), 1, 0, 0), false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const uint16_t port = freeUdpPort();
    const std::string url = row.scheme + std::string("127.0.0.1:") + std::to_string(port);
    std::string error;
    std::unique_ptr<TransportStreamSource> source = TransportStreamSource::openFile(url, &error);
    ASSERT_TRUE(source) << error;
    EXPECT_TRUE(source->isNetwork());
    int sender = socket(AF_INET, SOCK_DGRAM, 0);
    const sockaddr_in to = loopback(port);
    ASSERT_EQ(static_cast<ssize_t>(row.datagram.size()),
              sendto(sender, row.datagram.data(), row.datagram.size(), 0,
                     reinterpret_cast<const sockaddr*>(&to), sizeof(to)));
    close(sender);
    TsPacketizer packetizer;
    ASSERT_EQ(TransportStreamSource::kData, source->read(&packetizer, 1 << 16, 5000));
    PacketCollector collector;
    packetizer.finish(&collector);
    EXPECT_EQ(row.delivered ? packets : Bytes(), collector.bytes);
    EXPECT_EQ(row.delivered ? packets.size() : 0u, source->getPosition());
  }
}

// The published ways to give a tuner a stream: a file that cannot be opened
// adds no tuner and says why; a buffer plays once or loops, as asked.
TEST(PublishedTuners, OpenFailureAddsNothingAndLoopingIsHonoured) {
  ReceiverSimulator sim;
  std::string error;
  EXPECT_EQ(-1, sim.addFileTuner("/nonexistent/stream.ts", false, &error));
  EXPECT_NE(std::string::npos, error.find("/nonexistent/stream.ts"));
  EXPECT_EQ(0u, sim.getTunerCount());
  const int once = sim.addMemoryTuner(SampleStream::build(), "once", false);
  const int looping = sim.addMemoryTuner(SampleStream::build(), "looping", true);
  EXPECT_EQ(std::make_pair(0, 1), std::make_pair(once, looping));
  sim.start();
  EXPECT_TRUE(sim.waitForEnd(once, std::chrono::seconds(20)));
  EXPECT_EQ(SampleStream::kPacketCount, SimulatorTuners::get(sim, once)->getProgress().packets);
  EXPECT_FALSE(sim.waitForEnd(looping, std::chrono::milliseconds(300)));
  EXPECT_FALSE(sim.waitForEnd(2, std::chrono::milliseconds(0)));  // no such tuner
}
