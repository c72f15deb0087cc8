#ifndef OSTREL_TDESCRIPTOR_LIST_H
#define OSTREL_TDESCRIPTOR_LIST_H

#include <vector>

#include "TDescriptor.h"
#include "TSectionReader.h"

namespace Ostrel {

// A descriptor loop: the descriptors in wire order. Owns them and deletes them
// with itself. Movable, not copyable. Read-only once parsed; any thread may
// read it concurrently.
class TDescriptorList {
 public:
  TDescriptorList();
  ~TDescriptorList();
  TDescriptorList(TDescriptorList&& other) noexcept;
  TDescriptorList& operator=(TDescriptorList&& other) noexcept;

  // Parses the descriptors that fill loop exactly. False, and the list left
  // empty, when a descriptor's length runs past the end of the loop.
  bool parse(TSectionReader loop);

  unsigned int size() const { return static_cast<unsigned int>(m_vecItems.size()); }
  bool empty() const { return m_vecItems.empty(); }
  // The descriptor at index (< size()); borrowed.
  const TDescriptor* at(unsigned int index) const { return m_vecItems[index]; }
  // The first descriptor with this tag, or null.
  const TDescriptor* find(unsigned char tag) const;
  // The first decoded descriptor of class T (by T::kTag), or null.
  template <class T>
  const T* findDecoded() const {
    for (unsigned int i = 0; i < m_vecItems.size(); ++i) {
      const TDescriptor* d = m_vecItems[i];
      if (d->getTag() == T::kTag && d->isDecoded())
        return static_cast<const T*>(d);
    }
    return 0;
  }

  // The decoded object for a known tag whose payload fits its layout, else a
  // raw TDescriptor. The caller owns the result.
  static TDescriptor* create(unsigned char tag, const unsigned char* data, unsigned int length);

 private:
  TDescriptorList(const TDescriptorList&);
  TDescriptorList& operator=(const TDescriptorList&);
  void clear();

  std::vector<TDescriptor*> m_vecItems;
};

}  // namespace Ostrel

#endif  // OSTREL_TDESCRIPTOR_LIST_H
