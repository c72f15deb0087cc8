// The DVB server on an emulated adapter (ostrel-dvb-emu, FUSE): real system calls.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <thread>

#include "DvbServer.h"
#include "EmulatedAdapter.h"
#include "SectionMatch.h"
#include "TCommand.h"
#include "TDataRequestCommand.h"
#include "TGetTunerListCommand.h"
#include "TGetTunerListResponse.h"
#include "TSyncDataRequestCommand.h"
#include "sim_test_stream.h"

using namespace Ostrel;
using SimTest::Bytes;

namespace {

// Open descriptors and live commands: equal before and after, nothing leaked.
std::pair<long, long> held() {
  return {std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}),
          TCommand::getLiveCount()};
}

const unsigned int kPrograms = 40;  // more PMT PIDs than a demux of 32 filters takes at once
const short kSdtPid = 0x0011, kPmtPid = 0x0100, kSilentPid = 0x1FF0;

// The test stream: a PAT of kPrograms programmes (numbers 1.., PMTs on
// kPmtPid..), their single-section PMTs, and an SDT of three sections; sixteen
// times, so that the continuity counters run on where the file loops.
std::string testStream() {
  std::vector<std::pair<unsigned short, Bytes>> sections;
  Bytes pat;
  for (unsigned int i = 0; i < kPrograms; ++i) {
    const unsigned short pid = static_cast<unsigned short>(kPmtPid + i);
    for (unsigned int byte : {0u, 1 + i, 0xE0u | pid >> 8, pid & 0xFFu})
      pat.push_back(static_cast<unsigned char>(byte));
    const Bytes pmt = {0xE1, 0x00, 0xF0, 0x00};  // PCR PID 0x0100, no descriptors
    sections.push_back({pid, SimTest::longSection(0x02, static_cast<unsigned short>(1 + i), pmt)});
  }
  sections.push_back({0x0000, SimTest::longSection(0x00, 1, pat)});
  for (unsigned char n = 0; n < 3; ++n)
    sections.push_back({kSdtPid, SimTest::longSection(0x42, 1, SimTest::filler(150, n), 0, n, 2)});
  std::map<unsigned short, unsigned char> cc;
  std::vector<Bytes> packets;
  for (int pass = 0; pass < 16; ++pass) {
    for (const auto& s : sections) {
      for (const Bytes& p : SimTest::packetize(s.first, {s.second}, &cc[s.first]))
        packets.push_back(p);
    }
  }
  const Bytes all = SimTest::join(packets);
  const std::string path = OSTREL_TEST_WORK "/dvb-server-test.ts";
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(all.data()), static_cast<std::streamsize>(all.size()));
  return path;
}

struct Key {
  short pid, tableId, tableIdExt;
};

int sendOpen(GingaServer* server, const Key& key) {
  TDataRequestCommand* request =
      static_cast<TDataRequestCommand*>(TCommand::commandFactory(TDataRequestCommand::kCode));
  request->setEndPoint(server);
  request->setOpen(1);
  request->setTunerId(0);
  request->setPid(key.pid);
  request->setTableId(key.tableId);
  request->setTableIdExt(key.tableIdExt);
  request->setTimeOut(2);
  return request->send(NULL);  // the server holds it from here on
}

// Records injections and, as the middleware does, asks for the next section of
// the SDT from the injection until its three sections have come.
struct Destination : SimTest::RecordingDestination {
  int injectData(int tunerId, short pid, short tableId, short tableIdExt, void* user,
                 unsigned char* data, unsigned int size) override {
    RecordingDestination::injectData(tunerId, pid, tableId, tableIdExt, user, data, size);
    if (tableId == 0x42 && sdtNumbers.insert(data[6]).second && sdtNumbers.size() < 3)
      sendOpen(server, {pid, tableId, tableIdExt});
    return 1;
  }
  GingaServer* server = nullptr;
  std::set<unsigned char> sdtNumbers;  // the delivery thread's only
};

TEST(DvbServerTest, RequestsEndAnsweredOrFailedThroughTheEmulatedDemux) {
  std::vector<Key> pmts;
  for (unsigned int i = 0; i < kPrograms; ++i)
    pmts.push_back({short(kPmtPid + i), 0x02, short(1 + i)});
  const std::vector<Key> pat = {{0x0000, 0x00, 0}}, sdt = {{kSdtPid, 0x42, 0}},
                         silent = {{kSilentPid, 0x02, 1}};
  std::vector<Key> all = pmts;
  all.insert(all.end(), {pat[0], sdt[0]});
  using C = ServerEngine::Counters;
  struct Case {
    const char* what;
    const char* options;  // of the emulator
    std::vector<Key> requests;
    size_t answered;       // distinct sections injected, each with a CRC_32 that holds
    uint64_t C::*counter;  // ... and this counter at least atLeast
    uint64_t atLeast;
  } cases[] = {
      {"a three-section table, asked again from each injection, comes whole", "", sdt, 3,
       &C::tablesCompleted, 1},
      {"40 PMT PIDs on a demux of 32 filters: requests wait for a free one", "", pmts, kPrograms,
       &C::filterWaits, 1},
      {"half the sections damaged: dropped, counted, a good repetition answers", " --fault crc=0.5",
       all, kPrograms + 4, &C::crcErrors, 1},
      {"a read error fails the request", " --fault read-error=0", pat, 0, &C::failed, 1},
      {"a filter the demux refuses fails the request", " --fault refuse-filter=0", pat, 0,
       &C::failed, 1},
      {"the adapter removed under a waiting request fails it", " --fault remove=0.2", silent, 0,
       &C::failed, 1},
  };
  const std::string stream = testStream();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const auto before = held();
    {
      Emulator emulator(stream, c.options);
      ASSERT_TRUE(emulator.ok) << "the emulated adapter could not be mounted. "
                               << emulatorUnavailable();
      Destination destination;
      DvbServer dvb({emulator.adapter()}, DvbServer::Options());
      destination.server = &dvb;
      dvb.setDataDestination(&destination);
      for (const Key& key : c.requests)
        EXPECT_EQ(1, sendOpen(&dvb, key));
      auto done = [&] {
        return dvb.getPendingRequestCount() == 0 && dvb.getOpenFilterCount() == 0;
      };
      for (int ms = 0; ms < 3000 && !done(); ms += 5)
        usleep(5000);
      EXPECT_TRUE(done());
      // The last request is closed when its injection is planned, before it
      // is made: the injections are complete once no call-out is running.
      dvb.waitBusyCommands();
      std::set<std::vector<unsigned char>> distinct;
      for (const auto& injection : destination.injections()) {
        EXPECT_TRUE(SectionMatch::isIntact(injection.data.data(), injection.data.size()));
        distinct.insert(injection.data);
      }
      EXPECT_EQ(c.answered, distinct.size());
      EXPECT_GE(dvb.getCounters().*c.counter, c.atLeast);
      dvb.setDataDestination(NULL);
    }
    EXPECT_EQ(before, held());
  }
}

TEST(DvbServerTest, TunerListSynchronousRequestsAndControlsAnswerOnTheCallersThread) {
  const auto before = held();
  {
    Emulator emulator(testStream(), "");
    ASSERT_TRUE(emulator.ok) << "the emulated adapter could not be mounted. "
                             << emulatorUnavailable();
    DvbServer::Options options;
    options.syncTimeoutMs = 300;
    DvbServer dvb({emulator.adapter(), emulator.m_root + "/adapter9"}, options);
    SimTest::RecordingDestination destination;
    dvb.setDataDestination(&destination);

    // The missing adapter is left out; the emulated one is terrestrial.
    TCommand* response = NULL;
    TGetTunerListCommand list;
    list.setEndPoint(&dvb);
    ASSERT_EQ(1, list.send(&response));
    std::unique_ptr<TCommand> owned(response);
    TGetTunerListResponse* tuners = static_cast<TGetTunerListResponse*>(response);
    int id = -1;
    unsigned char type = 0;
    ASSERT_EQ(1u, tuners->getTunerCounter());
    tuners->getTunerId(0, &id), tuners->getTunerType(0, &type);
    EXPECT_EQ(std::make_pair(0, 1), std::make_pair(id, int(type)));

    struct {
      Key key;
      int result;
    } syncs[] = {
        {{0x0000, 0x00, 0}, 1}, {{short(kPmtPid + 7), 0x02, 8}, 1}, {{kSilentPid, 0x02, 1}, 0}};
    for (const auto& s : syncs) {
      TSyncDataRequestCommand sync;
      sync.setEndPoint(&dvb);
      sync.setTunerId(0), sync.setPid(s.key.pid), sync.setTableId(s.key.tableId);
      sync.setTableIdExt(s.key.tableIdExt);
      const size_t had = destination.injections().size();
      EXPECT_EQ(s.result, sync.send(NULL)) << s.key.pid;
      const auto injections = destination.injections();  // before send returned
      ASSERT_EQ(had + s.result, injections.size());
      if (s.result) {
        EXPECT_EQ(s.key.tableIdExt, injections.back().tableIdExt);
      }
    }
    std::unique_ptr<TCommand> key(TCommand::commandFactory(0x209));
    key->setEndPoint(&dvb);
    EXPECT_EQ(0, key->send(NULL)) << "a DVB adapter has no remote-control keys";
    EXPECT_EQ(1u, dvb.getCounters().syncRefused);
    dvb.setDataDestination(NULL);
  }
  EXPECT_EQ(before, held());
}

}  // namespace
