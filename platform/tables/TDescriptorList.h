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
  TDescriptorList() : m_ppItems(0), m_uiSize(0), m_bDestroy(false) {}
  ~TDescriptorList() {
    if (m_bDestroy)
      destroyItems();
  }
#if __cplusplus >= 201103L
  TDescriptorList(TDescriptorList&& other) noexcept;
  TDescriptorList& operator=(TDescriptorList&& other) noexcept;
#endif

  // Parses the descriptors that fill loop exactly, placing them in arena.
  // The loop's bytes must live as long as the arena (the table's copy of its
  // section). False, and the list left empty, when a descriptor's length runs
  // past the end of the loop.
  bool parse(TSectionReader loop, TArena* arena);

  // The two halves of parse, for a table that sizes its arena before it
  // builds anything. measure checks that descriptors fill loop exactly (false
  // when loop is failed or a length runs past its end) and adds their number
  // to *count and the arena space of their objects to *bytes. build places
  // the descriptors of a loop that measure accepted in arena and their
  // pointers in slots[0..n), n being what measure counted for it, and returns
  // n. The slots must live as long as the arena.
  static bool measure(TSectionReader loop, unsigned int* count, size_t* bytes);
  unsigned int build(TSectionReader loop, TDescriptor** slots, TArena* arena);

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
  void clear() {
    if (m_bDestroy)
      destroyItems();
    m_ppItems = 0;
    m_uiSize = 0;
    m_bDestroy = false;
  }
  void destroyItems();

  TDescriptor** m_ppItems;
  unsigned int m_uiSize;
  // Whether a descriptor holds memory of its own (a name, a vector of
  // entries) and must be destroyed. Raw and stream identifier descriptors
  // hold nothing and their destructors do nothing: a list of only those goes
  // with the arena, without a destructor call per descriptor.
  bool m_bDestroy;
};

}  // namespace Ostrel

#endif  // OSTREL_TDESCRIPTOR_LIST_H
