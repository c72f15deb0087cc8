#include "SampleStream.h"

#include <deque>
#include <string>
#include <utility>

#include "TDescriptorBuilder.h"
#include "TNITBuilder.h"
#include "TPATBuilder.h"
#include "TPMTBuilder.h"
#include "TSDTBuilder.h"
#include "TTOTBuilder.h"
#include "TsPacketWriter.h"

namespace Ostrel {

namespace {

typedef std::vector<unsigned char> Bytes;

const unsigned short kNitPid = 0x0010;
const unsigned short kSdtPid = 0x0011;
const unsigned short kTotPid = 0x0014;
const unsigned short kHdAudioPid = 0x0112;
const unsigned short kHdCaptionPid = 0x0114;
const unsigned short kCarouselPid = 0x0121;
const unsigned short kOneSegVideoPid = 0x0181;
const unsigned short kOneSegAudioPid = 0x0183;
const unsigned char kServiceTypeTv = 0x01;
const unsigned char kServiceTypeData = 0xC0;
const unsigned int kCountryBra = ('B' << 16) | ('R' << 8) | 'A';
const long long kTimeOfChange = 1771124400LL;  // 2026-02-15 03:00:00 UTC
const unsigned short kNeighbourTsId = 0x0641;

const unsigned int kPacketsPerSlot = 266;  // 100 ms at 4 Mbit/s
const unsigned int kSlots = 20;
// PCR ticks per packet at 4 Mbit/s: 188 * 8 * 27 MHz / 4 Mbit/s.
const uint64_t kPcrPerPacket = 10152;
const unsigned int kPacketsPerPcr = 106;  // about 40 ms

Bytes streamId(unsigned char tag) {
  return TDescriptorBuilder::streamIdentifier(tag);
}

std::vector<Bytes> pat() {
  std::vector<Bytes> sections;
  sections.push_back(TPATBuilder()
                         .setTransportStreamId(SampleStream::kTransportStreamId)
                         .setSectionNumber(0, 1)
                         .addProgram(0, kNitPid)
                         .addProgram(SampleStream::kHdService, SampleStream::kHdPmtPid)
                         .addProgram(SampleStream::kMissingService, SampleStream::kMissingPmtPid)
                         .build());
  sections.push_back(TPATBuilder()
                         .setTransportStreamId(SampleStream::kTransportStreamId)
                         .setSectionNumber(1, 1)
                         .addProgram(SampleStream::kDataService, SampleStream::kDataPmtPid)
                         .addProgram(SampleStream::kOneSegService, SampleStream::kOneSegPmtPid)
                         .build());
  return sections;
}

std::vector<std::pair<unsigned short, Bytes>> pmts(bool everyPmt) {
  std::vector<std::pair<unsigned short, Bytes>> out;
  if (everyPmt) {
    out.push_back(std::make_pair(SampleStream::kMissingPmtPid,
                                 TPMTBuilder()
                                     .setProgramNumber(SampleStream::kMissingService)
                                     .setPcrPid(SampleStream::kPcrPid)
                                     .addStream(0x1B, SampleStream::kPcrPid, streamId(0x00))
                                     .build()));
  }
  out.push_back(std::make_pair(SampleStream::kHdPmtPid,
                               TPMTBuilder()
                                   .setProgramNumber(SampleStream::kHdService)
                                   .setPcrPid(SampleStream::kPcrPid)
                                   .addStream(0x1B, SampleStream::kPcrPid, streamId(0x00))
                                   .addStream(0x0F, kHdAudioPid, streamId(0x10))
                                   .addStream(0x06, kHdCaptionPid, streamId(0x30))
                                   .build()));
  out.push_back(
      std::make_pair(SampleStream::kDataPmtPid, TPMTBuilder()
                                                    .setProgramNumber(SampleStream::kDataService)
                                                    .setPcrPid(0x1FFF)
                                                    .addStream(0x0D, kCarouselPid, streamId(0x40))
                                                    .build()));
  out.push_back(std::make_pair(SampleStream::kOneSegPmtPid,
                               TPMTBuilder()
                                   .setProgramNumber(SampleStream::kOneSegService)
                                   .setPcrPid(kOneSegVideoPid)
                                   .addStream(0x1B, kOneSegVideoPid, streamId(0x81))
                                   .addStream(0x0F, kOneSegAudioPid, streamId(0x83))
                                   .build()));
  return out;
}

// A neighbour's entry, listed first: a scan must pick this stream's own.
Bytes neighbourLoop() {
  std::vector<std::pair<unsigned char, std::vector<unsigned short>>> types;
  types.push_back(std::make_pair(0x0F, std::vector<unsigned short>(1, 0xE7A0)));
  Bytes loop;
  TDescriptorBuilder::append(&loop, TDescriptorBuilder::tsInformation(9, "VIZINHO", types));
  TDescriptorBuilder::append(&loop, TDescriptorBuilder::terrestrialDeliverySystem(
                                        0x0C9, 3, 1, std::vector<unsigned short>(1, 3990)));
  TDescriptorBuilder::append(
      &loop, TDescriptorBuilder::partialReception(std::vector<unsigned short>(1, 0xE7A0)));
  return loop;
}

std::vector<Bytes> nit() {
  std::vector<std::pair<unsigned short, unsigned char>> services;
  services.push_back(std::make_pair(SampleStream::kHdService, kServiceTypeTv));
  services.push_back(std::make_pair(SampleStream::kMissingService, kServiceTypeTv));
  services.push_back(std::make_pair(SampleStream::kDataService, kServiceTypeData));
  services.push_back(std::make_pair(SampleStream::kOneSegService, kServiceTypeTv));
  std::vector<std::pair<unsigned char, std::vector<unsigned short>>> types;
  std::vector<unsigned short> fullSeg;
  fullSeg.push_back(SampleStream::kHdService);
  fullSeg.push_back(SampleStream::kMissingService);
  fullSeg.push_back(SampleStream::kDataService);
  types.push_back(std::make_pair(0x0F, fullSeg));
  types.push_back(
      std::make_pair(0xAF, std::vector<unsigned short>(1, SampleStream::kOneSegService)));
  Bytes loop;
  TDescriptorBuilder::append(&loop, TDescriptorBuilder::serviceList(services));
  TDescriptorBuilder::append(&loop, TDescriptorBuilder::tsInformation(5, "OSTREL", types));
  // 575.142857 MHz in 1/7 MHz units; guard interval 1/16, mode 3.
  TDescriptorBuilder::append(&loop, TDescriptorBuilder::terrestrialDeliverySystem(
                                        0x0C9, 1, 2, std::vector<unsigned short>(1, 4026)));
  TDescriptorBuilder::append(&loop,
                             TDescriptorBuilder::partialReception(
                                 std::vector<unsigned short>(1, SampleStream::kOneSegService)));
  std::vector<Bytes> sections;
  sections.push_back(
      TNITBuilder()
          .setNetworkId(SampleStream::kNetworkId)
          .setSectionNumber(0, 1)
          .addDescriptor(TDescriptorBuilder::networkName("Rede Ostrel"))
          .addTransportStream(kNeighbourTsId, SampleStream::kNetworkId, neighbourLoop())
          .build());
  sections.push_back(
      TNITBuilder()
          .setNetworkId(SampleStream::kNetworkId)
          .setSectionNumber(1, 1)
          .addDescriptor(TDescriptorBuilder::networkName("Rede Ostrel"))
          .addTransportStream(SampleStream::kTransportStreamId, SampleStream::kNetworkId, loop)
          .build());
  return sections;
}

std::vector<Bytes> sdt() {
  std::vector<Bytes> sections;
  sections.push_back(
      TSDTBuilder()
          .setTransportStreamId(SampleStream::kTransportStreamId)
          .setOriginalNetworkId(SampleStream::kNetworkId)
          .setSectionNumber(0, 1)
          .addService(SampleStream::kHdService,
                      TDescriptorBuilder::service(kServiceTypeTv, "Ostrel", "Ostrel HD"))
          .addService(SampleStream::kMissingService,
                      TDescriptorBuilder::service(kServiceTypeTv, "Ostrel", "Ostrel Extra"))
          .build());
  sections.push_back(
      TSDTBuilder()
          .setTransportStreamId(SampleStream::kTransportStreamId)
          .setOriginalNetworkId(SampleStream::kNetworkId)
          .setSectionNumber(1, 1)
          .addService(SampleStream::kDataService,
                      TDescriptorBuilder::service(kServiceTypeData, "Ostrel", "Ostrel Dados"))
          .addService(SampleStream::kOneSegService,
                      TDescriptorBuilder::service(kServiceTypeTv, "Ostrel", "Ostrel 1seg"))
          .build());
  return sections;
}

// The offset changed from -2 h to -3 h before the table's time: -3 h applies.
Bytes tot() {
  return TTOTBuilder()
      .setUtcSeconds(SampleStream::kUtcSeconds)
      .addDescriptor(TDescriptorBuilder::localTimeOffset(kCountryBra, 1, -2 * 3600, kTimeOfChange,
                                                         SampleStream::kLocalOffsetSeconds))
      .build();
}

// Stand-in payload: which PID a filler packet goes to, and its bytes, from a
// fixed linear congruential sequence.
class Filler {
 public:
  Filler() : m_uiState(0x2545F491u) {}
  unsigned int next() {
    m_uiState = m_uiState * 1664525u + 1013904223u;
    return m_uiState >> 8;
  }
  void write(TsPacketWriter* writer) {
    unsigned int pick = next() % 100;
    if (pick >= 88) {
      writer->writeNull();
      return;
    }
    unsigned short pid = pick < 70   ? SampleStream::kPcrPid
                         : pick < 78 ? kHdAudioPid
                         : pick < 85 ? kOneSegVideoPid
                                     : kOneSegAudioPid;
    unsigned char payload[184];
    for (unsigned int i = 0; i < sizeof(payload); ++i) {
      payload[i] = static_cast<unsigned char>(next());
    }
    writer->writePayload(pid, payload);
  }

 private:
  unsigned int m_uiState;
};

}  // namespace

std::vector<unsigned char> SampleStream::build(bool everyPmt) {
  const std::vector<Bytes> patSections = pat();
  const std::vector<std::pair<unsigned short, Bytes>> pmtSections = pmts(everyPmt);
  const std::vector<Bytes> nitSections = nit();
  const std::vector<Bytes> sdtSections = sdt();
  const Bytes totSection = tot();

  Bytes out;
  out.reserve(static_cast<size_t>(kPacketCount) * 188);
  TsPacketWriter writer(&out);
  Filler filler;
  std::deque<std::pair<unsigned short, const Bytes*>> due;
  uint64_t nextPcrPacket = 0;
  for (unsigned int slot = 0; slot < kSlots; ++slot) {
    for (size_t i = 0; i < patSections.size(); ++i) {
      due.push_back(std::make_pair(static_cast<unsigned short>(0x0000), &patSections[i]));
    }
    for (size_t i = 0; i < pmtSections.size(); ++i) {
      due.push_back(std::make_pair(pmtSections[i].first, &pmtSections[i].second));
    }
    if (slot % 2 == 0) {
      for (size_t i = 0; i < nitSections.size(); ++i) {
        due.push_back(std::make_pair(kNitPid, &nitSections[i]));
        due.push_back(std::make_pair(kSdtPid, &sdtSections[i]));
      }
    }
    if (slot % 5 == 0) {
      due.push_back(std::make_pair(kTotPid, &totSection));
    }
    const uint64_t slotEnd = static_cast<uint64_t>(slot + 1) * kPacketsPerSlot;
    while (writer.getPacketCount() < slotEnd) {
      uint64_t index = writer.getPacketCount();
      if (index >= nextPcrPacket) {
        writer.writePcr(kPcrPid, index * kPcrPerPacket);
        nextPcrPacket += kPacketsPerPcr;
      } else if (!due.empty() && writer.getPacketCount() + 8 < slotEnd) {
        writer.writeSection(due.front().first, *due.front().second);
        due.pop_front();
      } else {
        filler.write(&writer);
      }
    }
  }
  return out;
}

}  // namespace Ostrel
