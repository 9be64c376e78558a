// The tree builder: memory for nodes, the operation chain of a concrete
// builder, and the pairing of a builder with one tree.
#include <sorn.h>

#include <cstdint>
#include <cstring>

namespace {

const SornSTBstbl *stbl_of(const SornSTB *b) {
  return static_cast<const SornSTBstbl *>(_T_stb__findblock(b->ops, SORN_STB_TAG_STBL));
}

struct DtorFrame {
  SornSTBnodeDtor dtor;
  SornSTB *builder;
};

// Attaching a tree that another builder holds empties that builder first.
void take_tree(SornSTB *b, SornSTree *tree) {
  if (tree->builder) SornSTBclear(tree->builder, 0);
  __SornSTBattach(b, tree);
  if (tree->onattach) tree->onattach(tree, b);
}

}  // namespace

extern "C" {

void *_T_stb__findblock(const SornSTBops *ops, uint32_t tag) {
  if (!ops) return nullptr;
  const char *p = reinterpret_cast<const char *>(ops);
  for (;;) {
    const SornSTBops *h = reinterpret_cast<const SornSTBops *>(p);
    if (h->tag == 0) return nullptr;
    if (h->tag == tag) return const_cast<SornSTBops *>(h);
    if (h->length == 0) return nullptr;  // a malformed chain would loop for ever
    p += h->length;
  }
}

SornSTB *__SornSTBattach(SornSTB *b, SornSTree *tree) {
  b->tree = tree;
  tree->builder = b;
  const SornSTBstbl *s = stbl_of(b);
  if (s && s->attached) s->attached(b, tree, s->hdr.tag);
  return b;
}

SornSTB *__SornSTBdetach(SornSTB *b) {
  SornSTree *tree = b->tree;
  if (!tree) return b;
  const SornSTBstbl *s = stbl_of(b);
  if (s && s->become_detached) s->become_detached(b);
  tree->builder = nullptr;
  b->tree = nullptr;
  return b;
}

int32_t _T_stb__call_data_dtor(SornAGTnode *node, void *frame, int32_t) {
  DtorFrame *f = static_cast<DtorFrame *>(frame);
  f->dtor(node, f->builder);
  return 1;
}

SornSTB *_T_STBdestroyTree(SornSTB *b, int keep) {
  SornSTree *tree = b->tree;
  if (!tree) return b;
  if (tree->builder != b) {
    // The tree went to another builder since; it is that one's now.
    b->tree = nullptr;
    return b;
  }
  const SornSTBstbl *s = stbl_of(b);
  if (s && s->getddtor) {
    SornSTBnodeDtor dtor = s->getddtor(b, keep, s->hdr.tag);
    if (dtor && tree->root) {
      DtorFrame frame{dtor, b};
      _T_agt_walk_postorder(tree->root, _T_stb__call_data_dtor, &frame);
    }
  }
  if (tree->onclear) tree->onclear(tree, b);
  tree->root = nullptr;
  if (!keep) __SornSTBdetach(b);
  return b;
}

SornSTB *SornSTBclear(SornSTB *b, int keep) {
  _T_STBdestroyTree(b, keep);
  if (b->mmstack) KuSMEMSTGsetstate(b->mmstack, &b->mmbase);
  return b;
}

SornSTB *SornSTBxtrntree(SornSTB *b, SornSTree *tree) {
  if (!tree) return SornSTBclear(b, 0);
  if (tree == b->tree || tree->builder == b) return b;
  if (tree == &b->owntree) return nullptr;
  SornSTBclear(b, 0);
  take_tree(b, tree);
  return b;
}

SornSTree *__SornSTBtree(SornSTB *b) {
  if (b->tree) return b->tree;
  __SornSTBattach(b, &b->owntree);
  if (b->owntree.onattach) b->owntree.onattach(&b->owntree, b);
  return b->tree;
}

SornSTree *__SornSTBrootnode(SornSTB *b, SornAGTnode *node) {
  SornSTree *tree = __SornSTBtree(b);
  tree->root = node;
  return tree;
}

SornSTB *__SornSTBinitMmstack(SornSTB *b, void *mmparent) {
  if (b->mmstack) return b;
  if (mmparent) b->mmparent = mmparent;
  b->mmstack = KuSMEMSTGopen(b->mmown, (uint64_t)(uintptr_t)b->mmparent, 0);
  KuSMEMSTGgetstate(&b->mmbase, b->mmstack, 0);
  return b;
}

void *__SornSTBmmstack(SornSTB *b) {
  if (!b->mmstack) __SornSTBinitMmstack(b, nullptr);
  return b->mmstack;
}

KuMark *__SornSTBgetmmsp(SornSTB *b, KuMark *state) {
  return KuSMEMSTGgetstate(state, __SornSTBmmstack(b), 0);
}

void __SornSTBsetmmsp(SornSTB *b, const KuMark *state) {
  KuSMEMSTGsetstate(__SornSTBmmstack(b), state);
}

void __SornSTBfreea(SornSTB *b, void *block) {
  if (b->mmstack) KuSMEMSTGfree(b->mmstack, block);
}

SornAGTnode *SornSTBnewnode(SornSTB *b) {
  void *p = KuSMEMSTGaalloc(__SornSTBmmstack(b), sizeof(SornAGTnode), 8, 0);
  if (p) std::memset(p, 0, sizeof(SornAGTnode));
  return static_cast<SornAGTnode *>(p);
}

SornSTB *SornSTBinit(SornSTB *b, const SornSTBops *ops, size_t extsize, SornSTree *tree,
                     void *mmstack, void *mmparent) {
  if (b->flags & SORN_STB_INITED) return b;
  if (tree == &b->owntree) {
    tree = nullptr;
  } else if (tree && tree->builder == b) {
    tree->builder = nullptr;
  }
  b->ops = ops;
  b->extsize = static_cast<uint16_t>(extsize);
  b->tree = nullptr;
  if (mmstack == static_cast<void *>(b->mmown)) mmstack = nullptr;
  b->mmstack = mmstack;
  b->mmparent = mmparent;
  if (mmstack) KuSMEMSTGgetstate(&b->mmbase, mmstack, 0);
  std::memset(&b->owntree, 0, sizeof b->owntree);
  b->flags = SORN_STB_INITED;
  if (tree) take_tree(b, tree);
  return b;
}

SornSTB *SornSTBopen(SornSTB *b, const SornSTBops *ops, size_t extsize, SornSTree *tree,
                     void *mmstack, void *mmparent) {
  uint16_t own = 0;
  if (!b) {
    if (mmstack) {
      own = SORN_STB_ONSTACK;
    } else {
      mmstack = KuSMEMSTGopen(nullptr, (uint64_t)(uintptr_t)mmparent, 0);
      own = SORN_STB_ONSTACK | SORN_STB_OWNSTACK;
    }
    b = static_cast<SornSTB *>(KuSMEMSTGaalloc(mmstack, sizeof(SornSTB) + extsize, 8, 0));
    if (!b) {
      // Not part of the contract, which leaves a failed stack to the base
      // library; a null record must not be written to.
      if (own & SORN_STB_OWNSTACK) KuMEMSTGclose(mmstack);
      return nullptr;
    }
  }
  std::memset(b, 0, sizeof(SornSTB) + extsize);
  SornSTBinit(b, ops, extsize, tree, mmstack, mmparent);
  b->flags |= own;
  return b;
}

SornSTB *SornSTBfini(SornSTB *b, int keep) {
  if (!(b->flags & SORN_STB_INITED)) return b;
  SornSTree *tree = b->tree;
  bool ours = tree && tree->builder == b;
  _T_STBdestroyTree(b, 0);
  if (!keep && ours && tree != &b->owntree) SornSTclose(tree, 1);
  if (b->mmstack == static_cast<void *>(b->mmown)) {
    KuMEMSTGdestroy(b->mmstack);
    b->mmstack = nullptr;
  } else if (b->mmstack) {
    KuSMEMSTGsetstate(b->mmstack, &b->mmbase);
  }
  b->mmparent = nullptr;
  b->flags &= static_cast<uint16_t>(~SORN_STB_INITED);
  return b;
}

void SornSTBclose(SornSTB *b, int keep) {
  if (!b) return;
  uint16_t flags = b->flags;
  void *stack = b->mmstack;
  SornSTBfini(b, keep);
  if (flags & SORN_STB_ONSTACK) {
    if (flags & SORN_STB_OWNSTACK)
      KuMEMSTGclose(stack);
    else
      KuSMEMSTGfree(stack, b);
  }
}

SornSTB *__SornSTBresetMmstack(SornSTB *b, void *mmstack, void *mmparent) {
  if (mmstack == b->mmstack) return b;
  SornSTree *tree = b->tree;
  const SornSTBops *ops = b->ops;
  void *userdata = b->userdata;
  uint16_t extsize = b->extsize;
  if (tree == &b->owntree) tree = nullptr;
  if (mmstack == static_cast<void *>(b->mmown)) mmstack = nullptr;
  SornSTB *storage = b;
  if (b->flags & SORN_STB_ONSTACK) {
    SornSTBclose(b, 1);
    storage = nullptr;
  } else {
    SornSTBfini(b, 1);
  }
  SornSTB *nb = SornSTBopen(storage, ops, extsize, tree, mmstack, mmparent);
  if (nb) nb->userdata = userdata;
  return nb;
}

SornSTB *__SornSTBdestroyMmstack(SornSTB *b) { return __SornSTBresetMmstack(b, nullptr, nullptr); }

}  // extern "C"
