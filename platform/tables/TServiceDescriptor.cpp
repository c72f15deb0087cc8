#include "TServiceDescriptor.h"

#include <new>

#include "TSectionReader.h"
#include "TTextCodec.h"

namespace Ostrel {

const unsigned char TServiceDescriptor::kTag;

TServiceDescriptor::TServiceDescriptor(const unsigned char* data, unsigned int length)
    : TDescriptor(kTag, data, length), m_ucServiceType(0) {}

TServiceDescriptor* TServiceDescriptor::decode(const unsigned char* data, unsigned int length,
                                               TArena* arena) {
  TSectionReader r(data, length);
  unsigned char type = r.u8();
  unsigned char providerLength = r.u8();
  const unsigned char* provider = r.bytes(providerLength);
  unsigned char nameLength = r.u8();
  const unsigned char* name = r.bytes(nameLength);
  if (!r.ok())
    return 0;
  std::string providerName = TTextCodec::decode(provider, providerLength);
  std::string serviceName = TTextCodec::decode(name, nameLength);
  TServiceDescriptor* d =
      new (arena->allocate(sizeof(TServiceDescriptor))) TServiceDescriptor(data, length);
  d->m_ucServiceType = type;
  d->m_strProviderName.swap(providerName);
  d->m_strServiceName.swap(serviceName);
  return d;
}

bool TServiceDescriptor::isDecoded() const {
  return true;
}

}  // namespace Ostrel
