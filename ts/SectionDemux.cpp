#include "SectionDemux.h"

#include <cstring>

#include "SectionSink.h"
#include "TCrc32.h"
#include "TsPacket.h"

namespace Ostrel {

namespace {
const unsigned char kStuffing = 0xFF;
const unsigned char kTimeOffsetTableId = 0x73;
const unsigned int kMaxSectionLength = 4093;
// Long-form header (8 bytes) and CRC_32.
const unsigned int kMinLongSection = 12;
}  // namespace

// The reassembly of one PID.
struct SectionDemux::PidState {
  explicit PidState(unsigned short p) : pid(p) {}
  unsigned short pid;
  bool hasCc = false;
  unsigned char lastCc = 0;
  bool active = false;      // a section is in progress
  unsigned int filled = 0;  // bytes of it so far
  unsigned int total = 0;   // its full size; 0 while its 3 header bytes are incomplete
  uint64_t crcErrors = 0;
  unsigned char data[kMaxSectionSize];
};

SectionDemux::SectionDemux(int tunerId, SectionSink* sink)
    : m_iTunerId(tunerId),
      m_pSink(sink),
      m_aEnabled(new std::atomic<unsigned char>[TsPacket::kPidCount]),
      m_vecStates(TsPacket::kPidCount) {
  for (unsigned int pid = 0; pid < TsPacket::kPidCount; ++pid) {
    m_aEnabled[pid].store(0, std::memory_order_relaxed);
  }
}

SectionDemux::~SectionDemux() {}

void SectionDemux::enablePid(unsigned short pid) {
  if (pid < TsPacket::kPidCount) {
    m_aEnabled[pid].store(1, std::memory_order_relaxed);
  }
}

void SectionDemux::disablePid(unsigned short pid) {
  if (pid < TsPacket::kPidCount) {
    m_aEnabled[pid].store(0, std::memory_order_relaxed);
  }
}

bool SectionDemux::isPidEnabled(unsigned short pid) const {
  return pid < TsPacket::kPidCount && m_aEnabled[pid].load(std::memory_order_relaxed) != 0;
}

void SectionDemux::reset() {
  for (size_t i = 0; i < m_vecStates.size(); ++i) {
    if (m_vecStates[i]) {
      drop(m_vecStates[i].get());
      m_vecStates[i]->hasCc = false;
    }
  }
}

SectionDemux::PidState* SectionDemux::getState(unsigned short pid) {
  std::unique_ptr<PidState>& state = m_vecStates[pid];
  if (!state) {
    state.reset(new PidState(pid));
  }
  return state.get();
}

void SectionDemux::onPackets(const unsigned char* first, unsigned int count, unsigned int stride) {
  for (unsigned int i = 0; i < count; ++i) {
    pushPacket(first + static_cast<size_t>(i) * stride);
  }
  m_pSink->onPacketsDone(m_iTunerId);
}

void SectionDemux::pushPacket(const unsigned char* packet) {
  ++m_stats.packets;
  unsigned short pid = TsPacket::getPid(packet);
  // A null packet's payload is stuffing, never a section, whatever it holds.
  if (pid == TsPacket::kNullPid || m_aEnabled[pid].load(std::memory_order_relaxed) == 0) {
    return;
  }
  PidState* state = getState(pid);
  if (TsPacket::hasTransportError(packet)) {
    ++m_stats.transportErrors;
    drop(state);
    state->hasCc = false;
    return;
  }
  if (!TsPacket::hasPayload(packet)) {
    if (!TsPacket::hasAdaptationField(packet)) {
      ++m_stats.malformed;  // reserved adaptation_field_control
    }
    return;  // the counter does not advance without payload
  }
  unsigned char cc = TsPacket::getContinuityCounter(packet);
  if (state->hasCc && !TsPacket::hasDiscontinuityIndicator(packet)) {
    if (cc == state->lastCc) {
      ++m_stats.duplicates;
      return;
    }
    if (cc != ((state->lastCc + 1) & 0x0F)) {
      ++m_stats.ccErrors;
      drop(state);
    }
  } else if (state->hasCc) {
    drop(state);  // the counter may jump: what was in progress cannot be trusted
  }
  state->lastCc = cc;
  state->hasCc = true;

  unsigned int offset = TsPacket::getPayloadOffset(packet);
  if (offset == 0) {
    ++m_stats.malformed;
    drop(state);
    return;
  }
  const unsigned char* payload = packet + offset;
  unsigned int size = TsPacket::kSize - offset;
  if (size == 0) {
    return;
  }
  if (!TsPacket::hasPayloadUnitStart(packet)) {
    if (state->active) {
      continueSection(state, payload, size);
    }
    return;
  }
  unsigned int pointer = payload[0];
  if (1 + pointer > size) {
    ++m_stats.malformed;
    drop(state);
    return;
  }
  if (state->active) {
    continueSection(state, payload + 1, pointer);
    drop(state);  // still unfinished where the next section starts
  }
  startSections(state, payload + 1 + pointer, size - 1 - pointer);
}

void SectionDemux::startSections(PidState* state, const unsigned char* p, unsigned int n) {
  while (n > 0 && p[0] != kStuffing) {
    if (n < 3) {
      std::memcpy(state->data, p, n);
      state->active = true;
      state->filled = n;
      state->total = 0;
      return;
    }
    unsigned int length = ((p[1] & 0x0F) << 8) | p[2];
    if (length > kMaxSectionLength) {
      ++m_stats.malformed;
      return;
    }
    unsigned int total = 3 + length;
    if (total > n) {
      std::memcpy(state->data, p, n);
      state->active = true;
      state->filled = n;
      state->total = total;
      return;
    }
    emit(state, p, total);
    p += total;
    n -= total;
  }
}

void SectionDemux::continueSection(PidState* state, const unsigned char* p, unsigned int n) {
  if (state->total == 0) {
    unsigned int take = 3 - state->filled;
    if (take > n) {
      take = n;
    }
    std::memcpy(state->data + state->filled, p, take);
    state->filled += take;
    p += take;
    n -= take;
    if (state->filled < 3) {
      return;
    }
    unsigned int length = ((state->data[1] & 0x0F) << 8) | state->data[2];
    if (length > kMaxSectionLength) {
      ++m_stats.malformed;
      state->active = false;
      return;
    }
    state->total = 3 + length;
  }
  unsigned int take = state->total - state->filled;
  if (take > n) {
    take = n;
  }
  std::memcpy(state->data + state->filled, p, take);
  state->filled += take;
  if (state->filled == state->total) {
    state->active = false;
    emit(state, state->data, state->total);
  }
}

uint64_t SectionDemux::getCrcErrors(unsigned short pid) const {
  return pid < m_vecStates.size() && m_vecStates[pid] ? m_vecStates[pid]->crcErrors : 0;
}

void SectionDemux::emit(PidState* state, const unsigned char* data, unsigned int size) {
  bool longForm = (data[1] & 0x80) != 0;
  if (longForm || data[0] == kTimeOffsetTableId) {
    if (size < (longForm ? kMinLongSection : 7u)) {
      ++m_stats.malformed;
      return;
    }
    if (TCrc32::compute(data, size) != 0) {
      ++m_stats.crcErrors;
      ++state->crcErrors;
      return;
    }
  }
  ++m_stats.sections;
  m_pSink->onSection(m_iTunerId, state->pid, data, size);
}

void SectionDemux::drop(PidState* state) {
  if (state->active) {
    ++m_stats.dropped;
    state->active = false;
  }
}

}  // namespace Ostrel
