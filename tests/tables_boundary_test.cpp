// Malformed and extreme sections: every parser returns null for anything that
// is not a well-formed section of its table, and never reads outside the
// bytes it is given (the sections are exact-size heap copies, so that
// AddressSanitizer reports any stray read).
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "TCrc32.h"
#include "TDescriptorBuilder.h"
#include "TNITBuilder.h"
#include "TNITTable.h"
#include "TPATTable.h"
#include "TPMTBuilder.h"
#include "TPMTTable.h"
#include "TSDTTable.h"
#include "TSectionFrame.h"
#include "TSectionWriter.h"
#include "TTOTTable.h"
#include "golden_sections.h"

using namespace Ostrel;
using Bytes = std::vector<unsigned char>;

namespace {

enum Kind { kAsPat, kAsPmt, kAsNit, kAsSdt, kAsTot };
const Kind kKinds[] = {kAsPat, kAsPmt, kAsNit, kAsSdt, kAsTot};
const char* kKindNames[] = {"PAT", "PMT", "NIT", "SDT", "TOT"};

// Parses exactly data[0..size) from a heap block of that size.
std::unique_ptr<TISDBTTable> parseAs(Kind kind, const unsigned char* data, unsigned int size) {
  std::unique_ptr<unsigned char[]> copy(new unsigned char[size ? size : 1]);
  for (unsigned int i = 0; i < size; ++i)
    copy[i] = data[i];
  unsigned char* p = size ? copy.get() : nullptr;
  switch (kind) {
    case kAsPat:
      return std::unique_ptr<TISDBTTable>(TPATTable::parse(p, size, 1, 1, nullptr, nullptr));
    case kAsPmt:
      return std::unique_ptr<TISDBTTable>(TPMTTable::parse(p, size, 1, 1, nullptr, nullptr));
    case kAsNit:
      return std::unique_ptr<TISDBTTable>(TNITTable::parse(p, size, 1, 1, nullptr, nullptr));
    case kAsSdt:
      return std::unique_ptr<TISDBTTable>(TSDTTable::parse(p, size, 1, 1, nullptr, nullptr));
    case kAsTot:
      return std::unique_ptr<TISDBTTable>(TTOTTable::parse(p, size, 1, 1, nullptr, nullptr));
  }
  return nullptr;
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
  auto g = [](const char* name, const unsigned char* d, size_t n, Kind k, bool crc = true) {
    return Golden{name, Bytes(d, d + n), k, crc};
  };
  return {g("PAT", G::kPat, sizeof(G::kPat), kAsPat),
          g("PAT empty", G::kPatEmpty, sizeof(G::kPatEmpty), kAsPat),
          g("PMT", G::kPmt, sizeof(G::kPmt), kAsPmt),
          g("PMT empty", G::kPmtEmpty, sizeof(G::kPmtEmpty), kAsPmt),
          g("NIT", G::kNit, sizeof(G::kNit), kAsNit),
          g("NIT empty", G::kNitEmpty, sizeof(G::kNitEmpty), kAsNit),
          g("SDT", G::kSdt, sizeof(G::kSdt), kAsSdt),
          g("TOT", G::kTot, sizeof(G::kTot), kAsTot),
          g("TDT", G::kTdt, sizeof(G::kTdt), kAsTot, false)};
}

// Rewrites the CRC_32 at the end so that only the change under test is wrong.
void fixCrc(Bytes* b) {
  unsigned int n = static_cast<unsigned int>(b->size()) - 4;
  unsigned int crc = TCrc32::compute(b->data(), n);
  (*b)[n] = crc >> 24;
  (*b)[n + 1] = (crc >> 16) & 0xFF;
  (*b)[n + 2] = (crc >> 8) & 0xFF;
  (*b)[n + 3] = crc & 0xFF;
}

void setLength12(Bytes* b, unsigned int offset, unsigned int value) {
  (*b)[offset] = static_cast<unsigned char>(((*b)[offset] & 0xF0) | ((value >> 8) & 0x0F));
  (*b)[offset + 1] = static_cast<unsigned char>(value & 0xFF);
}

unsigned int length12(const Bytes& b, unsigned int offset) {
  return ((b[offset] & 0x0F) << 8) | b[offset + 1];
}

}  // namespace

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

TEST(TablesBoundaryTest, APatLoopThatIsNotWholeProgrammesIsRejected) {
  Bytes body = {0x00, 0x00, 0xE0, 0x10, 0xE7};  // one programme and a byte
  Bytes section = TSectionWriter::longSection(0x00, false, 1, 0, true, 0, 0, body, 1024);
  ASSERT_FALSE(section.empty());
  EXPECT_EQ(parseAs(kAsPat, section), nullptr);
}

TEST(TablesBoundaryTest, ASectionNumberAboveTheLastIsRejected) {
  Bytes b(OstrelGolden::kPat, OstrelGolden::kPat + sizeof(OstrelGolden::kPat));
  b[6] = 1;  // section 1 of 0
  fixCrc(&b);
  EXPECT_EQ(parseAs(kAsPat, b), nullptr);
  b[7] = 1;  // section 1 of 1
  fixCrc(&b);
  auto pat = parseAs(kAsPat, b);
  ASSERT_NE(pat, nullptr);
  EXPECT_EQ(static_cast<TPATTable*>(pat.get())->getSectionNumber(), 1);
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

TEST(TablesBoundaryTest, TimesThatAreNotValidBcdAreRejected) {
  struct Case {
    const char* what;
    unsigned int offset;
    unsigned char value;
  };
  const Case cases[] = {{"hour 24", 5, 0x24},
                        {"hour digit A", 5, 0x0A},
                        {"minute 60", 6, 0x60},
                        {"second 60", 7, 0x60},
                        {"second digit F", 7, 0x5F}};
  for (const Case& c : cases) {
    Bytes tot(OstrelGolden::kTot, OstrelGolden::kTot + sizeof(OstrelGolden::kTot));
    tot[c.offset] = c.value;
    fixCrc(&tot);
    EXPECT_EQ(parseAs(kAsTot, tot), nullptr) << "TOT " << c.what;
    Bytes tdt(OstrelGolden::kTdt, OstrelGolden::kTdt + sizeof(OstrelGolden::kTdt));
    tdt[c.offset] = c.value;
    EXPECT_EQ(parseAs(kAsTot, tdt), nullptr) << "TDT " << c.what;
  }
  Bytes midnight(OstrelGolden::kTdt, OstrelGolden::kTdt + sizeof(OstrelGolden::kTdt));
  midnight[5] = 0x23, midnight[6] = 0x59, midnight[7] = 0x59;
  EXPECT_NE(parseAs(kAsTot, midnight), nullptr) << "23:59:59 is a time";
}

TEST(TablesBoundaryTest, ATdtCarriesTheTimeAndNothingElse) {
  Bytes tdt(OstrelGolden::kTdt, OstrelGolden::kTdt + sizeof(OstrelGolden::kTdt));
  tdt.push_back(0x00);
  tdt[2] = 6;  // a consistent section_length, one byte too many for a TDT
  EXPECT_EQ(parseAs(kAsTot, tdt), nullptr);
  Bytes tot(OstrelGolden::kTot, OstrelGolden::kTot + sizeof(OstrelGolden::kTot));
  tot.erase(tot.end() - 4, tot.end());
  tot[0] = 0x70;
  tot[2] = static_cast<unsigned char>(tot.size() - 3);  // a TOT's body without CRC, as a TDT
  EXPECT_EQ(parseAs(kAsTot, tot), nullptr);
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
