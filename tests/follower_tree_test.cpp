// The follower's intrusive red-black tree on its own, against a sorted model:
// random links, unlinks and replacements, with the tree's shape checked after
// every step (order, parent links, no red node with a red child, the same
// number of black nodes on every path, the size).
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "ItemTree.h"

using Ostrel::ItemTree;
using Ostrel::TreeLink;

namespace {

struct Node {
  TreeLink link;
  int key;
  int serial;  // order of linking, to check that equal keys stay in that order
};

Node* nodeOf(TreeLink* link) {
  return reinterpret_cast<Node*>(reinterpret_cast<char*>(link) - offsetof(Node, link));
}

// Equal keys go right, as the follower links them.
void linkInOrder(ItemTree* tree, Node* node) {
  TreeLink* parent = nullptr;
  bool toLeft = false;
  for (TreeLink* at = tree->root(); at;) {
    parent = at;
    toLeft = node->key < nodeOf(at)->key;
    at = toLeft ? at->pLeft : at->pRight;
  }
  tree->link(parent, toLeft, &node->link);
}

// The black height below link, or -1 with a reason in *problem.
int check(TreeLink* link, TreeLink* parent, std::string* problem) {
  if (!link)
    return 1;
  if (ItemTree::parent(link) != parent)
    *problem = "a wrong parent link";
  if (!ItemTree::isBlack(link) &&
      (!ItemTree::isBlack(link->pLeft) || !ItemTree::isBlack(link->pRight)))
    *problem = "a red node with a red child";
  const int left = check(link->pLeft, link, problem);
  const int right = check(link->pRight, link, problem);
  if (left != right)
    *problem = "paths with different numbers of black nodes";
  return left + (ItemTree::isBlack(link) ? 1 : 0);
}

std::string shapeProblem(const ItemTree& tree) {
  std::string problem;
  if (tree.root() && !ItemTree::isBlack(tree.root()))
    problem = "a red root";
  check(tree.root(), nullptr, &problem);
  return problem;
}

// (key, serial) in tree order.
std::vector<std::pair<int, int>> contents(const ItemTree& tree) {
  std::vector<std::pair<int, int>> out;
  for (TreeLink* at = tree.first(); at; at = ItemTree::next(at))
    out.push_back({nodeOf(at)->key, nodeOf(at)->serial});
  return out;
}

TEST(FollowerTree, StaysBalancedAndOrderedOverRandomChanges) {
  for (unsigned seed = 1; seed <= 20; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    std::vector<Node> nodes(600);
    std::vector<Node*> linked, unlinked;
    for (Node& n : nodes)
      unlinked.push_back(&n);
    ItemTree tree;
    int serial = 0;
    for (int step = 0; step < 3000; ++step) {
      const unsigned action = random() % 10;
      if ((action < 5 && !unlinked.empty()) || linked.empty()) {
        Node* n = unlinked.back();
        unlinked.pop_back();
        n->key = static_cast<int>(random() % 50) - 25;  // many equal keys
        n->serial = serial++;
        linkInOrder(&tree, n);
        linked.push_back(n);
      } else if (action < 9 || unlinked.empty()) {
        const size_t at = random() % linked.size();
        Node* n = linked[at];
        tree.unlink(&n->link);
        linked.erase(linked.begin() + static_cast<long>(at));
        unlinked.push_back(n);
      } else {
        // A replacement takes the key and place of the node it replaces.
        const size_t at = random() % linked.size();
        Node* old = linked[at];
        Node* n = unlinked.back();
        unlinked.pop_back();
        n->key = old->key;
        n->serial = old->serial;
        tree.replace(&old->link, &n->link);
        linked[at] = n;
        unlinked.push_back(old);
      }
      ASSERT_EQ("", shapeProblem(tree)) << "step " << step;
      ASSERT_EQ(linked.size(), tree.size());
      std::vector<std::pair<int, int>> model;
      for (Node* n : linked)
        model.push_back({n->key, n->serial});
      std::sort(model.begin(), model.end());
      ASSERT_EQ(model, contents(tree)) << "step " << step;
    }
    while (!linked.empty()) {
      tree.unlink(&linked.back()->link);
      linked.pop_back();
      ASSERT_EQ("", shapeProblem(tree));
    }
    EXPECT_TRUE(tree.empty());
    EXPECT_EQ(nullptr, tree.first());
  }
}

// Keys linked in rising order, the follower's common case (deadlines and ids
// that grow): the tree stays shallow.
TEST(FollowerTree, RisingKeysKeepTheDepthLogarithmic) {
  std::vector<Node> nodes(1 << 14);
  ItemTree tree;
  for (size_t i = 0; i < nodes.size(); ++i) {
    nodes[i].key = static_cast<int>(i);
    linkInOrder(&tree, &nodes[i]);
  }
  int depth = 0;
  for (TreeLink* at = &nodes.back().link; at; at = ItemTree::parent(at))
    ++depth;
  EXPECT_LE(depth, 2 * 15);  // a red-black tree of n nodes is at most 2 log2(n + 1) deep
  EXPECT_EQ("", shapeProblem(tree));
}

}  // namespace
