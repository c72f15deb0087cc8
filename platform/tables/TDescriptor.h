#ifndef OSTREL_TDESCRIPTOR_H
#define OSTREL_TDESCRIPTOR_H

#include <vector>

namespace Ostrel {

// One descriptor of a section: its tag and payload bytes, kept as they came.
// Descriptors this library knows are objects of a derived class with decoded
// fields (isDecoded() is then true); every other descriptor, and a known one
// whose payload does not fit its layout, is a plain TDescriptor.
// Immutable once made; owned by the TDescriptorList that holds it.
class TDescriptor {
 public:
  TDescriptor(unsigned char tag, const unsigned char* data, unsigned int length);
  virtual ~TDescriptor();

  unsigned char getTag() const { return m_ucTag; }
  // The payload (after tag and length byte) and its size.
  unsigned int getLength() const { return static_cast<unsigned int>(m_vecData.size()); }
  const std::vector<unsigned char>& getData() const { return m_vecData; }

  // True when this object is the decoded class for its tag.
  virtual bool isDecoded() const;

 private:
  TDescriptor(const TDescriptor&);
  TDescriptor& operator=(const TDescriptor&);

  unsigned char m_ucTag;
  std::vector<unsigned char> m_vecData;
};

}  // namespace Ostrel

#endif  // OSTREL_TDESCRIPTOR_H
