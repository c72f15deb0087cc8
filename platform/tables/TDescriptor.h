#ifndef OSTREL_TDESCRIPTOR_H
#define OSTREL_TDESCRIPTOR_H

#include <vector>

namespace Ostrel {

// One descriptor of a section: its tag and payload bytes, kept as they came.
// Descriptors this library knows are objects of a derived class with decoded
// fields (isDecoded() is then true); every other descriptor, and a known one
// whose payload does not fit its layout, is a plain TDescriptor.
// Immutable once made. Lives in its table's memory: valid while the table is.
// Holds nothing to release: a list may drop a raw descriptor without running
// its destructor (see TDescriptorList).
class TDescriptor {
 public:
  // data must outlive the descriptor (the table's copy of its section).
  TDescriptor(unsigned char tag, const unsigned char* data, unsigned int length)
      : m_pData(data), m_ucTag(tag), m_ucLength(static_cast<unsigned char>(length)) {}
  virtual ~TDescriptor();

  unsigned char getTag() const { return m_ucTag; }
  // The payload (after tag and length byte) and its size (0..255).
  unsigned int getLength() const { return m_ucLength; }
  const unsigned char* getData() const { return m_pData; }
  // A copy of the payload.
  std::vector<unsigned char> getBytes() const {
    return std::vector<unsigned char>(m_pData, m_pData + m_ucLength);
  }

  // True when this object is the decoded class for its tag.
  virtual bool isDecoded() const;

 private:
  TDescriptor(const TDescriptor&);
  TDescriptor& operator=(const TDescriptor&);

  const unsigned char* m_pData;
  unsigned char m_ucTag;
  unsigned char m_ucLength;
};

}  // namespace Ostrel

#endif  // OSTREL_TDESCRIPTOR_H
