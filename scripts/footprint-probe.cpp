// Measures the heap that the core library keeps per outstanding request and
// per cached table. Built and run by scripts/footprint (under qemu-user for
// the 32-bit targets); prints "key value" lines that the script turns into
// docs/footprint.md.
//
// Three figures per measure, each the growth over N items divided by N:
//   heap    bytes in use by the C library's allocator (mallinfo2), block
//           headers and rounding included: what the process really pays;
//   bytes   usable bytes of the live blocks that came from operator new;
//   blocks  live blocks from operator new (each costs a header on any malloc).
#include <malloc.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <new>
#include <vector>

#include "Cacher.h"
#include "GingaServer.h"
#include "OstrelGingaCommonCore.h"
#include "OstrelLogger.h"
#include "RequestFollower.h"
#include "TDataRequestCommand.h"
#include "TISDBTTable.h"
#include "TPMTTable.h"

namespace {

std::atomic<long> g_liveBytes(0);
std::atomic<long> g_liveBlocks(0);

void* allocate(std::size_t size) {
  void* block = std::malloc(size ? size : 1);
  if (!block) {
    throw std::bad_alloc();
  }
  g_liveBytes += static_cast<long>(malloc_usable_size(block));
  ++g_liveBlocks;
  return block;
}

void release(void* block) {
  if (!block) {
    return;
  }
  g_liveBytes -= static_cast<long>(malloc_usable_size(block));
  --g_liveBlocks;
  std::free(block);
}

}  // namespace

void* operator new(std::size_t size) {
  return allocate(size);
}
void* operator new[](std::size_t size) {
  return allocate(size);
}
void operator delete(void* block) noexcept {
  release(block);
}
void operator delete[](void* block) noexcept {
  release(block);
}
void operator delete(void* block, std::size_t) noexcept {
  release(block);
}
void operator delete[](void* block, std::size_t) noexcept {
  release(block);
}

namespace {

constexpr int kItems = 64;
constexpr unsigned short kFirstPid = 0x100;
constexpr short kPmtTableId = 0x02;

struct Snapshot {
  long heap;
  long bytes;
  long blocks;
};

Snapshot snapshot() {
  struct mallinfo2 info = mallinfo2();
  return Snapshot{static_cast<long>(info.uordblks), g_liveBytes.load(), g_liveBlocks.load()};
}

void report(const char* name, const Snapshot& before, const Snapshot& after, int items) {
  std::printf("%s.heap %.1f\n", name, double(after.heap - before.heap) / items);
  std::printf("%s.bytes %.1f\n", name, double(after.bytes - before.bytes) / items);
  std::printf("%s.blocks %.2f\n", name, double(after.blocks - before.blocks) / items);
}

void quiet(int, const char*, const char*, void*) {}

// MPEG-2 CRC-32 (polynomial 0x04C11DB7, no reflection), as sections carry it.
std::uint32_t crc32(const unsigned char* data, std::size_t size) {
  std::uint32_t crc = 0xFFFFFFFFu;
  for (std::size_t i = 0; i < size; ++i) {
    crc ^= std::uint32_t(data[i]) << 24;
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc & 0x80000000u) ? (crc << 1) ^ 0x04C11DB7u : crc << 1;
    }
  }
  return crc;
}

// A PMT section of one programme with one video stream: 21 bytes.
std::vector<unsigned char> pmtSection(unsigned short programNumber, unsigned short streamPid) {
  std::vector<unsigned char> s = {
      0x02,  // table_id
      0xB0,
      0x00,  // section_syntax_indicator, section_length (below)
      static_cast<unsigned char>(programNumber >> 8),
      static_cast<unsigned char>(programNumber),
      0xC1,  // version 0, current
      0x00,
      0x00,  // section_number, last_section_number
      static_cast<unsigned char>(0xE0 | (streamPid >> 8)),
      static_cast<unsigned char>(streamPid),  // PCR_PID
      0xF0,
      0x00,  // program_info_length 0
      0x02,  // stream_type: MPEG-2 video
      static_cast<unsigned char>(0xE0 | (streamPid >> 8)),
      static_cast<unsigned char>(streamPid),
      0xF0,
      0x00,  // ES_info_length 0
  };
  s[2] = static_cast<unsigned char>(s.size() - 3 + 4);
  std::uint32_t crc = crc32(s.data(), s.size());
  for (int shift = 24; shift >= 0; shift -= 8) {
    s.push_back(static_cast<unsigned char>(crc >> shift));
  }
  return s;
}

// Accepts every command. Open data requests are handed back to the command
// library at once by the probe, so that only what the core keeps is counted.
class ProbeServer : public Ostrel::GingaServer {
 public:
  int execute(Ostrel::TCommand* command, Ostrel::TCommand**) override {
    if (auto* request = dynamic_cast<Ostrel::TDataRequestCommand*>(command)) {
      if (request->getOpen()) {
        m_pLastOpen = request;
      }
    }
    return 1;
  }
  Ostrel::TDataRequestCommand* takeLastOpen() {
    Ostrel::TDataRequestCommand* request = m_pLastOpen;
    m_pLastOpen = nullptr;
    return request;
  }

 private:
  Ostrel::TDataRequestCommand* m_pLastOpen = nullptr;
};

int accept(unsigned int, unsigned char, void*, Ostrel::TISDBTTable*) {
  return 1;
}

// Makes the follower's instance and monitor thread, and lets the monitor
// finish a first pass (with its first allocations) before anything is
// measured: a request due at once is gone once get no longer finds it.
void settleMonitor() {
  const timeval atOnce = {0, 0};
  Ostrel::RequestFollower::add(99, 0, kFirstPid, kPmtTableId, 99, nullptr, nullptr, atOnce, 1);
  for (int i = 0; i < 5000 && Ostrel::RequestFollower::get(99); ++i) {
    usleep(1000);
  }
}

// Outstanding requests recorded in the follower directly: what every request
// that reached the server leaves behind in the library.
void measureFollower() {
  using Ostrel::RequestFollower;
  const timeval longTimeOut = {600, 0};  // nothing expires while measuring
  settleMonitor();
  RequestFollower::add(1, 0, kFirstPid, kPmtTableId, 1, nullptr, nullptr, longTimeOut, 1);
  const Snapshot before = snapshot();
  int added = 0;
  for (int i = 0; i < kItems; ++i) {
    added += RequestFollower::add(100 + i, 0, static_cast<short>(kFirstPid + 1 + i), kPmtTableId, 1,
                                  nullptr, nullptr, longTimeOut, 1);
  }
  const Snapshot after = snapshot();
  std::printf("follower.items %d\n", added);
  if (added == kItems) {
    report("follower", before, after, kItems);
  }
  RequestFollower::destroy();
}

// Outstanding requests made through requestData (server only), once the
// request path keeps them; the open command the server holds is excluded.
void measureRequests() {
  using Ostrel::OstrelGingaCommonCore;
  ProbeServer server;
  OstrelGingaCommonCore* core = OstrelGingaCommonCore::getInstance();
  core->setServer(&server);
  core->setRequestNotificationCallback(accept);
  auto request = [&](unsigned int id, short pid) {
    short error = 0;
    const int ok = core->requestData(id, 2, 1, pid, kPmtTableId, 1, nullptr, nullptr, &error);
    if (Ostrel::TDataRequestCommand* open = server.takeLastOpen()) {
      server.closeOpenRequest(open);
    }
    return ok == 1 && error == 0;
  };
  request(1, kFirstPid);
  settleMonitor();
  const Snapshot before = snapshot();
  int followed = 0;
  for (int i = 0; i < kItems; ++i) {
    followed += request(100 + i, static_cast<short>(kFirstPid + 1 + i)) &&
                Ostrel::RequestFollower::get(100 + i) != nullptr;
  }
  const Snapshot after = snapshot();
  std::printf("request.items %d\n", followed);
  if (followed == kItems) {
    report("request", before, after, kItems);
  }
  Ostrel::RequestFollower::destroy();
}

// Parsed PMT tables stored in one tuner's cache, each under its own PID: the
// table object and the cache's entry for it.
void measureCache() {
  Ostrel::Cacher* cache = Ostrel::Cacher::getInstance(7);
  std::vector<std::vector<unsigned char>> sections;
  for (int i = 0; i <= kItems; ++i) {
    sections.push_back(pmtSection(static_cast<unsigned short>(i + 1),
                                  static_cast<unsigned short>(kFirstPid + 0x100 + i)));
  }
  std::printf("cache.section_bytes %zu\n", sections[0].size());
  auto store = [&](int i) {
    std::vector<unsigned char>& s = sections[i];
    Ostrel::TPMTTable* table = Ostrel::TPMTTable::parse(
        s.data(), static_cast<unsigned int>(s.size()), 1, 1, nullptr, nullptr);
    if (!table) {
      return false;
    }
    cache->add(static_cast<short>(kFirstPid + i), kPmtTableId, static_cast<short>(i + 1), table,
               static_cast<unsigned int>(s.size()));
    Ostrel::TISDBTTable* cached = nullptr;
    unsigned int size = 0;
    return cache->get(static_cast<short>(kFirstPid + i), kPmtTableId, static_cast<short>(i + 1),
                      &cached, &size) != 0 &&
           cached == table;
  };
  store(0);
  const Snapshot before = snapshot();
  int cached = 0;
  for (int i = 1; i <= kItems; ++i) {
    cached += store(i);
  }
  const Snapshot after = snapshot();
  std::printf("cache.items %d\n", cached);
  if (cached == kItems) {
    report("cache", before, after, kItems);
  }
  cache->flush();
}

}  // namespace

int main() {
  ostrel_log_set_sink(quiet, nullptr);
  std::printf("target.pointer_bits %zu\n", sizeof(void*) * 8);
  std::printf("target.time_t_bits %zu\n", sizeof(std::time_t) * 8);
  std::printf("target.char_signed %d\n", static_cast<char>(-1) < 0 ? 1 : 0);
  std::printf("target.items %d\n", kItems);
  measureFollower();
  measureRequests();
  measureCache();
  ostrel_log_set_sink(nullptr, nullptr);
  return 0;
}
