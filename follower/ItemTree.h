#ifndef OSTREL_ITEM_TREE_H
#define OSTREL_ITEM_TREE_H

#include <stddef.h>

#include "ItemLinks.h"

namespace Ostrel {

// A red-black tree of TreeLinks that owns nothing and allocates nothing: the
// caller finds where a node goes (walking from root() with its own order) and
// links it there; the tree keeps itself balanced, so that walk stays
// logarithmic. Linking, unlinking and replacing cannot fail. Not copyable;
// not thread-safe (its owner's lock guards it).
class ItemTree {
 public:
  ItemTree() : m_pRoot(NULL), m_uiSize(0) {}

  TreeLink* root() const { return m_pRoot; }
  bool empty() const { return m_pRoot == NULL; }
  size_t size() const { return m_uiSize; }

  // The first node in order, or null.
  TreeLink* first() const {
    TreeLink* node = m_pRoot;
    while (node && node->pLeft) {
      node = node->pLeft;
    }
    return node;
  }
  // The node after node in order, or null.
  static TreeLink* next(const TreeLink* node) {
    if (node->pRight) {
      TreeLink* n = node->pRight;
      while (n->pLeft) {
        n = n->pLeft;
      }
      return n;
    }
    TreeLink* up = parent(node);
    while (up && node == up->pRight) {
      node = up;
      up = parent(up);
    }
    return up;
  }
  static TreeLink* parent(const TreeLink* node) {
    return reinterpret_cast<TreeLink*>(node->uParentColor & ~static_cast<uintptr_t>(1));
  }
  static bool isBlack(const TreeLink* node) { return !node || (node->uParentColor & 1) != 0; }

  // Links node as the left (toLeft) or right child of parent, which has no
  // child on that side; a null parent when the tree is empty.
  void link(TreeLink* parent, bool toLeft, TreeLink* node);
  // Unlinks a node that is in this tree.
  void unlink(TreeLink* node);
  // Puts node, which is in no tree, in the place of old, which is in this one.
  void replace(TreeLink* old, TreeLink* node);
  // Forgets every node (their links are left as they are).
  void clear() {
    m_pRoot = NULL;
    m_uiSize = 0;
  }

 private:
  ItemTree(const ItemTree&);
  ItemTree& operator=(const ItemTree&);

  void rotateLeft(TreeLink* node);
  void rotateRight(TreeLink* node);
  void transplant(TreeLink* old, TreeLink* node);
  void rebalanceAfterLink(TreeLink* node);
  void rebalanceAfterUnlink(TreeLink* node, TreeLink* parent);

  TreeLink* m_pRoot;
  size_t m_uiSize;
};

}  // namespace Ostrel

#endif  // OSTREL_ITEM_TREE_H
