#include "TTSInformationDescriptor.h"

#include <new>

#include "TSectionReader.h"
#include "TTextCodec.h"

namespace Ostrel {

const unsigned char TTSInformationDescriptor::kTag;

TTSInformationDescriptor::TTSInformationDescriptor(const unsigned char* data, unsigned int length)
    : TDescriptor(kTag, data, length), m_ucRemoteControlKeyId(0) {}

TTSInformationDescriptor* TTSInformationDescriptor::decode(const unsigned char* data,
                                                           unsigned int length, TArena* arena) {
  TSectionReader r(data, length);
  unsigned char keyId = r.u8();
  unsigned char nameAndCount = r.u8();
  unsigned int nameLength = nameAndCount >> 2;
  unsigned int typeCount = nameAndCount & 0x03;
  const unsigned char* name = r.bytes(nameLength);
  std::vector<TransmissionType> types(typeCount);
  for (unsigned int i = 0; i < typeCount && r.ok(); ++i) {
    types[i].transmissionTypeInfo = r.u8();
    unsigned int serviceCount = r.u8();
    if (serviceCount * 2 > r.remaining())
      r.fail();
    types[i].serviceIds.reserve(r.ok() ? serviceCount : 0);
    for (unsigned int k = 0; k < serviceCount && r.ok(); ++k) {
      types[i].serviceIds.push_back(r.u16());
    }
  }
  if (!r.ok())
    return 0;
  std::string tsName = TTextCodec::decode(name, nameLength);
  TTSInformationDescriptor* d = new (arena->allocate(sizeof(TTSInformationDescriptor)))
      TTSInformationDescriptor(data, length);
  d->m_ucRemoteControlKeyId = keyId;
  d->m_strTsName.swap(tsName);
  d->m_vecTransmissionTypes.swap(types);
  return d;
}

bool TTSInformationDescriptor::isDecoded() const {
  return true;
}

}  // namespace Ostrel
