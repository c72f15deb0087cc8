#ifndef OSTREL_TTS_INFORMATION_DESCRIPTOR_H
#define OSTREL_TTS_INFORMATION_DESCRIPTOR_H

#include <string>
#include <vector>

#include "TArena.h"
#include "TDescriptor.h"

namespace Ostrel {

// TS information descriptor (tag 0xCD): the remote-control key of the
// transport stream, its name, and per transmission type (layer) the services
// it carries.
class TTSInformationDescriptor : public TDescriptor {
 public:
  static const unsigned char kTag = 0xCD;

  struct TransmissionType {
    unsigned char transmissionTypeInfo;
    std::vector<unsigned short> serviceIds;
  };

  // A new descriptor, or null when the name or a transmission type runs past
  // the payload. Bytes after the last transmission type are ignored. Placed in arena; the caller
  // destroys it.
  static TTSInformationDescriptor* decode(const unsigned char* data, unsigned int length,
                                          TArena* arena);

  unsigned char getRemoteControlKeyId() const { return m_ucRemoteControlKeyId; }
  // The transport stream's name as UTF-8 (see TTextCodec).
  const std::string& getTsName() const { return m_strTsName; }
  const std::vector<TransmissionType>& getTransmissionTypes() const {
    return m_vecTransmissionTypes;
  }
  bool isDecoded() const;

 private:
  TTSInformationDescriptor(const unsigned char* data, unsigned int length);

  unsigned char m_ucRemoteControlKeyId;
  std::string m_strTsName;
  std::vector<TransmissionType> m_vecTransmissionTypes;
};

}  // namespace Ostrel

#endif  // OSTREL_TTS_INFORMATION_DESCRIPTOR_H
