#ifndef OSTREL_TTERRESTRIAL_DELIVERY_SYSTEM_DESCRIPTOR_H
#define OSTREL_TTERRESTRIAL_DELIVERY_SYSTEM_DESCRIPTOR_H

#include <vector>

#include "TArena.h"
#include "TDescriptor.h"

namespace Ostrel {

// Terrestrial delivery system descriptor (tag 0xFA): area code, guard
// interval, transmission mode and the centre frequencies of the transport
// stream, in units of 1/7 MHz.
class TTerrestrialDeliverySystemDescriptor : public TDescriptor {
 public:
  static const unsigned char kTag = 0xFA;

  // A new descriptor, or null when the payload is shorter than 2 bytes or
  // its frequency list is not whole 16-bit values. Placed in arena; the caller destroys it.
  static TTerrestrialDeliverySystemDescriptor* decode(const unsigned char* data,
                                                      unsigned int length, TArena* arena);

  unsigned short getAreaCode() const { return m_usAreaCode; }  // 12 bits
  // 0: 1/32, 1: 1/16, 2: 1/8, 3: 1/4.
  unsigned char getGuardInterval() const { return m_ucGuardInterval; }
  // 0: mode 1, 1: mode 2, 2: mode 3, 3: undefined.
  unsigned char getTransmissionMode() const { return m_ucTransmissionMode; }
  // Frequencies as carried (1/7 MHz units).
  const std::vector<unsigned short>& getFrequencies() const { return m_vecFrequencies; }
  // Frequency index in hertz, rounded down.
  unsigned long long getFrequencyHz(unsigned int index) const;
  bool isDecoded() const;

 private:
  TTerrestrialDeliverySystemDescriptor(const unsigned char* data, unsigned int length);

  unsigned short m_usAreaCode;
  unsigned char m_ucGuardInterval;
  unsigned char m_ucTransmissionMode;
  std::vector<unsigned short> m_vecFrequencies;
};

}  // namespace Ostrel

#endif  // OSTREL_TTERRESTRIAL_DELIVERY_SYSTEM_DESCRIPTOR_H
