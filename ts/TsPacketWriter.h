#ifndef OSTREL_SIM_TS_PACKET_WRITER_H
#define OSTREL_SIM_TS_PACKET_WRITER_H

#include <cstdint>
#include <vector>

namespace Ostrel {

// Writes 188-byte packets onto the end of a byte vector, keeping the
// continuity counter of every PID: sections (pointer field, stuffing),
// adaptation-only packets with a PCR, payload filler and null packets. Not
// thread-safe.
class TsPacketWriter {
 public:
  explicit TsPacketWriter(std::vector<unsigned char>* out);

  // One section in as many packets as it needs; the last is stuffed with 0xFF.
  void writeSection(unsigned short pid, const std::vector<unsigned char>& section);
  // An adaptation-only packet carrying pcr (27 MHz units).
  void writePcr(unsigned short pid, uint64_t pcr);
  // A payload packet of opaque bytes (stand-in for audio or video).
  void writePayload(unsigned short pid, const unsigned char* payload184);
  void writeNull();

  // Packets written so far.
  uint64_t getPacketCount() const { return m_ullPackets; }

 private:
  unsigned char* begin(unsigned short pid, bool unitStart, unsigned char adaptationControl);

  std::vector<unsigned char>* m_pOut;
  std::vector<unsigned char> m_vecCc;
  uint64_t m_ullPackets;
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_TS_PACKET_WRITER_H
