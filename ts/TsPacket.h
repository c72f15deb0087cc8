#ifndef OSTREL_SIM_TS_PACKET_H
#define OSTREL_SIM_TS_PACKET_H

#include <cstdint>

namespace Ostrel {

// Reads the header fields of one 188-byte transport-stream packet. Every
// operation takes a pointer to a whole packet (sync byte first) and reads only
// inside it; none checks the sync byte.
class TsPacket {
 public:
  static const unsigned int kSize = 188;
  static const unsigned char kSyncByte = 0x47;
  static const unsigned short kNullPid = 0x1FFF;
  static const unsigned short kPidCount = 0x2000;

  static bool hasTransportError(const unsigned char* p) { return (p[1] & 0x80) != 0; }
  static bool hasPayloadUnitStart(const unsigned char* p) { return (p[1] & 0x40) != 0; }
  static unsigned short getPid(const unsigned char* p) {
    return static_cast<unsigned short>(((p[1] & 0x1F) << 8) | p[2]);
  }
  static bool isScrambled(const unsigned char* p) { return (p[3] & 0xC0) != 0; }
  static bool hasAdaptationField(const unsigned char* p) { return (p[3] & 0x20) != 0; }
  static bool hasPayload(const unsigned char* p) { return (p[3] & 0x10) != 0; }
  static unsigned char getContinuityCounter(const unsigned char* p) { return p[3] & 0x0F; }

  // True when the adaptation field flags a discontinuity of the counter.
  static bool hasDiscontinuityIndicator(const unsigned char* p);

  // Offset of the payload within the packet, or 0 when the packet carries none
  // or its adaptation field length is impossible.
  static unsigned int getPayloadOffset(const unsigned char* p);

  // Reads the programme clock reference (27 MHz units) when the packet carries
  // one.
  static bool getPcr(const unsigned char* p, uint64_t* pcr);
};

}  // namespace Ostrel

#endif  // OSTREL_SIM_TS_PACKET_H
