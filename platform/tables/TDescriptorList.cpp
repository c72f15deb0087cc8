#include "TDescriptorList.h"

#include <new>

#include "TLocalTimeOffsetDescriptor.h"
#include "TNetworkNameDescriptor.h"
#include "TPartialReceptionDescriptor.h"
#include "TServiceDescriptor.h"
#include "TServiceListDescriptor.h"
#include "TStreamIdentifierDescriptor.h"
#include "TTSInformationDescriptor.h"
#include "TTerrestrialDeliverySystemDescriptor.h"

namespace Ostrel {

TDescriptorList::~TDescriptorList() {
  clear();
}

TDescriptorList::TDescriptorList(TDescriptorList&& other) noexcept
    : m_ppItems(other.m_ppItems), m_uiSize(other.m_uiSize) {
  other.m_ppItems = 0;
  other.m_uiSize = 0;
}

TDescriptorList& TDescriptorList::operator=(TDescriptorList&& other) noexcept {
  if (this != &other) {
    clear();
    m_ppItems = other.m_ppItems;
    m_uiSize = other.m_uiSize;
    other.m_ppItems = 0;
    other.m_uiSize = 0;
  }
  return *this;
}

void TDescriptorList::clear() {
  // The memory is the arena's: only the destructors run here.
  for (unsigned int i = 0; i < m_uiSize; ++i)
    m_ppItems[i]->~TDescriptor();
  m_ppItems = 0;
  m_uiSize = 0;
}

bool TDescriptorList::parse(TSectionReader loop, TArena* arena) {
  clear();
  // First pass: check every length and count, so that the array is sized once.
  TSectionReader scan = loop;
  unsigned int count = 0;
  while (scan.ok() && !scan.atEnd()) {
    scan.u8();
    scan.skip(scan.u8());
    ++count;
  }
  if (!scan.ok())
    return false;
  if (count == 0)
    return true;
  m_ppItems = static_cast<TDescriptor**>(arena->allocate(count * sizeof(TDescriptor*)));
  while (m_uiSize < count) {
    unsigned char tag = loop.u8();
    unsigned char length = loop.u8();
    const unsigned char* payload = loop.bytes(length);
    m_ppItems[m_uiSize] = create(tag, payload, length, arena);
    ++m_uiSize;
  }
  return true;
}

const TDescriptor* TDescriptorList::find(unsigned char tag) const {
  for (unsigned int i = 0; i < m_uiSize; ++i) {
    if (m_ppItems[i]->getTag() == tag)
      return m_ppItems[i];
  }
  return 0;
}

TDescriptor* TDescriptorList::create(unsigned char tag, const unsigned char* data,
                                     unsigned int length, TArena* arena) {
  TDescriptor* decoded = 0;
  switch (tag) {
    case TNetworkNameDescriptor::kTag:
      decoded = TNetworkNameDescriptor::decode(data, length, arena);
      break;
    case TServiceListDescriptor::kTag:
      decoded = TServiceListDescriptor::decode(data, length, arena);
      break;
    case TServiceDescriptor::kTag:
      decoded = TServiceDescriptor::decode(data, length, arena);
      break;
    case TStreamIdentifierDescriptor::kTag:
      decoded = TStreamIdentifierDescriptor::decode(data, length, arena);
      break;
    case TLocalTimeOffsetDescriptor::kTag:
      decoded = TLocalTimeOffsetDescriptor::decode(data, length, arena);
      break;
    case TTSInformationDescriptor::kTag:
      decoded = TTSInformationDescriptor::decode(data, length, arena);
      break;
    case TTerrestrialDeliverySystemDescriptor::kTag:
      decoded = TTerrestrialDeliverySystemDescriptor::decode(data, length, arena);
      break;
    case TPartialReceptionDescriptor::kTag:
      decoded = TPartialReceptionDescriptor::decode(data, length, arena);
      break;
    default:
      break;
  }
  if (decoded)
    return decoded;
  return new (arena->allocate(sizeof(TDescriptor))) TDescriptor(tag, data, length);
}

}  // namespace Ostrel
