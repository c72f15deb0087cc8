#ifndef OSTREL_TSTREAM_IDENTIFIER_DESCRIPTOR_H
#define OSTREL_TSTREAM_IDENTIFIER_DESCRIPTOR_H

#include "TArena.h"
#include "TDescriptor.h"

namespace Ostrel {

// Stream identifier descriptor (tag 0x52): the component tag of an
// elementary stream.
class TStreamIdentifierDescriptor : public TDescriptor {
 public:
  static const unsigned char kTag = 0x52;

  // A new descriptor, or null when the payload is empty. Placed in arena; the caller destroys it.
  static TStreamIdentifierDescriptor* decode(const unsigned char* data, unsigned int length,
                                             TArena* arena);

  unsigned char getComponentTag() const { return m_ucComponentTag; }
  bool isDecoded() const;

 private:
  TStreamIdentifierDescriptor(const unsigned char* data, unsigned int length);

  unsigned char m_ucComponentTag;
};

}  // namespace Ostrel

#endif  // OSTREL_TSTREAM_IDENTIFIER_DESCRIPTOR_H
