#ifndef OSTREL_TSECTION_WRITER_H
#define OSTREL_TSECTION_WRITER_H

#include <vector>

namespace Ostrel {

// Appends big-endian fields to a byte buffer, and wraps a body into a whole
// section (header, section_length, CRC_32). The builders' one way of writing
// bytes. A length that does not fit its field makes the writer failed
// (ok() false) instead of writing a wrong section. Not thread-safe.
class TSectionWriter {
 public:
  TSectionWriter() : m_bOk(true) {}

  void u8(unsigned int v) { m_vecData.push_back(static_cast<unsigned char>(v & 0xFF)); }
  void u16(unsigned int v) {
    u8(v >> 8);
    u8(v);
  }
  void u24(unsigned int v) {
    u8(v >> 16);
    u16(v);
  }
  void u32(unsigned int v) {
    u16(v >> 16);
    u16(v);
  }
  void bytes(const std::vector<unsigned char>& v) {
    m_vecData.insert(m_vecData.end(), v.begin(), v.end());
  }
  // A 16-bit field, high 4 bits `reserved`, low 12 bits the size of content,
  // then content; fails when content is longer than 4095 bytes.
  void loop12(const std::vector<unsigned char>& content, unsigned int reserved = 0xF);

  bool ok() const { return m_bOk; }
  void fail() { m_bOk = false; }
  const std::vector<unsigned char>& data() const { return m_vecData; }

  // A short-form section: table_id, the syntax indicator, the next bit,
  // section_length, body and, when withCrc, the CRC_32. Empty when the
  // section would exceed maxSize bytes.
  static std::vector<unsigned char> shortSection(unsigned char tableId, bool syntax,
                                                 bool privateBit,
                                                 const std::vector<unsigned char>& body,
                                                 bool withCrc, unsigned int maxSize);

  // A long-form section with CRC_32: header fields, then body. Empty when it
  // would exceed maxSize bytes.
  static std::vector<unsigned char> longSection(unsigned char tableId, bool privateBit,
                                                unsigned short tableIdExtension,
                                                unsigned char version, bool currentNext,
                                                unsigned char sectionNumber,
                                                unsigned char lastSectionNumber,
                                                const std::vector<unsigned char>& body,
                                                unsigned int maxSize);

 private:
  std::vector<unsigned char> m_vecData;
  bool m_bOk;
};

}  // namespace Ostrel

#endif  // OSTREL_TSECTION_WRITER_H
