// The table library: hand-written sections of every table decoded field by
// field; the building blocks (CRC, reader, text, times); the builders, which
// write the golden sections byte for byte and whose output parses back to
// what was put in; and parsers running on several threads at once.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "TCrc32.h"
#include "TDescriptorBuilder.h"
#include "TLocalTimeOffsetDescriptor.h"
#include "TMjdTime.h"
#include "TNITBuilder.h"
#include "TNITTable.h"
#include "TNetworkNameDescriptor.h"
#include "TPATBuilder.h"
#include "TPATTable.h"
#include "TPMTBuilder.h"
#include "TPMTTable.h"
#include "TPartialReceptionDescriptor.h"
#include "TSDTBuilder.h"
#include "TSDTTable.h"
#include "TSectionReader.h"
#include "TServiceDescriptor.h"
#include "TServiceListDescriptor.h"
#include "TTOTBuilder.h"
#include "TTOTTable.h"
#include "TTSInformationDescriptor.h"
#include "TTerrestrialDeliverySystemDescriptor.h"
#include "TTextCodec.h"
#include "golden_sections.h"

using namespace Ostrel;
using Bytes = std::vector<unsigned char>;

namespace {

template <size_t N>
Bytes bytesOf(const unsigned char (&section)[N]) {
  return Bytes(section, section + N);
}

// Parses exactly the section's bytes from a block of their size, so that
// AddressSanitizer sees any read past its end.
template <class T>
std::unique_ptr<T> parse(Bytes b) {
  return std::unique_ptr<T>(
      T::parse(b.data(), static_cast<unsigned int>(b.size()), 1, 1, nullptr, nullptr));
}

template <class T, size_t N>
std::unique_ptr<T> parseGolden(const unsigned char (&section)[N]) {
  return parse<T>(bytesOf(section));
}

Bytes bytes(std::initializer_list<unsigned char> list) {
  return list;
}

Bytes text(const char* s) {
  return Bytes(s, s + std::strlen(s));
}

}  // namespace

TEST(TablesGoldenTest, PatListsEveryProgrammeAndTheNetworkPid) {
  auto pat = parseGolden<TPATTable>(OstrelGolden::kPat);
  ASSERT_TRUE(pat);
  EXPECT_EQ(
      std::make_tuple(TISDBTTable::kTypePat, 0x00, 0x0421, 5, true, 0, 0),
      std::make_tuple(pat->getType(), int(pat->getTableId()), int(pat->getTransportStreamId()),
                      int(pat->getVersionNumber()), pat->isCurrentNext(),
                      int(pat->getSectionNumber()), int(pat->getLastSectionNumber())));
  ASSERT_EQ(pat->getProgramCount(), 4u);
  const unsigned short expected[][2] = {
      {0x0000, 0x0010}, {0xE760, 0x1FC8}, {0xE761, 0x1FC9}, {0xE778, 0x1FCA}};
  for (unsigned int i = 0; i < 4; ++i) {
    EXPECT_TRUE(pat->getProgram(i).programNumber == expected[i][0] &&
                pat->getProgram(i).pid == expected[i][1])
        << i;
  }
  unsigned short pid = 0;
  EXPECT_TRUE(pat->getNetworkPid(&pid));
  EXPECT_EQ(pid, 0x0010);
  EXPECT_TRUE(pat->getPmtPid(0xE778, &pid));
  EXPECT_EQ(pid, 0x1FCA);
  EXPECT_FALSE(pat->getPmtPid(0xE779, &pid));
  EXPECT_FALSE(pat->getPmtPid(0, &pid)) << "programme 0 is the network, not a PMT";
}

TEST(TablesGoldenTest, PmtKeepsStreamsInOrderWithDecodedAndRawDescriptors) {
  auto pmt = parseGolden<TPMTTable>(OstrelGolden::kPmt);
  ASSERT_TRUE(pmt);
  EXPECT_EQ(std::make_tuple(TISDBTTable::kTypePmt, 0xE760, 2, 0x0111),
            std::make_tuple(pmt->getType(), int(pmt->getProgramNumber()),
                            int(pmt->getVersionNumber()), int(pmt->getPcrPid())));
  ASSERT_EQ(pmt->getDescriptors().size(), 1u);
  const TDescriptor* copyControl = pmt->getDescriptors().at(0);
  EXPECT_EQ(copyControl->getTag(), 0xC1);
  EXPECT_FALSE(copyControl->isDecoded());
  EXPECT_EQ(copyControl->getBytes(), bytes({0x84}));

  struct Expected {
    unsigned char type;
    unsigned short pid;
    size_t descriptors;
    int componentTag;  // -1: none
  };
  const Expected expected[] = {{0x1B, 0x0111, 1, 0x00},
                               {0x0F, 0x0112, 2, 0x10},
                               {0x06, 0x0113, 2, 0x30},
                               {0x0D, 0x0114, 0, -1}};
  ASSERT_EQ(pmt->getStreamCount(), 4u);
  for (unsigned int i = 0; i < 4; ++i) {
    const TPMTTable::Stream& s = pmt->getStream(i);
    unsigned char tag = 0xEE;
    const int found = s.getComponentTag(&tag) ? tag : -1;
    EXPECT_EQ(std::make_tuple(expected[i].type, expected[i].pid, expected[i].descriptors,
                              expected[i].componentTag),
              std::make_tuple(s.getStreamType(), s.getPid(), s.getDescriptors().size(), found))
        << i;
  }
  const TDescriptor* language = pmt->getStream(1).getDescriptors().find(0x0A);
  ASSERT_TRUE(language);
  EXPECT_EQ(language->getBytes(), bytes({'p', 'o', 'r', 0x00}));
  const TDescriptor* dataComponent = pmt->getStream(2).getDescriptors().at(1);
  EXPECT_EQ(dataComponent->getTag(), 0xFD);
  EXPECT_EQ(dataComponent->getBytes(), bytes({0x00, 0x08, 0x3D}));
  EXPECT_EQ(pmt->findStream(0x0113), &pmt->getStream(2));
  EXPECT_EQ(pmt->findStream(0x0115), nullptr);
}

TEST(TablesGoldenTest, NitDecodesTheDescriptorsOfAnIsdbTbNetwork) {
  auto nit = parseGolden<TNITTable>(OstrelGolden::kNit);
  ASSERT_TRUE(nit);
  EXPECT_EQ(std::make_tuple(TISDBTTable::kTypeNit, true, 0x0640, 1, std::string("Ostrel TV")),
            std::make_tuple(nit->getType(), nit->isActual(), int(nit->getNetworkId()),
                            int(nit->getVersionNumber()), nit->getNetworkName()));
  ASSERT_EQ(nit->getDescriptors().size(), 2u);
  EXPECT_TRUE(nit->getDescriptors().at(0)->isDecoded());
  EXPECT_EQ(nit->getDescriptors().at(1)->getTag(), 0xFE);
  EXPECT_EQ(nit->getDescriptors().at(1)->getBytes(), bytes({0x03, 0x01}));

  ASSERT_EQ(nit->getTransportStreamCount(), 2u);
  const TNITTable::TransportStream& ts = nit->getTransportStream(0);
  EXPECT_EQ(ts.getTransportStreamId(), 0x0421);
  EXPECT_EQ(ts.getOriginalNetworkId(), 0x0640);
  ASSERT_EQ(ts.getDescriptors().size(), 4u);

  const TServiceListDescriptor* list = ts.getDescriptors().findDecoded<TServiceListDescriptor>();
  ASSERT_TRUE(list);
  ASSERT_EQ(list->getServiceCount(), 3u);
  EXPECT_TRUE(list->getService(0).serviceId == 0xE760 && list->getService(0).serviceType == 0x01);
  EXPECT_TRUE(list->getService(2).serviceId == 0xE778 && list->getService(2).serviceType == 0xC0);

  const TTSInformationDescriptor* info =
      ts.getDescriptors().findDecoded<TTSInformationDescriptor>();
  ASSERT_TRUE(info);
  EXPECT_EQ(info->getRemoteControlKeyId(), 5);
  EXPECT_EQ(info->getTsName(), "Ostrel");
  ASSERT_EQ(info->getTransmissionTypes().size(), 2u);
  EXPECT_EQ(info->getTransmissionTypes()[0].transmissionTypeInfo, 0x0F);
  EXPECT_EQ(info->getTransmissionTypes()[0].serviceIds,
            (std::vector<unsigned short>{0xE760, 0xE761}));
  EXPECT_EQ(info->getTransmissionTypes()[1].transmissionTypeInfo, 0xAF);
  EXPECT_EQ(info->getTransmissionTypes()[1].serviceIds, (std::vector<unsigned short>{0xE778}));

  const TTerrestrialDeliverySystemDescriptor* delivery =
      ts.getDescriptors().findDecoded<TTerrestrialDeliverySystemDescriptor>();
  ASSERT_TRUE(delivery);
  EXPECT_EQ(std::make_tuple(0x123, 2, 2),
            std::make_tuple(int(delivery->getAreaCode()), int(delivery->getGuardInterval()),
                            int(delivery->getTransmissionMode())));
  EXPECT_EQ(delivery->getFrequencies(), (std::vector<unsigned short>{3312, 3354}));
  EXPECT_EQ(delivery->getFrequencyHz(0), 473142857ull);  // UHF channel 14
  EXPECT_EQ(delivery->getFrequencyHz(1), 479142857ull);

  const TPartialReceptionDescriptor* partial =
      ts.getDescriptors().findDecoded<TPartialReceptionDescriptor>();
  ASSERT_TRUE(partial);
  EXPECT_EQ(partial->getServiceIds(), (std::vector<unsigned short>{0xE778}));

  EXPECT_EQ(nit->getTransportStream(1).getTransportStreamId(), 0x0422);
  EXPECT_TRUE(nit->getTransportStream(1).getDescriptors().empty());
}

TEST(TablesGoldenTest, SdtGivesEachServiceItsFlagsTypeAndNames) {
  auto sdt = parseGolden<TSDTTable>(OstrelGolden::kSdt);
  ASSERT_TRUE(sdt);
  EXPECT_EQ(std::make_tuple(TISDBTTable::kTypeSdt, true, 0x0421, 0x0640, 7),
            std::make_tuple(sdt->getType(), sdt->isActual(), int(sdt->getTransportStreamId()),
                            int(sdt->getOriginalNetworkId()), int(sdt->getVersionNumber())));
  ASSERT_EQ(sdt->getServiceCount(), 3u);
  // id, schedule, present/following, running status, free CA, type, provider,
  // name. Latin-9 bytes become UTF-8; the emphasis code at the end is not shown.
  using Service = std::tuple<int, bool, bool, int, bool, int, std::string, std::string>;
  const Service expected[] = {{0xE760, true, true, 4, false, 0x01, "Ostrel", "Ostrel HD"},
                              {0xE778, false, true, 4, true, 0xC0, "", "A\xC3\xA7\xC3\xA3o 1seg"},
                              {0xE761, false, false, 1, false, 0, "", ""}};
  for (unsigned int i = 0; i < 3; ++i) {
    const TSDTTable::Service& s = sdt->getService(i);
    EXPECT_EQ(expected[i], Service(s.getServiceId(), s.isEitSchedule(), s.isEitPresentFollowing(),
                                   s.getRunningStatus(), s.isFreeCaMode(), s.getServiceType(),
                                   s.getProviderName(), s.getServiceName()));
  }
  const TServiceDescriptor* d =
      sdt->getService(1).getDescriptors().findDecoded<TServiceDescriptor>();
  ASSERT_TRUE(d);
  EXPECT_EQ(d->getLength(), 13u) << "the raw bytes stay as they came";

  EXPECT_EQ(sdt->findService(0xE778), &sdt->getService(1));
  EXPECT_EQ(sdt->findService(0x0001), nullptr);
}

TEST(TablesGoldenTest, TotGivesUtcSecondsAndTheLocalTimeOffsetBeforeAndAfterItsChange) {
  auto tot = parseGolden<TTOTTable>(OstrelGolden::kTot);
  ASSERT_TRUE(tot);
  EXPECT_EQ(std::make_tuple(TISDBTTable::kTypeTot, false, int(OstrelGolden::kTotMjd), 0x004059u,
                            OstrelGolden::kTotUtcSeconds),
            std::make_tuple(tot->getType(), tot->isTdt(), int(tot->getMjd()), tot->getBcdTime(),
                            tot->getUtcSeconds()));

  ASSERT_EQ(tot->getDescriptors().size(), 1u);
  const TLocalTimeOffsetDescriptor* lto =
      tot->getDescriptors().findDecoded<TLocalTimeOffsetDescriptor>();
  ASSERT_TRUE(lto);
  ASSERT_EQ(lto->getEntryCount(), 1u);
  const TLocalTimeOffsetDescriptor::Entry& e = lto->getEntry(0);
  EXPECT_EQ(std::make_tuple(0x425241u, 1, -3 * 3600, OstrelGolden::kTotTimeOfChange, -2 * 3600),
            std::make_tuple(e.countryCode, int(e.countryRegionId), e.localTimeOffset,
                            e.timeOfChange, e.nextTimeOffset));  // "BRA"

  int offset = 0;
  EXPECT_TRUE(tot->getLocalTimeOffset(0x425241, 1, OstrelGolden::kTotTimeOfChange - 1, &offset));
  EXPECT_EQ(offset, -3 * 3600);
  EXPECT_TRUE(tot->getLocalTimeOffset(0x425241, 1, OstrelGolden::kTotTimeOfChange, &offset));
  EXPECT_EQ(offset, -2 * 3600);
  EXPECT_FALSE(tot->getLocalTimeOffset(0x425241, 2, 0, &offset)) << "other region";
  EXPECT_FALSE(tot->getLocalTimeOffset(0x4A504E, 1, 0, &offset)) << "other country";
}

TEST(TablesGoldenTest, TdtIsAcceptedByTheTotParserWithoutCrcOrDescriptors) {
  auto tdt = parseGolden<TTOTTable>(OstrelGolden::kTdt);
  ASSERT_TRUE(tdt);
  EXPECT_EQ(
      std::make_tuple(TISDBTTable::kTypeTot, true, 0x70, OstrelGolden::kTotUtcSeconds),
      std::make_tuple(tdt->getType(), tdt->isTdt(), int(tdt->getTableId()), tdt->getUtcSeconds()));
  EXPECT_TRUE(tdt->getDescriptors().empty());
}

TEST(TablesGoldenTest, EmptyLoopsGiveEmptyTables) {
  auto pat = parseGolden<TPATTable>(OstrelGolden::kPatEmpty);
  ASSERT_TRUE(pat);
  EXPECT_EQ(pat->getProgramCount(), 0u);
  unsigned short pid = 0;
  EXPECT_FALSE(pat->getNetworkPid(&pid));

  auto pmt = parseGolden<TPMTTable>(OstrelGolden::kPmtEmpty);
  ASSERT_TRUE(pmt);
  EXPECT_EQ(pmt->getPcrPid(), 0x1FFF);
  EXPECT_TRUE(pmt->getDescriptors().empty());
  EXPECT_EQ(pmt->getStreamCount(), 0u);

  auto nit = parseGolden<TNITTable>(OstrelGolden::kNitEmpty);
  ASSERT_TRUE(nit);
  EXPECT_FALSE(nit->isActual()) << "table id 0x41: another network";
  EXPECT_EQ(nit->getNetworkId(), 0x0641);
  EXPECT_EQ(nit->getNetworkName(), "");
  EXPECT_EQ(nit->getTransportStreamCount(), 0u);
}

TEST(TablesCrcTest, MatchesTheBitwiseReferenceForEveryLengthAndSplit) {
  const unsigned char check[] = "123456789";
  EXPECT_EQ(TCrc32::compute(check, 9), 0x0376E6E7u);  // the CRC-32/MPEG-2 check value
  EXPECT_EQ(TCrc32::compute(check, 0), 0xFFFFFFFFu);

  std::mt19937 rng(7);
  Bytes data(300);
  for (auto& b : data)
    b = static_cast<unsigned char>(rng());
  for (unsigned int n = 0; n <= data.size(); ++n) {
    unsigned int expected = TCrc32::computeBitwise(data.data(), n);
    ASSERT_EQ(TCrc32::compute(data.data(), n), expected) << n;
    unsigned int half = n / 3;
    ASSERT_EQ(TCrc32::compute(data.data() + half, n - half, TCrc32::compute(data.data(), half)),
              expected)
        << n;
  }
  // Over a section and its own CRC_32 the register ends at zero.
  EXPECT_EQ(TCrc32::compute(OstrelGolden::kNit, sizeof(OstrelGolden::kNit)), 0u);
}

// A sub-reader whose length runs past the end fails, and so does the reader
// that held it, for good: nothing is read after a field that did not fit.
TEST(TablesReaderTest, FailsForGoodAtTheEnd) {
  const unsigned char d[] = {0x12, 0x34, 0x56, 0x78, 0x9A, 0xBC, 0xDE};
  TSectionReader r(d, sizeof(d));
  EXPECT_EQ(r.u8(), 0x12);  // one at a time: the reads have an order
  EXPECT_EQ(r.u16(), 0x3456);
  EXPECT_EQ(r.u32(), 0x789ABCDEu);
  EXPECT_TRUE(r.ok() && r.atEnd());
  EXPECT_EQ(r.u8(), 0);
  EXPECT_FALSE(r.ok());
  TSectionReader partial(d, 3);
  EXPECT_EQ(partial.u32(), 0u);
  EXPECT_EQ(partial.u8(), 0);
  TSectionReader outer(d, sizeof(d));
  EXPECT_EQ(outer.sub(4).u24(), 0x123456u);
  EXPECT_FALSE(outer.sub(4).ok());
  EXPECT_FALSE(outer.ok());
  const unsigned char loops[] = {0xF0, 0x02, 0xAA, 0xBB, 0xCC, 0xF0, 0x04, 0xAA};
  TSectionReader withLength(loops, sizeof(loops));
  EXPECT_EQ(withLength.sub12().remaining(), 2u);
  EXPECT_EQ(withLength.remaining(), 4u);
  withLength.skip(1);
  EXPECT_FALSE(withLength.sub12().ok() || withLength.ok());
  TSectionReader empty(nullptr, 10);
  EXPECT_EQ(empty.remaining(), 0u) << "no data means no bytes, whatever the size says";
  EXPECT_TRUE(empty.skip(0) && !empty.skip(1));
}

TEST(TablesTextTest, DecodesBroadcastTextToUtf8) {
  struct Case {
    const char* what;
    Bytes in;
    std::string out;
  };
  const Case cases[] = {
      {"plain ASCII", text("Ostrel TV"), "Ostrel TV"},
      {"Latin-1 range", {'S', 0xE3, 'o', ' ', 'P', 'a', 'u', 'l', 'o'}, "S\xC3\xA3o Paulo"},
      {"the eight Latin-9 letters",
       {0xA4, 0xA6, 0xA8, 0xB4, 0xB8, 0xBC, 0xBD, 0xBE},
       "\xE2\x82\xAC\xC5\xA0\xC5\xA1\xC5\xBD\xC5\xBE\xC5\x92\xC5\x93\xC5\xB8"},
      {"emphasis codes dropped", {0x86, 'N', 'e', 'w', 's', 0x87}, "News"},
      {"line breaks", {'a', 0x8A, 'b', 0x0D, 'c'}, "a\nb\nc"},
      {"a leading carriage return is a line break", {0x0D, 'a'}, "\na"},
      {"reserved 0x0C..0x0F lead as controls", {0x0E, 'a'}, "a"},
      {"other controls dropped", {'a', 0x00, 0x1B, 0x7F, 0x9F, 'b'}, "ab"},
      {"one-byte table selector skipped", {0x05, 'T', 'V'}, "TV"},
      {"three-byte table selector skipped", {0x10, 0x00, 0x0F, 'T', 'V'}, "TV"},
      {"cut three-byte selector", {0x10, 0x00}, ""},
      {"UTF-8 selector", {0x15, 0xE6, 0x97, 0xA5, 'x'}, "\xE6\x97\xA5x"},
      {"bad UTF-8 replaced",
       {0x15, 'a', 0xC3, 'b', 0xE6, 0x97},
       "a\xEF\xBF\xBD"
       "b\xEF\xBF\xBD\xEF\xBF\xBD"},
      {"overlong UTF-8 replaced", {0x15, 0xC0, 0xAF}, "\xEF\xBF\xBD\xEF\xBF\xBD"},
      {"surrogate replaced", {0x15, 0xED, 0xA0, 0x80}, "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
      {"four-byte UTF-8",
       {0x15, 0xF0, 0x9F, 0x93, 0xBA, 0xF1, 0x80, 0x80, 0x80, 0xF4, 0x8F, 0xBF, 0xBF},
       "\xF0\x9F\x93\xBA\xF1\x80\x80\x80\xF4\x8F\xBF\xBF"},
      {"four-byte UTF-8 past U+10FFFF, overlong or cut",
       {0x15, 0xF4, 0x90, 0x80, 0x80, 0xF0, 0x8F, 0xBF, 0xBF, 0xF8, 0xF0, 0x9F, 0x93},
       "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF"
       "\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD"},
      {"empty", {}, ""},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(TTextCodec::decode(c.in.data(), static_cast<unsigned int>(c.in.size())), c.out)
        << c.what;
  }
  EXPECT_EQ(TTextCodec::decode(nullptr, 5), "");
}

TEST(TablesTextTest, EncodesToLatin9WhenItCanAndBackToTheSameText) {
  EXPECT_EQ(TTextCodec::encode("Ostrel"), text("Ostrel"));
  EXPECT_EQ(TTextCodec::encode("Ca\xC3\xA7"
                               "a \xE2\x82\xAC"),
            (Bytes{'C', 'a', 0xE7, 'a', ' ', 0xA4}));
  Bytes kanji = TTextCodec::encode("\xE6\x97\xA5");
  EXPECT_EQ(kanji, (Bytes{0x15, 0xE6, 0x97, 0xA5}));
  EXPECT_EQ(TTextCodec::encode("\xC2\xA4").front(), 0x15) << "U+00A4 has no Latin-9 byte";
  for (const char* s : {"",
                        "TV \xC3\x91"
                        "and\xC3\xBA",
                        "\xC5\x92uvre \xE2\x82\xAC", "\nfirst",
                        "\n\xC2\xB0"
                        "C",
                        "\xE6\x97\xA5\xE6\x9C\xAC", "a\nb", "\xF0\x9F\x93\xBA"}) {
    Bytes b = TTextCodec::encode(s);
    EXPECT_EQ(TTextCodec::decode(b.data(), static_cast<unsigned int>(b.size())), s) << s;
  }
}

TEST(TablesTimeTest, ConvertsMjdAndBcdToUtcSecondsBeyond2038) {
  struct Case {
    unsigned char bytes[5];
    long long seconds;
  };
  const Case cases[] = {
      {{0x9E, 0x8B, 0x00, 0x00, 0x00}, 0},             // 1970-01-01 (MJD 40587)
      {{0xC0, 0x79, 0x12, 0x45, 0x00}, 750516300LL},   // 1993-10-13 12:45 (MJD 49273)
      {{0xFF, 0xA2, 0x03, 0x14, 0x07}, 2147483647LL},  // the last second of 32-bit time_t
      {{0xFF, 0xA2, 0x03, 0x14, 0x08}, 2147483648LL},  // and the one after it
      {{0xFF, 0xFF, 0x23, 0x59, 0x59}, (65535LL - 40587) * 86400 + 86399},
      {{0x00, 0x00, 0x00, 0x00, 0x00}, -40587LL * 86400},
  };
  for (const Case& c : cases) {
    long long s = 1;
    ASSERT_TRUE(TMjdTime::decodeDateTime(c.bytes, &s));
    EXPECT_EQ(s, c.seconds);
    unsigned char back[5];
    ASSERT_TRUE(TMjdTime::encodeDateTime(c.seconds, back));
    EXPECT_EQ(0, std::memcmp(back, c.bytes, 5)) << c.seconds;
  }
  unsigned char out[5];
  EXPECT_FALSE(TMjdTime::encodeDateTime(-40587LL * 86400 - 1, out));
  EXPECT_FALSE(TMjdTime::encodeDateTime((65536LL - 40587) * 86400, out));

  int seconds = 0;
  const unsigned char offset[] = {0x09, 0x30};
  EXPECT_TRUE(TMjdTime::decodeHhmm(offset, &seconds));
  EXPECT_EQ(seconds, 9 * 3600 + 30 * 60);
  const unsigned char badOffset[] = {0x01, 0x60};
  EXPECT_FALSE(TMjdTime::decodeHhmm(badOffset, &seconds));
  EXPECT_EQ(TMjdTime::bcd(0x59), 59);
  EXPECT_EQ(TMjdTime::bcd(0x5A), -1);
  EXPECT_EQ(TMjdTime::bcd(0xA5), -1);
}

TEST(TablesBuilderTest, BuildersWriteTheGoldenSectionsByteForByte) {
  Bytes pat = TPATBuilder()
                  .setTransportStreamId(0x0421)
                  .setVersion(5)
                  .addProgram(0x0000, 0x0010)
                  .addProgram(0xE760, 0x1FC8)
                  .addProgram(0xE761, 0x1FC9)
                  .addProgram(0xE778, 0x1FCA)
                  .build();
  EXPECT_EQ(pat, bytesOf(OstrelGolden::kPat));
  EXPECT_EQ(TPATBuilder().setTransportStreamId(1).build(), bytesOf(OstrelGolden::kPatEmpty));

  Bytes audio = TDescriptorBuilder::streamIdentifier(0x10);
  TDescriptorBuilder::append(&audio, TDescriptorBuilder::raw(0x0A, Bytes{'p', 'o', 'r', 0}));
  Bytes data = TDescriptorBuilder::streamIdentifier(0x30);
  TDescriptorBuilder::append(&data, TDescriptorBuilder::raw(0xFD, Bytes{0x00, 0x08, 0x3D}));
  Bytes pmt = TPMTBuilder()
                  .setProgramNumber(0xE760)
                  .setVersion(2)
                  .setPcrPid(0x0111)
                  .addDescriptor(TDescriptorBuilder::raw(0xC1, Bytes{0x84}))
                  .addStream(0x1B, 0x0111, TDescriptorBuilder::streamIdentifier(0x00))
                  .addStream(0x0F, 0x0112, audio)
                  .addStream(0x06, 0x0113, data)
                  .addStream(0x0D, 0x0114)
                  .build();
  EXPECT_EQ(pmt, bytesOf(OstrelGolden::kPmt));
  EXPECT_EQ(TPMTBuilder().setProgramNumber(1).build(), bytesOf(OstrelGolden::kPmtEmpty));

  Bytes ts;
  TDescriptorBuilder::append(
      &ts, TDescriptorBuilder::serviceList({{0xE760, 0x01}, {0xE761, 0x01}, {0xE778, 0xC0}}));
  TDescriptorBuilder::append(&ts, TDescriptorBuilder::tsInformation(
                                      5, "Ostrel", {{0x0F, {0xE760, 0xE761}}, {0xAF, {0xE778}}}));
  TDescriptorBuilder::append(
      &ts, TDescriptorBuilder::terrestrialDeliverySystem(0x123, 2, 2, {3312, 3354}));
  TDescriptorBuilder::append(&ts, TDescriptorBuilder::partialReception({0xE778}));
  Bytes nit = TNITBuilder()
                  .setNetworkId(0x0640)
                  .setVersion(1)
                  .addDescriptor(TDescriptorBuilder::networkName("Ostrel TV"))
                  .addDescriptor(TDescriptorBuilder::raw(0xFE, Bytes{0x03, 0x01}))
                  .addTransportStream(0x0421, 0x0640, ts)
                  .addTransportStream(0x0422, 0x0640)
                  .build();
  EXPECT_EQ(nit, bytesOf(OstrelGolden::kNit));
  EXPECT_EQ(TNITBuilder().setNetworkId(0x0641).setActual(false).build(),
            bytesOf(OstrelGolden::kNitEmpty));

  Bytes oneSeg{0xC0, 0x00, 10, 'A', 0xE7, 0xE3, 'o', ' ', '1', 's', 'e', 'g', 0x86};
  Bytes sdt = TSDTBuilder()
                  .setTransportStreamId(0x0421)
                  .setOriginalNetworkId(0x0640)
                  .setVersion(7)
                  .addService(0xE760, TDescriptorBuilder::service(0x01, "Ostrel", "Ostrel HD"), 4,
                              true, true)
                  .addService(0xE778, TDescriptorBuilder::raw(0x48, oneSeg), 4, true, false, true)
                  .addService(0xE761, Bytes(), 1, false)
                  .build();
  EXPECT_EQ(sdt, bytesOf(OstrelGolden::kSdt));

  TTOTBuilder tot;
  tot.setUtcSeconds(OstrelGolden::kTotUtcSeconds)
      .addDescriptor(TDescriptorBuilder::localTimeOffset(
          0x425241, 1, -3 * 3600, OstrelGolden::kTotTimeOfChange, -2 * 3600));
  EXPECT_EQ(tot.build(), bytesOf(OstrelGolden::kTot));
  EXPECT_EQ(tot.buildTdt(), bytesOf(OstrelGolden::kTdt));
}

TEST(TablesBuilderTest, RandomTablesSurviveTheRoundTrip) {
  std::mt19937 rng(2026);
  auto pick = [&rng](unsigned int n) { return static_cast<unsigned int>(rng() % n); };
  for (int round = 0; round < 200; ++round) {
    // PAT and PMT loops are compared with libdvbpsi's reading in the
    // differential test; here the names and times that it does not decode.
    const unsigned short tsid = static_cast<unsigned short>(pick(0x10000));
    // SDT with random names and flags
    TSDTBuilder sdtBuilder;
    sdtBuilder.setTransportStreamId(tsid).setOriginalNetworkId(static_cast<unsigned short>(~tsid));
    struct Svc {
      unsigned short id;
      unsigned char status;
      bool pf, schedule, ca;
      std::string name;
    };
    std::vector<Svc> services(pick(8));
    const char* names[] = {"Ostrel", "S\xC3\xA3o Jo\xC3\xA3o", "\xE6\x97\xA5\xE6\x9C\xAC", "",
                           "\xE2\x82\xAC 1"};
    for (auto& s : services) {
      s = {static_cast<unsigned short>(pick(0x10000)),
           static_cast<unsigned char>(pick(8)),
           pick(2) != 0,
           pick(2) != 0,
           pick(2) != 0,
           names[pick(5)]};
      sdtBuilder.addService(s.id, TDescriptorBuilder::service(0x01, "P", s.name), s.status, s.pf,
                            s.schedule, s.ca);
    }
    auto sdt = parse<TSDTTable>(sdtBuilder.build());
    ASSERT_TRUE(sdt) << round;
    EXPECT_EQ(sdt->getOriginalNetworkId(), static_cast<unsigned short>(~tsid));
    ASSERT_EQ(sdt->getServiceCount(), services.size());
    for (unsigned int i = 0; i < services.size(); ++i) {
      const TSDTTable::Service& s = sdt->getService(i);
      EXPECT_EQ(s.getServiceId(), services[i].id);
      EXPECT_EQ(s.getRunningStatus(), services[i].status);
      EXPECT_EQ(s.isEitPresentFollowing(), services[i].pf);
      EXPECT_EQ(s.isEitSchedule(), services[i].schedule);
      EXPECT_EQ(s.isFreeCaMode(), services[i].ca);
      EXPECT_EQ(s.getServiceName(), services[i].name);
      EXPECT_EQ(s.getProviderName(), "P");
    }

    // TOT at a random second of the MJD range, with a random offset
    // The 16-bit MJD covers 1858-11-17 to 2038-04-22.
    long long when = static_cast<long long>(rng() % 3000000000u) - 850000000LL;
    int offset = (static_cast<int>(pick(2 * 13 * 60 + 1)) - 13 * 60) * 60;
    auto tot = parse<TTOTTable>(
        TTOTBuilder()
            .setUtcSeconds(when)
            .addDescriptor(TDescriptorBuilder::localTimeOffset(0x425241, 3, offset, when + 10, 0))
            .build());
    ASSERT_TRUE(tot) << round << " at " << when << " offset " << offset;
    EXPECT_EQ(tot->getUtcSeconds(), when);
    int got = 1;
    EXPECT_TRUE(tot->getLocalTimeOffset(0x425241, 3, when, &got));
    EXPECT_EQ(got, offset);
  }
}

TEST(TablesBuilderTest, BuildersRefuseWhatDoesNotFit) {
  TPATBuilder pat;
  for (int i = 0; i < 253; ++i)
    pat.addProgram(static_cast<unsigned short>(i + 1), 0x100);
  EXPECT_EQ(pat.build().size(), 1024u);
  pat.addProgram(254, 0x100);
  EXPECT_TRUE(pat.build().empty());

  EXPECT_TRUE(TDescriptorBuilder::raw(0x80, Bytes(256)).empty());
  EXPECT_EQ(TDescriptorBuilder::raw(0x80, Bytes(255)).size(), 257u);
  EXPECT_TRUE(TDescriptorBuilder::service(1, std::string(200, 'p'), std::string(60, 'n')).empty());
  EXPECT_TRUE(TDescriptorBuilder::tsInformation(1, std::string(64, 'n'), {}).empty());
  EXPECT_TRUE(
      TDescriptorBuilder::tsInformation(1, "n", {{1, {}}, {2, {}}, {3, {}}, {4, {}}}).empty());
  EXPECT_TRUE(TDescriptorBuilder::localTimeOffset(0x425241, 1, 30, 0, 0).empty())
      << "offsets are whole minutes";
  EXPECT_TRUE(TTOTBuilder().setUtcSeconds(-40587LL * 86400 - 1).build().empty());
  EXPECT_TRUE(TTOTBuilder().setUtcSeconds(-40587LL * 86400 - 1).buildTdt().empty());

  // A loop over 4095 bytes cannot be written: the builder says so.
  TPMTBuilder pmt;
  for (int i = 0; i < 17; ++i)
    pmt.addDescriptor(TDescriptorBuilder::raw(0x80, Bytes(253)));
  EXPECT_TRUE(pmt.build().empty());
}

TEST(TablesThreadsTest, ParsersRunOnSeveralThreadsAtOnceFromTheFirstCall) {
  std::atomic<bool> go(false);
  std::atomic<int> parsed(0);
  auto work = [&go, &parsed] {
    std::vector<unsigned char> pmt(OstrelGolden::kPmt,
                                   OstrelGolden::kPmt + sizeof(OstrelGolden::kPmt));
    std::vector<unsigned char> nit(OstrelGolden::kNit,
                                   OstrelGolden::kNit + sizeof(OstrelGolden::kNit));
    while (!go.load())
      std::this_thread::yield();
    for (int i = 0; i < 200; ++i) {
      std::unique_ptr<TPMTTable> p(TPMTTable::parse(
          pmt.data(), static_cast<unsigned int>(pmt.size()), 1, 1, nullptr, nullptr));
      std::unique_ptr<TNITTable> n(TNITTable::parse(
          nit.data(), static_cast<unsigned int>(nit.size()), 1, 1, nullptr, nullptr));
      if (p && n && p->getStreamCount() == 4 && n->getNetworkName() == "Ostrel TV")
        ++parsed;
    }
  };
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back(work);
  go = true;  // every thread's first parse races for the CRC tables
  for (auto& t : threads)
    t.join();
  EXPECT_EQ(parsed.load(), 4 * 200);
}
