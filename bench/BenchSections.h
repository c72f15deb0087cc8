#ifndef OSTREL_BENCH_SECTIONS_H
#define OSTREL_BENCH_SECTIONS_H

#include <vector>

#include "TCrc32.h"
#include "TDescriptorBuilder.h"
#include "TPMTBuilder.h"

namespace OstrelBench {

// A PMT of exactly 288 bytes, shaped like an ISDB-Tb programme: video and
// audio with component tags and raw descriptors, and data streams. The same
// section in every benchmark that parses or injects a PMT.
inline std::vector<unsigned char> pmt288() {
  using Ostrel::TDescriptorBuilder;
  using Ostrel::TPMTBuilder;
  typedef std::vector<unsigned char> Bytes;
  auto streamId = [](unsigned char tag, unsigned char rawTag, unsigned int rawSize) {
    Bytes d = TDescriptorBuilder::streamIdentifier(tag);
    TDescriptorBuilder::append(&d, TDescriptorBuilder::raw(rawTag, Bytes(rawSize, 0x11)));
    return d;
  };
  TPMTBuilder b;
  b.setProgramNumber(0xE760).setVersion(1).setPcrPid(0x0111);
  b.addDescriptor(TDescriptorBuilder::raw(0xC1, Bytes{0x84}));
  b.addDescriptor(TDescriptorBuilder::raw(0x09, Bytes{0x00, 0x05, 0xE0, 0x20, 0x01, 0x02}));
  b.addStream(0x1B, 0x0111, streamId(0x00, 0xC8, 1));
  b.addStream(0x0F, 0x0112, streamId(0x10, 0x0A, 4));
  b.addStream(0x0F, 0x0113, streamId(0x11, 0x0A, 4));
  b.addStream(0x1B, 0x0181, streamId(0x81, 0xC8, 1));
  b.addStream(0x0F, 0x0183, streamId(0x83, 0x0A, 4));
  for (unsigned short i = 0; i < 14; ++i) {
    b.addStream(0x06, static_cast<unsigned short>(0x0130 + i), streamId(0x30 + i, 0xFD, 3));
  }
  // One last stream pads the section to 288 bytes.
  unsigned int size = static_cast<unsigned int>(b.build().size());
  b.addStream(0x0D, 0x0140, TDescriptorBuilder::raw(0xFD, Bytes(288 - size - 7, 0x22)));
  return b.build();
}

// The section with another version number and its CRC made right again.
inline std::vector<unsigned char> withVersion(std::vector<unsigned char> section,
                                              unsigned char version) {
  section[5] = static_cast<unsigned char>((section[5] & 0xC1) | ((version & 0x1F) << 1));
  unsigned int n = static_cast<unsigned int>(section.size()) - 4;
  unsigned int crc = Ostrel::TCrc32::compute(section.data(), n);
  for (int i = 0; i < 4; ++i)
    section[n + i] = static_cast<unsigned char>(crc >> (24 - 8 * i));
  return section;
}

}  // namespace OstrelBench

#endif
