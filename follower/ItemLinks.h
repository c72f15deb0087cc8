#ifndef OSTREL_ITEM_LINKS_H
#define OSTREL_ITEM_LINKS_H

#include <stddef.h>
#include <stdint.h>
#include <sys/time.h>

namespace Ostrel {

// A place in a doubly linked, circular list.
struct ListLink {
  ListLink* pPrev;
  ListLink* pNext;
};

// A node of a red-black tree: the parent pointer with the colour in its
// lowest bit (1 for black), which the pointers' alignment leaves free.
struct TreeLink {
  TreeLink* pLeft;
  TreeLink* pRight;
  uintptr_t uParentColor;
};

// The places of one pending request in the follower's lists and trees. They
// live in the same heap block as the request's item, just before it, so that
// a pending request costs one allocation and nothing else (the item's own
// operator new lays the block out). The request's deadline is kept beside its
// deadline-tree links, so that a walk down that tree reads one cache line per
// level instead of two.
struct ItemLinks {
  enum { kTimeOutList, kCategoryList, kListCount };
  enum { kIdTree, kKeyTree, kDeadlineTree, kTreeCount };

  ListLink lnkLists[kListCount];
  TreeLink lnkTrees[kTreeCount];
  timeval tvDeadline;  // the item's deadline, while it is in the deadline tree

  template <class T>
  static T* itemOf(ItemLinks* links);
  static ItemLinks* of(const void* item);
  static ItemLinks* ofList(ListLink* link, int which) {
    return reinterpret_cast<ItemLinks*>(reinterpret_cast<char*>(link - which) -
                                        offsetof(ItemLinks, lnkLists));
  }
  static ItemLinks* ofTree(TreeLink* link, int which) {
    return reinterpret_cast<ItemLinks*>(reinterpret_cast<char*>(link - which) -
                                        offsetof(ItemLinks, lnkTrees));
  }
};

// Where the item starts in the block: right after the links, which hold every
// kind of field that the item holds (pointers, time values) and so are
// aligned for it.
const size_t kItemOffset = sizeof(ItemLinks);

template <class T>
inline T* ItemLinks::itemOf(ItemLinks* links) {
  return reinterpret_cast<T*>(reinterpret_cast<char*>(links) + kItemOffset);
}

inline ItemLinks* ItemLinks::of(const void* item) {
  return reinterpret_cast<ItemLinks*>(const_cast<char*>(static_cast<const char*>(item)) -
                                      kItemOffset);
}

}  // namespace Ostrel

#endif  // OSTREL_ITEM_LINKS_H
