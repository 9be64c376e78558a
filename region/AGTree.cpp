// Tree nodes and their walks.
#include <sorn.h>

#include "region/tree_walk.h"

using namespace sorn::region;

namespace {
auto node_caller(SornAGTwalkFn fn, void *arg) {
  return [fn, arg](SornAGTnode *n, int32_t index) { return fn(n, arg, index); };
}
}  // namespace

extern "C" {

SornAGTnode *SornAGTaddchild(SornAGTnode *parent, SornAGTnode *child) {
  child->parent = parent;
  child->next = parent->child;
  parent->child = child;
  return parent;
}

SornAGTnode *SornDGTnodeData(SornAGTnode *node, void *slot) {
  node->data = slot;
  *static_cast<SornAGTnode **>(slot) = node;
  return node;
}

int32_t SornAGTcountChildren(const SornAGTnode *node, int recursive) {
  return count_children(node, recursive != 0);
}

int32_t _T_agt_walk_preorder(SornAGTnode *node, SornAGTwalkFn fn, void *arg) {
  return walk_preorder(node, node_caller(fn, arg));
}

int32_t _T_agt_walk_inorder(SornAGTnode *node, SornAGTwalkFn fn, void *arg) {
  return walk_inorder(node, node_caller(fn, arg));
}

int32_t _T_agt_walk_postorder(SornAGTnode *node, SornAGTwalkFn fn, void *arg) {
  return walk_postorder(node, node_caller(fn, arg));
}

int32_t SornAGTwalkFromNode(SornAGTnode *node, int32_t order, SornAGTwalkFn fn, void *arg) {
  return walk(node, order, node_caller(fn, arg));
}

int32_t SornAGTwalk(SornSTree *tree, int32_t order, SornAGTwalkFn fn, void *arg) {
  if (!tree) return 0;
  return SornAGTwalkFromNode(tree->root, order, fn, arg);
}

}  // extern "C"
