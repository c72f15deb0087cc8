#include "TSectionWriter.h"

#include "TCrc32.h"

namespace Ostrel {

namespace {
const unsigned int kMaxLength12 = 0x0FFF;
const unsigned int kHeaderSize = 3;
const unsigned int kCrcSize = 4;
}  // namespace

void TSectionWriter::loop12(const std::vector<unsigned char>& content, unsigned int reserved) {
  if (content.size() > kMaxLength12) {
    fail();
    return;
  }
  u16(((reserved & 0xF) << 12) | static_cast<unsigned int>(content.size()));
  bytes(content);
}

std::vector<unsigned char> TSectionWriter::shortSection(unsigned char tableId, bool syntax,
                                                        bool privateBit,
                                                        const std::vector<unsigned char>& body,
                                                        bool withCrc, unsigned int maxSize) {
  unsigned long long total = kHeaderSize + body.size() + (withCrc ? kCrcSize : 0);
  if (total > maxSize || total - kHeaderSize > kMaxLength12)
    return std::vector<unsigned char>();
  unsigned int sectionLength = static_cast<unsigned int>(total - kHeaderSize);
  TSectionWriter w;
  w.m_vecData.reserve(static_cast<unsigned int>(total));
  w.u8(tableId);
  w.u16((syntax ? 0x8000u : 0) | (privateBit ? 0x4000u : 0) | 0x3000u | sectionLength);
  w.bytes(body);
  if (withCrc) {
    w.u32(TCrc32::compute(&w.m_vecData[0], static_cast<unsigned int>(w.m_vecData.size())));
  }
  return w.m_vecData;
}

std::vector<unsigned char> TSectionWriter::longSection(
    unsigned char tableId, bool privateBit, unsigned short tableIdExtension, unsigned char version,
    bool currentNext, unsigned char sectionNumber, unsigned char lastSectionNumber,
    const std::vector<unsigned char>& body, unsigned int maxSize) {
  TSectionWriter w;
  w.m_vecData.reserve(body.size() + 5);
  w.u16(tableIdExtension);
  w.u8(0xC0 | ((version & 0x1F) << 1) | (currentNext ? 1 : 0));
  w.u8(sectionNumber);
  w.u8(lastSectionNumber);
  w.bytes(body);
  return shortSection(tableId, true, privateBit, w.m_vecData, true, maxSize);
}

}  // namespace Ostrel
