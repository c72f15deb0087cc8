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

namespace {

inline TDescriptor* raw(unsigned char tag, const unsigned char* data, unsigned int length,
                        TArena* arena) {
  return new (arena->allocate(sizeof(TDescriptor))) TDescriptor(tag, data, length);
}

// The object for one descriptor, placed in arena: the decoded class for a
// known tag whose payload fits its layout, else a raw TDescriptor. Sets
// *owning when the object holds memory of its own (see m_bDestroy).
inline TDescriptor* make(unsigned char tag, const unsigned char* data, unsigned int length,
                         TArena* arena, bool* owning) {
  // First the one that a PMT carries for nearly every stream. Its one byte is
  // kept in the object: nothing to destroy.
  if (tag == TStreamIdentifierDescriptor::kTag) {
    TDescriptor* d = TStreamIdentifierDescriptor::decode(data, length, arena);
    return d ? d : raw(tag, data, length, arena);
  }
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
  if (decoded == 0)
    return raw(tag, data, length, arena);
  *owning = true;
  return decoded;
}

// The largest object make() places for tag (a decoded class is never smaller
// than the raw one it falls back to).
size_t objectSize(unsigned char tag) {
  switch (tag) {
    case TNetworkNameDescriptor::kTag:
      return sizeof(TNetworkNameDescriptor);
    case TServiceListDescriptor::kTag:
      return sizeof(TServiceListDescriptor);
    case TServiceDescriptor::kTag:
      return sizeof(TServiceDescriptor);
    case TStreamIdentifierDescriptor::kTag:
      return sizeof(TStreamIdentifierDescriptor);
    case TLocalTimeOffsetDescriptor::kTag:
      return sizeof(TLocalTimeOffsetDescriptor);
    case TTSInformationDescriptor::kTag:
      return sizeof(TTSInformationDescriptor);
    case TTerrestrialDeliverySystemDescriptor::kTag:
      return sizeof(TTerrestrialDeliverySystemDescriptor);
    case TPartialReceptionDescriptor::kTag:
      return sizeof(TPartialReceptionDescriptor);
    default:
      return sizeof(TDescriptor);
  }
}

}  // namespace

TDescriptorList::TDescriptorList(TDescriptorList&& other) noexcept
    : m_ppItems(other.m_ppItems), m_uiSize(other.m_uiSize), m_bDestroy(other.m_bDestroy) {
  other.m_ppItems = 0;
  other.m_uiSize = 0;
  other.m_bDestroy = false;
}

TDescriptorList& TDescriptorList::operator=(TDescriptorList&& other) noexcept {
  if (this != &other) {
    clear();
    m_ppItems = other.m_ppItems;
    m_uiSize = other.m_uiSize;
    m_bDestroy = other.m_bDestroy;
    other.m_ppItems = 0;
    other.m_uiSize = 0;
    other.m_bDestroy = false;
  }
  return *this;
}

void TDescriptorList::destroyItems() {
  // The memory is the arena's: only the destructors run here.
  for (unsigned int i = 0; i < m_uiSize; ++i)
    m_ppItems[i]->~TDescriptor();
}

bool TDescriptorList::parse(TSectionReader loop, TArena* arena) {
  clear();
  unsigned int count = 0;
  size_t bytes = 0;  // not needed here: the arena grows as it must
  if (!measure(loop, &count, &bytes))
    return false;
  if (count == 0)
    return true;
  TDescriptor** slots = static_cast<TDescriptor**>(arena->allocate(count * sizeof(TDescriptor*)));
  build(loop, slots, arena);
  return true;
}

bool TDescriptorList::measure(TSectionReader loop, unsigned int* count, size_t* bytes) {
  // Each descriptor's tag and length byte, then its length, within the loop.
  unsigned int n = 0;
  size_t objects = 0;
  while (loop.ok() && !loop.atEnd()) {
    const unsigned char tag = loop.u8();
    loop.skip(loop.u8());
    objects += TArena::footprint(objectSize(tag));
    ++n;
  }
  if (!loop.ok())
    return false;
  *count += n;
  *bytes += objects;
  return true;
}

unsigned int TDescriptorList::build(TSectionReader loop, TDescriptor** slots, TArena* arena) {
  clear();
  if (loop.atEnd())
    return 0;
  m_ppItems = slots;
  while (!loop.atEnd()) {
    const unsigned char tag = loop.u8();
    const unsigned char length = loop.u8();
    const unsigned char* body = loop.bytes(length);
    slots[m_uiSize] = make(tag, body, length, arena, &m_bDestroy);
    ++m_uiSize;
  }
  return m_uiSize;
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
  bool owning = false;
  return make(tag, data, length, arena, &owning);
}

}  // namespace Ostrel
