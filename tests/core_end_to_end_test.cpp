// Requests that travel the whole road: sent to a server that delivers on its
// own thread, or left to time out through the follower's monitor thread.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <map>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include "Cacher.h"
#include "OstrelGingaCommonCore.h"
#include "RecordingServer.h"
#include "RequestFollower.h"
#include "Sections.h"
#include "TDataRequestCommand.h"
#include "TPMTTable.h"

using namespace Ostrel;
using OstrelTest::RecordingServer;

namespace {

// A server that answers each open data request from a delivery thread of its
// own, with the section it was given for the requested PID.
class DeliveringServer : public RecordingServer {
 public:
  DeliveringServer() : m_thread([this] { run(); }) {
    setExecuteHook([this](TCommand* command) {
      auto* request = dynamic_cast<TDataRequestCommand*>(command);
      if (!request)
        return;
      std::lock_guard<std::mutex> lock(m_mutex);
      m_queue.push_back(Key{request->getTunerId(), request->getPid(), request->getTableId(),
                            request->getTableIdExt()});
      m_wake.notify_one();
    });
  }
  ~DeliveringServer() override {
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      m_stop = true;
      m_wake.notify_one();
    }
    m_thread.join();
  }
  void deliverFor(short pid, std::vector<unsigned char> section) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_sections[pid] = std::move(section);
  }

 private:
  struct Key {
    int tunerId;
    short pid, tableId, tableIdExt;
  };
  void run() {
    std::unique_lock<std::mutex> lock(m_mutex);
    for (;;) {
      m_wake.wait(lock, [this] { return m_stop || !m_queue.empty(); });
      if (m_stop)
        return;
      Key key = m_queue.front();
      m_queue.pop_front();
      auto found = m_sections.find(key.pid);
      if (found == m_sections.end())
        continue;  // nothing to deliver: it times out
      std::vector<unsigned char> section = found->second;
      lock.unlock();
      // Give the sender time to record the request with the follower.
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      getDataDestination()->injectData(key.tunerId, key.pid, key.tableId, key.tableIdExt, nullptr,
                                       section.data(), static_cast<unsigned int>(section.size()));
      lock.lock();
    }
  }

  std::mutex m_mutex;
  std::condition_variable m_wake;
  std::deque<Key> m_queue;
  std::map<short, std::vector<unsigned char>> m_sections;
  bool m_stop = false;
  std::thread m_thread;
};

struct Outcome {
  std::mutex mutex;
  std::condition_variable done;
  std::vector<std::pair<unsigned int, unsigned char>> notifications;
  std::vector<unsigned short> programNumbers;
  std::thread::id thread;
};
Outcome* s_outcome = nullptr;

int outcomeCallback(unsigned int requestId, unsigned char status, void*, TISDBTTable* table) {
  std::lock_guard<std::mutex> lock(s_outcome->mutex);
  s_outcome->notifications.emplace_back(requestId, status);
  auto* pmt = dynamic_cast<TPMTTable*>(table);
  s_outcome->programNumbers.push_back(pmt ? pmt->getProgramNumber() : 0);
  s_outcome->thread = std::this_thread::get_id();
  s_outcome->done.notify_all();
  return 1;
}

class EndToEnd : public testing::Test {
 protected:
  void SetUp() override {
    s_outcome = &m_outcome;
    m_core = OstrelGingaCommonCore::getInstance();
    m_core->setServer(&m_server);
    m_server.setDataDestination(m_core);
    m_core->setRequestNotificationCallback(&outcomeCallback);
  }
  void TearDown() override {
    RequestFollower::destroy();
    m_core->setRequestNotificationCallback(nullptr);
  }
  bool waitForNotifications(size_t count, std::chrono::seconds limit) {
    std::unique_lock<std::mutex> lock(m_outcome.mutex);
    return m_outcome.done.wait_for(lock, limit,
                                   [&] { return m_outcome.notifications.size() >= count; });
  }

  Outcome m_outcome;
  OstrelGingaCommonCore* m_core = nullptr;
  DeliveringServer m_server;
};

}  // namespace

TEST_F(EndToEnd, RequestIsAnsweredByDataDeliveredOnTheServersThreadThenFromTheCache) {
  m_server.deliverFor(0x0300, OstrelTest::pmtSection(0x0777));
  short error = 1;
  ASSERT_EQ(1, m_core->requestData(5, 1, 1, 0x0300, 2, 0x0777, nullptr, nullptr, &error));
  EXPECT_EQ(0, error);
  ASSERT_TRUE(waitForNotifications(1, std::chrono::seconds(10)));
  {
    std::lock_guard<std::mutex> lock(m_outcome.mutex);
    EXPECT_EQ(5u, m_outcome.notifications[0].first);
    EXPECT_EQ(0, m_outcome.notifications[0].second);
    EXPECT_EQ(0x0777, m_outcome.programNumbers[0]);
    EXPECT_NE(std::this_thread::get_id(), m_outcome.thread);
  }
  // The delivered table is now cached: a second request is answered in the call.
  ASSERT_EQ(1, m_core->requestData(6, 1, 1, 0x0300, 2, 0x0777, nullptr, nullptr, &error));
  std::lock_guard<std::mutex> lock(m_outcome.mutex);
  ASSERT_EQ(2u, m_outcome.notifications.size());
  EXPECT_EQ(6u, m_outcome.notifications[1].first);
  EXPECT_EQ(std::this_thread::get_id(), m_outcome.thread);
  EXPECT_EQ(1u, m_server.commandCount());
}

TEST_F(EndToEnd, RequestWithoutDataTimesOutThroughTheMonitor) {
  const auto sent = std::chrono::steady_clock::now();
  ASSERT_EQ(1, m_core->requestData(9, 2, 1, 0x0400, 2, 1, nullptr, nullptr, nullptr));
  ASSERT_TRUE(waitForNotifications(1, std::chrono::seconds(10)));
  const auto elapsed = std::chrono::steady_clock::now() - sent;
  std::lock_guard<std::mutex> lock(m_outcome.mutex);
  EXPECT_EQ(9u, m_outcome.notifications[0].first);
  EXPECT_EQ(1, m_outcome.notifications[0].second);
  EXPECT_EQ(0, m_outcome.programNumbers[0]);
  EXPECT_GE(elapsed, std::chrono::milliseconds(1900)) << "not before its 2 s deadline";
}
