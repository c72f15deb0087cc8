#include "TsPacketWriter.h"

#include <cstring>

#include "TsPacket.h"

namespace Ostrel {

TsPacketWriter::TsPacketWriter(std::vector<unsigned char>* out)
    : m_pOut(out), m_vecCc(TsPacket::kPidCount, 0), m_ullPackets(0) {}

// Appends a packet header; returns the packet's first byte. adaptationControl
// is the 2-bit field (1 payload, 2 adaptation only, 3 both).
unsigned char* TsPacketWriter::begin(unsigned short pid, bool unitStart,
                                     unsigned char adaptationControl) {
  size_t at = m_pOut->size();
  m_pOut->resize(at + TsPacket::kSize, 0xFF);
  unsigned char* p = &(*m_pOut)[at];
  pid &= 0x1FFF;
  unsigned char cc = m_vecCc[pid];
  if (adaptationControl & 0x1) {
    m_vecCc[pid] = (cc + 1) & 0x0F;  // the counter advances with payload only
  }
  p[0] = TsPacket::kSyncByte;
  p[1] = static_cast<unsigned char>((unitStart ? 0x40 : 0x00) | (pid >> 8));
  p[2] = static_cast<unsigned char>(pid & 0xFF);
  p[3] = static_cast<unsigned char>((adaptationControl << 4) | cc);
  ++m_ullPackets;
  return p;
}

void TsPacketWriter::writeSection(unsigned short pid, const std::vector<unsigned char>& section) {
  size_t pos = 0;
  bool first = true;
  while (first || pos < section.size()) {
    unsigned char* p = begin(pid, first, 1);
    unsigned int room = 184;
    unsigned char* payload = p + 4;
    if (first) {
      payload[0] = 0;  // pointer field: the section starts right away
      ++payload;
      --room;
    }
    size_t take = section.size() - pos;
    if (take > room) {
      take = room;
    }
    if (take > 0) {
      std::memcpy(payload, &section[pos], take);
    }
    pos += take;
    first = false;
  }
}

void TsPacketWriter::writePcr(unsigned short pid, uint64_t pcr) {
  unsigned char* p = begin(pid, false, 2);
  uint64_t base = pcr / 300;
  unsigned int extension = static_cast<unsigned int>(pcr % 300);
  p[4] = 183;   // adaptation_field_length: the whole packet
  p[5] = 0x10;  // PCR_flag
  p[6] = static_cast<unsigned char>(base >> 25);
  p[7] = static_cast<unsigned char>(base >> 17);
  p[8] = static_cast<unsigned char>(base >> 9);
  p[9] = static_cast<unsigned char>(base >> 1);
  p[10] = static_cast<unsigned char>(((base & 1) << 7) | 0x7E | (extension >> 8));
  p[11] = static_cast<unsigned char>(extension & 0xFF);
}

void TsPacketWriter::writePayload(unsigned short pid, const unsigned char* payload184) {
  unsigned char* p = begin(pid, false, 1);
  std::memcpy(p + 4, payload184, 184);
}

void TsPacketWriter::writeNull() {
  begin(TsPacket::kNullPid, false, 1);
}

}  // namespace Ostrel
