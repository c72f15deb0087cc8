#ifndef OSTREL_TLOCAL_TIME_OFFSET_DESCRIPTOR_H
#define OSTREL_TLOCAL_TIME_OFFSET_DESCRIPTOR_H

#include <vector>

#include "TArena.h"
#include "TDescriptor.h"

namespace Ostrel {

// Local time offset descriptor (tag 0x58): per country and region, the offset
// of local time from UTC, and the offset that applies after the next change.
class TLocalTimeOffsetDescriptor : public TDescriptor {
 public:
  static const unsigned char kTag = 0x58;

  struct Entry {
    unsigned int countryCode;       // three ISO 3166 letters, e.g. 'B','R','A'
    unsigned char countryRegionId;  // 6 bits
    int localTimeOffset;            // seconds, signed (negative west of UTC)
    long long timeOfChange;         // UTC seconds since 1970
    int nextTimeOffset;             // seconds, signed, same sign as localTimeOffset
  };

  // A new descriptor, or null when the payload is not a whole number of
  // 13-byte entries or holds a time that is not valid BCD. Placed in arena; the caller destroys it.
  static TLocalTimeOffsetDescriptor* decode(const unsigned char* data, unsigned int length,
                                            TArena* arena);

  unsigned int getEntryCount() const { return static_cast<unsigned int>(m_vecEntries.size()); }
  // Entry index (< getEntryCount()).
  const Entry& getEntry(unsigned int index) const { return m_vecEntries[index]; }
  bool isDecoded() const;

 private:
  TLocalTimeOffsetDescriptor(const unsigned char* data, unsigned int length);

  std::vector<Entry> m_vecEntries;
};

}  // namespace Ostrel

#endif  // OSTREL_TLOCAL_TIME_OFFSET_DESCRIPTOR_H
