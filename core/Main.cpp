// Library start and end. Units linked into the library may register start
// actions with __ku_crtaction; at load they run in priority order (ties in
// order of registration) and then the library's own hook, at unload the
// hook runs first and then the end functions, last started first ended.
// No operation depends on any of it, so a start action that fails ends the
// process rather than leave the library half ready.
#include <sorn.h>

#include <cstdlib>

int32_t _S_ku_crtaction_processed = 0;

namespace {

// Ordered tree of start actions (AVL by priority, then registration order).
KuCrtAction *g_root = nullptr;
int32_t g_count = 0;
uint64_t g_seq = 0;
bool g_tree_ready = false;

// Ring of the actions that ran; g_ring is its sentinel.
KuCrtAction g_ring;
bool g_ring_ready = false;

void _t_ku_crtaction_atenter() {
  if (!g_tree_ready) {
    g_root = nullptr;
    g_count = 0;
    g_tree_ready = true;
  }
}

void _t_ku_crtaction_atexit() {
  if (!g_ring_ready) {
    g_ring.next = g_ring.prev = &g_ring;
    g_ring_ready = true;
  }
}

bool before(const KuCrtAction *a, const KuCrtAction *b) {
  return a->priority != b->priority ? a->priority < b->priority : a->seq < b->seq;
}

int32_t height(const KuCrtAction *n) { return n ? n->height : 0; }

void fix(KuCrtAction *n) {
  const int32_t l = height(n->left), r = height(n->right);
  n->height = 1 + (l > r ? l : r);
  if (n->left) n->left->parent = n;
  if (n->right) n->right->parent = n;
}

// Lifts n's child on side `up` into n's place; n becomes that child's child
// on the other side, `down`.
KuCrtAction *rotate(KuCrtAction *n, KuCrtAction *KuCrtAction::*up,
                    KuCrtAction *KuCrtAction::*down) {
  KuCrtAction *c = n->*up;
  n->*up = c->*down;
  c->*down = n;
  fix(n);
  fix(c);
  return c;
}
KuCrtAction *rotate_right(KuCrtAction *n) {
  return rotate(n, &KuCrtAction::left, &KuCrtAction::right);
}
KuCrtAction *rotate_left(KuCrtAction *n) {
  return rotate(n, &KuCrtAction::right, &KuCrtAction::left);
}

KuCrtAction *insert(KuCrtAction *root, KuCrtAction *a) {
  if (!root) return a;
  if (before(a, root))
    root->left = insert(root->left, a);
  else
    root->right = insert(root->right, a);
  fix(root);
  const int32_t balance = height(root->left) - height(root->right);
  if (balance > 1) {
    if (height(root->left->left) < height(root->left->right)) root->left = rotate_left(root->left);
    root = rotate_right(root);
  } else if (balance < -1) {
    if (height(root->right->right) < height(root->right->left))
      root->right = rotate_right(root->right);
    root = rotate_left(root);
  }
  return root;
}

KuCrtAction *leftmost(KuCrtAction *n) {
  while (n && n->left) n = n->left;
  return n;
}

KuCrtAction *successor(KuCrtAction *n) {
  if (n->right) return leftmost(n->right);
  while (n->parent && n->parent->right == n) n = n->parent;
  return n->parent;
}

}  // namespace

int32_t __ku_crtaction(KuCrtAction *action) {
  _t_ku_crtaction_atenter();
  action->left = action->right = action->parent = nullptr;
  action->height = 1;
  action->next = action->prev = nullptr;
  action->seq = g_seq++;
  g_root = insert(g_root, action);
  g_root->parent = nullptr;
  ++g_count;
  return 0;
}

int32_t ShlibInit(void) { return 0; }
int32_t ShlibFini(void) { return 0; }

// Runs from the shared object's initialisation array, before the other
// initialisers of the library.
__attribute__((constructor(101))) void _t_ShlibInit(void) {
  if (!_S_ku_crtaction_processed) {
    _S_ku_crtaction_processed = 1;
    _t_ku_crtaction_atenter();
    _t_ku_crtaction_atexit();
    KuCrtAction *a = leftmost(g_root);
    for (int32_t i = 0; i < g_count && a; ++i, a = successor(a)) {
      if (a->run && a->run(a->runarg) < 0) abort();
      if (a->next) {  // ran before: take it off the ring first
        a->prev->next = a->next;
        a->next->prev = a->prev;
      }
      a->next = g_ring.next;
      a->prev = &g_ring;
      g_ring.next->prev = a;
      g_ring.next = a;
    }
  }
  if (ShlibInit() < 0) abort();
}

__attribute__((destructor(101))) void _t_ShlibFini(void) {
  ShlibFini();
  if (!_S_ku_crtaction_processed) return;
  _S_ku_crtaction_processed = 0;
  _t_ku_crtaction_atexit();
  for (KuCrtAction *a = g_ring.next; a != &g_ring;) {
    KuCrtAction *next = a->next;
    a->next = a->prev = nullptr;
    if (a->end) a->end(a->endarg);
    a = next;
  }
  g_ring.next = g_ring.prev = &g_ring;
}
