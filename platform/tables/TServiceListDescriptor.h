#ifndef OSTREL_TSERVICE_LIST_DESCRIPTOR_H
#define OSTREL_TSERVICE_LIST_DESCRIPTOR_H

#include <vector>

#include "TArena.h"
#include "TDescriptor.h"

namespace Ostrel {

// Service list descriptor (tag 0x41): the services of a transport stream,
// each with its id and type.
class TServiceListDescriptor : public TDescriptor {
 public:
  static const unsigned char kTag = 0x41;

  struct Entry {
    unsigned short serviceId;
    unsigned char serviceType;
  };

  // A new descriptor, or null when the payload is not a whole number of
  // 3-byte entries. Placed in arena; the caller destroys it.
  static TServiceListDescriptor* decode(const unsigned char* data, unsigned int length,
                                        TArena* arena);

  unsigned int getServiceCount() const { return static_cast<unsigned int>(m_vecEntries.size()); }
  // Entry index (< getServiceCount()).
  const Entry& getService(unsigned int index) const { return m_vecEntries[index]; }
  bool isDecoded() const;

 private:
  TServiceListDescriptor(const unsigned char* data, unsigned int length);

  std::vector<Entry> m_vecEntries;
};

}  // namespace Ostrel

#endif  // OSTREL_TSERVICE_LIST_DESCRIPTOR_H
