#ifndef OSTREL_TSERVICE_DESCRIPTOR_H
#define OSTREL_TSERVICE_DESCRIPTOR_H

#include <string>

#include "TArena.h"
#include "TDescriptor.h"

namespace Ostrel {

// Service descriptor (tag 0x48): a service's type, provider name and name.
class TServiceDescriptor : public TDescriptor {
 public:
  static const unsigned char kTag = 0x48;

  // A new descriptor, or null when the name lengths run past the payload.
  // Placed in arena; the caller destroys it.
  static TServiceDescriptor* decode(const unsigned char* data, unsigned int length, TArena* arena);

  unsigned char getServiceType() const { return m_ucServiceType; }
  // Names as UTF-8 (see TTextCodec).
  const std::string& getProviderName() const { return m_strProviderName; }
  const std::string& getServiceName() const { return m_strServiceName; }
  bool isDecoded() const;

 private:
  TServiceDescriptor(const unsigned char* data, unsigned int length);

  unsigned char m_ucServiceType;
  std::string m_strProviderName;
  std::string m_strServiceName;
};

}  // namespace Ostrel

#endif  // OSTREL_TSERVICE_DESCRIPTOR_H
