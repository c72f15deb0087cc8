#ifndef OSTREL_SIM_STREAM_PACER_H
#define OSTREL_SIM_STREAM_PACER_H

#include <chrono>
#include <cstdint>

namespace Ostrel {

// Decides when packets may be handed on so that a stream plays in real time:
// by the programme clock references of the first PID that carries them, or by
// a fixed bit rate, or not at all (as fast as possible). A PCR that jumps back
// or more than a few seconds ahead is taken as a discontinuity: the clock is
// set again from there. In PCR mode, packets before the first PCR (all of a
// stream without PCR) go at the bit rate given, or at 4 Mbit/s. Used by one
// reader thread.
class StreamPacer {
 public:
  typedef std::chrono::steady_clock Clock;

  enum Mode { kAsFastAsPossible, kByPcr, kByBitRate };

  StreamPacer();

  // bitRate is in bits per second: the rate of kByBitRate, and of kByPcr
  // until the first PCR (0: the default).
  void setMode(Mode mode, uint64_t bitRate);
  Mode getMode() const { return m_eMode; }

  // Starts the clock again (at the start and after the input loops).
  void restart();

  // Looks at the packets about to be handed on and returns the time until
  // which the reader should wait first; Clock::time_point() when it need not.
  Clock::time_point pace(const unsigned char* first, unsigned int count, unsigned int stride);

 private:
  Clock::time_point paceByBitRate(unsigned int count, uint64_t bitRate);
  Clock::time_point paceByPcr(const unsigned char* first, unsigned int count, unsigned int stride);

  Mode m_eMode;
  uint64_t m_ullBitRate;
  bool m_bStarted;
  Clock::time_point m_tpStart;
  uint64_t m_ullBytes;
  int m_iPcrPid;            // the PID whose PCR drives the clock, or -1
  uint64_t m_ullAnchorPcr;  // PCR at m_tpAnchor
  Clock::time_point m_tpAnchor;
  Clock::time_point m_tpLast;  // the time that the last PCR stood for
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_STREAM_PACER_H
