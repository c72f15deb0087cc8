// Hand-written sections of every table, decoded field by field.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "TLocalTimeOffsetDescriptor.h"
#include "TNITTable.h"
#include "TNetworkNameDescriptor.h"
#include "TPATTable.h"
#include "TPMTTable.h"
#include "TPartialReceptionDescriptor.h"
#include "TSDTTable.h"
#include "TServiceDescriptor.h"
#include "TServiceListDescriptor.h"
#include "TTOTTable.h"
#include "TTSInformationDescriptor.h"
#include "TTerrestrialDeliverySystemDescriptor.h"
#include "golden_sections.h"

using namespace Ostrel;

namespace {

// Parses a copy of exactly the section's bytes, so that AddressSanitizer sees
// any read past its end.
template <class T, size_t N>
std::unique_ptr<T> parseGolden(const unsigned char (&section)[N]) {
  std::vector<unsigned char> copy(section, section + N);
  return std::unique_ptr<T>(
      T::parse(copy.data(), static_cast<unsigned int>(N), 1, 1, nullptr, nullptr));
}

std::vector<unsigned char> bytes(std::initializer_list<unsigned char> list) {
  return list;
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
