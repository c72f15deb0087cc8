#ifndef OSTREL_SIM_SAMPLE_STREAM_H
#define OSTREL_SIM_SAMPLE_STREAM_H

#include <vector>

namespace Ostrel {

// A small, deterministic ISDB-Tb-like multiplex for demonstrations and tests:
// two seconds at 4 Mbit/s (5320 packets) that loop seamlessly.
//
// Network "Rede Ostrel" (network id 0x0640), transport stream 0x0640, four
// services in the PAT:
//   0xE760 "Ostrel HD"    full-seg HD TV, PMT on 0x0100 (H.264 video, AAC
//                         audio, captions), PCR on the video PID 0x0111;
//   0xE761 "Ostrel Extra" TV, PMT on 0x0130, which is never carried: every
//                         request for it times out;
//   0xE768 "Ostrel Dados" data service, PMT on 0x0110 (a DSM-CC carousel);
//   0xE778 "Ostrel 1seg"  one-seg (partial reception), PMT on 0x1FC8.
// The PAT, NIT and SDT come in two sections each. The NIT's first section
// describes a neighbouring transport stream (0x0641 "VIZINHO"); its second
// this one: service list, TS information, terrestrial delivery system
// (575.142857 MHz, mode 3) and partial reception. The SDT has a service
// descriptor per service; the TOT says 2026-03-01 15:00:00 UTC, and its
// Brazilian local time offset changed from -2 h to -3 h two weeks before.
// PAT and PMTs repeat every 100 ms, NIT and SDT every 200 ms, the TOT every
// 500 ms; the rest is stand-in audio and video payload and null packets.
class SampleStream {
 public:
  static constexpr unsigned short kNetworkId = 0x0640;
  static constexpr unsigned short kTransportStreamId = 0x0640;
  static constexpr unsigned short kHdService = 0xE760;
  static constexpr unsigned short kMissingService = 0xE761;
  static constexpr unsigned short kDataService = 0xE768;
  static constexpr unsigned short kOneSegService = 0xE778;
  static constexpr unsigned short kHdPmtPid = 0x0100;
  static constexpr unsigned short kDataPmtPid = 0x0110;
  static constexpr unsigned short kMissingPmtPid = 0x0130;
  static constexpr unsigned short kOneSegPmtPid = 0x1FC8;
  static constexpr unsigned short kPcrPid = 0x0111;
  static constexpr long long kUtcSeconds = 1772377200LL;  // 2026-03-01 15:00:00 UTC
  static constexpr int kLocalOffsetSeconds = -3 * 3600;
  static constexpr unsigned int kBitRate = 4000000;
  static constexpr unsigned int kPacketCount = 5320;

  // The whole stream, the same bytes on every call. everyPmt carries Ostrel
  // Extra's PMT too (its video shared with Ostrel HD's), so that a scan of
  // it waits for no time-out.
  static std::vector<unsigned char> build(bool everyPmt = false);
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_SAMPLE_STREAM_H
