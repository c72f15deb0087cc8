// The follower's intrusive red-black tree: the textbook algorithm with parent
// pointers and null leaves, the colour kept in the parent pointer's low bit.
#include "ItemTree.h"

namespace Ostrel {

namespace {

const uintptr_t kBlack = 1;

void setParent(TreeLink* node, TreeLink* parent) {
  node->uParentColor = reinterpret_cast<uintptr_t>(parent) | (node->uParentColor & kBlack);
}

void setBlack(TreeLink* node) {
  node->uParentColor |= kBlack;
}

void setRed(TreeLink* node) {
  node->uParentColor &= ~kBlack;
}

// Gives node the colour of model.
void copyColor(TreeLink* node, const TreeLink* model) {
  node->uParentColor = (node->uParentColor & ~kBlack) | (model->uParentColor & kBlack);
}

}  // namespace

void ItemTree::link(TreeLink* parent, bool toLeft, TreeLink* node) {
  node->pLeft = node->pRight = NULL;
  node->uParentColor = reinterpret_cast<uintptr_t>(parent);  // red
  if (!parent) {
    m_pRoot = node;
  } else if (toLeft) {
    parent->pLeft = node;
  } else {
    parent->pRight = node;
  }
  ++m_uiSize;
  rebalanceAfterLink(node);
}

void ItemTree::rebalanceAfterLink(TreeLink* node) {
  TreeLink* up;
  while ((up = parent(node)) && !isBlack(up)) {
    // A red parent is never the root, so the grandparent exists.
    TreeLink* grand = parent(up);
    const bool upIsLeft = up == grand->pLeft;
    TreeLink* uncle = upIsLeft ? grand->pRight : grand->pLeft;
    if (!isBlack(uncle)) {
      setBlack(up);
      setBlack(uncle);
      setRed(grand);
      node = grand;
      continue;
    }
    if (upIsLeft) {
      if (node == up->pRight) {
        node = up;
        rotateLeft(node);
        up = parent(node);
      }
      setBlack(up);
      setRed(grand);
      rotateRight(grand);
    } else {
      if (node == up->pLeft) {
        node = up;
        rotateRight(node);
        up = parent(node);
      }
      setBlack(up);
      setRed(grand);
      rotateLeft(grand);
    }
  }
  setBlack(m_pRoot);
}

void ItemTree::unlink(TreeLink* node) {
  TreeLink* child;        // the node that moves up into the removed place
  TreeLink* childParent;  // its parent afterwards (child may be null)
  bool removedBlack = isBlack(node);
  if (!node->pLeft || !node->pRight) {
    child = node->pLeft ? node->pLeft : node->pRight;
    childParent = parent(node);
    transplant(node, child);
  } else {
    // Two children: the successor takes the node's place and colour.
    TreeLink* successor = node->pRight;
    while (successor->pLeft) {
      successor = successor->pLeft;
    }
    removedBlack = isBlack(successor);
    child = successor->pRight;
    if (parent(successor) == node) {
      childParent = successor;
    } else {
      childParent = parent(successor);
      transplant(successor, child);
      successor->pRight = node->pRight;
      setParent(successor->pRight, successor);
    }
    transplant(node, successor);
    successor->pLeft = node->pLeft;
    setParent(successor->pLeft, successor);
    copyColor(successor, node);
  }
  --m_uiSize;
  if (removedBlack) {
    rebalanceAfterUnlink(child, childParent);
  }
  node->pLeft = node->pRight = NULL;
  node->uParentColor = 0;
}

// node (possibly null) carries an extra black that must be given away.
void ItemTree::rebalanceAfterUnlink(TreeLink* node, TreeLink* up) {
  while (node != m_pRoot && isBlack(node)) {
    if (node == up->pLeft) {
      TreeLink* sibling = up->pRight;
      if (!isBlack(sibling)) {
        setBlack(sibling);
        setRed(up);
        rotateLeft(up);
        sibling = up->pRight;
      }
      if (isBlack(sibling->pLeft) && isBlack(sibling->pRight)) {
        setRed(sibling);
        node = up;
        up = parent(node);
        continue;
      }
      if (isBlack(sibling->pRight)) {
        setBlack(sibling->pLeft);
        setRed(sibling);
        rotateRight(sibling);
        sibling = up->pRight;
      }
      copyColor(sibling, up);
      setBlack(up);
      setBlack(sibling->pRight);
      rotateLeft(up);
    } else {
      TreeLink* sibling = up->pLeft;
      if (!isBlack(sibling)) {
        setBlack(sibling);
        setRed(up);
        rotateRight(up);
        sibling = up->pLeft;
      }
      if (isBlack(sibling->pLeft) && isBlack(sibling->pRight)) {
        setRed(sibling);
        node = up;
        up = parent(node);
        continue;
      }
      if (isBlack(sibling->pLeft)) {
        setBlack(sibling->pRight);
        setRed(sibling);
        rotateLeft(sibling);
        sibling = up->pLeft;
      }
      copyColor(sibling, up);
      setBlack(up);
      setBlack(sibling->pLeft);
      rotateRight(up);
    }
    node = m_pRoot;
  }
  if (node) {
    setBlack(node);
  }
}

void ItemTree::replace(TreeLink* old, TreeLink* node) {
  node->pLeft = old->pLeft;
  node->pRight = old->pRight;
  node->uParentColor = old->uParentColor;
  transplant(old, node);
  if (node->pLeft) {
    setParent(node->pLeft, node);
  }
  if (node->pRight) {
    setParent(node->pRight, node);
  }
  old->pLeft = old->pRight = NULL;
  old->uParentColor = 0;
}

// Hangs node (possibly null) where old hangs; old's own links are untouched.
void ItemTree::transplant(TreeLink* old, TreeLink* node) {
  TreeLink* up = parent(old);
  if (!up) {
    m_pRoot = node;
  } else if (old == up->pLeft) {
    up->pLeft = node;
  } else {
    up->pRight = node;
  }
  if (node) {
    setParent(node, up);
  }
}

void ItemTree::rotateLeft(TreeLink* node) {
  TreeLink* pivot = node->pRight;
  node->pRight = pivot->pLeft;
  if (pivot->pLeft) {
    setParent(pivot->pLeft, node);
  }
  transplant(node, pivot);
  pivot->pLeft = node;
  setParent(node, pivot);
}

void ItemTree::rotateRight(TreeLink* node) {
  TreeLink* pivot = node->pLeft;
  node->pLeft = pivot->pRight;
  if (pivot->pRight) {
    setParent(pivot->pRight, node);
  }
  transplant(node, pivot);
  pivot->pRight = node;
  setParent(node, pivot);
}

}  // namespace Ostrel
