#ifndef OSTREL_TSECTION_READER_H
#define OSTREL_TSECTION_READER_H

namespace Ostrel {

// The one way the table library reads section bytes. A reader covers
// data[0..size) and never looks outside it: a read that would pass the end
// fails, returns zero, and leaves the reader failed for good, so that a parser
// can read a whole record and check ok() once. Lengths found in the data become
// sub-readers (sub) only after they are checked against what is left.
// Not thread-safe; cheap to copy; borrows the bytes.
class TSectionReader {
 public:
  TSectionReader() : m_pData(0), m_uiSize(0), m_uiPos(0), m_bOk(true) {}
  TSectionReader(const unsigned char* data, unsigned int size)
      : m_pData(data), m_uiSize(data ? size : 0), m_uiPos(0), m_bOk(true) {}

  // False once any read has failed.
  bool ok() const { return m_bOk; }
  // Bytes not yet read (zero once failed).
  unsigned int remaining() const { return m_bOk ? m_uiSize - m_uiPos : 0; }
  bool atEnd() const { return remaining() == 0; }
  // Offset of the next byte from the start of this reader.
  unsigned int position() const { return m_uiPos; }

  unsigned char u8() {
    if (!need(1))
      return 0;
    return m_pData[m_uiPos++];
  }
  unsigned short u16() {
    if (!need(2))
      return 0;
    const unsigned char* p = m_pData + m_uiPos;
    m_uiPos += 2;
    return static_cast<unsigned short>((p[0] << 8) | p[1]);
  }
  unsigned int u24() {
    if (!need(3))
      return 0;
    const unsigned char* p = m_pData + m_uiPos;
    m_uiPos += 3;
    return (static_cast<unsigned int>(p[0]) << 16) | (static_cast<unsigned int>(p[1]) << 8) | p[2];
  }
  unsigned int u32() {
    if (!need(4))
      return 0;
    const unsigned char* p = m_pData + m_uiPos;
    m_uiPos += 4;
    return (static_cast<unsigned int>(p[0]) << 24) | (static_cast<unsigned int>(p[1]) << 16) |
           (static_cast<unsigned int>(p[2]) << 8) | p[3];
  }

  // The next n bytes, stepped over; null (and failed) when fewer are left.
  // With n == 0 the result may be null on success: check ok(), not the pointer.
  const unsigned char* bytes(unsigned int n) {
    if (!need(n))
      return 0;
    const unsigned char* p = m_pData + m_uiPos;
    m_uiPos += n;
    return p;
  }

  bool skip(unsigned int n) {
    bytes(n);
    return m_bOk;
  }

  // A reader over the next n bytes, which this one steps over. When fewer than
  // n are left, both this reader and the result are failed.
  TSectionReader sub(unsigned int n) {
    const unsigned char* p = bytes(n);
    if (!m_bOk)
      return failed();
    return TSectionReader(p, n);
  }

  // Reads a 16-bit field whose low 12 bits are a length, then gives a reader
  // over that many bytes (the usual "4 reserved bits + 12-bit length" loop
  // header). Fails when the length runs past the end.
  TSectionReader sub12() {
    unsigned int n = u16() & 0x0FFFu;
    if (!m_bOk)
      return failed();
    return sub(n);
  }

  // Marks the reader failed, e.g. when a value read is out of range.
  void fail() { m_bOk = false; }

 private:
  static TSectionReader failed() {
    TSectionReader r;
    r.m_bOk = false;
    return r;
  }
  bool need(unsigned int n) {
    if (!m_bOk || n > m_uiSize - m_uiPos) {
      m_bOk = false;
      return false;
    }
    return true;
  }

  const unsigned char* m_pData;
  unsigned int m_uiSize;
  unsigned int m_uiPos;
  bool m_bOk;
};

}  // namespace Ostrel

#endif  // OSTREL_TSECTION_READER_H
