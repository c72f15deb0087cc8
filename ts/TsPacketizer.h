#ifndef OSTREL_SIM_TS_PACKETIZER_H
#define OSTREL_SIM_TS_PACKETIZER_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "TsPacketSink.h"

namespace Ostrel {

// Cuts a byte stream into transport-stream packets. The packet size (188,
// 192 with a 4-byte time stamp, 204 with 16 bytes of parity) is found by
// looking for the sync byte at that distance several times in a row; when the
// sync byte is missing where it should be, the packetizer counts a loss of
// sync and searches again, so garbage between packets and torn packets cost
// only the bytes they spoil. Not thread-safe: one reader uses it.
class TsPacketizer {
 public:
  struct Statistics {
    uint64_t packets = 0;         // packets handed on
    uint64_t syncLosses = 0;      // times the sync byte was missing where expected
    uint64_t skippedBytes = 0;    // bytes thrown away while searching for sync
    uint64_t truncatedBytes = 0;  // bytes of an incomplete packet at the end of input
  };

  TsPacketizer();

  // Room to read into, at least minimum bytes; commit what was written.
  unsigned char* getWritableArea(size_t minimum, size_t* capacity);
  void commit(size_t size);

  // Copies data in (tests, memory sources).
  void push(const unsigned char* data, size_t size);

  // Hands every complete packet buffered so far to sink.
  void process(TsPacketSink* sink);

  // End of input: packets that the look-ahead held back are handed on, the
  // incomplete rest is dropped and counted, and the next input searches sync
  // afresh.
  void finish(TsPacketSink* sink);

  // The packet size locked on (188, 192 or 204), or 0 while searching.
  unsigned int getPacketSize() const { return m_uiPacketSize; }
  const Statistics& getStatistics() const { return m_stats; }

 private:
  // How many sync bytes in a row lock a packet size.
  static const unsigned int kLockCount = 5;

  void processFrom(TsPacketSink* sink, bool final);
  bool findSync(bool final);
  bool isSyncRun(size_t position, unsigned int size, unsigned int count) const;
  int isTorn(size_t p, unsigned int size, bool final) const;

  std::vector<unsigned char> m_vecBuffer;
  size_t m_uiStart;
  size_t m_uiEnd;
  unsigned int m_uiPacketSize;
  Statistics m_stats;
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_TS_PACKETIZER_H
