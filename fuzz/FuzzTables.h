#ifndef OSTREL_FUZZ_TABLES_H
#define OSTREL_FUZZ_TABLES_H

// Helpers of the fuzz targets: every accessor of a parsed table is read, so
// that a wrong length or pointer inside it shows under the sanitizers.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "TCrc32.h"
#include "TDescriptorList.h"
#include "TLocalTimeOffsetDescriptor.h"
#include "TNetworkNameDescriptor.h"
#include "TPartialReceptionDescriptor.h"
#include "TServiceDescriptor.h"
#include "TServiceListDescriptor.h"
#include "TStreamIdentifierDescriptor.h"
#include "TTSInformationDescriptor.h"
#include "TTerrestrialDeliverySystemDescriptor.h"

namespace OstrelFuzz {

// Accumulates what is read, so that the reads are not optimised away.
inline volatile unsigned long long g_sink = 0;

inline void touch(const void* p, size_t n) {
  const unsigned char* b = static_cast<const unsigned char*>(p);
  for (size_t i = 0; i < n; ++i)
    g_sink += b[i];
}

inline void touch(const std::string& s) {
  touch(s.data(), s.size());
}

inline void touch(const Ostrel::TDescriptorList& list) {
  using namespace Ostrel;
  for (unsigned int i = 0; i < list.size(); ++i) {
    const TDescriptor* d = list.at(i);
    g_sink += d->getTag() + d->getLength();
    touch(d->getData(), d->getLength());
  }
  if (const auto* d = list.findDecoded<TNetworkNameDescriptor>())
    touch(d->getName());
  if (const auto* d = list.findDecoded<TServiceListDescriptor>()) {
    for (unsigned int i = 0; i < d->getServiceCount(); ++i)
      g_sink += d->getService(i).serviceId;
  }
  if (const auto* d = list.findDecoded<TServiceDescriptor>()) {
    touch(d->getProviderName());
    touch(d->getServiceName());
  }
  if (const auto* d = list.findDecoded<TStreamIdentifierDescriptor>())
    g_sink += d->getComponentTag();
  if (const auto* d = list.findDecoded<TLocalTimeOffsetDescriptor>()) {
    for (unsigned int i = 0; i < d->getEntryCount(); ++i)
      g_sink += d->getEntry(i).timeOfChange;
  }
  if (const auto* d = list.findDecoded<TTSInformationDescriptor>()) {
    touch(d->getTsName());
    for (const auto& t : d->getTransmissionTypes()) {
      for (unsigned short id : t.serviceIds)
        g_sink += id;
    }
  }
  if (const auto* d = list.findDecoded<TTerrestrialDeliverySystemDescriptor>()) {
    for (unsigned int i = 0; i < d->getFrequencies().size(); ++i)
      g_sink += d->getFrequencyHz(i);
  }
  if (const auto* d = list.findDecoded<TPartialReceptionDescriptor>()) {
    for (unsigned short id : d->getServiceIds())
      g_sink += id;
  }
}

// The section to parse, as an exact-size heap block that the parser must
// not read past. The fuzzer's input is one flag byte and the section: with
// bit 0 of the flag set, the section's last four bytes are replaced by its
// CRC_32, so that mutations get past the CRC check and reach the loops.
inline std::vector<unsigned char> section(const uint8_t* data, size_t size) {
  if (size == 0)
    return std::vector<unsigned char>();
  std::vector<unsigned char> s(data + 1, data + size);
  if ((data[0] & 0x01) && s.size() >= 4) {
    size_t n = s.size() - 4;
    unsigned int crc = Ostrel::TCrc32::compute(s.data(), static_cast<unsigned int>(n));
    s[n] = static_cast<unsigned char>(crc >> 24);
    s[n + 1] = static_cast<unsigned char>(crc >> 16);
    s[n + 2] = static_cast<unsigned char>(crc >> 8);
    s[n + 3] = static_cast<unsigned char>(crc);
  }
  return s;
}

}  // namespace OstrelFuzz

#endif  // OSTREL_FUZZ_TABLES_H
