// The watershed tree builder: regions with their feature values, allocated
// together with their nodes on the builder's stack, and the operations a
// flooding finds in the builder's chain.
#include <sorn.h>

#include <cstdint>
#include <cstring>

namespace {

inline char *bytes(void *p) { return static_cast<char *>(p); }

inline void *value_of(SornWTSRegion *r, const SornWTSFeatureDs &f) { return bytes(r) + f.offset; }

inline SornWTSRegion *region_of(SornAGTnode *node) {
  return static_cast<SornWTSRegion *>(node->data);
}

void init_features(SornWTSRegion *r, const SornWTSLSC *lsc) {
  for (int32_t i = 0; i < lsc->nfeatures; ++i) {
    const SornWTSFeatureDs &f = lsc->features[i];
    if (f.init) f.init(value_of(r, f), f.arg);
  }
}

// n points more in region r: its size, and each feature's value through
// `update`, the feature's operation for points of that form.
template <class Point>
void accumulate(const SornWTSLSC *lsc, SornWTSRegion *r,
                void (*SornWTSFeatureDs::*update)(void *, const Point *, int32_t),
                const Point *points, int32_t n) {
  r->size += static_cast<uint32_t>(n);
  for (int32_t i = 0; i < lsc->nfeatures; ++i) {
    const SornWTSFeatureDs &f = lsc->features[i];
    (f.*update)(value_of(r, f), points, n);
  }
}

void destroy_features(SornWTSRegion *r, const SornWTSLSC *lsc) {
  if (!lsc) return;
  for (int32_t i = 0; i < lsc->nfeatures; ++i) {
    const SornWTSFeatureDs &f = lsc->features[i];
    if (f.destroy) f.destroy(value_of(r, f));
  }
}

void *zeroed_block(SornSTB *b, size_t size, size_t align) {
  void *p = KuSMEMSTGaalloc(__SornSTBmmstack(b), size, align ? align : 16, 0);
  if (p) std::memset(p, 0, size);
  return p;
}

// What a gather walk carries: the node it started from, where the sum goes,
// and the feature summed.
struct GatherFrame {
  SornAGTnode *start;
  void *target;
  const SornWTSFeatureDs *feature;
};

constexpr SornSTBstbl kStbl = {
    {SORN_STB_TAG_STBL, sizeof(SornSTBstbl)},
    _T_wtstb__getddtor__,
    _T_wtstb__attached__,
    _T_wtstb__become_detached__,
};

constexpr SornWTSTBopv make_table(decltype(SornWTSTBwtsl::accumulate) acc,
                                  decltype(SornWTSTBwtsl::accumulate2D) acc2d,
                                  decltype(SornWTSTBwtsl::merge) merge) {
  return SornWTSTBopv{kStbl,
                      {{SORN_STB_TAG_WTSL, sizeof(SornWTSTBwtsl)},
                       _T_wtstb__alloca__,
                       _T_wtstb__start__,
                       _T_wtstb__finish__,
                       _T_wtstb__newregion_v2__,
                       _T_wtstb__destroyrgn__,
                       _T_wtstb__disposergn__,
                       acc,
                       acc2d,
                       merge,
                       _T_wtstb__gatherfeat__},
                      0};
}

static_assert(sizeof(SornSTBstbl) == 32, "stbl block of four words");
static_assert(sizeof(SornWTSTBwtsl) == 88, "wtsl block of eleven words");
static_assert(sizeof(SornWTSTBopv) == 128, "a table of sixteen words");
static_assert(sizeof(SornWTSLSC) == SORN_WTSTB_EXTSIZE, "the layout fills the extension");
static_assert(sizeof(SornWTSRegion) == SORN_WTS_REGION_HEAD, "region head");

}  // namespace

extern "C" {

const SornWTSTBopv _S_wtstb_lazy_opv =
    make_table(_T_wtstb__accumulate__, _T_wtstb__accumulate2D__, _T_wtstb__lazymerge_v2__);
const SornWTSTBopv _S_wtstb_opv =
    make_table(_T_wtstb__accumulate__, _T_wtstb__accumulate2D__, _T_wtstb__merge_v2__);
const SornWTSTBopv _S_wtstb_mf_opv =
    make_table(_T_wtstb__accumulate_mf__, _T_wtstb__accumulate2D_mf__, _T_wtstb__lazymerge_v2__);
const SornWTSTBopv _S_wtstb_pf_opv =
    make_table(_T_wtstb__accumulate_pf__, _T_wtstb__accumulate2D_pf__, _T_wtstb__lazymerge_v2__);

const SornSTBops *SornWTSTBxinterface(void) { return &_S_wtstb_lazy_opv.stbl.hdr; }

SornSTB *__SornWTSTBinit__(SornSTB *b) {
  b->ops = SornWTSTBxinterface();
  return b;
}

SornSTB *SornWTSTBopen(SornSTB *b, SornSTree *tree, void *mmstack, void *mmparent) {
  return SornSTBopen(b, SornWTSTBxinterface(), SORN_WTSTB_EXTSIZE, tree, mmstack, mmparent);
}

SornSTB *SornWTSTBinit(SornSTB *b, SornSTree *tree, void *mmstack, void *mmparent) {
  return SornSTBinit(b, SornWTSTBxinterface(), SORN_WTSTB_EXTSIZE, tree, mmstack, mmparent);
}

/* ---- the stbl block ---- */

SornSTBnodeDtor _T_wtstb__getddtor__(SornSTB *b, int32_t, uint32_t) {
  const SornWTSLSC *lsc = static_cast<const SornWTSLSC *>(b->userdata);
  if (!lsc || lsc->nfeatures < 1) return nullptr;
  for (int32_t i = 0; i < lsc->nfeatures; ++i)
    if (lsc->features[i].destroy) return _T_wtstb__destroy_node_region;
  return nullptr;
}

void _T_wtstb__attached__(SornSTB *, SornSTree *, uint32_t) {}

void _T_wtstb__become_detached__(SornSTB *) {}

void _T_wtstb__destroy_node_region(SornAGTnode *node, SornSTB *b) {
  destroy_features(region_of(node), static_cast<const SornWTSLSC *>(b->userdata));
}

/* ---- the wtsl block ---- */

void *_T_wtstb__alloca__(SornSTB *b, size_t size, size_t align) {
  return zeroed_block(b, size, align);
}

void _T_wtstb__start__(SornSTB *b, SornWTSLSC *lsc, SornFlags flags, const uint16_t *) {
  b->userdata = nullptr;
  if (!lsc) return;
  // A record with too small an extension can't hold the layout; it then
  // runs without one, as with a null layout.
  if (b->extsize < sizeof(SornWTSLSC)) return;
  void *ext = SORN_STB_EXT(b);
  std::memcpy(ext, lsc, sizeof(SornWTSLSC));
  b->userdata = ext;
  if (flags & 0x100000u) {
    b->ops = &_S_wtstb_opv.stbl.hdr;
    return;
  }
  if ((flags & 0x600000u) && lsc->nfeatures == 1) {
    // The table chosen here stays for later runs until ops is set anew.
    if (lsc->features[0].magic == SORN_WTS_MAGIC_MOMENTS)
      b->ops = &_S_wtstb_mf_opv.stbl.hdr;
    else if (lsc->features[0].magic == SORN_WTS_MAGIC_PIXELS)
      b->ops = &_S_wtstb_pf_opv.stbl.hdr;
  }
}

int32_t _T_wtstb__xor_region_pivot_value(SornAGTnode *node, void *, int32_t) {
  region_of(node)->pivotval ^= 255u;
  return 1;
}

void _T_wtstb__finish__(SornSTB *b, SornWTSLSC *, const uint16_t *options) {
  if (!options || options[0] != 1 || options[1] == 0) return;
  if (b->tree && b->tree->root)
    _T_agt_walk_postorder(b->tree->root, _T_wtstb__xor_region_pivot_value, nullptr);
}

SornWTSRegion *_T_wtstb__newregion_v2__(SornWTSRegion *r, SornSTB *b, SornWTSLSC *lsc) {
  if (r) {
    r->size = 0;
    r->mserflag = 0;
  } else {
    char *block = static_cast<char *>(zeroed_block(b, sizeof(SornAGTnode) + lsc->regionsize, 8));
    if (!block) return nullptr;
    SornAGTnode *node = reinterpret_cast<SornAGTnode *>(block);
    r = reinterpret_cast<SornWTSRegion *>(block + sizeof(SornAGTnode));
    r->node = node;
    node->data = r;
  }
  init_features(r, lsc);
  return r;
}

void _T_wtstb__destroyrgn__(SornWTSRegion *r, void *, SornWTSLSC *lsc) { destroy_features(r, lsc); }

void _T_wtstb__disposergn__(SornWTSRegion *, void *, SornWTSLSC *) {}

void _T_wtstb__accumulate__(SornSTB *, SornWTSLSC *lsc, SornWTSRegion *r, const uint32_t *points,
                            int32_t n) {
  accumulate(lsc, r, &SornWTSFeatureDs::update, points, n);
}

void _T_wtstb__accumulate2D__(SornSTB *, SornWTSLSC *lsc, SornWTSRegion *r, const int32_t *points,
                              int32_t n) {
  accumulate(lsc, r, &SornWTSFeatureDs::update2D, points, n);
}

// The moment table: the sums only; the count stays 0, that is, not gathered.
void _T_wtstb__accumulate_mf__(SornSTB *, SornWTSLSC *lsc, SornWTSRegion *r, const uint32_t *points,
                               int32_t n) {
  r->size += static_cast<uint32_t>(n);
  SornWTSMF_update_n(static_cast<SornWTSMF *>(value_of(r, lsc->features[0])), points, n);
}

void _T_wtstb__accumulate2D_mf__(SornSTB *, SornWTSLSC *lsc, SornWTSRegion *r,
                                 const int32_t *points, int32_t n) {
  r->size += static_cast<uint32_t>(n);
  SornWTSMF_update2D_n(static_cast<SornWTSMF *>(value_of(r, lsc->features[0])), points, n);
}

// The pixel table keeps sizes only: by design no point is stored in it.
void _T_wtstb__accumulate_pf__(SornSTB *, SornWTSLSC *, SornWTSRegion *r, const uint32_t *,
                               int32_t n) {
  r->size += static_cast<uint32_t>(n);
}

void _T_wtstb__accumulate2D_pf__(SornSTB *, SornWTSLSC *, SornWTSRegion *r, const int32_t *,
                                 int32_t n) {
  r->size += static_cast<uint32_t>(n);
}

// The root follows the last merge: nothing else ever sets it.
SornSTree *_T_wtstb__lazymerge_v2__(SornSTB *b, SornWTSLSC *, SornWTSRegion *survivor,
                                    SornWTSRegion *absorbed) {
  survivor->size += absorbed->size;
  SornAGTaddchild(survivor->node, absorbed->node);
  return __SornSTBrootnode(b, survivor->node);
}

SornSTree *_T_wtstb__merge_v2__(SornSTB *b, SornWTSLSC *lsc, SornWTSRegion *survivor,
                                SornWTSRegion *absorbed) {
  survivor->size += absorbed->size;
  for (int32_t i = 0; i < lsc->nfeatures; ++i) {
    const SornWTSFeatureDs &f = lsc->features[i];
    f.merge(value_of(survivor, f), value_of(absorbed, f));
  }
  SornAGTaddchild(survivor->node, absorbed->node);
  return __SornSTBrootnode(b, survivor->node);
}

int32_t _T_wtstb__dogatherfeat(SornAGTnode *node, void *frame, int32_t) {
  GatherFrame *g = static_cast<GatherFrame *>(frame);
  const SornWTSFeatureDs &f = *g->feature;
  void *value = value_of(region_of(node), f);
  f.lazymerge(g->target, value);
  return f.isgathered(value) ? -1 : 1;
}

int32_t _T_wtstb__dogatherfeatI(SornAGTnode *node, void *frame, int32_t) {
  GatherFrame *g = static_cast<GatherFrame *>(frame);
  if (node == g->start) return 1;  // its own share is the target already
  const SornWTSFeatureDs &f = *g->feature;
  SornWTSRegion *r = region_of(node);
  void *value = value_of(r, f);
  if (!f.isgathered(value)) {
    // Complete the child first, so that a later gather stops there.
    if (f.ongather) f.ongather(value, r);
    GatherFrame inner{node, value, g->feature};
    _T_agt_walk_preorder(node, _T_wtstb__dogatherfeatI, &inner);
  }
  f.lazymerge(g->target, value);
  return -1;
}

void *_T_wtstb__gatherfeat__(SornSTB *, SornWTSLSC *lsc, void *target, void *source, int32_t index,
                             uint32_t magic) {
  if (!source) source = target;
  if (!target) return nullptr;
  if (index < 0) index = SornWTSFindexByMagic(lsc->features, lsc->nfeatures, magic);
  if (index < 0 || index >= lsc->nfeatures) return nullptr;
  const SornWTSFeatureDs &f = lsc->features[index];
  if (f.lazymerge && f.isgathered && !f.isgathered(source)) {
    SornWTSRegion *r = reinterpret_cast<SornWTSRegion *>(bytes(source) - f.offset);
    SornAGTnode *node = r->node;
    if (!node || node->data != r) return nullptr;
    // The value that becomes complete is the target; in place that is the
    // source itself.
    if (f.ongather) f.ongather(target, r);
    GatherFrame frame{node, target, &f};
    _T_agt_walk_preorder(node, source == target ? _T_wtstb__dogatherfeatI : _T_wtstb__dogatherfeat,
                         &frame);
    return target;
  }
  if (source == target) return target;
  if (f.copy)
    f.copy(target, source, 0);
  else
    std::memcpy(target, source, f.size);
  return target;
}

/* ---- the same, outside the chain ---- */

SornWTSRegion *__SornWTSTBnewregion(SornWTSRegion *r, SornSTB *b, SornWTSLSC *lsc) {
  SornWTSLSCfixup(lsc);
  if (r) {
    r->node = nullptr;
    r->size = 0;
    r->mserflag = 0;
  } else {
    r = static_cast<SornWTSRegion *>(zeroed_block(b, lsc->regionsize, 8));
    if (!r) return nullptr;
  }
  init_features(r, lsc);
  return r;
}

SornAGTnode *__SornWTSTBnewnodeWithRegion(SornSTB *b, SornWTSRegion *r) {
  SornAGTnode *node = SornSTBnewnode(b);
  if (node) SornDGTnodeData(node, r);
  return node;
}

SornWTSRegion *__SornWTSTBnewregionNode(SornWTSRegion *r, SornSTB *b, SornWTSLSC *lsc) {
  r = __SornWTSTBnewregion(r, b, lsc);
  if (r) __SornWTSTBnewnodeWithRegion(b, r);
  return r;
}

void __SornWTSTBdestroyrgn(SornWTSRegion *r, void *, SornWTSLSC *lsc) { destroy_features(r, lsc); }

void __SornWTSTBdisposergn(SornWTSRegion *, void *, SornWTSLSC *) {}

}  // extern "C"
