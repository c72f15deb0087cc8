#include "StreamHealth.h"

namespace Ostrel {

namespace {

const int64_t kTicksPerSecond = 27000000;
const uint64_t kPcrWrap = (1ull << 33) * 300;
// A PCR further than this from the last one is a jump, not the clock.
const uint64_t kPcrJumpTicks = 5 * kTicksPerSecond;
const uint64_t kDefaultBitRate = 4000000;
// Where PSI and SI are carried: PAT, CAT, NIT, SDT and BAT, EIT, TDT and TOT.
const unsigned short kSectionPids[] = {0x0000, 0x0001, 0x0010, 0x0011, 0x0012, 0x0014};

double ticksToMs(int64_t ticks) {
  return ticks < 0 ? -1.0 : static_cast<double>(ticks) * 1000.0 / kTicksPerSecond;
}

}  // namespace

StreamHealthMeter::StreamHealthMeter()
    : m_demux(0, this),
      m_ullBitRate(0),
      m_vecPids(TsPacket::kPidCount),
      m_uiStride(TsPacket::kSize),
      m_ullPacket(0),
      m_llAnchorTicks(0),
      m_ullAnchorPacket(1),
      m_iPcrPid(-1),
      m_bHavePcr(false),
      m_ullLastPcr(0),
      m_ullLastPcrPacket(0),
      m_dTicksPerPacket(0),
      m_bByPcr(false) {
  for (unsigned short pid : kSectionPids) {
    m_demux.enablePid(pid);
  }
}

void StreamHealthMeter::setBitRate(uint64_t bitRate) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_ullBitRate = bitRate;
}

void StreamHealthMeter::restart() {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_demux.reset();
  for (PidCount& count : m_vecPids) {
    count.lastCc = -1;
    count.repeats = 0;
  }
  m_bHavePcr = false;  // the next PCR is taken where the clock stands
}

void StreamHealthMeter::onPackets(const unsigned char* first, unsigned int count,
                                  unsigned int stride) {
  std::lock_guard<std::mutex> lock(m_mutex);
  m_uiStride = stride;
  for (unsigned int i = 0; i < count; ++i) {
    __packet(first + static_cast<size_t>(i) * stride);
  }
}

// REQUIRES: m_mutex held.
void StreamHealthMeter::__packet(const unsigned char* p) {
  const unsigned short pid = TsPacket::getPid(p);
  __clock(p, pid);
  PidCount& count = m_vecPids[pid];
  ++count.packets;
  // The counter advances with payload only; packets without payload are not
  // checked (writers differ on their counter), a discontinuity flag resets it.
  if (pid != TsPacket::kNullPid && !TsPacket::hasTransportError(p) && TsPacket::hasPayload(p)) {
    const signed char cc = static_cast<signed char>(TsPacket::getContinuityCounter(p));
    const signed char last = count.lastCc;
    if (last >= 0 && !TsPacket::hasDiscontinuityIndicator(p)) {
      if (cc == last) {
        // One repetition is allowed; more are errors.
        if (++count.repeats > 1) {
          ++count.ccErrors;
        }
      } else if (cc != ((last + 1) & 0x0F)) {
        ++count.ccErrors;
      }
    }
    if (cc != last) {
      count.repeats = 0;
    }
    count.lastCc = cc;
  }
  if (m_demux.isPidEnabled(pid)) {
    m_demux.pushPacket(p);
  }
}

// REQUIRES: m_mutex held. The stream time of the packet being looked at.
int64_t StreamHealthMeter::__now() const {
  double perPacket = m_dTicksPerPacket;
  if (perPacket <= 0) {
    const uint64_t rate = m_ullBitRate ? m_ullBitRate : kDefaultBitRate;
    perPacket = static_cast<double>(m_uiStride) * 8.0 * kTicksPerSecond / rate;
  }
  return m_llAnchorTicks +
         static_cast<int64_t>(static_cast<double>(m_ullPacket - m_ullAnchorPacket) * perPacket);
}

// REQUIRES: m_mutex held. Counts the packet; a PCR of the clock's PID sets
// the clock (and the rate between it and the one before).
void StreamHealthMeter::__clock(const unsigned char* p, unsigned short pid) {
  ++m_ullPacket;
  uint64_t pcr = 0;
  if (!TsPacket::hasAdaptationField(p) || (m_iPcrPid >= 0 && pid != m_iPcrPid) ||
      !TsPacket::getPcr(p, &pcr)) {
    return;
  }
  m_iPcrPid = pid;
  int64_t now = __now();
  if (m_bHavePcr) {
    const uint64_t delta = (pcr + kPcrWrap - m_ullLastPcr) % kPcrWrap;
    if (delta > 0 && delta < kPcrJumpTicks && m_ullPacket > m_ullLastPcrPacket) {
      m_dTicksPerPacket =
          static_cast<double>(delta) / static_cast<double>(m_ullPacket - m_ullLastPcrPacket);
      now = m_llAnchorTicks + static_cast<int64_t>(delta);
      m_bByPcr = true;
    }
  }
  m_bHavePcr = true;
  m_ullLastPcr = pcr;
  m_ullLastPcrPacket = m_ullPacket;
  m_llAnchorTicks = now;
  m_ullAnchorPacket = m_ullPacket;
}

// On the packet that completes the section (m_mutex held by onPackets).
void StreamHealthMeter::onSection(int, unsigned short pid, const unsigned char* data,
                                  unsigned int size) {
  const unsigned char tableId = data[0];
  const bool longForm = (data[1] & 0x80) != 0 && size >= 8;
  const unsigned short ext = longForm ? static_cast<unsigned short>((data[3] << 8) | data[4]) : 0;
  const unsigned char number = longForm ? data[6] : 0;
  const int64_t now = __now();
  TableState& table = m_mapTables[TableKey(pid, std::make_pair(tableId, ext))];
  ++table.sections;
  if (table.lastTicks >= 0) {
    const int64_t gap = now - table.lastTicks;
    table.minTicks = table.minTicks < 0 || gap < table.minTicks ? gap : table.minTicks;
  }
  table.lastTicks = now;
  std::map<unsigned char, int64_t>::iterator copy = table.lastBySection.find(number);
  if (copy != table.lastBySection.end()) {
    const int64_t gap = now - copy->second;
    table.maxTicks = gap > table.maxTicks ? gap : table.maxTicks;
    copy->second = now;
  } else {
    table.lastBySection[number] = now;
  }
  // A PAT names the PMT PIDs to read.
  if (pid == 0x0000 && tableId == 0x00 && longForm) {
    for (unsigned int at = 8; at + 4 <= size - 4; at += 4) {
      const unsigned short program = static_cast<unsigned short>((data[at] << 8) | data[at + 1]);
      const unsigned short pmtPid =
          static_cast<unsigned short>(((data[at + 2] & 0x1F) << 8) | data[at + 3]);
      if (program != 0 && pmtPid != TsPacket::kNullPid) {
        m_demux.enablePid(pmtPid);
      }
    }
  }
}

StreamHealth StreamHealthMeter::snapshot() const {
  std::lock_guard<std::mutex> lock(m_mutex);
  StreamHealth out;
  out.measured = true;
  out.streamSeconds = m_ullPacket ? static_cast<double>(__now()) / kTicksPerSecond : 0;
  out.byPcr = m_bByPcr;
  out.bitRate = m_ullBitRate ? m_ullBitRate : kDefaultBitRate;
  for (unsigned int pid = 0; pid < TsPacket::kPidCount; ++pid) {
    if (m_vecPids[pid].packets == 0) {
      continue;
    }
    StreamHealth::Pid row;
    row.pid = static_cast<unsigned short>(pid);
    row.packets = m_vecPids[pid].packets;
    row.ccErrors = pid == TsPacket::kNullPid ? -1 : static_cast<long long>(m_vecPids[pid].ccErrors);
    if (m_demux.isPidEnabled(row.pid)) {
      row.crcErrors = static_cast<long long>(m_demux.getCrcErrors(row.pid));
    }
    out.pids.push_back(row);
  }
  for (std::map<TableKey, TableState>::const_iterator it = m_mapTables.begin();
       it != m_mapTables.end(); ++it) {
    StreamHealth::Table row;
    row.pid = it->first.first;
    row.tableId = it->first.second.first;
    row.tableIdExt = it->first.second.second;
    row.sections = it->second.sections;
    row.minMs = ticksToMs(it->second.minTicks);
    row.maxMs = ticksToMs(it->second.maxTicks);
    out.tables.push_back(row);
  }
  return out;
}

}  // namespace Ostrel
