#ifndef OSTREL_TSTREAM_IDENTIFIER_DESCRIPTOR_H
#define OSTREL_TSTREAM_IDENTIFIER_DESCRIPTOR_H

#include <new>

#include "TArena.h"
#include "TDescriptor.h"

namespace Ostrel {

// Stream identifier descriptor (tag 0x52): the component tag of an
// elementary stream. Holds nothing to release: a list may drop it without
// running its destructor (see TDescriptorList).
class TStreamIdentifierDescriptor : public TDescriptor {
 public:
  static const unsigned char kTag = 0x52;

  // A new descriptor, or null when the payload is empty. Placed in arena; the
  // caller destroys it. Inline: a PMT has one for nearly every stream.
  static TStreamIdentifierDescriptor* decode(const unsigned char* data, unsigned int length,
                                             TArena* arena) {
    if (length < 1)
      return 0;
    return new (arena->allocate(sizeof(TStreamIdentifierDescriptor)))
        TStreamIdentifierDescriptor(data, length);
  }

  unsigned char getComponentTag() const { return m_ucComponentTag; }
  bool isDecoded() const;

 private:
  TStreamIdentifierDescriptor(const unsigned char* data, unsigned int length)
      : TDescriptor(kTag, data, length), m_ucComponentTag(data[0]) {}

  unsigned char m_ucComponentTag;
};

}  // namespace Ostrel

#endif  // OSTREL_TSTREAM_IDENTIFIER_DESCRIPTOR_H
