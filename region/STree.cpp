// The tree record: a root and the hooks of whoever owns the record.
#include <sorn.h>

#include <cstdlib>

extern "C" {

SornSTree *__SornST_setbuilder(SornSTree *tree, SornSTB *builder) {
  if (!builder) return tree;
  return SornSTBxtrntree(builder, tree) == builder ? tree : nullptr;
}

SornSTree *SornSTsetbuilder(SornSTree *tree, SornSTB *builder) {
  if (!builder) {
    if (tree->builder) SornSTBxtrntree(tree->builder, nullptr);
    return tree;
  }
  return __SornST_setbuilder(tree, builder);
}

SornSTree *SornSTinit(SornSTree *tree, SornSTB *builder) {
  tree->root = nullptr;
  tree->builder = nullptr;
  if (builder) return __SornST_setbuilder(tree, builder);
  return tree;
}

SornSTree *SornSTopen(SornSTree *tree, SornSTB *builder) {
  if (!tree) {
    if (builder) {
      SornSTBclear(builder, 0);
      return __SornSTBtree(builder);
    }
    tree = static_cast<SornSTree *>(std::malloc(sizeof(SornSTree)));
    if (!tree) return nullptr;
    tree->onattach = nullptr;
    tree->onclear = nullptr;
    tree->deleter = std::free;
  }
  return SornSTinit(tree, builder);
}

SornSTree *SornSTclear(SornSTree *tree, int keep) {
  SornSTB *b = tree->builder;
  if (!b) {
    tree->root = nullptr;
    return tree;
  }
  // The builder's flag means the opposite: keep the attachment.
  return SornSTBclear(b, !keep) == b ? tree : nullptr;
}

SornSTree *SornSTfini(SornSTree *tree, int keep) {
  SornSTB *b = tree->builder;
  if (!b) {
    tree->root = nullptr;
    return tree;
  }
  bool own = tree == &b->owntree;
  if (keep)
    SornSTBxtrntree(b, nullptr);
  else
    SornSTBclose(b, 1);
  return own ? nullptr : tree;
}

void SornSTclose(SornSTree *tree, int keep) {
  if (!tree) return;
  void (*deleter)(void *) = tree->deleter;
  if (SornSTfini(tree, keep) && deleter) deleter(tree);
}

}  // extern "C"
