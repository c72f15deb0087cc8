// Differential test: libdvbpsi, an independent decoder, reads the same valid
// sections as our parsers, and both must find the same fields, loops and
// descriptor bytes.
#include <gtest/gtest.h>

#include <iostream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "tables_dvbpsi.h"  // libdvbpsi, included once

#include "TDescriptorBuilder.h"
#include "TNITBuilder.h"
#include "TPATBuilder.h"
#include "TPMTBuilder.h"
#include "TSDTBuilder.h"
#include "TTOTBuilder.h"
#include "golden_sections.h"

using namespace Ostrel;
using Bytes = std::vector<unsigned char>;

namespace {

template <class T>
std::string ours(Bytes section) {
  std::unique_ptr<T> t(
      T::parse(section.data(), static_cast<unsigned int>(section.size()), 1, 1, nullptr, nullptr));
  return t ? OstrelDvbpsi::describe(*t) : std::string("(null)");
}

std::string theirs(const Bytes& section, OstrelDvbpsi::Decoder::Table table,
                   unsigned short program = 0) {
  OstrelDvbpsi::Decoder decoder(table, program, true);
  unsigned int counter = 0;
  Bytes packets = OstrelDvbpsi::packetize(section, 0x0100, &counter);
  decoder.push(packets);
  return decoder.tables() == 1 ? decoder.last() : std::string("(no table)");
}

unsigned short pmtProgram(const Bytes& section) {
  return static_cast<unsigned short>((section[3] << 8) | section[4]);
}

template <size_t N>
Bytes golden(const unsigned char (&s)[N]) {
  return Bytes(s, s + N);
}

// Random descriptors: known tags with random (possibly ill-fitting) payloads
// and unknown tags, so that both decoders see every kind.
Bytes randomDescriptors(std::mt19937& rng, unsigned int maxCount) {
  const unsigned char tags[] = {0x40, 0x41, 0x48, 0x52, 0x58, 0xCD,
                                0xFA, 0xFB, 0x0A, 0xC1, 0xFD, 0x09};
  Bytes out;
  unsigned int count = rng() % (maxCount + 1);
  for (unsigned int i = 0; i < count; ++i) {
    Bytes payload(rng() % 24);
    for (auto& b : payload)
      b = static_cast<unsigned char>(rng());
    TDescriptorBuilder::append(&out, TDescriptorBuilder::raw(tags[rng() % sizeof(tags)], payload));
  }
  return out;
}

}  // namespace

TEST(TablesDvbpsiTest, GoldenSectionsDecodeAlikeInBothLibraries) {
  using D = OstrelDvbpsi::Decoder;
  const Bytes pat = golden(OstrelGolden::kPat);
  EXPECT_EQ(ours<TPATTable>(pat), theirs(pat, D::kPat));
  // libdvbpsi gives no table at all for a PAT without programmes (kPatEmpty);
  // our reading of it is checked in the golden test.
  const Bytes pmt = golden(OstrelGolden::kPmt), pmtEmpty = golden(OstrelGolden::kPmtEmpty);
  EXPECT_EQ(ours<TPMTTable>(pmt), theirs(pmt, D::kPmt, pmtProgram(pmt)));
  EXPECT_EQ(ours<TPMTTable>(pmtEmpty), theirs(pmtEmpty, D::kPmt, pmtProgram(pmtEmpty)));
  const Bytes nit = golden(OstrelGolden::kNit), nitEmpty = golden(OstrelGolden::kNitEmpty);
  EXPECT_EQ(ours<TNITTable>(nit), theirs(nit, D::kSi));
  EXPECT_EQ(ours<TNITTable>(nitEmpty), theirs(nitEmpty, D::kSi));
  const Bytes sdt = golden(OstrelGolden::kSdt);
  EXPECT_EQ(ours<TSDTTable>(sdt), theirs(sdt, D::kSi));
  const Bytes tot = golden(OstrelGolden::kTot);
  EXPECT_EQ(ours<TTOTTable>(tot), theirs(tot, D::kSi));
}

TEST(TablesDvbpsiTest, RandomBuiltSectionsDecodeAlikeInBothLibraries) {
  using D = OstrelDvbpsi::Decoder;
  std::mt19937 rng(1234);
  for (int round = 0; round < 150; ++round) {
    unsigned short ext = static_cast<unsigned short>(rng());
    unsigned char version = static_cast<unsigned char>(rng() % 32);

    TPATBuilder pat;
    pat.setTransportStreamId(ext).setVersion(version);
    for (unsigned int i = 1 + rng() % 40; i > 0; --i) {  // at least one: see above
      pat.addProgram(static_cast<unsigned short>(rng()), static_cast<unsigned short>(rng()));
    }
    Bytes patBytes = pat.build();
    ASSERT_FALSE(patBytes.empty());
    EXPECT_EQ(ours<TPATTable>(patBytes), theirs(patBytes, D::kPat)) << round;

    TPMTBuilder pmt;
    pmt.setProgramNumber(ext).setVersion(version).setPcrPid(static_cast<unsigned short>(rng()));
    pmt.addDescriptor(randomDescriptors(rng, 3));
    for (unsigned int i = rng() % 12; i > 0; --i) {
      pmt.addStream(static_cast<unsigned char>(rng()), static_cast<unsigned short>(rng()),
                    randomDescriptors(rng, 3));
    }
    Bytes pmtBytes = pmt.build();
    ASSERT_FALSE(pmtBytes.empty());
    EXPECT_EQ(ours<TPMTTable>(pmtBytes), theirs(pmtBytes, D::kPmt, ext)) << round;

    TNITBuilder nit;
    nit.setNetworkId(ext).setVersion(version).setActual(rng() % 2 == 0);
    nit.addDescriptor(randomDescriptors(rng, 3));
    for (unsigned int i = rng() % 6; i > 0; --i) {
      nit.addTransportStream(static_cast<unsigned short>(rng()), static_cast<unsigned short>(rng()),
                             randomDescriptors(rng, 4));
    }
    Bytes nitBytes = nit.build();
    ASSERT_FALSE(nitBytes.empty());
    EXPECT_EQ(ours<TNITTable>(nitBytes), theirs(nitBytes, D::kSi)) << round;

    TSDTBuilder sdt;
    sdt.setTransportStreamId(ext).setOriginalNetworkId(static_cast<unsigned short>(rng()));
    sdt.setVersion(version).setActual(rng() % 2 == 0);
    for (unsigned int i = rng() % 8; i > 0; --i) {
      sdt.addService(static_cast<unsigned short>(rng()), randomDescriptors(rng, 3),
                     static_cast<unsigned char>(rng() % 8), rng() % 2 == 0, rng() % 2 == 0,
                     rng() % 2 == 0);
    }
    Bytes sdtBytes = sdt.build();
    ASSERT_FALSE(sdtBytes.empty());
    EXPECT_EQ(ours<TSDTTable>(sdtBytes), theirs(sdtBytes, D::kSi)) << round;

    TTOTBuilder tot;
    tot.setUtcSeconds(static_cast<long long>(rng() % 2000000000u));
    tot.addDescriptor(randomDescriptors(rng, 3));
    // libdvbpsi drops a last TOT descriptor shorter than 4 bytes (see below):
    // end the loop with a longer one.
    tot.addDescriptor(TDescriptorBuilder::raw(0x58, Bytes(2 + rng() % 20, 0x42)));
    Bytes totBytes = tot.build();
    ASSERT_FALSE(totBytes.empty());
    EXPECT_EQ(ours<TTOTTable>(totBytes), theirs(totBytes, D::kSi)) << round;
  }
}

TEST(TablesDvbpsiTest, ShortTrailingTotDescriptorsAndEmptyPatsAreKeptWhereLibdvbpsiLosesThem) {
  // Where the two disagree, ours follows the section layout: a descriptor of
  // two or three bytes at the end of the TOT's loop is a descriptor, and a PAT
  // without programmes is a PAT.
  for (unsigned int payload = 0; payload < 2; ++payload) {
    Bytes tot = TTOTBuilder()
                    .setUtcSeconds(1000)
                    .addDescriptor(TDescriptorBuilder::raw(0x81, Bytes(payload, 2)))
                    .build();
    std::unique_ptr<TTOTTable> t(TTOTTable::parse(tot.data(), static_cast<unsigned int>(tot.size()),
                                                  1, 1, nullptr, nullptr));
    ASSERT_NE(t, nullptr);
    ASSERT_EQ(t->getDescriptors().size(), 1u);
    EXPECT_EQ(t->getDescriptors().at(0)->getLength(), payload);
    std::cout << "libdvbpsi: " << theirs(tot, OstrelDvbpsi::Decoder::kSi) << "\n";
  }
  Bytes pat = golden(OstrelGolden::kPatEmpty);
  EXPECT_EQ(ours<TPATTable>(pat), "tsid=1 v=0 cn=1 ");
  std::cout << "libdvbpsi: " << theirs(pat, OstrelDvbpsi::Decoder::kPat) << "\n";
}
