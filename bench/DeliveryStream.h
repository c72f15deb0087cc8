// The stream and the destination of the delivery figures (sim_delivery_report,
// dvb_delivery_report): one PID whose every section is new to an open
// request (180-byte sections, 255 section numbers of a table whose last
// section never comes, in 32 versions, so that its filter stays open), and a
// destination that counts injections and asks again from each one, as a
// middleware does of a server that answers a request with one section.
#ifndef OSTREL_BENCH_DELIVERY_STREAM_H
#define OSTREL_BENCH_DELIVERY_STREAM_H

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "GingaDataDestination.h"
#include "GingaServer.h"
#include "TCommand.h"
#include "TCrc32.h"
#include "TDataRequestCommand.h"
#include "TsPacketWriter.h"

namespace OstrelBench {

typedef std::vector<unsigned char> Bytes;
typedef std::chrono::steady_clock Clock;
const unsigned short kDeliveryPid = 0x0100;
const unsigned int kVersions = 32;
const unsigned int kNumbers = 255;  // last_section_number 255 never comes

// One pass: kVersions * kNumbers sections, one packet each. Played in a loop
// every section stays new: the version changes at each table's start.
inline Bytes deliveryStream() {
  Bytes out;
  Ostrel::TsPacketWriter writer(&out);
  for (unsigned int version = 0; version < kVersions; ++version) {
    for (unsigned int number = 0; number < kNumbers; ++number) {
      Bytes section(180, static_cast<unsigned char>(number ^ version));
      const unsigned int length = static_cast<unsigned int>(section.size()) - 3;
      const unsigned char header[] = {0x02,
                                      static_cast<unsigned char>(0xB0 | (length >> 8)),
                                      static_cast<unsigned char>(length & 0xFF),
                                      0xE7,
                                      0x60,
                                      static_cast<unsigned char>(0xC1 | (version << 1)),
                                      static_cast<unsigned char>(number),
                                      0xFF};
      std::copy(header, header + sizeof(header), section.begin());
      const unsigned int crc = Ostrel::TCrc32::compute(&section[0], length - 1);
      for (int i = 0; i < 4; ++i) {
        section[length - 1 + i] = static_cast<unsigned char>(crc >> (24 - 8 * i));
      }
      writer.writeSection(kDeliveryPid, section);
    }
  }
  return out;
}

// An open request for the stream's table; the server holds it from here on.
inline bool sendRequest(Ostrel::GingaServer* server) {
  using namespace Ostrel;
  TDataRequestCommand* request =
      static_cast<TDataRequestCommand*>(TCommand::commandFactory(TDataRequestCommand::kCode));
  request->setEndPoint(server);
  request->setOpen(1);
  request->setTunerId(0);
  request->setPid(kDeliveryPid);
  request->setTableId(0x02);
  request->setTableIdExt(static_cast<short>(0xE760));
  request->setTimeOut(120);
  return request->send(NULL) != 0;
}

// Counts injected sections and times the first and the count-th; sends the
// next request from each injection until count have come.
class Counter : public Ostrel::GingaDataDestination {
 public:
  Counter(Ostrel::GingaServer* server, unsigned int count) : m_pServer(server), m_uiCount(count) {}
  int injectData(int, short, short, short, void*, unsigned char*, unsigned int) override {
    bool more = false;
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      if (++m_uiSeen == 1) {
        m_first = Clock::now();
      } else if (m_uiSeen == m_uiCount) {
        m_last = Clock::now();
        m_cond.notify_all();
      }
      more = m_uiSeen < m_uiCount;
    }
    if (more) {
      sendRequest(m_pServer);
    }
    return 1;
  }
  // Sections per second between the first and the last counted; 0 when they
  // did not all come within a minute.
  double perSecond() {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_cond.wait_for(lock, std::chrono::seconds(60),
                         [this] { return m_uiSeen >= m_uiCount; })) {
      return 0;
    }
    return (m_uiCount - 1) / std::chrono::duration<double>(m_last - m_first).count();
  }

 private:
  Ostrel::GingaServer* const m_pServer;
  const unsigned int m_uiCount;
  std::mutex m_mutex;
  std::condition_variable m_cond;
  unsigned int m_uiSeen = 0;
  Clock::time_point m_first, m_last;
};

// Sections per second through server to counter: one request, then the next
// from each injection. start sets the source going once the request is out.
template <typename Start>
double measureDelivery(Ostrel::GingaServer* server, unsigned int count, Start start) {
  Counter counter(server, count);
  server->setDataDestination(&counter);
  const bool sent = sendRequest(server);
  start();
  const double rate = sent ? counter.perSecond() : 0;
  server->setDataDestination(NULL);
  server->waitBusyCommands();
  return rate;
}

inline double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values.empty() ? 0 : values[values.size() / 2];
}

}  // namespace OstrelBench

#endif  // OSTREL_BENCH_DELIVERY_STREAM_H
