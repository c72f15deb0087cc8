#ifndef OSTREL_INTRUSIVE_LIST_H
#define OSTREL_INTRUSIVE_LIST_H

#include <stddef.h>

#include <iterator>

#include "ItemLinks.h"

namespace Ostrel {

// A list of items threaded through one of their ItemLinks lists (Which): it
// owns nothing and allocates nothing, so linking and unlinking cannot fail.
// An item is in at most one list of each kind at a time. Not copyable; not
// thread-safe (its owner's lock guards it).
template <class T, int Which>
class IntrusiveList {
 public:
  class iterator {
   public:
    typedef std::forward_iterator_tag iterator_category;
    typedef T* value_type;
    typedef ptrdiff_t difference_type;
    typedef T* const* pointer;
    typedef T* reference;

    iterator() : m_pLink(NULL) {}
    explicit iterator(ListLink* link) : m_pLink(link) {}
    T* operator*() const { return ItemLinks::itemOf<T>(ItemLinks::ofList(m_pLink, Which)); }
    iterator& operator++() {
      m_pLink = m_pLink->pNext;
      return *this;
    }
    iterator operator++(int) {
      iterator before = *this;
      m_pLink = m_pLink->pNext;
      return before;
    }
    bool operator==(const iterator& other) const { return m_pLink == other.m_pLink; }
    bool operator!=(const iterator& other) const { return m_pLink != other.m_pLink; }
    ListLink* link() const { return m_pLink; }

   private:
    ListLink* m_pLink;
  };

  IntrusiveList() : m_uiSize(0) { m_head.pPrev = m_head.pNext = &m_head; }

  bool empty() const { return m_head.pNext == &m_head; }
  size_t size() const { return m_uiSize; }
  T* front() const { return *iterator(m_head.pNext); }
  iterator begin() { return iterator(m_head.pNext); }
  iterator end() { return iterator(&m_head); }

  // Links item just before position (end(): at the back).
  void insert(iterator position, T* item) {
    ListLink* link = linkOf(item);
    ListLink* next = position.link();
    link->pPrev = next->pPrev;
    link->pNext = next;
    next->pPrev->pNext = link;
    next->pPrev = link;
    ++m_uiSize;
  }
  void pushBack(T* item) { insert(end(), item); }

  // Unlinks an item that is in this list.
  void erase(T* item) {
    ListLink* link = linkOf(item);
    link->pPrev->pNext = link->pNext;
    link->pNext->pPrev = link->pPrev;
    link->pPrev = link->pNext = NULL;
    --m_uiSize;
  }

  // Forgets every item (their links are left as they are).
  void clear() {
    m_head.pPrev = m_head.pNext = &m_head;
    m_uiSize = 0;
  }

  static iterator positionOf(T* item) { return iterator(linkOf(item)); }

 private:
  IntrusiveList(const IntrusiveList&);
  IntrusiveList& operator=(const IntrusiveList&);

  static ListLink* linkOf(T* item) { return &ItemLinks::of(item)->lnkLists[Which]; }

  ListLink m_head;
  size_t m_uiSize;
};

}  // namespace Ostrel

#endif  // OSTREL_INTRUSIVE_LIST_H
