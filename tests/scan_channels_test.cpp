// The channel files of ostrel-scan: the dvbv5 file read back by libdvbv5's
// own parser, every field checked; VDR's channels.conf checked line by line
// against the fields and types VDR reads.
#include <gtest/gtest.h>
#include <libdvbv5/dvb-file.h>
#include <unistd.h>

#include "ChannelFiles.h"

using namespace Ostrel;

namespace {

ChannelScan::Service service(unsigned short id, const std::string& name, unsigned short pcr,
                             std::vector<std::pair<unsigned char, unsigned short>> streams,
                             bool inPat = true, bool partial = false) {
  ChannelScan::Service s;
  s.id = id, s.inPat = inPat, s.name = name, s.provider = "Prov:1";
  s.pcrPid = pcr, s.partialReception = partial;
  for (auto& e : streams) {
    s.streams.push_back(ChannelScan::Stream());
    s.streams.back().type = e.first, s.streams.back().pid = e.second;
  }
  return s;
}

// Two tuners and one without a PAT: a full NIT delivery with partial
// reception, then a transport stream whose NIT gave nothing.
std::vector<ChannelScan::Result> results() {
  ChannelScan::Result a;
  a.hasPat = a.hasSdt = true;
  a.transportStreamId = 0x0640;
  a.originalNetworkId = 0x0641;
  a.frequenciesHz = {575142857, 581142857};
  a.transmissionMode = 3, a.guardInterval = 1;
  a.services = {service(0xE760, "Ostrel HD", 0x111, {{0x1B, 0x111}, {0x0F, 0x112}, {0x06, 0x114}}),
                service(0xE761, "A:b,c;d\n", 0x100, {{0x02, 0x120}, {0x03, 0x121}, {0x81, 0x122}}),
                service(0xE762, "Only in the SDT", 0, {}, false),
                service(0xE778, "Ostrel 1seg", 0x181, {{0x1B, 0x181}, {0x0F, 0x183}}, true, true)};
  ChannelScan::Result b;
  b.hasPat = true;
  b.transportStreamId = 7, b.networkId = 9;
  b.services = {service(3, "", 0, {{0x0D, 0x200}, {0x0D, 0x201}})};
  ChannelScan::Result none;
  none.services = {service(5, "No PAT", 0, {})};
  return {a, b, none};
}

// What each listed service must read back as, in file order.
struct Expected {
  const char* name;
  unsigned sid, nid, tid;
  std::vector<uint16_t> video, audio;
  std::vector<std::pair<int, int>> others;  // (stream type, PID)
  long frequency;                           // -1: none
  uint32_t mode, guard, partial;
};

// clang-format off
const Expected kExpected[] = {
    {"Ostrel HD", 0xE760, 0x0641, 0x0640, {0x111}, {0x112}, {{6, 0x114}}, 575142857,
     TRANSMISSION_MODE_8K, GUARD_INTERVAL_1_16, 1},
    {"A:b,c;d ", 0xE761, 0x0641, 0x0640, {0x120}, {0x121, 0x122}, {}, 575142857,
     TRANSMISSION_MODE_8K, GUARD_INTERVAL_1_16, 1},
    {"Ostrel 1seg", 0xE778, 0x0641, 0x0640, {0x181}, {0x183}, {}, 575142857,
     TRANSMISSION_MODE_8K, GUARD_INTERVAL_1_16, 1},
    {"Service 3", 3, 9, 7, {}, {}, {{0x0D, 0x200}, {0x0D, 0x201}}, -1,
     TRANSMISSION_MODE_AUTO, GUARD_INTERVAL_AUTO, 0},
};
// clang-format on

std::string tempPath(const char* suffix) {
  return std::string("/tmp/scan_channels_test.") + std::to_string(getpid()) + suffix;
}

// A property's value; UINT32_MAX when absent (libdvbv5 fills in its own
// properties of the delivery system with that).
uint32_t prop(dvb_entry* e, uint32_t cmd) {
  uint32_t value = UINT32_MAX;
  return dvb_retrieve_entry_prop(e, cmd, &value) == 0 ? value : UINT32_MAX;
}

TEST(ChannelFilesTest, Dvbv5FileReadsBackThroughLibdvbv5) {
  const std::string path = tempPath(".conf");
  std::string error;
  ASSERT_TRUE(ChannelFiles::write(path, ChannelFiles::kDvbv5, results(), &error)) << error;
  dvb_file* file = dvb_read_file_format(path.c_str(), SYS_ISDBT, FILE_DVBV5);
  ASSERT_NE(file, nullptr);
  dvb_entry* e = file->first_entry;
  for (const Expected& x : kExpected) {
    ASSERT_NE(e, nullptr) << x.name;
    SCOPED_TRACE(x.name);
    EXPECT_STREQ(e->channel, x.name);
    EXPECT_EQ(e->service_id, x.sid);
    EXPECT_EQ(e->network_id, x.nid);
    EXPECT_EQ(e->transport_id, x.tid);
    EXPECT_EQ(std::vector<uint16_t>(e->video_pid, e->video_pid + e->video_pid_len), x.video);
    EXPECT_EQ(std::vector<uint16_t>(e->audio_pid, e->audio_pid + e->audio_pid_len), x.audio);
    std::vector<std::pair<int, int>> others;
    for (unsigned i = 0; i < e->other_el_pid_len; ++i)
      others.emplace_back(e->other_el_pid[i].type, e->other_el_pid[i].pid);
    EXPECT_EQ(others, x.others);
    EXPECT_EQ(prop(e, DTV_DELIVERY_SYSTEM), uint32_t(SYS_ISDBT));
    EXPECT_EQ(prop(e, DTV_FREQUENCY), x.frequency < 0 ? UINT32_MAX : uint32_t(x.frequency));
    EXPECT_EQ(prop(e, DTV_BANDWIDTH_HZ), 6000000u);
    EXPECT_EQ(prop(e, DTV_INVERSION), uint32_t(INVERSION_AUTO));
    EXPECT_EQ(prop(e, DTV_TRANSMISSION_MODE), x.mode);
    EXPECT_EQ(prop(e, DTV_GUARD_INTERVAL), x.guard);
    EXPECT_EQ(prop(e, DTV_ISDBT_LAYER_ENABLED), 7u);
    EXPECT_EQ(prop(e, DTV_ISDBT_PARTIAL_RECEPTION), x.partial);
    EXPECT_EQ(prop(e, DTV_ISDBT_SOUND_BROADCASTING), 0u);
    EXPECT_EQ(prop(e, DTV_ISDBT_LAYERA_SEGMENT_COUNT), x.partial ? 1u : UINT32_MAX);
    for (uint32_t cmd : {DTV_ISDBT_LAYERA_FEC, DTV_ISDBT_LAYERB_FEC, DTV_ISDBT_LAYERC_FEC})
      EXPECT_EQ(prop(e, cmd), uint32_t(FEC_AUTO));
    for (uint32_t cmd :
         {DTV_ISDBT_LAYERA_MODULATION, DTV_ISDBT_LAYERB_MODULATION, DTV_ISDBT_LAYERC_MODULATION})
      EXPECT_EQ(prop(e, cmd), uint32_t(QAM_AUTO));
    e = e->next;
  }
  EXPECT_EQ(e, nullptr) << "a service without a PAT or outside it was written";
  dvb_file_free(file);
  unlink(path.c_str());
}

// name;provider:freq:params:source:srate:vpid:apid:tpid:caid:sid:nid:tid:rid, each
// field as VDR reads it (numbers, parameters as letters and numbers).
TEST(ChannelFilesTest, VdrLinesHaveVdrsFieldsAndTypes) {
  EXPECT_EQ(
      "Ostrel HD;Prov|1:575142857:B6G16I999T8:T:0:273=27:274@15:0:0:59232:1601:1600:0\n"
      "A|b.c.d ;Prov|1:575142857:B6G16I999T8:T:0:288+256=2:289;290:0:0:59233:1601:1600:0\n"
      "Ostrel 1seg;Prov|1:575142857:B6G16I999T8:T:0:385=27:387@15:0:0:59256:1601:1600:0\n"
      "Service 3;Prov|1:0:B6I999:T:0:0:0:0:0:3:9:7:0\n",
      ChannelFiles::vdr(results()));
}

// A failed write is named by ostrel-scan (scan_cli_test: -o /nonexistent/...).
TEST(ChannelFilesTest, FormatByName) {
  EXPECT_EQ(ChannelFiles::formatOf("/etc/vdr/channels.conf"), ChannelFiles::kVdr);
  EXPECT_EQ(ChannelFiles::formatOf("list.vdr"), ChannelFiles::kVdr);
  EXPECT_EQ(ChannelFiles::formatOf("dvb_channel.conf"), ChannelFiles::kDvbv5);
  EXPECT_EQ(ChannelFiles::formatOf("x.vdr/channels"), ChannelFiles::kDvbv5);
}

}  // namespace
