#ifndef OSTREL_TSDT_BUILDER_H
#define OSTREL_TSDT_BUILDER_H

#include <vector>

#include "TLongSectionBuilder.h"

namespace Ostrel {

// Writes a well-formed SDT section (with CRC): actual transport stream
// (0x42) unless setActual(false) (0x46). Descriptors are wire bytes, e.g.
// TDescriptorBuilder::service(...). Not thread-safe.
class TSDTBuilder : public TLongSectionBuilder<TSDTBuilder> {
 public:
  // running_status "running".
  static const unsigned char kRunning = 4;

  TSDTBuilder();

  TSDTBuilder& setTransportStreamId(unsigned short id);
  TSDTBuilder& setOriginalNetworkId(unsigned short id);
  TSDTBuilder& setActual(bool actual);
  // Appends a service with its descriptor loop and flags.
  TSDTBuilder& addService(unsigned short serviceId, const std::vector<unsigned char>& descriptors,
                          unsigned char runningStatus = kRunning, bool eitPresentFollowing = true,
                          bool eitSchedule = false, bool freeCaMode = false);
  // The section, or empty when a loop or the section is too long.
  std::vector<unsigned char> build() const;

 private:
  unsigned short m_usTransportStreamId;
  unsigned short m_usOriginalNetworkId;
  bool m_bActual;
  TSectionWriter m_wrServices;
};

}  // namespace Ostrel

#endif  // OSTREL_TSDT_BUILDER_H
