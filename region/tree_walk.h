// The three walks over a first-child, next-sibling tree, shared by the tree
// nodes and the result regions, which have the same links under other types.
#pragma once

#include <cstdint>

namespace sorn::region {

// Pre-order: the callback's answer r steers the walk. r > 0 walks the
// children, 0 stops everything, -1 skips the subtree, below -1 abandons the
// rest of the sibling list one level up (that level then answers 1, so only
// one level is left: the asymmetry is intended).
template <class Node, class Fn> int32_t walk_preorder(Node *node, Fn &&fn) {
  int32_t r = fn(node, 0);
  if (r == 0) return 0;
  if (r == -1) return 1;
  if (r < -1) return -1;
  Node *c = node->child;
  if (!c) return r;
  int32_t last = r;
  for (; c; c = c->next) {
    last = walk_preorder(c, fn);
    if (last <= 0) break;
  }
  return last < 0 ? -last : last;
}

// In-order: a leaf is called with index -1; a node with one child once after
// it with index 0; with k > 1 children k - 1 times, between them.
template <class Node, class Fn> int32_t walk_inorder(Node *node, Fn &&fn) {
  Node *c = node->child;
  if (!c) return fn(node, -1);
  if (walk_inorder(c, fn) == 0) return 0;
  if (!c->next) return fn(node, 0);
  int32_t index = 0;
  for (c = c->next; c; c = c->next) {
    if (fn(node, index++) == 0) return 0;
    if (walk_inorder(c, fn) == 0) return 0;
  }
  return 1;
}

template <class Node, class Fn> int32_t walk_postorder(Node *node, Fn &&fn) {
  for (Node *c = node->child; c; c = c->next)
    if (walk_postorder(c, fn) == 0) return 0;
  return fn(node, 0) != 0 ? 1 : 0;
}

template <class Node, class Fn> int32_t walk(Node *node, int32_t order, Fn &&fn) {
  if (!node) return 0;
  switch (order) {
    case 1: return walk_preorder(node, fn);
    case 2: return walk_inorder(node, fn);
    case 3: return walk_postorder(node, fn);
    default: return 0;
  }
}

template <class Node> int32_t count_children(const Node *node, bool recursive) {
  int32_t n = 0;
  for (const Node *c = node->child; c; c = c->next) {
    ++n;
    if (recursive) n += count_children(c, true);
  }
  return n;
}

}  // namespace sorn::region
