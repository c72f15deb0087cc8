#ifndef OSTREL_BENCH_SECTIONS_H
#define OSTREL_BENCH_SECTIONS_H

// The sections and the callback the benchmarks share (the tests' own are in
// tests/support/Sections.h).

#include <vector>

#include "TCrc32.h"
#include "TDescriptorBuilder.h"
#include "TISDBTTable.h"
#include "TPMTBuilder.h"

namespace OstrelTest {

// A PMT of exactly 288 bytes, shaped like an ISDB-Tb programme: video and
// audio with component tags and raw descriptors, and data streams. The one
// section that every benchmark parsing or injecting a PMT uses.
inline std::vector<unsigned char> pmt288() {
  using Ostrel::TDescriptorBuilder;
  using Bytes = std::vector<unsigned char>;
  auto streamId = [](unsigned char tag, unsigned char rawTag, unsigned int rawSize) {
    Bytes d = TDescriptorBuilder::streamIdentifier(tag);
    TDescriptorBuilder::append(&d, TDescriptorBuilder::raw(rawTag, Bytes(rawSize, 0x11)));
    return d;
  };
  Ostrel::TPMTBuilder b;
  b.setProgramNumber(0xE760).setVersion(1).setPcrPid(0x0111);
  b.addDescriptor(TDescriptorBuilder::raw(0xC1, Bytes{0x84}));
  b.addDescriptor(TDescriptorBuilder::raw(0x09, Bytes{0x00, 0x05, 0xE0, 0x20, 0x01, 0x02}));
  const unsigned short pids[] = {0x0111, 0x0112, 0x0113, 0x0181, 0x0183};
  const unsigned char tags[] = {0x00, 0x10, 0x11, 0x81, 0x83};
  for (int i = 0; i < 5; ++i) {
    const bool video = i % 3 == 0;
    b.addStream(video ? 0x1B : 0x0F, pids[i],
                streamId(tags[i], video ? 0xC8 : 0x0A, video ? 1 : 4));
  }
  for (unsigned short i = 0; i < 14; ++i) {
    b.addStream(0x06, static_cast<unsigned short>(0x0130 + i), streamId(0x30 + i, 0xFD, 3));
  }
  // One last stream pads the section to 288 bytes.
  const unsigned int size = static_cast<unsigned int>(b.build().size());
  b.addStream(0x0D, 0x0140, TDescriptorBuilder::raw(0xFD, Bytes(288 - size - 7, 0x22)));
  return b.build();
}

// The section with another version number and its CRC made right again.
inline std::vector<unsigned char> withVersion(std::vector<unsigned char> section,
                                              unsigned char version) {
  section[5] = static_cast<unsigned char>((section[5] & 0xC1) | ((version & 0x1F) << 1));
  const unsigned int n = static_cast<unsigned int>(section.size()) - 4;
  const unsigned int crc = Ostrel::TCrc32::compute(section.data(), n);
  for (int i = 0; i < 4; ++i)
    section[n + i] = static_cast<unsigned char>(crc >> (24 - 8 * i));
  return section;
}

// A notification callback that counts notifications in the long that the
// user data points to, if any, and accepts each.
inline int countingCallback(unsigned int, unsigned char, void* userData, Ostrel::TISDBTTable*) {
  if (userData)
    ++*static_cast<long*>(userData);
  return 1;
}

}  // namespace OstrelTest

#endif  // OSTREL_BENCH_SECTIONS_H
