#include "TTerrestrialDeliverySystemDescriptor.h"

#include <new>

#include "TSectionReader.h"

namespace Ostrel {

const unsigned char TTerrestrialDeliverySystemDescriptor::kTag;

TTerrestrialDeliverySystemDescriptor::TTerrestrialDeliverySystemDescriptor(
    const unsigned char* data, unsigned int length)
    : TDescriptor(kTag, data, length),
      m_usAreaCode(0),
      m_ucGuardInterval(0),
      m_ucTransmissionMode(0) {}

TTerrestrialDeliverySystemDescriptor* TTerrestrialDeliverySystemDescriptor::decode(
    const unsigned char* data, unsigned int length, TArena* arena) {
  if (length < 2 || length % 2 != 0)
    return 0;
  TSectionReader r(data, length);
  unsigned short head = r.u16();
  std::vector<unsigned short> frequencies;
  frequencies.reserve(length / 2 - 1);
  while (!r.atEnd())
    frequencies.push_back(r.u16());
  TTerrestrialDeliverySystemDescriptor* d =
      new (arena->allocate(sizeof(TTerrestrialDeliverySystemDescriptor)))
          TTerrestrialDeliverySystemDescriptor(data, length);
  d->m_usAreaCode = head >> 4;
  d->m_ucGuardInterval = (head >> 2) & 0x03;
  d->m_ucTransmissionMode = head & 0x03;
  d->m_vecFrequencies.swap(frequencies);
  return d;
}

unsigned long long TTerrestrialDeliverySystemDescriptor::getFrequencyHz(unsigned int index) const {
  return static_cast<unsigned long long>(m_vecFrequencies[index]) * 1000000ull / 7ull;
}

bool TTerrestrialDeliverySystemDescriptor::isDecoded() const {
  return true;
}

}  // namespace Ostrel
