#ifndef OSTREL_TDESCRIPTOR_BUILDER_H
#define OSTREL_TDESCRIPTOR_BUILDER_H

#include <string>
#include <utility>
#include <vector>

namespace Ostrel {

// Writes descriptors as wire bytes (tag, length, payload), ready for the
// section builders; concatenate several with append(). Text is given as UTF-8
// and written with TTextCodec::encode. Each gives an empty vector when the
// payload would exceed 255 bytes. Any thread; no state.
class TDescriptorBuilder {
 public:
  // Any descriptor from its tag and payload.
  static std::vector<unsigned char> raw(unsigned char tag,
                                        const std::vector<unsigned char>& payload);
  // 0x40.
  static std::vector<unsigned char> networkName(const std::string& name);
  // 0x41: (service id, service type) pairs.
  typedef std::pair<unsigned short, unsigned char> ServiceEntry;
  static std::vector<unsigned char> serviceList(const std::vector<ServiceEntry>& services);
  // 0x48.
  static std::vector<unsigned char> service(unsigned char serviceType, const std::string& provider,
                                            const std::string& name);
  // 0x52.
  static std::vector<unsigned char> streamIdentifier(unsigned char componentTag);
  // 0x58 with one entry. Offsets in seconds (whole minutes, |offset| < 100 h;
  // both with the sign of offsetSeconds); timeOfChange in UTC seconds.
  static std::vector<unsigned char> localTimeOffset(unsigned int countryCode,
                                                    unsigned char regionId, int offsetSeconds,
                                                    long long timeOfChange, int nextOffsetSeconds);
  typedef std::vector<unsigned short> ServiceIds;
  typedef std::pair<unsigned char, ServiceIds> TransmissionType;
  // 0xCD with one transmission type per entry of `types` (at most 3):
  // (transmission_type_info, service ids).
  static std::vector<unsigned char> tsInformation(unsigned char remoteControlKeyId,
                                                  const std::string& tsName,
                                                  const std::vector<TransmissionType>& types);
  // 0xFA; frequencies in 1/7 MHz units.
  static std::vector<unsigned char> terrestrialDeliverySystem(
      unsigned short areaCode, unsigned char guardInterval, unsigned char transmissionMode,
      const std::vector<unsigned short>& frequencies);
  // 0xFB.
  static std::vector<unsigned char> partialReception(const std::vector<unsigned short>& serviceIds);

  // Appends `more` to `to` (to build a loop of several descriptors).
  static void append(std::vector<unsigned char>* to, const std::vector<unsigned char>& more);
};

}  // namespace Ostrel

#endif  // OSTREL_TDESCRIPTOR_BUILDER_H
