#ifndef OSTREL_ITEM_LINKS_H
#define OSTREL_ITEM_LINKS_H

#include <stddef.h>
#include <stdint.h>

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
// operator new lays the block out).
struct ItemLinks {
  enum { kTimeOutList, kCategoryList, kListCount };
  enum { kDeadlineTree, kKeyTree, kIdTree, kTreeCount };

  ListLink lnkLists[kListCount];
  TreeLink lnkTrees[kTreeCount];

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

// Where the item starts in the block: after the links, aligned for any scalar
// or pointer that the item holds.
const size_t kItemAlign = 8;
const size_t kItemOffset = (sizeof(ItemLinks) + kItemAlign - 1) & ~(kItemAlign - 1);

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
