// Memory stacks: scratch memory handed out by bumping a pointer and given
// back in the reverse order of taking.
//
// A stack is a chain of chunks from the heap. The chunk being filled is the
// top of the chain; when a request does not fit in what is left of it, a new
// chunk is chained on top, each one twice the size of the one below until the
// growth limit, and always big enough for the request that needed it. The
// room left over in a chunk that was abandoned this way is simply not used
// until the stack goes back below it.
//
// Every block is preceded by one word holding the level (bump pointer) from
// before it was taken. Giving a block back therefore returns the stack to
// exactly the level it had before the block, as if neither the block nor
// anything after it had been taken: a caller that takes and gives back its
// scratch finds the stack at the very level it marked before, even when the
// block was padded for its alignment or opened a new chunk. Chunks above the
// new level go back to the system, except that the largest of them is kept
// as a spare, so that a caller taking and releasing a tile around a chunk
// boundary on every call, or the same large working block for every frame
// of a video, does not go to the system each time: memory fresh from the
// system is memory the system must clear, page by page, on first touch,
// which for a block of tens of megabytes costs as much as a quarter of the
// work done in it. Clearing, destroying or closing a stack gives every
// chunk back, the spare included.
//
// The stack object is six words, so that it fits the room an environment
// record keeps for it; it comes from the heap only when the opener gives no
// room (and then closing the stack frees it).
//
// Alignment: any power of two, and in fact any non-zero multiple; 0 means 16,
// the alignment of the heap's blocks, so that a block of the stack can hold
// whatever a heap block could.
//
// A level (KuMark) is three words: the chunk being filled, the bump pointer,
// and the chunk's depth in the chain (1 for the bottom chunk, 0 for a stack
// that holds no chunk). A level is only ever moved down: a mark whose chunk
// is no longer in the chain, or that lies above the present level, is a
// level that was already released and changes nothing.
//
// The opener's word ('arg'): a stack opened on behalf of another stack's
// user (a tree builder opens its own stack under the environment's) passes
// the parent stack's handle there. The stack keeps that word as its parent
// and nothing more: its chunks still come from the heap, so that the parent
// may move its level up and down while the child lives, and the child may
// be cleared or destroyed without disturbing a single block of the parent.
// The parent only bounds the child's lifetime, which is the opener's
// business. KuSMEMSTGparent() gives the word back.
//
// Large chunks: a chunk made for one request larger than the growth limit
// is mapped on its own, aligned to 2 MB, and the system is asked to back it
// with huge pages where it offers them. The floodings of the region analysis
// keep a word or more per pixel on a stack and return to it in an order that
// the image decides; on 4 KB pages every one of those returns to a distant
// row is also a miss in the address translation caches. Chunks of ordinary
// growth stay on the heap, which keeps what a stack gives back at hand for
// the next call (a mapping given back is gone, and a new one is cleared page
// by page on first touch). Builds with AddressSanitizer keep every chunk on
// the heap, so that the sanitizer sees each one.
//
// Every entry accepts a null stack and then does nothing (or answers null).
// Nothing here ever aborts: a request that cannot be met answers null.
#include <sorn.h>

#include <sys/mman.h>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

struct Chunk {
  Chunk *prev;     // the chunk below, or null for the bottom one
  uintptr_t end;   // first byte after the usable area
  size_t size;     // usable bytes
  uint64_t depth;  // 1 for the bottom chunk
  size_t mapped;   // bytes of its own mapping, 0 for a chunk from the heap
  size_t pad;      // keeps the header a multiple of the heap's alignment
  // The usable area follows; the header keeps it at the heap's alignment.
  uintptr_t data() const { return reinterpret_cast<uintptr_t>(this + 1); }
  bool holds(uintptr_t p) const { return p >= data() && p <= end; }
};
static_assert(sizeof(Chunk) % 16 == 0, "chunk data must keep the heap's alignment");

struct Stack {
  uintptr_t top;    // next free byte of 'cur', 0 while there is no chunk
  uintptr_t end;    // end of the usable area of 'cur'
  Chunk *cur;       // the chunk being filled, null when the stack is empty
  Chunk *spare;     // one released chunk kept for the next growth, or null
  uint64_t parent;  // the opener's word
  uint64_t flags;   // kMagic, and kHeapObject when the object is from the heap
};
static_assert(sizeof(Stack) == sizeof(SornXE::stackstore),
              "a stack must fit the room an environment record keeps for it");
static_assert(sizeof(Stack) == 48, "a stack object is six words");
static_assert(alignof(Stack) <= alignof(uint64_t), "the room is only word aligned");

constexpr uint64_t kMagic = 0x4b554d5354470000ull;  // "KUMSTG"
constexpr uint64_t kHeapObject = 1;

// The word before each block: the level before the block was taken.
constexpr size_t kLink = sizeof(uintptr_t);
constexpr size_t kDefaultAlign = 16;
constexpr size_t kFirstChunk = size_t{64} << 10;
// Growth doubles up to this size; larger chunks only come from larger
// requests.
constexpr size_t kGrowthLimit = size_t{8} << 20;

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kMapLarge = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kMapLarge = false;
#else
constexpr bool kMapLarge = true;
#endif
#else
constexpr bool kMapLarge = true;
#endif
constexpr size_t kHugePage = size_t{2} << 20;

inline Stack *as_stack(void *s) { return static_cast<Stack *>(s); }

// A chunk of 'usable' bytes after its header, or null. Only the header's
// 'mapped' field is set here.
Chunk *chunk_new(size_t usable) {
  const size_t bytes = sizeof(Chunk) + usable;
  if (kMapLarge && usable > kGrowthLimit && bytes <= SIZE_MAX - 2 * kHugePage) {
    // Map a huge page more than needed and cut the mapping down to an
    // aligned run of whole huge pages.
    const size_t len = (bytes + kHugePage - 1) & ~(kHugePage - 1);
    void *m =
        mmap(nullptr, len + kHugePage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (m != MAP_FAILED) {
      const uintptr_t raw = reinterpret_cast<uintptr_t>(m);
      const uintptr_t at = (raw + kHugePage - 1) & ~(uintptr_t)(kHugePage - 1);
      // The cut in front is below one huge page, so the one behind is not
      // empty.
      if (at > raw) munmap(m, at - raw);
      munmap(reinterpret_cast<void *>(at + len), raw + kHugePage - at);
#ifdef MADV_HUGEPAGE
      madvise(reinterpret_cast<void *>(at), len, MADV_HUGEPAGE);
#endif
      Chunk *c = reinterpret_cast<Chunk *>(at);
      c->mapped = len;
      return c;
    }
    // No mapping: the heap may still have room.
  }
  Chunk *c = static_cast<Chunk *>(std::malloc(bytes));
  if (c) c->mapped = 0;
  return c;
}

void chunk_delete(Chunk *c) {
  if (c == nullptr) return;
  if (c->mapped)
    munmap(c, c->mapped);
  else
    std::free(c);
}

inline bool is_pow2(size_t a) { return (a & (a - 1)) == 0; }

// 'p' raised to a multiple of 'align'; false when that wraps around.
inline bool align_up(uintptr_t p, size_t align, uintptr_t *out) {
  uintptr_t r;
  if (is_pow2(align)) {
    r = (p + (align - 1)) & ~static_cast<uintptr_t>(align - 1);
  } else {
    uintptr_t rem = p % align;
    r = rem ? p + (align - rem) : p;
  }
  if (r < p) return false;
  *out = r;
  return true;
}

inline void put_link(uintptr_t block, uintptr_t level) {
  std::memcpy(reinterpret_cast<void *>(block - kLink), &level, kLink);
}

inline uintptr_t get_link(uintptr_t block) {
  uintptr_t level;
  std::memcpy(&level, reinterpret_cast<const void *>(block - kLink), kLink);
  return level;
}

// Gives a chunk that has left the chain either to the spare slot or back to
// the system. The larger of two candidates stays spare.
void retire(Stack *st, Chunk *c) {
  if (st->spare == nullptr || c->size > st->spare->size) {
    chunk_delete(st->spare);
    st->spare = c;
  } else {
    chunk_delete(c);
  }
}

// Makes 'c' (in the chain, or null) the chunk being filled, with 'top' as
// its level; the chunks above it leave the chain.
void set_level(Stack *st, Chunk *c, uintptr_t top) {
  Chunk *x = st->cur;
  while (x != c) {
    Chunk *below = x->prev;
    retire(st, x);
    x = below;
  }
  st->cur = c;
  st->top = c ? top : 0;
  st->end = c ? c->end : 0;
}

// Every chunk back to the heap; the object stays an open, empty stack.
void release_all(Stack *st) {
  Chunk *c = st->cur;
  while (c) {
    Chunk *below = c->prev;
    chunk_delete(c);
    c = below;
  }
  chunk_delete(st->spare);
  st->cur = st->spare = nullptr;
  st->top = st->end = 0;
}

// The slow path of an allocation: chain a new chunk that surely holds the
// link and 'size' bytes at 'align', and take the block from it.
void *grow(Stack *st, size_t size, size_t align) {
  // Room for the link and the worst padding after the chunk's start.
  size_t over = kLink + (align - 1);
  if (align > SIZE_MAX - kLink || size > SIZE_MAX - over) return nullptr;
  size_t need = size + over;
  size_t want = kFirstChunk;
  if (st->cur) {
    want = st->cur->size < kGrowthLimit / 2 ? st->cur->size * 2 : kGrowthLimit;
    if (want < kFirstChunk) want = kFirstChunk;
  }
  if (want < need) want = need;
  // Usable areas are multiples of the heap's alignment.
  if (want > SIZE_MAX - sizeof(Chunk) - 15) return nullptr;
  want = (want + 15) & ~size_t{15};

  // The spare serves a request it holds, unless it is a large chunk many
  // times what the request wants: a run that takes a small block and then
  // a large one would otherwise spend the large spare on the small block
  // and map the large one afresh every time.
  Chunk *c = nullptr;
  const bool holds = st->spare && st->spare->size >= need;
  if (holds && (st->spare->size <= kGrowthLimit || st->spare->size / 2 <= want)) {
    c = st->spare;
    st->spare = nullptr;
  } else {
    c = chunk_new(want);
    if (c == nullptr) {
      // The doubled size may be what fails; the request alone may still fit.
      size_t least = (need + 15) & ~size_t{15};
      if (least < want) {
        c = chunk_new(least);
        want = least;
      }
      if (c == nullptr) return nullptr;
    }
    // A spare too small for this request is of no further use.
    if (!holds) {
      chunk_delete(st->spare);
      st->spare = nullptr;
    }
    c->size = want;
    c->end = c->data() + want;
  }
  uintptr_t level = st->top;
  c->prev = st->cur;
  c->depth = st->cur ? st->cur->depth + 1 : 1;
  st->cur = c;

  uintptr_t a = 0;
  align_up(c->data() + kLink, align, &a);
  put_link(a, level);
  st->top = a + size;
  st->end = c->end;
  return reinterpret_cast<void *>(a);
}

}  // namespace

extern "C" {

void *KuSMEMSTGopen(void *store, uint64_t arg, int32_t flags) {
  uint64_t own = 0;
  if (store == nullptr) {
    store = std::malloc(sizeof(Stack));
    if (store == nullptr) return nullptr;
    own = kHeapObject;
  }
  Stack *st = as_stack(store);
  st->top = st->end = 0;
  st->cur = st->spare = nullptr;
  st->parent = arg;
  st->flags = kMagic | own;
  return st;
}

void *KuSMEMSTGaalloc(void *stack, size_t size, size_t align, int32_t flags) {
  Stack *st = as_stack(stack);
  if (st == nullptr) return nullptr;
  if (align == 0) align = kDefaultAlign;
  // With no chunk, top and end are 0 and nothing fits.
  uintptr_t a;
  if (align_up(st->top + kLink, align, &a) && a <= st->end && size <= st->end - a) {
    put_link(a, st->top);
    st->top = a + size;
    return reinterpret_cast<void *>(a);
  }
  return grow(st, size, align);
}

void KuSMEMSTGfree(void *stack, void *block) {
  Stack *st = as_stack(stack);
  uintptr_t b = reinterpret_cast<uintptr_t>(block);
  if (st == nullptr || b < kLink) return;
  uintptr_t link = b - kLink;
  for (Chunk *c = st->cur; c; c = c->prev) {
    // Only a live block counts: its link lies below the present level.
    uintptr_t limit = c == st->cur ? st->top : c->end;
    if (link < c->data() || link >= limit) continue;
    uintptr_t level = get_link(b);
    if (level >= c->data() && level <= link) {
      set_level(st, c, level);
    } else if (c->prev ? c->prev->holds(level) : level == 0) {
      // The block opened this chunk: back to the level of the one below.
      set_level(st, c->prev, level);
    }
    // Anything else is no block of this stack.
    return;
  }
}

KuMark *KuSMEMSTGgetstate(KuMark *mark, void *stack, uint64_t arg) {
  if (mark == nullptr) return nullptr;
  Stack *st = as_stack(stack);
  if (st == nullptr || st->cur == nullptr) {
    mark->w[0] = mark->w[1] = mark->w[2] = 0;
    return mark;
  }
  mark->w[0] = reinterpret_cast<uintptr_t>(st->cur);
  mark->w[1] = st->top;
  mark->w[2] = st->cur->depth;
  return mark;
}

void KuSMEMSTGsetstate(void *stack, const KuMark *mark) {
  Stack *st = as_stack(stack);
  if (st == nullptr || mark == nullptr) return;
  Chunk *target = reinterpret_cast<Chunk *>(static_cast<uintptr_t>(mark->w[0]));
  uintptr_t top = static_cast<uintptr_t>(mark->w[1]);
  if (target == nullptr) {
    // The level of an empty stack.
    set_level(st, nullptr, 0);
    return;
  }
  for (Chunk *c = st->cur; c; c = c->prev) {
    if (c != target) continue;
    if (c->depth != mark->w[2] || !c->holds(top)) return;
    if (c == st->cur && top > st->top) return;
    set_level(st, c, top);
    return;
  }
}

void KuSMEMSTGclear(void *stack) {
  Stack *st = as_stack(stack);
  if (st == nullptr) return;
  release_all(st);
}

void KuMEMSTGdestroy(void *stack) {
  Stack *st = as_stack(stack);
  if (st == nullptr) return;
  // The storage is the caller's and stays; what remains is an empty stack
  // with the same parent, which a later allocation may use again.
  release_all(st);
}

void KuMEMSTGclose(void *stack) {
  Stack *st = as_stack(stack);
  if (st == nullptr) return;
  release_all(st);
  // In a caller's room, closing is destroying: the room is not ours.
  if (st->flags & kHeapObject) std::free(st);
}

uint64_t KuSMEMSTGparent(void *stack) {
  Stack *st = as_stack(stack);
  return st ? st->parent : 0;
}

}  // extern "C"
