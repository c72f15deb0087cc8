#include "StreamPacer.h"

#include "TsPacket.h"

namespace Ostrel {

namespace {
const uint64_t kPcrHz = 27000000ull;
const uint64_t kPcrWrap = (1ull << 33) * 300ull;
// A PCR further ahead of the previous one than this (a jump back looks like
// a jump far ahead) is a discontinuity, not a pause.
const uint64_t kMaxPcrStep = 5 * kPcrHz;
// The rate at which packets go while no PCR has been seen.
const uint64_t kFallbackBitRate = 4000000;
}  // namespace

StreamPacer::StreamPacer()
    : m_eMode(kAsFastAsPossible),
      m_ullBitRate(0),
      m_bStarted(false),
      m_ullBytes(0),
      m_iPcrPid(-1),
      m_ullAnchorPcr(0) {}

void StreamPacer::setMode(Mode mode, uint64_t bitRate) {
  m_eMode = (mode == kByBitRate && bitRate == 0) ? kAsFastAsPossible : mode;
  m_ullBitRate = bitRate;
  restart();
}

void StreamPacer::restart() {
  m_bStarted = false;
  m_ullBytes = 0;
  m_iPcrPid = -1;
}

StreamPacer::Clock::time_point StreamPacer::pace(const unsigned char* first, unsigned int count,
                                                 unsigned int stride) {
  switch (m_eMode) {
    case kByPcr: {
      Clock::time_point wake = paceByPcr(first, count, stride);
      if (m_bStarted) {
        return wake;
      }
      // No PCR yet: the bit rate given, or a typical one, keeps time.
      return paceByBitRate(count, m_ullBitRate ? m_ullBitRate : kFallbackBitRate);
    }
    case kByBitRate:
      return paceByBitRate(count, m_ullBitRate);
    case kAsFastAsPossible:
    default:
      return Clock::time_point();
  }
}

StreamPacer::Clock::time_point StreamPacer::paceByBitRate(unsigned int count, uint64_t bitRate) {
  if (m_ullBytes == 0) {
    m_tpStart = Clock::now();
  }
  // The packets may go once the time their bytes take at the rate is up.
  m_ullBytes += static_cast<uint64_t>(count) * TsPacket::kSize;
  uint64_t micros = m_ullBytes * 8ull * 1000000ull / bitRate;
  return m_tpStart + std::chrono::microseconds(micros);
}

StreamPacer::Clock::time_point StreamPacer::paceByPcr(const unsigned char* first,
                                                      unsigned int count, unsigned int stride) {
  Clock::time_point wake;
  for (unsigned int i = 0; i < count; ++i) {
    const unsigned char* packet = first + static_cast<size_t>(i) * stride;
    uint64_t pcr = 0;
    if (!TsPacket::getPcr(packet, &pcr)) {
      continue;
    }
    int pid = TsPacket::getPid(packet);
    if (m_iPcrPid < 0) {
      m_iPcrPid = pid;
    } else if (pid != m_iPcrPid) {
      continue;
    }
    if (!m_bStarted) {
      m_bStarted = true;
      m_ullAnchorPcr = pcr;
      m_tpAnchor = Clock::now();
      m_tpLast = m_tpAnchor;
      continue;
    }
    uint64_t step = (pcr + kPcrWrap - m_ullAnchorPcr) % kPcrWrap;
    Clock::time_point at = m_tpAnchor + std::chrono::microseconds(step * 1000000ull / kPcrHz);
    if (at - m_tpLast > std::chrono::microseconds(kMaxPcrStep * 1000000ull / kPcrHz)) {
      // Discontinuity: carry on from the time of the last good PCR.
      m_ullAnchorPcr = pcr;
      m_tpAnchor = m_tpLast;
      at = m_tpLast;
    }
    m_tpLast = at;
    wake = at;
  }
  return wake;
}

}  // namespace Ostrel
