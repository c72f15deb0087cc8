// Hostile section data at the core's injection: whatever arrives, a section
// that does not parse changes nothing. The request waiting for its key stays
// outstanding with its user data unreleased, nothing is cached, nothing is
// notified, and the one parse error is logged.
#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

#include "Cacher.h"
#include "CountedUserData.h"
#include "LogCapture.h"
#include "OstrelGingaCommonCore.h"
#include "RecordingServer.h"
#include "RequestFollower.h"
#include "Sections.h"

using namespace Ostrel;
using OstrelTest::CountedUserData;
using OstrelTest::LogCapture;

namespace {

int s_notifications = 0;

int countingCallback(unsigned int, unsigned char, void*, TISDBTTable*) {
  ++s_notifications;
  return 1;
}

std::vector<unsigned char> withByte(std::vector<unsigned char> s, size_t at, unsigned char xorBy) {
  s[at] ^= xorBy;
  return s;
}

struct Hostile {
  const char* what;
  int tuner;
  short pid;
  short tableId;
  std::vector<unsigned char> bytes;
  bool nullData;
};

}  // namespace

TEST(RobustInjection, SectionsThatDoNotParseChangeNothing) {
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  OstrelTest::RecordingServer server;
  core->setServer(&server);
  core->setRequestNotificationCallback(&countingCallback);

  const std::vector<unsigned char> pat = OstrelTest::patSection();
  const std::vector<unsigned char> pmt = OstrelTest::pmtSection(7, 2);
  std::vector<unsigned char> patTrailing = pat;
  patTrailing.push_back(0xFF);
  std::vector<unsigned char> huge(65536, 0xFF);
  std::copy(pat.begin(), pat.end(), huge.begin());
  const std::vector<unsigned char> noSyntax = withByte(pat, 1, 0x80);
  const std::vector<unsigned char> longLength = withByte(pat, 2, 0x10);

  const std::vector<Hostile> cases = {
      {"null data, size 0", 1, 0x0000, 0x00, {}, true},
      {"empty buffer", 1, 0x0000, 0x00, {}, false},
      {"one byte", 1, 0x0000, 0x00, {0x00}, false},
      {"header only", 1, 0x0000, 0x00, {0x00, 0xB0, 0x0D}, false},
      {"PAT cut before its CRC", 1, 0x0000, 0x00,
       std::vector<unsigned char>(pat.begin(), pat.end() - 4), false},
      {"PAT cut by one byte", 1, 0x0000, 0x00,
       std::vector<unsigned char>(pat.begin(), pat.end() - 1), false},
      {"PAT with a byte after it", 1, 0x0000, 0x00, patTrailing, false},
      {"PAT at the start of 64 KiB", 1, 0x0000, 0x00, huge, false},
      {"PAT with a flipped CRC bit", 1, 0x0000, 0x00, withByte(pat, pat.size() - 1, 0x01), false},
      {"PAT with a flipped body bit", 1, 0x0000, 0x00, withByte(pat, 9, 0x04), false},
      {"PAT without its syntax bit", 1, 0x0000, 0x00, noSyntax, false},
      {"PAT claiming more length", 1, 0x0000, 0x00, longLength, false},
      {"PMT on the PAT's PID", 1, 0x0000, 0x00, pmt, false},
      {"PAT on a PMT PID", 1, 0x0100, 0x02, pat, false},
      {"PMT on a PID that is never parsed", 1, 0x0012, 0x4E, pmt, false},
      {"PMT under another table id", 1, 0x0100, 0x03, pmt, false},
      {"PMT on PID -1 under table id 0", 1, -1, 0x00, pmt, false},
      {"PMT with table id -2", 1, 0x0100, -2, pmt, false},
      {"64 KiB of stuffing on a PMT PID", INT_MIN, 0x0100, 0x02,
       std::vector<unsigned char>(65536, 0xFF), false},
      {"64 KiB of zeros on the NIT PID", INT_MAX, 0x0010, 0x40,
       std::vector<unsigned char>(65536, 0x00), false},
  };
  unsigned int id = 1;
  size_t followed = 0;
  for (const Hostile& c : cases) {
    SCOPED_TRACE(c.what);
    CountedUserData data;
    // Keys in no follower category (table id 3, -2 or 0 on other PIDs) are sent
    // but not followed: the injection must still change nothing.
    short requestError = 0;
    const bool isFollowed = core->requestData(id, 2, c.tuner, c.pid, c.tableId, 0, &data,
                                              &CountedUserData::release, &requestError) == 1;
    EXPECT_EQ(isFollowed ? 0 : -10, requestError);
    followed += isFollowed;
    s_notifications = 0;
    std::vector<unsigned char> bytes = c.bytes;  // a block of exactly this size
    LogCapture log;
    EXPECT_EQ(0, core->injectData(c.tuner, c.pid, c.tableId, 0, nullptr,
                                  c.nullData ? nullptr : bytes.data(),
                                  static_cast<unsigned int>(bytes.size())));
    EXPECT_EQ(1, log.count("GingaCommonCore: injectData: ERROR: Could not parse data!"));
    EXPECT_EQ(1u, log.lines().size());
    EXPECT_EQ(0, s_notifications);
    EXPECT_EQ(0, data.releases.load());
    short error = 0;
    EXPECT_EQ(nullptr, core->getFromCache(c.tuner, c.pid, c.tableId, 0, nullptr, &error));
    EXPECT_EQ(-12, error);
    // Still outstanding: taken out here, it releases its user data once.
    RequestFollower::RequestFollowerItem* item = RequestFollower::remove(id);
    EXPECT_EQ(isFollowed, item != nullptr);
    delete item;
    EXPECT_EQ(isFollowed ? 1 : 0, data.releases.load());
    ++id;
  }
  EXPECT_EQ(cases.size() - 3, followed);
  RequestFollower::destroy();
  core->setRequestNotificationCallback(nullptr);
}
