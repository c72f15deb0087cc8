#ifndef OSTREL_TNETWORK_NAME_DESCRIPTOR_H
#define OSTREL_TNETWORK_NAME_DESCRIPTOR_H

#include <string>

#include "TArena.h"
#include "TDescriptor.h"

namespace Ostrel {

// Network name descriptor (tag 0x40): the network's name.
class TNetworkNameDescriptor : public TDescriptor {
 public:
  static const unsigned char kTag = 0x40;

  // A new descriptor from its payload; never null for this layout. Placed in arena; the caller
  // destroys it.
  static TNetworkNameDescriptor* decode(const unsigned char* data, unsigned int length,
                                        TArena* arena);

  // The name as UTF-8 (see TTextCodec); the raw bytes are getData().
  const std::string& getName() const { return m_strName; }
  bool isDecoded() const;

 private:
  TNetworkNameDescriptor(const unsigned char* data, unsigned int length);

  std::string m_strName;
};

}  // namespace Ostrel

#endif  // OSTREL_TNETWORK_NAME_DESCRIPTOR_H
