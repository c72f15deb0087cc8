// Many threads requesting while a delivery thread injects, time-outs fire and
// the follower is destroyed and re-created: every accepted request must end
// exactly once (one notification, or a silent drop by destroy) and release its
// user data exactly once, after any notification.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <deque>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "Cacher.h"
#include "OstrelGingaCommonCore.h"
#include "RecordingServer.h"
#include "RequestFollower.h"
#include "Sections.h"
#include "TPMTTable.h"

using namespace Ostrel;

namespace {

struct Tracked {
  std::atomic<int> notified{0};
  std::atomic<int> released{0};
  std::atomic<int> notifiedAfterRelease{0};
  bool accepted = false;
};

std::atomic<int> s_tableProblems{0};

int trackingCallback(unsigned int, unsigned char status, void* userData, TISDBTTable* table) {
  if (status == 0) {
    // A lent table must be alive and whole for the whole call.
    auto* pmt = dynamic_cast<TPMTTable*>(table);
    if (!table || (pmt && pmt->getPcrPid() != 0x0111))
      ++s_tableProblems;
  }
  if (auto* tracked = static_cast<Tracked*>(userData)) {
    if (tracked->released)
      ++tracked->notifiedAfterRelease;
    ++tracked->notified;
  }
  return 1;
}

void releaseTracked(void* userData) {
  ++static_cast<Tracked*>(userData)->released;
}

}  // namespace

TEST(Stress, EveryAcceptedRequestEndsOnceAndIsReleasedOnce) {
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  OstrelTest::RecordingServer server;
  core->setServer(&server);
  core->setRequestNotificationCallback(&trackingCallback);
  const int bound = Cacher::s_iMaxCacheSize;
  Cacher::s_iMaxCacheSize = 400;  // a few tables per tuner: the cache keeps evicting

  const auto pat = OstrelTest::patSection();
  std::vector<std::vector<unsigned char>> pmts;
  for (unsigned short program = 1; program <= 4; ++program) {
    pmts.push_back(OstrelTest::pmtSection(program, program));
  }
  std::atomic<bool> stop{false};
  std::vector<std::deque<Tracked>> tracked(3);

  std::vector<std::thread> threads;
  for (size_t t = 0; t < tracked.size(); ++t) {
    threads.emplace_back([&, t] {
      std::mt19937 random(static_cast<unsigned>(t) + 1);
      for (unsigned int id = 1; !stop; ++id) {
        tracked[t].emplace_back();
        Tracked& one = tracked[t].back();
        const int tuner = 1 + random() % 2;
        const int kind = random() % 4;  // PAT, PMT delivered, PMT never delivered, refused
        const short pid = kind == 0   ? 0x0000
                          : kind == 1 ? 0x0100 + random() % 4
                          : kind == 2 ? 0x0200
                                      : 0x0300;
        const short tableId = kind == 0 ? 0x00 : kind == 3 ? 0x42 : 0x02;
        const short ext = kind == 1 ? 1 + (pid - 0x0100) : 0;
        const signed char mode = static_cast<signed char>(random() % 3);
        one.accepted = core->requestData(id, mode, tuner, pid, tableId, ext, &one, &releaseTracked,
                                         nullptr) == 1;
        std::this_thread::sleep_for(std::chrono::microseconds(200));
      }
    });
  }
  threads.emplace_back([&] {  // the server's delivery thread
    std::mt19937 random(99);
    while (!stop) {
      const int tuner = 1 + random() % 2;
      const int which = random() % 6;
      std::vector<unsigned char> section = which < 4 ? pmts[which] : pat;
      const short pid = which < 4 ? 0x0100 + which : 0x0000;
      if (which == 5)
        section[section.size() - 1] ^= 0xFF;  // corrupt CRC
      core->injectData(tuner, pid, which < 4 ? 2 : 0, which < 4 ? which + 1 : 0, nullptr,
                       section.data(), static_cast<unsigned int>(section.size()));
      std::this_thread::sleep_for(std::chrono::microseconds(300));
    }
  });
  threads.emplace_back([&] {  // destroys the follower now and then
    while (!stop) {
      std::this_thread::sleep_for(std::chrono::milliseconds(700));
      RequestFollower::destroy();
    }
  });

  std::this_thread::sleep_for(std::chrono::milliseconds(3500));  // long enough for time-outs
  stop = true;
  for (auto& thread : threads)
    thread.join();
  RequestFollower::destroy();  // whatever is still pending is dropped
  Cacher::s_iMaxCacheSize = bound;

  int accepted = 0, notified = 0;
  for (auto& list : tracked) {
    for (Tracked& one : list) {
      if (!one.accepted) {
        ASSERT_EQ(0, one.released.load()) << "a refused request releases nothing";
        continue;
      }
      ++accepted;
      notified += one.notified;
      ASSERT_EQ(1, one.released.load());
      ASSERT_LE(one.notified.load(), 1);
      ASSERT_EQ(0, one.notifiedAfterRelease.load());
    }
  }
  EXPECT_EQ(0, s_tableProblems.load());
  EXPECT_GT(accepted, 100);
  EXPECT_GT(notified, 0);
  core->setRequestNotificationCallback(nullptr);
}
