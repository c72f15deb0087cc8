// One table of cases run over every source of the server engine: the same
// stream, the same requests, the same answers from each.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <thread>

#include "ReceiverSimulator.h"
#ifdef OSTREL_DVB_EMU
#include "DvbServer.h"
#include "EmulatedAdapter.h"
#endif
#include "SectionMatch.h"
#include "TsPacketWriter.h"
#include "sim_test_stream.h"

using namespace Ostrel;
using namespace SimTest;

namespace {

// Asks for each key's table section by section, as a middleware does: the
// next request goes out from the delivery thread as each section comes, until
// the table is whole. Records what came, and any fault in it.
class TableGatherer : public GingaDataDestination {
 public:
  void bind(GingaServer* server) { m_pServer = server, server->setDataDestination(this); }
  void ask(const Key& key) { openRequest(m_pServer, key.pid, key.tableId, key.ext, 1); }
  int injectData(int, short pid, short tableId, short ext, void*, unsigned char* data,
                 unsigned int size) override {
    std::lock_guard<std::mutex> lock(m_mutex);
    Table& table = m_mapTables[Key{pid, tableId, ext}];
    const Bytes section(data, data + size);
    if (!SectionMatch::isIntact(data, size) || !SectionMatch::matches(tableId, ext, data, size)) {
      table.faults.push_back("a damaged or foreign section");
    } else if (table.version != ((data[5] >> 1) & 0x1F)) {
      table.version = (data[5] >> 1) & 0x1F, table.sections.clear();
    } else if (table.sections.count(data[6]) && table.sections[data[6]] == section) {
      table.faults.push_back("a repetition");
    }
    // A body that begins 0xBA stands for a section the table library refuses.
    if (size <= 8 || data[8] != 0xBA)
      table.sections[data[6]] = section, table.last = data[7];
    if (!table.whole())
      ask(Key{pid, tableId, ext});
    return 1;
  }
  // "whole", or "K of N sections", or what went wrong.
  std::string outcome(const Key& key) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const Table& table = m_mapTables[key];
    if (!table.faults.empty())
      return table.faults.front();
    return table.whole() ? "whole"
                         : std::to_string(table.sections.size()) + " of " +
                               std::to_string(table.last + 1) + " sections";
  }
  // Until every table is whole, or no request is left open.
  void waitWhole(const std::vector<Key>& keys, GingaServer* server) {
    for (int ms = 0; ms < 3000 && server->getOpenRequestCount() > 0; ms += 5) {
      {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (std::all_of(keys.begin(), keys.end(),
                        [&](const Key& k) { return m_mapTables[k].whole(); }))
          return;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }

 private:
  struct Table {
    int version = -1, last = 0;
    std::map<int, Bytes> sections;
    std::vector<std::string> faults;
    bool whole() const { return !sections.empty() && sections.size() == size_t(last) + 1; }
  };
  GingaServer* m_pServer = nullptr;
  std::mutex m_mutex;
  std::map<Key, Table> m_mapTables;
};

// The stream file played once: by the simulator from start(), or by the
// emulated adapter as fast as the readers take it, from when the filters of
// every PID asked for have started.
struct Source {
  Source(const std::string& name, const std::string& path, unsigned int pids) {
    server = &sim;
#ifndef OSTREL_DVB_EMU
    (void)name, (void)pids;  // the simulator is the only source here
#else
    if (name != "simulator") {
      emulator.reset(new Emulator(path, " --fast --once --start-with " + std::to_string(pids)));
      EXPECT_TRUE(emulator->ok) << "the emulated adapter could not be mounted";
      dvb.reset(new DvbServer({emulator->adapter()}, DvbServer::Options()));
      server = dvb.get();
      return;
    }
#endif
    std::string error;
    EXPECT_EQ(0, sim.addFileTuner(path, false, &error)) << error;
  }
  void start() {
    if (server == &sim)
      sim.start();
  }
  ReceiverSimulator sim;
#ifdef OSTREL_DVB_EMU
  std::unique_ptr<Emulator> emulator;
  std::unique_ptr<DvbServer> dvb;  // goes before its adapter
#endif
  ServerEngine* server;
};

const char* const kSources[] = {"simulator",
#ifdef OSTREL_DVB_EMU
                                "DVB adapter"
#endif
};

// The sections of one table: ext, version, count, each with a body of its own.
std::vector<Bytes> table(unsigned char tableId, unsigned short ext, unsigned char count,
                         unsigned char version = 0, size_t bodySize = 24) {
  std::vector<Bytes> sections;
  for (unsigned char n = 0; n < count; ++n)
    sections.push_back(longSection(tableId, ext, filler(bodySize, n), version, n, count - 1));
  return sections;
}

// A stream: runs of sections on PIDs, in order, each section from the start
// of a packet, then null packets.
struct Burst {
  unsigned short pid;
  std::vector<Bytes> sections;
};
std::string writeStream(const std::string& name, const std::vector<Burst>& runs) {
  Bytes stream;
  TsPacketWriter writer(&stream);
  for (const Burst& run : runs)
    for (const Bytes& section : run.sections)
      writer.writeSection(run.pid, section);
  for (int i = 0; i < 20; ++i)
    writer.writeNull();
  const std::string path = OSTREL_TEST_WORK "/" + name + ".ts";
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(stream.data()), std::streamsize(stream.size()));
  return path;
}

std::vector<Burst> interleave(const std::vector<Burst>& runs) {
  std::vector<Burst> out;
  for (size_t i = 0, more = 1; more; ++i) {
    more = 0;
    for (const Burst& run : runs)
      if (i < run.sections.size())
        out.push_back({run.pid, {run.sections[i]}}), more = 1;
  }
  return out;
}

Bytes damaged(Bytes section) {
  section.back() ^= 0xFF;
  return section;
}

const Key kPat{0x0000, 0x00, 0}, kNit{0x0010, 0x40, 0}, kSdt{0x0011, 0x42, 0};

}  // namespace

TEST(ServerSources, EachSourceGathersEveryTableWholeFromOnePass) {
  const auto pat4 = table(0x00, 0x0640, 4), sdt5 = table(0x42, 0x0640, 5);
  const auto nit33 = table(0x40, 0x0640, 33, 0, 8), sdt64 = table(0x42, 0x0641, 64, 0, 8);
  struct Case {
    const char* name;
    std::vector<Burst> runs;
    std::vector<std::pair<Key, std::string>> expected;
  } const cases[] = {
      {"back to back", {{0, pat4}, {0x11, sdt5}}, {{kPat, "whole"}, {kSdt, "whole"}}},
      {"interleaved",
       interleave({{0, table(0x00, 1, 8)}, {0x11, sdt5}, {0x10, nit33}}),
       {{kPat, "whole"}, {kSdt, "whole"}, {kNit, "whole"}}},
      {"64 sections, and 33", {{0x11, sdt64}, {0x10, nit33}}, {{kSdt, "whole"}, {kNit, "whole"}}},
      {"a new version half way: the new one alone",
       {{0, {pat4[0], pat4[1]}}, {0, table(0x00, 0x0640, 3, 1)}},
       {{kPat, "whole"}}},
      {"a damaged copy, then the good one",
       {{0, {pat4[0], damaged(pat4[1]), pat4[2], pat4[3], pat4[1]}}},
       {{kPat, "whole"}}},
      {"a copy the parser refuses, then a good one of the same version and number",
       {{0,
         {pat4[0], longSection(0x00, 0x0640, {0xBA, 0, 0, 0}, 0, 1, 3), pat4[1], pat4[2],
          pat4[3]}}},
       {{kPat, "whole"}}},
      {"BAT and SDT other beside the SDT actual",
       interleave({{0x11, table(0x4A, 7, 3)}, {0x11, table(0x46, 9, 3)}, {0x11, sdt5}}),
       {{kSdt, "whole"}}},
      {"a section that never comes",
       {{0, {pat4[0], pat4[1], pat4[3]}}},
       {{kPat, "3 of 4 sections"}}},
  };
  for (const std::string source : kSources) {
    for (const Case& c : cases) {
      SCOPED_TRACE(source + ": " + c.name);
      const std::string path = writeStream("sources", c.runs);
      TableGatherer gatherer;
      std::vector<Key> keys;
      std::set<short> pids;
      for (const auto& e : c.expected)
        keys.push_back(e.first), pids.insert(e.first.pid);
      Source played(source, path, static_cast<unsigned int>(pids.size()));
      gatherer.bind(played.server);
      for (const Key& key : keys)
        gatherer.ask(key);
      played.start();
      gatherer.waitWhole(keys, played.server);
      for (const auto& e : c.expected)
        EXPECT_EQ(e.second, gatherer.outcome(e.first)) << "PID " << e.first.pid;
    }
  }
}
