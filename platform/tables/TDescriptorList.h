#ifndef OSTREL_TDESCRIPTOR_LIST_H
#define OSTREL_TDESCRIPTOR_LIST_H

#include "TArena.h"
#include "TDescriptor.h"
#include "TSectionReader.h"

namespace Ostrel {

// A descriptor loop: the descriptors in wire order. The descriptors and the
// array that holds them live in the table's arena; the list destroys them
// with itself, and the arena must outlive it. Movable, not copyable.
// Read-only once parsed; any thread may read it concurrently.
class TDescriptorList {
 public:
  TDescriptorList() : m_ppItems(0), m_uiSize(0) {}
  ~TDescriptorList();
  TDescriptorList(TDescriptorList&& other) noexcept;
  TDescriptorList& operator=(TDescriptorList&& other) noexcept;

  // Parses the descriptors that fill loop exactly, placing them in arena.
  // The loop's bytes must live as long as the arena (the table's copy of its
  // section). False, and the list left empty, when a descriptor's length runs
  // past the end of the loop.
  bool parse(TSectionReader loop, TArena* arena);

  unsigned int size() const { return m_uiSize; }
  bool empty() const { return m_uiSize == 0; }
  // The descriptor at index (< size()); borrowed.
  const TDescriptor* at(unsigned int index) const { return m_ppItems[index]; }
  // The first descriptor with this tag, or null.
  const TDescriptor* find(unsigned char tag) const;
  // The first decoded descriptor of class T (by T::kTag), or null.
  template <class T>
  const T* findDecoded() const {
    for (unsigned int i = 0; i < m_uiSize; ++i) {
      const TDescriptor* d = m_ppItems[i];
      if (d->getTag() == T::kTag && d->isDecoded())
        return static_cast<const T*>(d);
    }
    return 0;
  }

  // The decoded object for a known tag whose payload fits its layout, else a
  // raw TDescriptor, placed in arena. The caller destroys it (not deletes).
  static TDescriptor* create(unsigned char tag, const unsigned char* data, unsigned int length,
                             TArena* arena);

 private:
  TDescriptorList(const TDescriptorList&);
  TDescriptorList& operator=(const TDescriptorList&);
  void clear();

  TDescriptor** m_ppItems;
  unsigned int m_uiSize;
};

}  // namespace Ostrel

#endif  // OSTREL_TDESCRIPTOR_LIST_H
