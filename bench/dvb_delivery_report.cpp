// Sections per second through the emulated DVB demux to injectData: open
// requests on a PID whose every section is new (255 section numbers of a
// table that never completes, in 32 versions), the next request sent from
// each injection where the server answers one with one section; the emulator
// playing as fast as the server reads (ostrel-dvb-emu --fast, real system
// calls through FUSE), against the simulator's in-process delivery of the
// same stream to the same destination. Needs root and /dev/fuse, in a private
// mount namespace (bench/run starts it with unshare -m); prints a note and
// exits 0 without.
//
//   dvb_delivery_report OSTREL_DVB_EMU
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include "DvbServer.h"
#include "GingaDataDestination.h"
#include "OstrelLogger.h"
#include "ReceiverSimulator.h"
#include "TCommand.h"
#include "TCrc32.h"
#include "TDataRequestCommand.h"
#include "TsPacketWriter.h"

using namespace Ostrel;

namespace {

typedef std::vector<unsigned char> Bytes;
typedef std::chrono::steady_clock Clock;
const unsigned short kPid = 0x0100;
const unsigned int kVersions = 32;
const unsigned int kNumbers = 255;   // last_section_number 255 never comes
const unsigned int kCounted = 8000;  // fewer than one pass holds: all new

Bytes benchStream() {
  Bytes out;
  TsPacketWriter writer(&out);
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
      const unsigned int crc = TCrc32::compute(&section[0], length - 1);
      for (int i = 0; i < 4; ++i) {
        section[length - 1 + i] = static_cast<unsigned char>(crc >> (24 - 8 * i));
      }
      writer.writeSection(kPid, section);
    }
  }
  return out;
}

// An open request for the bench's table; the server holds it from here on.
bool sendRequest(GingaServer* server) {
  TDataRequestCommand* request =
      static_cast<TDataRequestCommand*>(TCommand::commandFactory(TDataRequestCommand::kCode));
  request->setEndPoint(server);
  request->setOpen(1);
  request->setTunerId(0);
  request->setPid(kPid);
  request->setTableId(0x02);
  request->setTableIdExt(static_cast<short>(0xE760));
  request->setTimeOut(120);
  return request->send(NULL) != 0;
}

// Counts injected sections; times the first and the kCounted-th. With a
// server to ask again, sends the next request from each injection, as the
// middleware does: a server on the engine answers a request with one section.
class Counter : public GingaDataDestination {
 public:
  explicit Counter(GingaServer* askAgain) : m_pAskAgain(askAgain) {}
  int injectData(int, short, short, short, void*, unsigned char*, unsigned int) override {
    bool more = false;
    {
      std::lock_guard<std::mutex> lock(m_mutex);
      if (++m_count == 1) {
        m_first = Clock::now();
      } else if (m_count == kCounted) {
        m_last = Clock::now();
        m_cond.notify_all();
      }
      more = m_pAskAgain && m_count < kCounted;
    }
    if (more) {
      sendRequest(m_pAskAgain);
    }
    return 1;
  }
  // Sections per second between the first and the last counted; 0 when they
  // did not all come in time.
  double perSecond() {
    std::unique_lock<std::mutex> lock(m_mutex);
    if (!m_cond.wait_for(lock, std::chrono::seconds(60), [this] { return m_count >= kCounted; })) {
      return 0;
    }
    return (kCounted - 1) / std::chrono::duration<double>(m_last - m_first).count();
  }

 private:
  GingaServer* const m_pAskAgain;
  std::mutex m_mutex;
  std::condition_variable m_cond;
  unsigned int m_count = 0;
  Clock::time_point m_first, m_last;
};

// askAgain: whether the server answers a request with one section only (the
// DVB server, on the engine) rather than keeping it open through the table.
template <typename Start>
double measure(GingaServer* server, bool askAgain, Start start) {
  Counter counter(askAgain ? server : NULL);
  server->setDataDestination(&counter);
  const bool sent = sendRequest(server);
  start();
  const double rate = sent ? counter.perSecond() : 0;
  server->setDataDestination(NULL);
  server->waitBusyCommands();
  return rate;
}

void quiet(int, const char*, const char*, void*) {}

}  // namespace

int main(int argc, char** argv) {
  const char* kWhat = "sections through the emulated DVB demux to injectData";
  ostrel_log_set_sink(&quiet, NULL);
  const Bytes stream = benchStream();
  double simulated = 0;
  {
    ReceiverSimulator sim;
    sim.setPacing(ReceiverSimulator::kAsFastAsPossible, 0);
    sim.addMemoryTuner(stream, "bench", true);
    simulated = measure(&sim, false, [&sim] { sim.startTuner(0); });
  }
  char root[] = "/tmp/dvb-bench-XXXXXX";
  const std::string file = std::string(mkdtemp(root)) + ".ts";
  std::ofstream(file, std::ios::binary)
      .write(reinterpret_cast<const char*>(&stream[0]),
             static_cast<std::streamsize>(stream.size()));
  const std::string command = std::string("echo $$; exec ") + (argc > 1 ? argv[1] : "false") +
                              " --fast --root " + root + " --adapter " + file;
  FILE* out = popen(command.c_str(), "r");
  int pid = -1;
  char line[64] = "";
  double emulated = 0;
  if (std::fscanf(out, "%d ", &pid) == 1 && std::fgets(line, sizeof(line), out) &&
      std::string(line).rfind("ready", 0) == 0) {
    DvbServer dvb(std::vector<std::string>(1, std::string(root) + "/adapter0"),
                  DvbServer::Options());
    emulated = measure(&dvb, true, [] {});
  }
  if (pid > 0) {
    kill(pid, SIGTERM);
  }
  pclose(out);
  rmdir(root);
  unlink(file.c_str());
  ostrel_log_set_sink(NULL, NULL);
  if (emulated == 0 || simulated == 0) {
    std::printf("%-58s not measured (needs root, /dev/fuse, ostrel-dvb-emu)\n", kWhat);
    return 0;
  }
  std::printf("%-58s %10.0f /s  reference %8.0f /s  ratio %.2f (simulator in process)\n", kWhat,
              emulated, simulated, emulated / simulated);
  return 0;
}
