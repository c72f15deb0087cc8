#ifndef OSTREL_TPARTIAL_RECEPTION_DESCRIPTOR_H
#define OSTREL_TPARTIAL_RECEPTION_DESCRIPTOR_H

#include <vector>

#include "TArena.h"
#include "TDescriptor.h"

namespace Ostrel {

// Partial reception descriptor (tag 0xFB): the services carried in the
// one-segment (partial reception) layer.
class TPartialReceptionDescriptor : public TDescriptor {
 public:
  static const unsigned char kTag = 0xFB;

  // A new descriptor, or null when the payload is not a whole number of
  // 16-bit service ids. Placed in arena; the caller destroys it.
  static TPartialReceptionDescriptor* decode(const unsigned char* data, unsigned int length,
                                             TArena* arena);

  const std::vector<unsigned short>& getServiceIds() const { return m_vecServiceIds; }
  bool isDecoded() const;

 private:
  TPartialReceptionDescriptor(const unsigned char* data, unsigned int length);

  std::vector<unsigned short> m_vecServiceIds;
};

}  // namespace Ostrel

#endif  // OSTREL_TPARTIAL_RECEPTION_DESCRIPTOR_H
