#ifndef OSTREL_TESTS_SECTIONS_H
#define OSTREL_TESTS_SECTIONS_H

#include <vector>

#include "TPATBuilder.h"
#include "TPMTBuilder.h"

namespace OstrelTest {

// Well-formed sections (with CRC) for the request and injection tests.
inline std::vector<unsigned char> patSection(unsigned short tsId = 0x0640) {
  return Ostrel::TPATBuilder()
      .setTransportStreamId(tsId)
      .addProgram(0, 0x0010)
      .addProgram(0xE760, 0x1FC8)
      .build();
}

// A PMT for programNumber with the given number of elementary streams.
inline std::vector<unsigned char> pmtSection(unsigned short programNumber = 0xE760,
                                             unsigned int streams = 2) {
  Ostrel::TPMTBuilder builder;
  builder.setProgramNumber(programNumber).setPcrPid(0x0111);
  for (unsigned int i = 0; i < streams; ++i) {
    builder.addStream(i % 2 ? 0x0F : 0x1B, static_cast<unsigned short>(0x0111 + i));
  }
  return builder.build();
}

}  // namespace OstrelTest

#endif
