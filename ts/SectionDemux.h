#ifndef OSTREL_SIM_SECTION_DEMUX_H
#define OSTREL_SIM_SECTION_DEMUX_H

#include <atomic>
#include <cstdint>
#include <memory>
#include <vector>

#include "TsPacketSink.h"

namespace Ostrel {

class SectionSink;

// Reassembles sections from the packets of the PIDs that are enabled, one
// reassembly per PID: the pointer field, several sections in one packet, a
// section over many packets, stuffing after the last section. A section is
// handed on whole or not at all: a continuity error, a transport error or a
// malformed packet drops the section in progress; a section whose syntax
// carries a CRC_32 (long form, and the time-offset table) is handed on only
// when the CRC checks. Packets are fed by one thread; enablePid may be called
// from any thread.
class SectionDemux : public TsPacketSink {
 public:
  // The largest section: 3 header bytes and a section_length of 4093.
  static const unsigned int kMaxSectionSize = 4096;

  struct Statistics {
    uint64_t packets = 0;     // packets seen, any PID
    uint64_t sections = 0;    // sections handed on
    uint64_t ccErrors = 0;    // continuity errors on enabled PIDs
    uint64_t duplicates = 0;  // repeated packets ignored
    uint64_t transportErrors = 0;
    uint64_t crcErrors = 0;
    uint64_t dropped = 0;    // sections in progress dropped unfinished
    uint64_t malformed = 0;  // impossible lengths or pointer fields
  };

  // sink receives every section with tunerId; not owned.
  SectionDemux(int tunerId, SectionSink* sink);
  virtual ~SectionDemux();

  // Starts (or stops) reassembly on a PID. Thread-safe.
  void enablePid(unsigned short pid);
  void disablePid(unsigned short pid);
  bool isPidEnabled(unsigned short pid) const;

  // Then tells the sink the batch is done (SectionSink::onPacketsDone).
  void onPackets(const unsigned char* first, unsigned int count, unsigned int stride);
  void pushPacket(const unsigned char* packet);

  // Forgets every section in progress and every continuity counter, as after a
  // jump in the input.
  void reset();

  const Statistics& getStatistics() const { return m_stats; }
  // Sections of one PID dropped for a bad CRC_32 (fed thread).
  uint64_t getCrcErrors(unsigned short pid) const;

 private:
  struct PidState;

  PidState* getState(unsigned short pid);
  void startSections(PidState* state, const unsigned char* p, unsigned int n);
  void continueSection(PidState* state, const unsigned char* p, unsigned int n);
  void emit(PidState* state, const unsigned char* data, unsigned int size);
  void drop(PidState* state);

  int m_iTunerId;
  SectionSink* m_pSink;
  std::unique_ptr<std::atomic<unsigned char>[]> m_aEnabled;
  std::vector<std::unique_ptr<PidState>> m_vecStates;
  Statistics m_stats;
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_SECTION_DEMUX_H
