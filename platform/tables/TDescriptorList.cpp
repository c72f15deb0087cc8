#include "TDescriptorList.h"

#include "TLocalTimeOffsetDescriptor.h"
#include "TNetworkNameDescriptor.h"
#include "TPartialReceptionDescriptor.h"
#include "TServiceDescriptor.h"
#include "TServiceListDescriptor.h"
#include "TStreamIdentifierDescriptor.h"
#include "TTSInformationDescriptor.h"
#include "TTerrestrialDeliverySystemDescriptor.h"

namespace Ostrel {

TDescriptorList::TDescriptorList() {}

TDescriptorList::~TDescriptorList() {
  clear();
}

TDescriptorList::TDescriptorList(TDescriptorList&& other) noexcept {
  m_vecItems.swap(other.m_vecItems);
}

TDescriptorList& TDescriptorList::operator=(TDescriptorList&& other) noexcept {
  if (this != &other) {
    clear();
    m_vecItems.swap(other.m_vecItems);
  }
  return *this;
}

void TDescriptorList::clear() {
  for (unsigned int i = 0; i < m_vecItems.size(); ++i)
    delete m_vecItems[i];
  m_vecItems.clear();
}

bool TDescriptorList::parse(TSectionReader loop) {
  clear();
  while (loop.ok() && !loop.atEnd()) {
    unsigned char tag = loop.u8();
    unsigned char length = loop.u8();
    const unsigned char* payload = loop.bytes(length);
    if (!loop.ok())
      break;
    m_vecItems.push_back(0);  // room first, so that a throwing push leaks nothing
    m_vecItems.back() = create(tag, payload, length);
  }
  if (!loop.ok()) {
    clear();
    return false;
  }
  return true;
}

const TDescriptor* TDescriptorList::find(unsigned char tag) const {
  for (unsigned int i = 0; i < m_vecItems.size(); ++i) {
    if (m_vecItems[i]->getTag() == tag)
      return m_vecItems[i];
  }
  return 0;
}

TDescriptor* TDescriptorList::create(unsigned char tag, const unsigned char* data,
                                     unsigned int length) {
  TDescriptor* decoded = 0;
  switch (tag) {
    case TNetworkNameDescriptor::kTag:
      decoded = TNetworkNameDescriptor::decode(data, length);
      break;
    case TServiceListDescriptor::kTag:
      decoded = TServiceListDescriptor::decode(data, length);
      break;
    case TServiceDescriptor::kTag:
      decoded = TServiceDescriptor::decode(data, length);
      break;
    case TStreamIdentifierDescriptor::kTag:
      decoded = TStreamIdentifierDescriptor::decode(data, length);
      break;
    case TLocalTimeOffsetDescriptor::kTag:
      decoded = TLocalTimeOffsetDescriptor::decode(data, length);
      break;
    case TTSInformationDescriptor::kTag:
      decoded = TTSInformationDescriptor::decode(data, length);
      break;
    case TTerrestrialDeliverySystemDescriptor::kTag:
      decoded = TTerrestrialDeliverySystemDescriptor::decode(data, length);
      break;
    case TPartialReceptionDescriptor::kTag:
      decoded = TPartialReceptionDescriptor::decode(data, length);
      break;
    default:
      break;
  }
  return decoded ? decoded : new TDescriptor(tag, data, length);
}

}  // namespace Ostrel
