#ifndef OSTREL_SIM_STREAM_HEALTH_H
#define OSTREL_SIM_STREAM_HEALTH_H

#include <cstdint>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

#include "SectionDemux.h"
#include "SectionSink.h"
#include "TsPacket.h"

namespace Ostrel {

// A stream's health as analysers give it: per PID, its packets, CRC errors and
// continuity errors; per table (PID, table id, extension), how often its
// sections came, in stream time. -1 stands for "not visible here" (a PID not
// read as sections has no CRC; kernel section filters show no continuity
// counter; an interval needs two sections), never for 0.
struct StreamHealth {
  struct Pid {
    unsigned short pid = 0;
    uint64_t packets = 0;
    long long crcErrors = -1;
    long long ccErrors = -1;
  };
  struct Table {
    unsigned short pid = 0;
    unsigned char tableId = 0;
    unsigned short tableIdExt = 0;  // 0 for a short-form section
    uint64_t sections = 0;
    // Between the ends of two consecutive sections of the table, any number.
    double minMs = -1;
    // The longest wait for the next copy of one section (same number).
    double maxMs = -1;
  };

  bool measured = false;     // seen packet by packet; false: intervals and continuity unknown
  double streamSeconds = 0;  // stream time measured over
  bool byPcr = false;        // stream time from PCRs; else from packets at bitRate
  uint64_t bitRate = 0;      // bits per second assumed where no PCR gave the rate
  std::vector<Pid> pids;     // by PID
  std::vector<Table> tables;
};

// Measures StreamHealth on the packets a tuner plays, on its reader thread.
// Continuity is checked on the packets with payload of every PID but the
// null PID (a packet repeated once is no error, as the transport stream
// allows); sections are read on the PSI
// and SI PIDs and on the PMT PIDs the PAT names. Stream time runs by the PCRs
// of the first PID that carries them; between two PCRs, and without any, it
// advances per packet at the rate the last two PCRs gave, else at the bit rate
// set (4 Mbit/s when none), so that playing fast or in real time gives the
// same figures. snapshot() may be called from any thread.
class StreamHealthMeter : private SectionSink {
 public:
  StreamHealthMeter();

  // Bits per second assumed until two PCRs give the rate (0: 4 Mbit/s).
  void setBitRate(uint64_t bitRate);
  void onPackets(const unsigned char* first, unsigned int count, unsigned int stride);
  // The input starts again (it looped): continuity and sections in progress
  // are forgotten, the clock runs on from where it stood.
  void restart();

  StreamHealth snapshot() const;

 private:
  struct TableState {
    uint64_t sections = 0;
    int64_t lastTicks = -1;
    int64_t minTicks = -1;
    int64_t maxTicks = -1;
    std::map<unsigned char, int64_t> lastBySection;
  };
  typedef std::pair<unsigned short, std::pair<unsigned char, unsigned short>> TableKey;

  StreamHealthMeter(const StreamHealthMeter&);
  StreamHealthMeter& operator=(const StreamHealthMeter&);

  // REQUIRES: m_mutex held.
  void __packet(const unsigned char* p);
  void __clock(const unsigned char* p, unsigned short pid);
  int64_t __now() const;
  virtual void onSection(int tunerId, unsigned short pid, const unsigned char* data,
                         unsigned int size);

  mutable std::mutex m_mutex;  // guards everything below
  SectionDemux m_demux;
  uint64_t m_ullBitRate;
  // Per PID, side by side: one packet touches one entry.
  struct PidCount {
    uint64_t packets = 0;
    uint64_t ccErrors = 0;
    signed char lastCc = -1;  // none yet
    unsigned char repeats = 0;
  };
  std::vector<PidCount> m_vecPids;
  // Stream time in 27 MHz ticks: the packet being looked at (counted from 1)
  // is m_ullPacket - m_ullAnchorPacket packets past m_llAnchorTicks.
  unsigned int m_uiStride;
  uint64_t m_ullPacket;
  int64_t m_llAnchorTicks;
  uint64_t m_ullAnchorPacket;
  int m_iPcrPid;  // the PID whose PCRs run the clock, or -1
  bool m_bHavePcr;
  uint64_t m_ullLastPcr;
  uint64_t m_ullLastPcrPacket;
  double m_dTicksPerPacket;  // 0: from the bit rate
  bool m_bByPcr;
  std::map<TableKey, TableState> m_mapTables;
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_STREAM_HEALTH_H
