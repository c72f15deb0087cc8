// The DVB server on emulated adapters (ostrel-dvb-emu, FUSE): real system calls.
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>

#include "ChannelScan.h"
#include "DvbServer.h"
#include "OstrelGingaCommonCore.h"
#include "ReceiverSimulator.h"
#include "RequestFollower.h"
#include "ScanReport.h"
#include "TCommand.h"

using namespace Ostrel;

namespace {

// Open descriptors and live commands: equal before and after, nothing leaked.
std::pair<long, long> held() {
  return {std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}),
          TCommand::getLiveCount()};
}

// ostrel-dvb-emu serving one adapter from stream, with faults (options);
// stopped on destruction. The shell prints its pid, then becomes the emulator.
struct Emulator {
  Emulator(const std::string& stream, const std::string& faults) {
    char root[] = "/tmp/dvb-server-test-XXXXXX";
    m_root = mkdtemp(root);
    const std::string run = "echo $$; exec " OSTREL_DVB_EMU " --root " + m_root + " --adapter ";
    m_out = popen((run + stream + faults).c_str(), "r");
    char line[64] = "";
    ok = fscanf(m_out, "%d ", &m_pid) == 1 && fgets(line, sizeof(line), m_out) &&
         !strncmp(line, "ready", 5);
  }
  ~Emulator() { kill(m_pid, SIGTERM), pclose(m_out), rmdir(m_root.c_str()); }
  bool ok = false;
  std::string m_root;
  FILE* m_out;
  pid_t m_pid = -1;
};

// The channel table of a scan of tuner 0 (server only, so that no cache of an
// earlier scan answers); what is still open after 8 s is taken back. A
// time-out reads as what the simulator says at the end of a file.
std::string scan(GingaServer* server, ReceiverSimulator* sim) {
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  core->setServer(server), server->setDataDestination(core);
  ChannelScan scan(core, 0, 2);
  sim ? scan.startOn(sim) : scan.start();
  scan.waitFor(std::chrono::seconds(8));
  scan.takeBackAll();
  std::string table = ScanReport::channelTable(scan.getResult());
  for (size_t at; (at = table.find("PMT timed out")) != std::string::npos;)
    table.replace(at, 13, "PMT not in the stream");
  return table;
}

TEST(DvbServerTest, ScanThroughAnEmulatedAdapterGivesTheSimulatorsChannelTable) {
#define FFMPEG_STREAM OSTREL_TEST_WORK "/dvb-ffmpeg.ts"
  ASSERT_EQ(0, std::system("ffmpeg -v error -y -f lavfi -i testsrc=size=160x120:rate=10 -f lavfi "
                           "-i sine -t 1.5 -c:v mpeg2video -c:a mp2 -f mpegts -program "
                           "program_num=0x101:title=Um:st=0:st=1 " FFMPEG_STREAM));
#define GST_STREAM OSTREL_TEST_WORK "/dvb-gst.ts"  // GStreamer's muxer: PAT and PMT only
  ASSERT_EQ(0, std::system("cd " OSTREL_TEST_WORK " && ffmpeg -v error -y -f lavfi -i "
                           "testsrc=size=160x120:rate=10 -t 1.5 -c:v mpeg2video -f mpeg2video "
                           "dvb.m2v && gst-launch-1.0 -q mpegtsmux name=m ! filesink location="
                           "dvb-gst.ts filesrc location=dvb.m2v ! mpegvideoparse ! m."));
  for (const std::string stream : {OSTREL_SAMPLE_STREAM, FFMPEG_STREAM, GST_STREAM}) {
    const auto before = held();
    std::string expected, got, error;
    {
      ReceiverSimulator sim;
      sim.setPacing(ReceiverSimulator::kAsFastAsPossible, 0);
      ASSERT_EQ(0, sim.addFileTuner(stream, false, &error)) << error;
      expected = scan(&sim, &sim);
    }
    {
      Emulator emulator(stream, "");
      ASSERT_TRUE(emulator.ok) << "the emulated adapter could not be mounted";
      DvbServer dvb({emulator.m_root + "/adapter0"}, DvbServer::Options());
      got = scan(&dvb, nullptr);
      int* ids = nullptr;
      unsigned char* types = nullptr;
      EXPECT_EQ(1, OstrelGingaCommonCore::getInstance()->getTunerList(&ids, &types, nullptr));
      EXPECT_EQ(std::make_pair(0, 1), std::make_pair(ids[0], int(types[0]))) << "terrestrial";
      free(ids), free(types);
    }
    RequestFollower::destroy();
    EXPECT_EQ(expected, got) << stream;
    EXPECT_NE(std::string::npos, got.find("\n0x")) << "no service: " << got;
    EXPECT_EQ(before, held()) << stream;
  }
}

std::atomic<int> s_notified(0), s_status(-1);

TEST(DvbServerTest, FaultsEndInTheCoresFailuresAndTimeOutsWithNothingLeaked) {
  struct Case {
    const char* fault;
    short pid, tableId, error;  // extension 1: no PMT of that number is on 0x0100
    unsigned char status;       // of the one notification, when error is 0 (sent)
    int closedWithinMs;         // the server's filter and request, after it
    uint64_t DvbServer::Counters::*counter;
  } cases[] = {
      {"", 0x0000, 0x00, 0, 0, 300, &DvbServer::Counters::completed},
      {" --fault refuse-filter=0", 0x0000, 0x00, -5, 0, 0, &DvbServer::Counters::commandsRefused},
      {" --fault read-error=0", 0x0000, 0x00, 0, 1, 300, &DvbServer::Counters::failed},
      {" --fault crc=1", 0x0000, 0x00, 0, 1, 1500, &DvbServer::Counters::timedOut},
      {" --fault remove=0.5", 0x0100, 0x02, 0, 1, 300, &DvbServer::Counters::failed},
  };
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  core->setRequestNotificationCallback([](unsigned int, unsigned char status, void*, TISDBTTable*) {
    s_status = status;
    return ++s_notified;
  });
  for (const Case& c : cases) {
    SCOPED_TRACE(c.fault);
    const auto before = held();
    s_notified = 0, s_status = -1;
    {
      Emulator emulator(OSTREL_SAMPLE_STREAM, c.fault);
      ASSERT_TRUE(emulator.ok) << "the emulated adapter could not be mounted";
      DvbServer dvb({emulator.m_root + "/adapter0"}, DvbServer::Options());
      core->setServer(&dvb), dvb.setDataDestination(core);
      short error = 99;
      EXPECT_EQ(c.error == 0, core->requestData(1, 2, 0, c.pid, c.tableId, 1, NULL, NULL, &error));
      EXPECT_EQ(c.error, error);
      for (int ms = 0; ms < 4000 && !c.error && !s_notified; ms += 10)
        usleep(10000);
      EXPECT_EQ(std::make_pair(c.error ? 0 : 1, c.error ? -1 : int(c.status)),
                std::make_pair(s_notified.load(), s_status.load()));
      for (int ms = 0; ms < c.closedWithinMs && dvb.getOpenFilterCount(); ms += 10)
        usleep(10000);
      EXPECT_EQ(std::make_pair(size_t(0), 0u),
                std::make_pair(dvb.getOpenFilterCount(), dvb.getOpenRequestCount()));
      EXPECT_EQ(1u, dvb.getCounters().*c.counter);
    }
    RequestFollower::destroy();
    EXPECT_EQ(before, held());
  }
}

}  // namespace
