// Nearest-neighbour resizing, layer 4: the source index rule, the step
// table, and the one template that every row kernel of the catalogue is an
// instance of.
//
// A row kernel finds the source row of each destination row, prefetches the
// source row ahead of where it reads and the next source row to be used,
// and walks the step table: each step advances the source pointer by that
// many pixels, and the pixel there is copied. Pixels are opaque units of 1,
// 4, 8, 12 or 16 bytes. The kernels of one unit differ only in how they
// prefetch: how many destination pixels make a round, how many lines of the
// source row and of the next one each round prefetches, how far ahead, at
// which alignment, and whether each pixel's own address is prefetched too.
// Which of them runs never changes the result.
//
// Three tables have a regular shape that the kernels copy with loops the
// compiler vectorises, instead of stepping pixel by pixel: steps 0, 1, 1, 1,
// ... (factor 1: the row is copied), 0, 2, 2, 2, ... (factor 1/2: every
// other pixel), and 0, 0, 1, 1 repeated (factor 2: the rounding to even
// takes source pixels 0, 0, 1, 2 for each four destination pixels). The
// shape is read off the table itself, as far as the table keeps it, and the
// walk takes over from there; so both ways copy exactly the pixels the steps
// name, and only the speed depends on which one runs.
#pragma once

#include <sorn.h>

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace sorn::resize {

/* ---------------- the source index rule ---------------- */

// A source index from its real value: past the last index it is the last
// one, below 0 (or not a number) it is 0.
inline int32_t clamp_index(double v, int32_t n) {
  if (n < 1) return 0;
  if (v >= (double)n) return n - 1;
  if (v > 0.0) return (int32_t)v;
  return 0;
}

// The source column of destination column i, with g the inverse of the
// column factor: truncated when shrinking or keeping the size, rounded to
// nearest with ties to even when enlarging. Every index comes from scratch,
// never from a sum of steps.
inline int32_t source_column(int32_t i, double g, int32_t width) {
  const double v = (double)i * g;
  return clamp_index(g >= 1.0 ? v : std::nearbyint(v), width);
}

// Rows truncate after adding a half when enlarging (g below 1 by more than
// 2^-23), nothing otherwise.
struct RowRule {
  double g, t;
};
inline RowRule row_rule(double fy) {
  const double g = 1.0 / fy;
  return {g, 1.0 - g <= SORN_RESIZE_EPS ? 0.0 : 0.5};
}
inline int32_t source_row(int32_t i, RowRule r, int32_t height) {
  return clamp_index((double)i * r.g + r.t, height);
}

// Step j of the table: byte j % 4 of word j / 4, low byte first.
inline uint32_t step_at(const uint32_t *table, int32_t j) {
  return (table[j >> 2] >> (8 * (j & 3))) & 255u;
}

/* ---------------- regular tables ---------------- */

enum class Shape : uint8_t { Walk, Same, Halve, Twice };

// The shape a table starts with and for how many destination pixels (whole
// words) it keeps it. Words are built arithmetically, so the comparison
// holds on any byte order.
struct Plan {
  Shape shape;
  int32_t span;
};

inline Plan plan_of(const uint32_t *table, int32_t width) {
  struct Pattern {
    Shape shape;
    uint32_t first, rest;
  };
  static constexpr Pattern kPatterns[] = {
      {Shape::Same, 0x01010100u, 0x01010101u},
      {Shape::Halve, 0x02020200u, 0x02020202u},
      {Shape::Twice, 0x01010000u, 0x01010000u},
  };
  const int32_t words = width / 4;
  if (words < 1) return {Shape::Walk, 0};
  for (const Pattern &p : kPatterns) {
    if (table[0] != p.first) continue;
    int32_t w = 1;
    while (w < words && table[w] == p.rest) ++w;
    return {p.shape, 4 * w};
  }
  return {Shape::Walk, 0};
}

// The source pixel of destination pixel j while the table keeps its shape.
template <Shape S> constexpr int32_t shaped_column(int32_t j) {
  if constexpr (S == Shape::Same) return j;
  if constexpr (S == Shape::Halve) return 2 * j;
  return (j >> 2) * 2 + ((j & 3) - ((j & 3) != 0));  // 0, 0, 1, 2 for each four
}

template <int B> inline void copy_unit(unsigned char *d, const unsigned char *s) {
  std::memcpy(d, s, B);
}

// n destination pixels of a shaped span, from the source pixel of
// destination pixel 0. The loops are written for the vectoriser: plain
// copies of whole units, no steps. A source that is also the destination
// (resizing in place) still reads every pixel before it is overwritten,
// since a shrinking or same-size row never reads behind where it writes.
template <int B, Shape S> struct Shaped;

template <int B> struct Shaped<B, Shape::Same> {
  static void copy(unsigned char *d, const unsigned char *s, int32_t n) {
    std::memmove(d, s, (size_t)n * B);
  }
};

template <int B> struct Shaped<B, Shape::Halve> {
  static void copy(unsigned char *d, const unsigned char *s, int32_t n) {
    for (int32_t k = 0; k < n; ++k) copy_unit<B>(d + (size_t)k * B, s + (size_t)k * 2 * B);
  }
};

// Four destination pixels from source pixels 0, 0, 1, 2 of each pair (n
// is a multiple of four).
template <int B> struct Shaped<B, Shape::Twice> {
  static void copy(unsigned char *d, const unsigned char *s, int32_t n) {
    for (int32_t k = 0; k < n / 4; ++k) {
      copy_unit<B>(d + (size_t)(4 * k) * B, s + (size_t)(2 * k) * B);
      copy_unit<B>(d + (size_t)(4 * k + 1) * B, s + (size_t)(2 * k) * B);
      copy_unit<B>(d + (size_t)(4 * k + 2) * B, s + (size_t)(2 * k + 1) * B);
      copy_unit<B>(d + (size_t)(4 * k + 3) * B, s + (size_t)(2 * k + 2) * B);
    }
  }
};

// Bytes, where the machine stores the low byte first: a group of four is
// one 32-bit lane, built from the byte pair of its block and the first byte
// of the next pair, so that the vectoriser widens and shifts lanes instead
// of permuting bytes. The last block reads its third byte alone, so that
// nothing past the span is read.
template <> struct Shaped<1, Shape::Twice> {
  static void copy(unsigned char *d, const unsigned char *s, int32_t n) {
    const int32_t blocks = n / 4;
    if constexpr (std::endian::native == std::endian::little) {
      for (int32_t k = 0; k + 1 < blocks; ++k) {
        uint16_t a, b;
        std::memcpy(&a, s + 2 * k, 2);
        std::memcpy(&b, s + 2 * k + 2, 2);
        const uint32_t lo = a & 0xffu, hi = (uint32_t)a >> 8;
        const uint32_t out = lo | lo << 8 | hi << 16 | (uint32_t)(b & 0xffu) << 24;
        std::memcpy(d + 4 * k, &out, 4);
      }
    }
    const int32_t k0 = std::endian::native == std::endian::little && blocks > 0 ? blocks - 1 : 0;
    for (int32_t k = k0; k < blocks; ++k) {
      d[4 * k] = d[4 * k + 1] = s[2 * k];
      d[4 * k + 2] = s[2 * k + 1];
      d[4 * k + 3] = s[2 * k + 2];
    }
  }
};

/* ---------------- how a kernel prefetches ---------------- */

// One kernel of the catalogue, as its name spells it.
struct Prefetch {
  int32_t round;     // destination pixels per round
  int32_t lines;     // 64-byte lines of the source row per round, at the distance
  int32_t next;      // lines of the next source row per round
  bool each;         // every source pixel of the round at its own address too
  int32_t align;     // the address rounded down to a multiple of this (0: not)
  int32_t distance;  // bytes ahead of the source pointer
  bool loads_first;  // a round loads all its pixels before it stores any
};

constexpr int32_t kLine = 64;
// The forward prefetch stops this far (beyond the distance) before the end
// of a source row, so that it never touches lines past the row.
constexpr int32_t kStopMargin = 96;

// Prefetch addresses are plain numbers: one may lie outside the row (the
// distance, or a rounding down below the row's start), and a prefetch never
// faults.
inline void prefetch_at(uintptr_t a) {
  __builtin_prefetch(reinterpret_cast<const void *>(a), 0, 3);
}
constexpr uintptr_t line_of(uintptr_t a) { return a & ~(uintptr_t)(kLine - 1); }
inline uintptr_t address(const unsigned char *p) { return reinterpret_cast<uintptr_t>(p); }

// Every line from the one holding lo to the one holding hi.
inline void prefetch_lines(uintptr_t lo, uintptr_t hi) {
  for (uintptr_t x = line_of(lo); x <= hi; x += kLine) prefetch_at(x);
}

template <Prefetch K> constexpr uintptr_t ahead(const unsigned char *p) {
  uintptr_t a = address(p) + (uintptr_t)K.distance;
  if constexpr (K.align > 0) a &= ~(uintptr_t)(K.align - 1);
  return a;
}

// The prefetches of one round whose first source pixel is at p, in a row
// from row to end; next is the next source row to be used, or null.
template <Prefetch K>
inline void prefetch_round(const unsigned char *p, const unsigned char *row,
                           const unsigned char *end, const unsigned char *next) {
  if constexpr (K.lines > 0 || K.next > 0) {
    if (end - p < K.distance + kStopMargin) return;
    const uintptr_t a = ahead<K>(p);
    for (int32_t l = 0; l < K.lines; ++l) prefetch_at(a + (uintptr_t)(l * kLine));
    if (next != nullptr) {
      const uintptr_t b = a - address(row) + address(next);
      for (int32_t l = 0; l < K.next; ++l) prefetch_at(b + (uintptr_t)(l * kLine));
    }
  }
}

// Destination pixels per chunk of a shaped span: whole rounds, about a
// kilobyte of the destination, so that the copy runs as long vector loops
// with the rounds' prefetches issued in front of them.
template <int B, Prefetch K> constexpr int32_t chunk_pixels() {
  const int32_t rounds = 16 * kLine / (K.round * B);
  return K.round * (rounds > 1 ? rounds : 1);
}

/* ---------------- one row ---------------- */

// Source pixels per four destination pixels of a shape: a round starting
// at a multiple of four reads from there on, linearly.
template <Shape S> constexpr int32_t per_four() {
  return S == Shape::Same ? 4 : S == Shape::Halve ? 8 : 2;
}

// The shaped span of a row, in chunks (the last may be shorter).
//
// A shaped round starts a fixed number of source bytes after the one
// before, so the lines its prefetches name follow on from the previous
// round's. Where they join without a gap, the prefetches of a chunk's
// rounds are the lines from the first round's first to the last round's
// last, each asked for once instead of once for every round that names it
// (rounds that advance less than a line name the same line again). The
// pixels of a round lie side by side, so prefetching each of them at its
// own address is prefetching each of their lines.
template <int B, Prefetch K, Shape S>
inline void copy_shaped(unsigned char *d, const unsigned char *row, const unsigned char *end,
                        const unsigned char *next, int32_t span) {
  constexpr int32_t C = chunk_pixels<B, K>();
  static_assert(C % 4 == 0, "a chunk holds whole groups of four");
  constexpr bool fetches = K.lines > 0 || K.next > 0;
  static_assert(!(fetches || K.each) || K.round % 4 == 0,
                "prefetching rounds hold whole groups of four");
  // Source bytes from one round's first pixel to the next round's.
  constexpr ptrdiff_t advance = (ptrdiff_t)(K.round * per_four<S>() / 4) * B;
  // The largest step between the first lines two rounds prefetch.
  constexpr ptrdiff_t stride = K.align > 0 ? (advance + K.align - 1) / K.align * K.align : advance;
  constexpr bool joined =
      (K.lines == 0 || stride <= K.lines * kLine) && (K.next == 0 || stride <= K.next * kLine);
  for (int32_t j = 0; j < span;) {
    const int32_t n = span - j < C ? span - j : C;
    const unsigned char *s = row + (size_t)shaped_column<S>(j) * B;
    if constexpr (fetches && joined) {
      // Rounds whose first pixel leaves room for the distance.
      const ptrdiff_t room = end - s - (K.distance + kStopMargin);
      if (room >= 0) {
        const int32_t rounds = (n + K.round - 1) / K.round;
        const int32_t last = room / advance < rounds - 1 ? (int32_t)(room / advance) : rounds - 1;
        const uintptr_t a0 = ahead<K>(s), a1 = ahead<K>(s + last * advance);
        if constexpr (K.lines > 0) prefetch_lines(a0, a1 + (uintptr_t)((K.lines - 1) * kLine));
        if constexpr (K.next > 0) {
          if (next != nullptr) {
            const uintptr_t shift = address(next) - address(row);
            prefetch_lines(a0 + shift, a1 + shift + (uintptr_t)((K.next - 1) * kLine));
          }
        }
      }
    } else if constexpr (fetches) {
      for (int32_t r = 0; r < n; r += K.round)
        prefetch_round<K>(s + r / K.round * advance, row, end, next);
    }
    if constexpr (K.each) {
      const unsigned char *last = row + (size_t)shaped_column<S>(j + n - 1) * B + (B - 1);
      prefetch_lines(address(s), address(last));
    }
    Shaped<B, S>::copy(d + (size_t)j * B, s, n);
    j += n;
  }
}

// The walk in rounds of K.round destination pixels, from pixel j on, with
// p the source of the pixel before; answers where the rounds stopped.
template <int B, Prefetch K>
inline int32_t walk_rounds(unsigned char *d, const unsigned char *row, const unsigned char *end,
                           const unsigned char *next, const uint32_t *table, int32_t width,
                           int32_t j, const unsigned char *&p) {
  for (; j + K.round <= width; j += K.round) {
    prefetch_round<K>(p, row, end, next);
    if constexpr (K.each || K.loads_first) {
      const unsigned char *at[K.round];
      for (int32_t w = 0; w < K.round / 4; ++w) {
        uint32_t t = table[(j >> 2) + w];
        for (int32_t k = 0; k < 4; ++k, t >>= 8) at[4 * w + k] = p += (size_t)(t & 255u) * B;
      }
      if constexpr (K.each)
        for (int32_t k = 0; k < K.round; ++k) prefetch_at(address(at[k]));
      if constexpr (K.loads_first) {
        unsigned char held[K.round * B];
        for (int32_t k = 0; k < K.round; ++k) copy_unit<B>(held + k * B, at[k]);
        std::memcpy(d + (size_t)j * B, held, sizeof held);
      } else {
        for (int32_t k = 0; k < K.round; ++k) copy_unit<B>(d + (size_t)(j + k) * B, at[k]);
      }
    } else {
      for (int32_t w = 0; w < K.round / 4; ++w) {
        uint32_t t = table[(j >> 2) + w];
        unsigned char *o = d + (size_t)(j + 4 * w) * B;
        for (int32_t k = 0; k < 4; ++k, t >>= 8) {
          p += (size_t)(t & 255u) * B;
          copy_unit<B>(o + k * B, p);
        }
      }
    }
  }
  return j;
}

// One destination row: the shaped span first, then the walk of the table
// from where the span ended, in rounds, and a rest of fewer pixels than a
// round one by one.
template <int B, Prefetch K>
void copy_row(unsigned char *d, const unsigned char *row, const unsigned char *next,
              const uint32_t *table, int32_t width, int32_t srcWidth, Plan plan) {
  const unsigned char *const end = row + (size_t)srcWidth * B;
  const int32_t j0 = plan.span;
  switch (plan.shape) {
    case Shape::Same: copy_shaped<B, K, Shape::Same>(d, row, end, next, j0); break;
    case Shape::Halve: copy_shaped<B, K, Shape::Halve>(d, row, end, next, j0); break;
    case Shape::Twice: copy_shaped<B, K, Shape::Twice>(d, row, end, next, j0); break;
    case Shape::Walk: break;
  }
  int32_t j = j0;
  // The walk goes on from the pixel the span copied last.
  const unsigned char *p = row;
  if (j > 0) {
    switch (plan.shape) {
      case Shape::Same: p += (size_t)shaped_column<Shape::Same>(j - 1) * B; break;
      case Shape::Halve: p += (size_t)shaped_column<Shape::Halve>(j - 1) * B; break;
      case Shape::Twice: p += (size_t)shaped_column<Shape::Twice>(j - 1) * B; break;
      case Shape::Walk: break;
    }
  }
  if constexpr (K.round >= 4) j = walk_rounds<B, K>(d, row, end, next, table, width, j, p);
  for (; j < width; ++j) {
    p += (size_t)step_at(table, j) * B;
    copy_unit<B>(d + (size_t)j * B, p);
  }
}

/* ---------------- the step table ---------------- */

// The table of a call: the caller's, or one taken from xe and given back
// when the kernel ends.
class Table {
 public:
  Table(SornXE *xe, const uint32_t *given, int32_t dstWidth, int32_t srcWidth, double fx)
      : xe_(xe), words_(given) {
    if (words_ == nullptr) {
      own_ = __sorna_rsz_nn__make_offtab1x4(xe, dstWidth, srcWidth, 1, fx);
      words_ = own_;
    }
  }
  ~Table() {
    if (own_ != nullptr) SornXEfreea(xe_, own_);
  }
  Table(const Table &) = delete;
  Table &operator=(const Table &) = delete;
  const uint32_t *words() const { return words_; }

 private:
  SornXE *xe_;
  const uint32_t *words_;
  uint32_t *own_ = nullptr;
};

/* ---------------- a kernel ---------------- */

// The bytes an operand of rows spans, lowest first, whatever the sign of
// its row step.
struct Span {
  uintptr_t lo, hi;
};
inline Span span_of(const void *base, int32_t rows, int32_t step, size_t row_bytes) {
  const uintptr_t b = reinterpret_cast<uintptr_t>(base);
  const ptrdiff_t last = (ptrdiff_t)(rows - 1) * step;
  const uintptr_t first = last < 0 ? b + (uintptr_t)last : b;
  return {first, first + (uintptr_t)(last < 0 ? -last : last) + row_bytes};
}

template <int B, Prefetch K>
SornStatus resize_rows(SornXE *xe, int32_t dstRows, int32_t dstCols, void *dst, int32_t dstStep,
                       int32_t srcRows, int32_t srcCols, const void *src, int32_t srcStep,
                       double fx, double fy, const uint32_t *offtab) {
  if (dstRows < 1 || dstCols < 1 || srcRows < 1 || srcCols < 1) return SORN_OK;
  const Table table(xe, offtab, dstCols, srcCols, fx);
  if (table.words() == nullptr) return SORN_ENOMEM;
  const Plan plan = plan_of(table.words(), dstCols);
  const RowRule rule = row_rule(fy);
  unsigned char *const d = static_cast<unsigned char *>(dst);
  const unsigned char *const s = static_cast<const unsigned char *>(src);
  const size_t row_bytes = (size_t)dstCols * B;
  // A row whose source row is the row before's is a copy of the row
  // before, when the table has to be walked for it and the destination
  // does not overlap the source (in place, the row before may have
  // written over its own source). Shaped rows are as fast to make again.
  const Span ds = span_of(dst, dstRows, dstStep, row_bytes);
  const Span ss = span_of(src, srcRows, srcStep, (size_t)srcCols * B);
  const bool reuse = plan.span < dstCols && (ds.hi <= ss.lo || ss.hi <= ds.lo);
  int32_t sr = source_row(0, rule, srcRows), before = -1;
  for (int32_t i = 0; i < dstRows; ++i) {
    const int32_t nr = i + 1 < dstRows ? source_row(i + 1, rule, srcRows) : sr;
    unsigned char *out = d + (ptrdiff_t)i * dstStep;
    if (reuse && sr == before) {
      std::memcpy(out, out - dstStep, row_bytes);
    } else {
      const unsigned char *row = s + (ptrdiff_t)sr * srcStep;
      const unsigned char *next = nr != sr ? s + (ptrdiff_t)nr * srcStep : nullptr;
      copy_row<B, K>(out, row, next, table.words(), dstCols, srcCols, plan);
    }
    before = sr;
    sr = nr;
  }
  return SORN_OK;
}

}  // namespace sorn::resize
