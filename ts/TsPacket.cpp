#include "TsPacket.h"

namespace Ostrel {

bool TsPacket::hasDiscontinuityIndicator(const unsigned char* p) {
  return hasAdaptationField(p) && p[4] > 0 && (p[5] & 0x80) != 0;
}

unsigned int TsPacket::getPayloadOffset(const unsigned char* p) {
  if (!hasPayload(p)) {
    return 0;
  }
  if (!hasAdaptationField(p)) {
    return 4;
  }
  // With a payload the adaptation field may take at most 183 bytes.
  unsigned int length = p[4];
  if (length > 182) {
    return 0;
  }
  return 5 + length;
}

bool TsPacket::getPcr(const unsigned char* p, uint64_t* pcr) {
  if (!hasAdaptationField(p) || p[4] < 7 || (p[5] & 0x10) == 0) {
    return false;
  }
  uint64_t base = (static_cast<uint64_t>(p[6]) << 25) | (static_cast<uint64_t>(p[7]) << 17) |
                  (static_cast<uint64_t>(p[8]) << 9) | (static_cast<uint64_t>(p[9]) << 1) |
                  (p[10] >> 7);
  unsigned int extension = ((p[10] & 0x01) << 8) | p[11];
  *pcr = base * 300 + extension;
  return true;
}

}  // namespace Ostrel
