// Crafted sections and packets for the simulator's tests.
#ifndef OSTREL_TESTS_SIM_TEST_STREAM_H
#define OSTREL_TESTS_SIM_TEST_STREAM_H

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

#include "GingaDataDestination.h"
#include "GingaServer.h"
#include "SectionSink.h"
#include "TCommand.h"
#include "TDataRequestCommand.h"
#include "TSectionWriter.h"

namespace SimTest {

using Bytes = std::vector<unsigned char>;

// Sections from the table library's writer: long form with CRC_32 (table
// id, extension, body, version, section number, last), short form without.
inline Bytes longSection(unsigned char tableId, unsigned short ext, const Bytes& body,
                         unsigned char version = 0, unsigned char number = 0,
                         unsigned char last = 0) {
  return Ostrel::TSectionWriter::longSection(tableId, false, ext, version, true, number, last, body,
                                             4096);
}

inline Bytes shortSection(unsigned char tableId, const Bytes& body) {
  return Ostrel::TSectionWriter::shortSection(tableId, false, true, body, false, 4096);
}

inline Bytes filler(size_t n, unsigned char seed = 1) {
  Bytes b(n);
  for (size_t i = 0; i < n; ++i)
    b[i] = static_cast<unsigned char>(seed + i * 7);
  return b;
}

// One packet: header, payload (padded with 0xFF stuffing).
inline Bytes packet(unsigned short pid, bool pusi, unsigned char cc, const Bytes& payload) {
  Bytes p(188, 0xFF);
  p[0] = 0x47;
  p[1] = static_cast<unsigned char>((pusi ? 0x40 : 0) | ((pid >> 8) & 0x1F));
  p[2] = static_cast<unsigned char>(pid & 0xFF);
  p[3] = static_cast<unsigned char>(0x10 | (cc & 0x0F));
  std::copy_n(payload.begin(), std::min<size_t>(payload.size(), 184), p.begin() + 4);
  return p;
}

// Packs sections back to back into packets of one PID, the usual way: a
// packet where a section starts carries the pointer field; the last packet
// ends in stuffing. cc advances from *cc.
inline std::vector<Bytes> packetize(unsigned short pid, const std::vector<Bytes>& sections,
                                    unsigned char* cc) {
  Bytes all;
  std::vector<size_t> starts;
  for (const Bytes& s : sections)
    starts.push_back(all.size()), all.insert(all.end(), s.begin(), s.end());
  std::vector<Bytes> packets;
  size_t pos = 0, nextStart = 0;
  while (pos < all.size()) {
    while (nextStart < starts.size() && starts[nextStart] < pos)
      ++nextStart;
    bool pusi = nextStart < starts.size() && starts[nextStart] < pos + 183;
    Bytes payload;
    if (pusi)
      payload.push_back(static_cast<unsigned char>(starts[nextStart] - pos));
    // Where the next section would start at the last byte, it starts a packet of its own.
    const bool last = !pusi && nextStart < starts.size() && starts[nextStart] == pos + 183;
    const size_t take = std::min(184 - payload.size() - last, all.size() - pos);
    payload.insert(payload.end(), all.begin() + pos, all.begin() + pos + take);
    pos += take;
    packets.push_back(packet(pid, pusi, *cc, payload));
    *cc = (*cc + 1) & 0x0F;
  }
  return packets;
}

inline Bytes join(const std::vector<Bytes>& parts) {
  Bytes all;
  for (const Bytes& p : parts)
    all.insert(all.end(), p.begin(), p.end());
  return all;
}

// A table as the middleware asks for it.
struct Key {
  short pid, tableId, ext;
  bool operator<(const Key& o) const {
    return std::make_tuple(pid, tableId, ext) < std::make_tuple(o.pid, o.tableId, o.ext);
  }
};

// Sends an open data request; from then on the server owns it.
inline int openRequest(Ostrel::GingaServer* server, short pid, short tableId, short ext,
                       unsigned int timeOut, int tunerId = 0) {
  auto* request = static_cast<Ostrel::TDataRequestCommand*>(
      Ostrel::TCommand::commandFactory(Ostrel::TDataRequestCommand::kCode));
  request->setEndPoint(server), request->setOpen(1), request->setTunerId(tunerId);
  request->setPid(pid), request->setTableId(tableId), request->setTableIdExt(ext);
  request->setTimeOut(timeOut);
  return request->send(NULL);
}

// Records the sections a demultiplexer hands on.
struct SectionRecorder : Ostrel::SectionSink {
  struct Entry {
    int tunerId;
    unsigned short pid;
    Bytes data;
  };
  std::vector<Entry> entries;
  void onSection(int tunerId, unsigned short pid, const unsigned char* data,
                 unsigned int size) override {
    entries.push_back({tunerId, pid, Bytes(data, data + size)});
  }
};

// Records injections; thread-safe, with a wait for a count.
class RecordingDestination : public Ostrel::GingaDataDestination {
 public:
  struct Injection {
    int tunerId;
    short pid, tableId, tableIdExt;
    Bytes data;
  };
  int injectData(int tunerId, short pid, short tableId, short tableIdExt, void*,
                 unsigned char* data, unsigned int size) override {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_injections.push_back({tunerId, pid, tableId, tableIdExt, Bytes(data, data + size)});
    m_cond.notify_all();
    return 1;
  }
  bool waitFor(size_t count, int ms) {
    std::unique_lock<std::mutex> lock(m_mutex);
    return m_cond.wait_for(lock, std::chrono::milliseconds(ms),
                           [&] { return m_injections.size() >= count; });
  }
  std::vector<Injection> injections() const {
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_injections;
  }

 private:
  mutable std::mutex m_mutex;
  std::condition_variable m_cond;
  std::vector<Injection> m_injections;
};

}  // namespace SimTest

#endif
