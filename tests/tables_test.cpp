// The table library: hand-written sections of every table decoded field by
// field; the building blocks (CRC, reader, text, times); the builders, which
// write the golden sections byte for byte and whose output parses back to
// what was put in; and malformed and extreme sections, which every parser
// refuses without reading outside the bytes it is given (exact-size heap
// copies, for AddressSanitizer).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
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
#include "TSectionFrame.h"
#include "TSectionReader.h"
#include "TSectionWriter.h"
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

Bytes text(const char* s) {
  return Bytes(s, s + std::strlen(s));
}

enum Kind { kAsPat, kAsPmt, kAsNit, kAsSdt, kAsTot };
const Kind kKinds[] = {kAsPat, kAsPmt, kAsNit, kAsSdt, kAsTot};
const char* kKindNames[] = {"PAT", "PMT", "NIT", "SDT", "TOT"};

template <class T>
TISDBTTable* parseWith(unsigned char* data, unsigned int size) {
  return T::parse(data, size, 1, 1, nullptr, nullptr);
}
TISDBTTable* (*const kParsers[])(unsigned char*, unsigned int) = {
    parseWith<TPATTable>, parseWith<TPMTTable>, parseWith<TNITTable>, parseWith<TSDTTable>,
    parseWith<TTOTTable>};

// Parses exactly data[0..size) from a heap block of that size.
std::unique_ptr<TISDBTTable> parseAs(Kind kind, const unsigned char* data, unsigned int size) {
  std::unique_ptr<unsigned char[]> copy(new unsigned char[size ? size : 1]);
  std::copy(data, data + size, copy.get());
  return std::unique_ptr<TISDBTTable>(kParsers[kind](size ? copy.get() : nullptr, size));
}

std::unique_ptr<TISDBTTable> parseAs(Kind kind, const Bytes& b) {
  return parseAs(kind, b.data(), static_cast<unsigned int>(b.size()));
}

struct Golden {
  const char* name;
  Bytes bytes;
  Kind kind;
  bool hasCrc;
};

std::vector<Golden> goldens() {
  namespace G = OstrelGolden;
  return {
      {"PAT", bytesOf(G::kPat), kAsPat, true}, {"PAT empty", bytesOf(G::kPatEmpty), kAsPat, true},
      {"PMT", bytesOf(G::kPmt), kAsPmt, true}, {"PMT empty", bytesOf(G::kPmtEmpty), kAsPmt, true},
      {"NIT", bytesOf(G::kNit), kAsNit, true}, {"NIT empty", bytesOf(G::kNitEmpty), kAsNit, true},
      {"SDT", bytesOf(G::kSdt), kAsSdt, true}, {"TOT", bytesOf(G::kTot), kAsTot, true},
      {"TDT", bytesOf(G::kTdt), kAsTot, false}};
}

// Rewrites the CRC_32 at the end so that only the change under test is wrong.
void fixCrc(Bytes* b) {
  const unsigned int n = static_cast<unsigned int>(b->size()) - 4;
  const unsigned int crc = TCrc32::compute(b->data(), n);
  for (int i = 0; i < 4; ++i)
    (*b)[n + i] = static_cast<unsigned char>(crc >> (24 - 8 * i));
}

void setLength12(Bytes* b, unsigned int offset, unsigned int value) {
  (*b)[offset] = static_cast<unsigned char>(((*b)[offset] & 0xF0) | ((value >> 8) & 0x0F));
  (*b)[offset + 1] = static_cast<unsigned char>(value & 0xFF);
}

unsigned int length12(const Bytes& b, unsigned int offset) {
  return ((b[offset] & 0x0F) << 8) | b[offset + 1];
}

}  // namespace

// Descriptor bytes and every loop entry of the golden sections are compared
// with libdvbpsi's reading (TablesDvbpsiTest); here the header fields, one
// entry of each loop, and what libdvbpsi does not decode (lookups, decoded
// descriptors, names and times).
TEST(TablesGoldenTest, PatFindsTheNetworkPidAndEachProgrammesPmtPid) {
  auto pat = parse<TPATTable>(bytesOf(OstrelGolden::kPat));
  ASSERT_TRUE(pat);
  EXPECT_EQ(
      std::make_tuple(TISDBTTable::kTypePat, 0x00, 0x0421, 5, true, 4u, 0xE760, 0x1FC8),
      std::make_tuple(pat->getType(), int(pat->getTableId()), int(pat->getTransportStreamId()),
                      int(pat->getVersionNumber()), pat->isCurrentNext(), pat->getProgramCount(),
                      int(pat->getProgram(1).programNumber), int(pat->getProgram(1).pid)));
  unsigned short pid = 0;
  EXPECT_TRUE(pat->getNetworkPid(&pid) && pid == 0x0010);
  EXPECT_TRUE(pat->getPmtPid(0xE778, &pid) && pid == 0x1FCA);
  EXPECT_FALSE(pat->getPmtPid(0xE779, &pid));
  EXPECT_FALSE(pat->getPmtPid(0, &pid)) << "programme 0 is the network, not a PMT";
  auto empty = parse<TPATTable>(bytesOf(OstrelGolden::kPatEmpty));  // libdvbpsi gives no table
  ASSERT_TRUE(empty);
  EXPECT_TRUE(empty->getProgramCount() == 0 && !empty->getNetworkPid(&pid));
}

TEST(TablesGoldenTest, PmtKeepsStreamsInOrderWithTheirComponentTags) {
  auto pmt = parse<TPMTTable>(bytesOf(OstrelGolden::kPmt));
  ASSERT_TRUE(pmt && pmt->getStreamCount() == 4u);
  EXPECT_EQ(std::make_tuple(TISDBTTable::kTypePmt, 0x02, 0xE760, 2, 0x0111),
            std::make_tuple(pmt->getType(), int(pmt->getTableId()), int(pmt->getProgramNumber()),
                            int(pmt->getVersionNumber()), int(pmt->getPcrPid())));
  EXPECT_FALSE(pmt->getDescriptors().at(0)->isDecoded());  // copy control: kept raw
  std::vector<std::tuple<int, int, int>> streams;          // type, PID, component tag (-1: none)
  for (unsigned int i = 0; i < 4; ++i) {
    const TPMTTable::Stream& s = pmt->getStream(i);
    unsigned char tag = 0xEE;
    streams.emplace_back(s.getStreamType(), s.getPid(), s.getComponentTag(&tag) ? tag : -1);
  }
  EXPECT_EQ(
      (std::vector<std::tuple<int, int, int>>{
          {0x1B, 0x0111, 0x00}, {0x0F, 0x0112, 0x10}, {0x06, 0x0113, 0x30}, {0x0D, 0x0114, -1}}),
      streams);
}

TEST(TablesGoldenTest, NitDecodesTheDescriptorsOfAnIsdbTbNetwork) {
  auto nit = parse<TNITTable>(bytesOf(OstrelGolden::kNit));
  ASSERT_TRUE(nit && nit->getDescriptors().size() == 2u);
  EXPECT_EQ(
      std::make_tuple(TISDBTTable::kTypeNit, true, 0x0640, 1, std::string("Ostrel TV"), 2u, 0x0422),
      std::make_tuple(nit->getType(), nit->isActual(), int(nit->getNetworkId()),
                      int(nit->getVersionNumber()), nit->getNetworkName(),
                      nit->getTransportStreamCount(),
                      int(nit->getTransportStream(1).getTransportStreamId())));
  EXPECT_TRUE(nit->getDescriptors().at(0)->isDecoded() &&
              !nit->getDescriptors().at(1)->isDecoded());
  const TDescriptorList& ts = nit->getTransportStream(0).getDescriptors();

  const TServiceListDescriptor* list = ts.findDecoded<TServiceListDescriptor>();
  ASSERT_TRUE(list && list->getServiceCount() == 3u);
  EXPECT_TRUE(list->getService(0).serviceId == 0xE760 && list->getService(0).serviceType == 0x01);
  EXPECT_TRUE(list->getService(2).serviceId == 0xE778 && list->getService(2).serviceType == 0xC0);

  const TTSInformationDescriptor* info = ts.findDecoded<TTSInformationDescriptor>();
  ASSERT_TRUE(info);
  EXPECT_EQ(info->getRemoteControlKeyId(), 5);
  EXPECT_EQ(info->getTsName(), "Ostrel");
  using Ids = std::vector<unsigned short>;
  const auto& types = info->getTransmissionTypes();
  ASSERT_EQ(types.size(), 2u);
  EXPECT_TRUE(types[0].transmissionTypeInfo == 0x0F &&
              types[0].serviceIds == (Ids{0xE760, 0xE761}));
  EXPECT_TRUE(types[1].transmissionTypeInfo == 0xAF && types[1].serviceIds == Ids{0xE778});

  const TTerrestrialDeliverySystemDescriptor* delivery =
      ts.findDecoded<TTerrestrialDeliverySystemDescriptor>();
  ASSERT_TRUE(delivery);
  EXPECT_EQ(std::make_tuple(0x123, 2, 2),
            std::make_tuple(int(delivery->getAreaCode()), int(delivery->getGuardInterval()),
                            int(delivery->getTransmissionMode())));
  EXPECT_EQ(delivery->getFrequencies(), (Ids{3312, 3354}));
  EXPECT_EQ(delivery->getFrequencyHz(0), 473142857ull);  // UHF channel 14
  EXPECT_EQ(delivery->getFrequencyHz(1), 479142857ull);

  const TPartialReceptionDescriptor* partial = ts.findDecoded<TPartialReceptionDescriptor>();
  ASSERT_TRUE(partial);
  EXPECT_EQ(partial->getServiceIds(), Ids{0xE778});
  auto other = parse<TNITTable>(bytesOf(OstrelGolden::kNitEmpty));
  ASSERT_TRUE(other);
  EXPECT_FALSE(other->isActual()) << "table id 0x41: another network";
}

TEST(TablesGoldenTest, SdtGivesEachServiceItsFlagsTypeAndNames) {
  auto sdt = parse<TSDTTable>(bytesOf(OstrelGolden::kSdt));
  ASSERT_TRUE(sdt && sdt->getServiceCount() == 3u);
  EXPECT_EQ(std::make_tuple(TISDBTTable::kTypeSdt, true, 0x0421, 0x0640, 7),
            std::make_tuple(sdt->getType(), sdt->isActual(), int(sdt->getTransportStreamId()),
                            int(sdt->getOriginalNetworkId()), int(sdt->getVersionNumber())));
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
}

// Every key of each lookup: a key held gives the first element holding it,
// first and last included; any other key gives nothing, even one that lies in
// memory past the last element.
TEST(TablesGoldenTest, LookupsFindEachKeyHeldAndNoOther) {
  auto pmt = parse<TPMTTable>(bytesOf(OstrelGolden::kPmt));
  auto sdt = parse<TSDTTable>(bytesOf(OstrelGolden::kSdt));
  auto nit = parse<TNITTable>(bytesOf(OstrelGolden::kNit));
  ASSERT_TRUE(pmt && sdt && nit);
  const TDescriptorList& list = nit->getTransportStream(0).getDescriptors();
  struct Lookup {
    const char* what;
    unsigned int count, keys;
    std::function<unsigned int(unsigned int)> keyOf;         // of element i
    std::function<const void*(unsigned int)> element, find;  // element i; lookup of key k
  };
  const Lookup lookups[] = {
      {"PMT stream by PID", pmt->getStreamCount(), 0x10000,
       [&](unsigned int i) { return pmt->getStream(i).getPid(); },
       [&](unsigned int i) { return &pmt->getStream(i); },
       [&](unsigned int k) { return pmt->findStream(static_cast<unsigned short>(k)); }},
      {"SDT service by id", sdt->getServiceCount(), 0x10000,
       [&](unsigned int i) { return sdt->getService(i).getServiceId(); },
       [&](unsigned int i) { return &sdt->getService(i); },
       [&](unsigned int k) { return sdt->findService(static_cast<unsigned short>(k)); }},
      {"descriptor by tag", list.size(), 0x100,
       [&](unsigned int i) { return list.at(i)->getTag(); },
       [&](unsigned int i) { return list.at(i); },
       [&](unsigned int k) { return list.find(static_cast<unsigned char>(k)); }}};
  for (const Lookup& l : lookups) {
    std::map<unsigned int, const void*> held;
    ASSERT_GE(l.count, 3u) << l.what;
    for (unsigned int i = l.count; i-- > 0;)
      held[l.keyOf(i)] = l.element(i);  // the first element of a key written last
    for (unsigned int k = 0; k < l.keys; ++k) {
      const auto it = held.find(k);
      if (l.find(k) != (it == held.end() ? nullptr : it->second)) {
        ADD_FAILURE() << l.what << ": key " << k;
        break;
      }
    }
  }
}

TEST(TablesGoldenTest, TotGivesUtcSecondsAndTheLocalTimeOffsetBeforeAndAfterItsChange) {
  auto tot = parse<TTOTTable>(bytesOf(OstrelGolden::kTot));
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

  auto tdt = parse<TTOTTable>(bytesOf(OstrelGolden::kTdt));  // no CRC, no descriptors
  ASSERT_TRUE(tdt);
  EXPECT_EQ(std::make_tuple(TISDBTTable::kTypeTot, true, 0x70, OstrelGolden::kTotUtcSeconds, true),
            std::make_tuple(tdt->getType(), tdt->isTdt(), int(tdt->getTableId()),
                            tdt->getUtcSeconds(), tdt->getDescriptors().empty()));
}

TEST(TablesCrcTest, MatchesTheBitwiseReferenceForEveryLengthAndSplit) {
  const unsigned char check[] = "123456789";
  EXPECT_EQ(TCrc32::compute(check, 9), 0x0376E6E7u);  // the CRC-32/MPEG-2 check value

  std::mt19937 rng(7);
  Bytes data(300);
  for (auto& b : data)
    b = static_cast<unsigned char>(rng());
  for (unsigned int n = 0, third = 0; n <= data.size(); ++n, third = n / 3) {
    const unsigned int expected = TCrc32::computeBitwise(data.data(), n);
    ASSERT_EQ(TCrc32::compute(data.data(), n), expected) << n;
    ASSERT_EQ(TCrc32::compute(data.data() + third, n - third, TCrc32::compute(data.data(), third)),
              expected);
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
      {"either side of each control range",
       {'a', 0x1F, 0x20, 0x7E, 0x7F, 0x80, 0x9F, 0xA0},
       "a ~\xC2\xA0"},
      {"the same in UTF-8",
       {0x15, 0x1F, 0x20, 0x7E, 0x7F, 0xC2, 0x80, 0xC2, 0x9F, 0xC2, 0xA0},
       " ~\xC2\xA0"},
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
  const std::pair<std::string, Bytes> rows[] = {
      {"Ostrel", text("Ostrel")},
      {"Ca\xC3\xA7"
       "a \xE2\x82\xAC",
       {'C', 'a', 0xE7, 'a', ' ', 0xA4}},
      {"\xE6\x97\xA5", {0x15, 0xE6, 0x97, 0xA5}},
      {"\xC2\xA4", {0x15, 0xC2, 0xA4}},  // U+00A4 has no Latin-9 byte
      // A control code (other than the line feed) has none either.
      {" ~\xC2\xA0", {0x20, 0x7E, 0xA0}},
      {"\x1F", {0x15, 0x1F}},
      {"\x7F", {0x15, 0x7F}},
      {"\xC2\x9F", {0x15, 0xC2, 0x9F}}};
  for (const auto& row : rows)
    EXPECT_EQ(TTextCodec::encode(row.first), row.second) << row.first;
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
  const unsigned char offsets[] = {0x09, 0x30, 0x01, 0x60};
  EXPECT_TRUE(TMjdTime::decodeHhmm(offsets, &seconds) && seconds == 9 * 3600 + 30 * 60);
  EXPECT_FALSE(TMjdTime::decodeHhmm(offsets + 2, &seconds));
  EXPECT_EQ(std::make_tuple(59, -1, -1),
            std::make_tuple(TMjdTime::bcd(0x59), TMjdTime::bcd(0x5A), TMjdTime::bcd(0xA5)));
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

// A TOT at a random second of the 16-bit MJD range (1858-11-17 to
// 2038-04-22), with a random offset, reads back as written. (Service fields
// and loops are compared with libdvbpsi's reading below, names in the text
// tests.)
TEST(TablesBuilderTest, RandomTimesSurviveTheRoundTrip) {
  std::mt19937 rng(2026);
  for (int round = 0; round < 200; ++round) {
    long long when = static_cast<long long>(rng() % 3000000000u) - 850000000LL;
    int offset = (static_cast<int>(rng() % (2 * 13 * 60 + 1)) - 13 * 60) * 60;
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
  // The 1024-byte bound of every PSI builder: see APsiSectionMayFill1024Bytes.
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

// Only its own parser takes a section, and only whole and intact: not cut
// short anywhere, not with a byte after it (even stuffing: the size must
// match section_length), not with any single bit flipped, nor, with its CRC
// made right, under another table id or without the syntax indicator.
TEST(TablesBoundaryTest, AGoldenSectionParsesWithItsOwnParserOnlyAndOnlyIntact) {
  EXPECT_EQ(TPATTable::parse(nullptr, 28, 1, 1, nullptr, nullptr), nullptr);
  for (const Golden& g : goldens()) {
    for (Kind k : kKinds) {
      EXPECT_EQ(parseAs(k, g.bytes) != nullptr, k == g.kind) << g.name << " as " << kKindNames[k];
      EXPECT_EQ(parseAs(k, nullptr, 0), nullptr);
    }
    for (unsigned int size = 0; size < g.bytes.size(); ++size) {
      EXPECT_EQ(parseAs(g.kind, g.bytes.data(), size), nullptr) << g.name << " cut to " << size;
    }
    Bytes b = g.bytes;
    b.push_back(0xFF);
    EXPECT_EQ(parseAs(g.kind, b), nullptr) << g.name;
    b = g.bytes;
    b[1] ^= 0x80;
    if (g.hasCrc)
      fixCrc(&b);
    EXPECT_EQ(parseAs(g.kind, b), nullptr) << g.name << " without syntax indicator";
    for (unsigned int i = 0; g.hasCrc && i < g.bytes.size() * 8; ++i) {
      b = g.bytes;
      b[i / 8] ^= static_cast<unsigned char>(1 << (i % 8));
      EXPECT_EQ(parseAs(g.kind, b), nullptr) << g.name << " byte " << i / 8 << " bit " << i % 8;
    }
    for (unsigned int id = 0; g.hasCrc && id < 256; ++id) {
      b = g.bytes;
      b[0] = static_cast<unsigned char>(id);
      fixCrc(&b);
      const bool expected = id == g.bytes[0] || (g.kind == kAsNit && (id == 0x40 || id == 0x41)) ||
                            (g.kind == kAsSdt && (id == 0x42 || id == 0x46));
      EXPECT_EQ(parseAs(g.kind, b) != nullptr, expected) << g.name << " with table id " << id;
    }
  }
}

TEST(TablesBoundaryTest, ALoopOrDescriptorLengthOneOffEitherWayIsRejected) {
  struct Field {
    int golden;
    unsigned int offset;
    bool twelveBits;  // else an 8-bit descriptor length
  };
  enum { kPmt = 2, kPmtEmpty, kNit, kNitEmpty, kSdt, kTot };  // indices in goldens()
  const Field fields[] = {
      {kPmt, 10, true},  {kPmt, 18, true},  {kPmt, 26, true},     {kPmt, 40, true},
      {kPmt, 53, true},  {kPmt, 13, false}, {kPmt, 21, false},    {kPmt, 29, false},
      {kPmt, 32, false}, {kPmt, 43, false}, {kPmt, 46, false},    {kPmtEmpty, 10, true},
      {kNit, 8, true},   {kNit, 25, true},  {kNit, 31, true},     {kNit, 80, true},
      {kNit, 11, false}, {kNit, 22, false}, {kNit, 34, false},    {kNit, 45, false},
      {kNit, 65, false}, {kNit, 73, false}, {kNitEmpty, 8, true}, {kNitEmpty, 10, true},
      {kSdt, 14, true},  {kSdt, 39, true},  {kSdt, 59, true},     {kSdt, 17, false},
      {kSdt, 42, false}, {kTot, 8, true},   {kTot, 11, false}};
  const std::vector<Golden> all = goldens();
  for (const Field& f : fields) {
    const Golden* g = &all[f.golden];
    for (int delta : {+1, -1}) {
      Bytes b = g->bytes;
      if (f.twelveBits) {
        setLength12(&b, f.offset, (length12(b, f.offset) + delta) & 0x0FFF);
      } else {
        b[f.offset] = static_cast<unsigned char>(b[f.offset] + delta);
      }
      fixCrc(&b);
      EXPECT_EQ(parseAs(g->kind, b), nullptr)
          << g->name << " length at " << f.offset << (delta > 0 ? " +1" : " -1");
    }
  }
}

// Golden sections edited (their CRC_32 made right again where they carry one):
// taken only where the edit keeps to the layout.
TEST(TablesBoundaryTest, EditedSectionsAreTakenOnlyWhereTheLayoutAllows) {
  enum { kPat = 0, kTot = 7, kTdt = 8 };  // indices in goldens()
  using Edit = std::function<void(Bytes&)>;
  std::vector<std::tuple<std::string, int, Edit, bool>> cases = {
      {"PAT section 1 of 0", kPat, [](Bytes& b) { b[6] = 1; }, false},
      {"PAT section 1 of 1", kPat, [](Bytes& b) { b[6] = b[7] = 1; }, true},
      {"PAT loop of programmes and a byte", kPat,
       [](Bytes& b) { b.insert(b.end() - 4, 0xE7), ++b[2]; }, false},
      {"TDT with one byte too many", kTdt, [](Bytes& b) { b.push_back(0), b[2] = 6; }, false},
      {"TOT body without CRC as a TDT", kTot,
       [](Bytes& b) { b.resize(b.size() - 4), b[0] = 0x70, b[2] = b.size() - 3; }, false},
      {"TDT at 23:59:59", kTdt, [](Bytes& b) { b[5] = 0x23, b[6] = 0x59, b[7] = 0x59; }, true}};
  // Hour 24, hour digit A, minute 60, second 60, second digit F.
  for (auto bcd : {std::make_pair(5, 0x24), {5, 0x0A}, {6, 0x60}, {7, 0x60}, {7, 0x5F}}) {
    for (int golden : {kTot, kTdt})
      cases.emplace_back(
          "bad BCD", golden, [=](Bytes& b) { b[bcd.first] = bcd.second; }, false);
  }
  const std::vector<Golden> all = goldens();
  for (const auto& c : cases) {
    Bytes b = all[std::get<1>(c)].bytes;
    std::get<2>(c)(b);
    if (b[0] != 0x70)
      fixCrc(&b);
    auto parsed = parseAs(all[std::get<1>(c)].kind, b);
    EXPECT_EQ(std::get<3>(c), parsed != nullptr) << std::get<0>(c);
    if (parsed && std::get<1>(c) == kPat) {
      const auto* pat = static_cast<TPATTable*>(parsed.get());
      EXPECT_TRUE(pat->getSectionNumber() == 1 && pat->getLastSectionNumber() == 1);
    }
  }
}

TEST(TablesBoundaryTest, APsiSectionMayFill1024BytesButNotOneMore) {
  // Programme descriptors that bring the PMT to exactly 1024 bytes:
  // 12 header and loop bytes, 1008 of descriptors, 4 of CRC.
  TPMTBuilder builder;
  builder.setProgramNumber(1).setPcrPid(0x100);
  for (int i = 0; i < 3; ++i)
    builder.addDescriptor(TDescriptorBuilder::raw(0xF0, Bytes(252, i)));
  builder.addDescriptor(TDescriptorBuilder::raw(0xF1, Bytes(244, 0x55)));
  Bytes full = builder.build();
  ASSERT_EQ(full.size(), 1024u);
  auto pmt = parseAs(kAsPmt, full);
  ASSERT_NE(pmt, nullptr);
  EXPECT_EQ(static_cast<TPMTTable*>(pmt.get())->getDescriptors().size(), 4u);

  builder.addDescriptor(TDescriptorBuilder::raw(0xF2, Bytes()));
  EXPECT_TRUE(builder.build().empty()) << "the builder refuses a section over 1024 bytes";

  // The same 1026 bytes written without the builder's limit: the parser refuses them.
  Bytes body(full.begin() + 8, full.end() - 4);
  body.push_back(0xF2);
  body.push_back(0x00);
  setLength12(&body, 2, length12(body, 2) + 2);
  Bytes over = TSectionWriter::longSection(0x02, false, 1, 0, true, 0, 0, body, 4096);
  ASSERT_EQ(over.size(), 1026u);
  EXPECT_EQ(parseAs(kAsPmt, over), nullptr);
}

TEST(TablesBoundaryTest, PrivateSectionFramesMayFill4096BytesButNotOneMore) {
  Bytes body(4096 - 8 - 4, 0xA5);
  Bytes full = TSectionWriter::longSection(0x80, true, 1, 0, true, 0, 0, body, 4096);
  ASSERT_EQ(full.size(), 4096u);
  TSectionReader reader;
  EXPECT_TRUE(TSectionFrame::open(full.data(), 4096, true, true,
                                  TSectionFrame::kMaxPrivateSectionSize, &reader));
  EXPECT_EQ(reader.remaining(), 4096u - 3 - 4);
  EXPECT_FALSE(TSectionFrame::open(full.data(), 4096, true, true, TSectionFrame::kMaxPsiSectionSize,
                                   &reader));

  Bytes over(4097, 0xA5);
  over[0] = 0x80;
  over[1] = 0xB0 | ((4094 >> 8) & 0x0F);
  over[2] = 4094 & 0xFF;
  fixCrc(&over);
  EXPECT_FALSE(TSectionFrame::open(over.data(), 4097, true, true,
                                   TSectionFrame::kMaxPrivateSectionSize, &reader));
}

TEST(TablesBoundaryTest, AKnownDescriptorThatDoesNotFitItsLayoutIsKeptRaw) {
  struct Case {
    const char* what;
    unsigned char tag;
    Bytes payload;
  };
  const Case cases[] = {
      {"service list, not whole entries", 0x41, {0xE7, 0x60, 0x01, 0xE7}},
      {"service, provider name past the end", 0x48, {0x01, 0x05, 'a'}},
      {"service, no name length", 0x48, {0x01, 0x00}},
      {"stream identifier, empty", 0x52, {}},
      {"local time offset, short entry", 0x58, {'B', 'R', 'A', 0x07, 0x03, 0x00}},
      {"local time offset, bad BCD",
       0x58,
       {'B', 'R', 'A', 0x07, 0x03, 0x60, 0xEF, 0xB7, 0x00, 0x00, 0x00, 0x02, 0x00}},
      {"TS information, name past the end", 0xCD, {0x05, (4 << 2), 'a', 'b'}},
      {"TS information, services past the end", 0xCD, {0x05, 0x01, 0x0F, 0x02, 0xE7, 0x60}},
      {"terrestrial delivery, one byte", 0xFA, {0x12}},
      {"terrestrial delivery, half a frequency", 0xFA, {0x12, 0x3A, 0x0C}},
      {"partial reception, half an id", 0xFB, {0xE7, 0x78, 0xE7}}};
  for (const Case& c : cases) {
    Bytes section =
        TNITBuilder().addTransportStream(1, 1, TDescriptorBuilder::raw(c.tag, c.payload)).build();
    auto parsed = parseAs(kAsNit, section);
    ASSERT_NE(parsed, nullptr) << c.what << ": the section itself is well formed";
    const TNITTable* nit = static_cast<const TNITTable*>(parsed.get());
    const TDescriptorList& list = nit->getTransportStream(0).getDescriptors();
    ASSERT_EQ(list.size(), 1u) << c.what;
    EXPECT_FALSE(list.at(0)->isDecoded()) << c.what;
    EXPECT_EQ(list.at(0)->getTag(), c.tag) << c.what;
    EXPECT_EQ(list.at(0)->getBytes(), c.payload) << c.what;
  }
}

// Differential test: libdvbpsi, an independent decoder, reads the same valid
// sections as our parsers, and both must find the same fields, loops and
// descriptor bytes. Built where libdvbpsi is installed (not in cross builds).
#ifdef OSTREL_TESTS_DVBPSI
#include "tables_dvbpsi.h"  // libdvbpsi, included once

namespace {

template <class T>
std::string ours(Bytes section) {
  std::unique_ptr<T> t = parse<T>(section);
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
  const Bytes pat = bytesOf(OstrelGolden::kPat);
  EXPECT_EQ(ours<TPATTable>(pat), theirs(pat, D::kPat));
  // libdvbpsi gives no table at all for a PAT without programmes (kPatEmpty);
  // our reading of it is checked in the golden test.
  const Bytes pmt = bytesOf(OstrelGolden::kPmt), pmtEmpty = bytesOf(OstrelGolden::kPmtEmpty);
  EXPECT_EQ(ours<TPMTTable>(pmt), theirs(pmt, D::kPmt, pmtProgram(pmt)));
  EXPECT_EQ(ours<TPMTTable>(pmtEmpty), theirs(pmtEmpty, D::kPmt, pmtProgram(pmtEmpty)));
  const Bytes nit = bytesOf(OstrelGolden::kNit), nitEmpty = bytesOf(OstrelGolden::kNitEmpty);
  EXPECT_EQ(ours<TNITTable>(nit), theirs(nit, D::kSi));
  EXPECT_EQ(ours<TNITTable>(nitEmpty), theirs(nitEmpty, D::kSi));
  const Bytes sdt = bytesOf(OstrelGolden::kSdt);
  EXPECT_EQ(ours<TSDTTable>(sdt), theirs(sdt, D::kSi));
  const Bytes tot = bytesOf(OstrelGolden::kTot);
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
#endif  // OSTREL_TESTS_DVBPSI
