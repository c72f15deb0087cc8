// The DVB server on an emulated adapter (ostrel-dvb-emu, FUSE): real system calls.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "DvbServer.h"
#include "EmulatedAdapter.h"
#include "SectionMatch.h"
#include "TCommand.h"
#include "TGetTunerListCommand.h"
#include "TGetTunerListResponse.h"
#include "TPATBuilder.h"
#include "TPMTBuilder.h"
#include "TSyncDataRequestCommand.h"
#include "TsPacketWriter.h"
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
const short kPmtPid = 0x0100, kSilentPid = 0x1FF0;

// The test stream: a PAT of kPrograms programmes (numbers 1.., PMTs on
// kPmtPid..) and their PMTs; sixteen times, so that the continuity counters
// run on where the file loops.
std::string testStream() {
  TPATBuilder pat;
  for (unsigned short i = 0; i < kPrograms; ++i)
    pat.addProgram(1 + i, kPmtPid + i);
  const Bytes patSection = pat.setTransportStreamId(1).build();
  Bytes all;
  TsPacketWriter writer(&all);
  for (int pass = 0; pass < 16; ++pass) {
    writer.writeSection(0x0000, patSection);
    for (unsigned short i = 0; i < kPrograms; ++i)
      writer.writeSection(kPmtPid + i,
                          TPMTBuilder().setProgramNumber(1 + i).setPcrPid(kPmtPid).build());
  }
  const std::string path = OSTREL_TEST_WORK "/dvb-server-test.ts";
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(all.data()), static_cast<std::streamsize>(all.size()));
  return path;
}

using SimTest::Key;

TEST(DvbServerTest, RequestsEndAnsweredOrFailedThroughTheEmulatedDemux) {
  std::vector<Key> pmts;
  for (unsigned int i = 0; i < kPrograms; ++i)
    pmts.push_back({short(kPmtPid + i), 0x02, short(1 + i)});
  const std::vector<Key> pat = {{0x0000, 0x00, 0}}, silent = {{kSilentPid, 0x02, 1}};
  std::vector<Key> all = pmts;
  all.push_back(pat[0]);
  using C = ServerEngine::Counters;
  // Whole tables, asked again from each injection, come through the emulated
  // adapter in server_sources_test; here, its faults and its demux's limits.
  struct Case {
    const char* what;
    const char* options;  // of the emulator
    std::vector<Key> requests;
    size_t answered;       // distinct sections injected, each with a CRC_32 that holds
    uint64_t C::*counter;  // ... and this counter at least 1
  } cases[] = {
      {"40 PMT PIDs on a demux of 32 filters: requests wait for a free one", "", pmts, kPrograms,
       &C::filterWaits},
      {"half the sections damaged: dropped, counted, a good repetition answers", " --fault crc=0.5",
       all, kPrograms + 1, &C::crcErrors},
      {"a read error fails the request", " --fault read-error=0", pat, 0, &C::failed},
      {"a filter the demux refuses fails the request", " --fault refuse-filter=0", pat, 0,
       &C::failed},
      {"the adapter removed under a waiting request fails it", " --fault remove=0.2", silent, 0,
       &C::failed},
  };
  const std::string stream = testStream();
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const auto before = held();
    {
      Emulator emulator(stream, c.options);
      ASSERT_TRUE(emulator.ok) << "the emulated adapter could not be mounted";
      SimTest::RecordingDestination destination;
      DvbServer dvb({emulator.adapter()}, DvbServer::Options());
      dvb.setDataDestination(&destination);
      for (const Key& key : c.requests)
        EXPECT_EQ(1, SimTest::openRequest(&dvb, key.pid, key.tableId, key.ext, 2));
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
      EXPECT_GE(dvb.getCounters().*c.counter, 1u);
      dvb.setDataDestination(NULL);
    }
    EXPECT_EQ(before, held());
  }
}

TEST(DvbServerTest, TunerListSynchronousRequestsAndControlsAnswerOnTheCallersThread) {
  const auto before = held();
  {
    Emulator emulator(testStream(), "");
    ASSERT_TRUE(emulator.ok) << "the emulated adapter could not be mounted";
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

    const std::pair<Key, int> syncs[] = {// a request, and whether it is answered
                                         {{0x0000, 0x00, 0}, 1},
                                         {{short(kPmtPid + 7), 0x02, 8}, 1},
                                         {{kSilentPid, 0x02, 1}, 0}};
    for (const auto& [key, answered] : syncs) {
      TSyncDataRequestCommand sync;
      sync.setEndPoint(&dvb), sync.setTunerId(0), sync.setPid(key.pid);
      sync.setTableId(key.tableId), sync.setTableIdExt(key.ext);
      const size_t had = destination.injections().size();
      EXPECT_EQ(answered, sync.send(NULL)) << key.pid;
      const auto injections = destination.injections();  // before send returned
      ASSERT_EQ(had + answered, injections.size());
      EXPECT_EQ(answered ? key.ext : -1, answered ? injections.back().tableIdExt : -1);
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
