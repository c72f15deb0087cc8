#ifndef OSTREL_TESTS_CORE_FIXTURE_H
#define OSTREL_TESTS_CORE_FIXTURE_H

#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <vector>

#include "Cacher.h"
#include "CountedUserData.h"
#include "OstrelGingaCommonCore.h"
#include "RecordingServer.h"
#include "RequestFollower.h"
#include "TCommand.h"
#include "TPMTTable.h"

namespace OstrelTest {

// One call of the notification callback, with what was read during it.
struct Notification {
  unsigned int requestId;
  unsigned char status;
  void* userData;
  Ostrel::TISDBTTable* table;
  int releasesAtCall;            // of the CountedUserData, -1 without one
  unsigned short programNumber;  // read from a PMT during the call, else 0
};

// The core bound to a recording server that delivers to it, with a callback
// that records every notification and answers s_verdict. Afterwards every
// command made is gone (but the open requests the server holds), the follower
// is destroyed and the caches of tuners 1 to 3 are empty.
class CoreTest : public testing::Test {
 protected:
  void SetUp() override {
    m_core = Ostrel::OstrelGingaCommonCore::getInstance();
    m_core->setServer(&m_server);
    m_server.setDataDestination(m_core);
    m_core->setRequestNotificationCallback(&callback);
    std::lock_guard<std::mutex> lock(s_mutex);
    s_seen.clear();
    s_verdict = 1;
    m_liveBefore = Ostrel::TCommand::getLiveCount() - m_server.getOpenRequestCount();
  }
  void TearDown() override {
    EXPECT_EQ(m_liveBefore, Ostrel::TCommand::getLiveCount() - m_server.getOpenRequestCount());
    Ostrel::RequestFollower::destroy();
    for (int tuner = 1; tuner <= 3; ++tuner)
      Ostrel::Cacher::getInstance(tuner)->flush();
  }

  static std::vector<Notification> notifications() {
    std::lock_guard<std::mutex> lock(s_mutex);
    return s_seen;
  }
  static void setVerdict(int verdict) { s_verdict = verdict; }
  // A request in server-only mode, with the release of CountedUserData.
  int request(unsigned int id, int tuner, short pid, short tableId, short ext,
              CountedUserData* data, short* error = nullptr) {
    return m_core->requestData(id, 2, tuner, pid, tableId, ext, data, &CountedUserData::release,
                               error);
  }

  Ostrel::OstrelGingaCommonCore* m_core = nullptr;
  RecordingServer m_server;
  long m_liveBefore = 0;

 private:
  static inline std::mutex s_mutex;
  static inline std::vector<Notification> s_seen;
  static inline std::atomic<int> s_verdict{1};

  // User data in these tests is a CountedUserData or null.
  static int callback(unsigned int requestId, unsigned char status, void* userData,
                      Ostrel::TISDBTTable* table) {
    Notification n{requestId, status, userData, table, -1, 0};
    if (userData)
      n.releasesAtCall = static_cast<CountedUserData*>(userData)->releases;
    if (auto* pmt = dynamic_cast<Ostrel::TPMTTable*>(table))
      n.programNumber = pmt->getProgramNumber();
    std::lock_guard<std::mutex> lock(s_mutex);
    s_seen.push_back(n);
    return s_verdict;
  }
};

}  // namespace OstrelTest

#endif
