// What the fuzz targets share: reading the fuzzer's bytes as the arguments
// of a call, and operands whose pixels live in a heap block of exactly the
// size their record describes. With the address sanitizer every access
// outside such a block is reported, so a report is always the library's
// doing and never the harness's.
#pragma once

#include <sorn.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

// A broken property ends the run the way a sanitizer does, so that the
// fuzzer keeps the input and the corpus replay fails.
#define FUZZ_CHECK(cond)                                                              \
  do {                                                                                \
    if (!(cond)) {                                                                    \
      std::fprintf(stderr, "%s:%d: property broken: %s\n", __FILE__, __LINE__, #cond); \
      std::abort();                                                                   \
    }                                                                                 \
  } while (0)

namespace sorn_fuzz {

// The fuzzer's bytes, read front to back. An exhausted input reads as zeros,
// and a zero byte always decodes to the most ordinary choice, so that short
// inputs make ordinary calls.
class Input {
 public:
  Input(const uint8_t *data, size_t size) : p_(data), n_(size) {}

  uint8_t u8() {
    if (n_ == 0) return 0;
    --n_;
    return *p_++;
  }
  uint16_t u16() { return (uint16_t)(u8() | (uint16_t)u8() << 8); }
  uint32_t u32() { return (uint32_t)u16() | (uint32_t)u16() << 16; }
  uint64_t u64() { return (uint64_t)u32() | (uint64_t)u32() << 32; }
  double f64() {
    uint64_t bits = u64();
    double d;
    std::memcpy(&d, &bits, sizeof d);
    return d;
  }
  bool chance(uint8_t in256) { return u8() < in256; }
  // A value in [lo, hi] (hi - lo below 2^32).
  int32_t range(int32_t lo, int32_t hi) {
    const uint64_t span = (uint64_t)((int64_t)hi - lo) + 1;
    const uint64_t v = span <= 256 ? u8() : span <= 65536 ? u16() : u32();
    return (int32_t)((int64_t)lo + (int64_t)(v % span));
  }
  template <class T, size_t N>
  T pick(const T (&table)[N]) {
    return table[u8() % N];
  }
  size_t left() const { return n_; }
  const uint8_t *rest() const { return p_; }

 private:
  const uint8_t *p_;
  size_t n_;
};

// A small generator for pixel contents, seeded from the input, so that the
// fuzzer does not have to spend its bytes on pixels.
class Pixels {
 public:
  explicit Pixels(uint64_t seed) : s_(seed * 0x9E3779B97F4A7C15ull + 1) {}
  uint64_t next() {
    s_ ^= s_ << 13;
    s_ ^= s_ >> 7;
    s_ ^= s_ << 17;
    return s_;
  }
  // Fills 'bytes' bytes holding elements of 'type' with values that mix
  // ordinary numbers, the type's extremes and, for floats, infinities,
  // NaNs, -0 and values beyond the 32-bit range.
  void fill(uint8_t *p, size_t bytes, uint32_t type) {
    if (type == SORN_F32 && bytes % 4 == 0) {
      static const float special[] = {0.0f, -0.0f, 0.5f, -0.5f, 1.5f, 2.5f, 1e30f, -1e30f,
                                      3.4e38f, -3.4e38f, 2147483520.0f, 2147483648.0f,
                                      -2147483648.0f, -2147483904.0f, 1e-40f,
                                      __builtin_inff(), -__builtin_inff(), __builtin_nanf("")};
      for (size_t i = 0; i < bytes; i += 4) {
        uint64_t r = next();
        float v;
        if ((r & 7) == 0)
          v = special[(r >> 3) % (sizeof special / sizeof special[0])];
        else
          v = (float)((int32_t)(r >> 16) % 200000) / (float)(1 + ((r >> 8) & 255));
        std::memcpy(p + i, &v, 4);
      }
      return;
    }
    for (size_t i = 0; i < bytes; ++i) {
      uint64_t r = next();
      // Runs of 0x00, 0x7f, 0x80, 0xff make the extremes of every width.
      static const uint8_t edge[] = {0x00, 0x7f, 0x80, 0xff};
      p[i] = (r & 3) == 0 ? edge[(r >> 2) & 3] : (uint8_t)(r >> 24);
    }
  }

 private:
  uint64_t s_;
};

// How an operand's record and storage are laid out.
struct Shape {
  uint32_t type = SORN_U8;
  uint16_t ndims = 3;
  int32_t planes = 1, rows = 1, cols = 1, chword = 1;
  int32_t rowpad = 0, planepad = 0;   // in elements
  int32_t py = 0, px = 0, pz = 0;     // the site's origin in its parent
};

// An operand: its record and a heap block of exactly the bytes from 'data'
// to the end of the site. Bytes in front of the site belong to the parent.
struct Operand {
  Shape shape;
  SornArray rec;
  std::unique_ptr<uint8_t[]> store;
  size_t bytes = 0;
  int32_t esize = 0, channels = 0, pixstride = 0, rowstride = 0, planestride = 0;
  size_t offset = 0;

  uint8_t *data() { return store.get(); }

  // True when byte i of the block is a byte of an element of the site.
  bool in_site(size_t i) const {
    if (i < offset || esize == 0) return false;
    size_t r = i - offset;
    const int32_t planes = shape.ndims == 4 ? (shape.planes > 0 ? shape.planes : 0) : 1;
    const size_t pl = planestride ? r / (size_t)planestride : 0;
    if ((int64_t)pl >= planes) return false;
    r -= pl * (size_t)planestride;
    if (rowstride <= 0) return false;
    const size_t row = r / (size_t)rowstride;
    if ((int64_t)row >= shape.rows) return false;
    r -= row * (size_t)rowstride;
    return r < (size_t)shape.cols * (size_t)pixstride;
  }

  std::vector<uint8_t> snapshot() const {
    return std::vector<uint8_t>(store.get(), store.get() + bytes);
  }
};

// Element types: an ordinary one for most bytes, any code now and then.
inline uint32_t decode_type(Input &in, const uint32_t *usual, size_t nusual) {
  const uint8_t b = in.u8();
  if (b < 224) return usual[b % nusual];
  static const uint32_t other[] = {0,  2,  3,  4,  5,  6,  7,    8,    9,         12,
                                   14, 15, 16, 17, 27, 29, 0x1d, 0x101, 0xffffffffu, 0x80000001u};
  return other[b % (sizeof other / sizeof other[0])];
}

inline uint32_t decode_chword(Input &in) {
  const uint8_t b = in.u8();
  if (b < 208) return 1 + b % 4;
  // Counts 0 and 5, bit 3 words, and format nibbles.
  static const uint32_t other[] = {0, 5, 6, 7, 8, 9, 10, 11, 12, 13, 15, 0x13, 0x24, 0xf1, 0x1b, 16};
  return other[b % (sizeof other / sizeof other[0])];
}

inline Shape decode_shape(Input &in, const uint32_t *usual, size_t nusual, int32_t maxrows = 24,
                          int32_t maxcols = 40) {
  Shape s;
  s.type = decode_type(in, usual, nusual);
  const uint8_t nd = in.u8();
  if (nd < 200)
    s.ndims = 3;
  else if (nd < 240)
    s.ndims = 4;
  else {
    static const uint16_t odd[] = {0, 1, 2, 5, 6, 0xffff};
    s.ndims = odd[nd % 6];
  }
  const uint8_t pb = in.u8();
  s.planes = pb < 200 ? 1 + pb % 3 : (pb & 1 ? 0 : -1 - (pb & 6));
  const uint8_t rb = in.u8();
  s.rows = rb < 240 ? 1 + rb % maxrows : (rb & 1 ? 0 : -1 - (rb & 14));
  const uint8_t cb = in.u8();
  s.cols = cb < 240 ? 1 + cb % maxcols : (cb & 1 ? 0 : -1 - (cb & 14));
  s.chword = (int32_t)decode_chword(in);
  const uint8_t pad = in.u8();
  s.rowpad = pad & 7;
  s.planepad = (pad >> 3) & 7;
  const uint8_t org = in.u8();
  s.py = org & 3;
  s.px = (org >> 2) & 3;
  s.pz = (org >> 4) & 1;
  return s;
}

// Builds the record and its storage. A 3-dimensional record keeps dims[0]
// as given (the operations check it but never step along it) and a plane
// stride of 0.
inline void build(Operand &op, const Shape &s, Pixels &px) {
  op.shape = s;
  op.esize = SORN_ELEMSIZE(s.type);
  op.channels = SORN_CHANNELS(s.chword);
  const int32_t ch = op.channels > 0 ? op.channels : 1;
  const int32_t rows = s.rows > 0 ? s.rows : 0, cols = s.cols > 0 ? s.cols : 0;
  const bool four = s.ndims == 4;
  const int32_t planes = four ? (s.planes > 0 ? s.planes : 0) : 1;
  op.pixstride = ch * op.esize;
  op.rowstride = cols * op.pixstride + s.rowpad * op.esize;
  op.planestride = four ? rows * op.rowstride + s.planepad * op.esize : 0;
  // The parent reaches s.pz planes, s.py rows and s.px pixels in front.
  op.offset = (size_t)s.pz * (size_t)op.planestride + (size_t)s.py * (size_t)op.rowstride +
              (size_t)s.px * (size_t)op.pixstride;
  size_t span = 0;
  if (planes > 0 && rows > 0 && cols > 0)
    span = (size_t)(planes - 1) * (size_t)op.planestride +
           (size_t)(rows - 1) * (size_t)op.rowstride + (size_t)cols * (size_t)op.pixstride;
  op.bytes = op.offset + span;
  op.store.reset(new uint8_t[op.bytes ? op.bytes : 1]);
  px.fill(op.store.get(), op.bytes, s.type);

  SornArray &a = op.rec;
  std::memset(&a, 0, sizeof a);
  a.dims[0] = s.planes;
  a.dims[1] = s.rows;
  a.dims[2] = s.cols;
  a.dims[3] = s.chword;
  a.bounds[0] = s.planes + (four ? s.pz : 0);
  a.bounds[1] = s.rows + s.py;
  a.bounds[2] = s.cols + s.px;
  a.bounds[3] = s.chword;
  a.strides[0] = op.planestride;
  a.strides[1] = op.rowstride;
  a.strides[2] = op.pixstride;
  a.strides[3] = op.esize;
  a.ndims = s.ndims;
  a.ndimsall = s.ndims;
  a.elemtype = s.type;
  a.marker = 0x22;
  a.offset = (int64_t)op.offset;
  a.data = op.store.get();
}

// A region of interest: origins mostly inside, sizes mostly reaching over
// the edge, the channel cells mostly ordinary.
inline SornVolume decode_roi(Input &in, int32_t channels) {
  SornVolume v;
  v.origin[0] = in.chance(230) ? 0 : in.range(-2, 3);
  v.origin[1] = in.range(-4, 27);
  v.origin[2] = in.range(-4, 43);
  v.origin[3] = in.chance(230) ? 0 : in.range(-3, 5);
  v.size[0] = in.chance(230) ? 1 : in.range(-2, 4);
  v.size[1] = in.range(-3, 44);
  v.size[2] = in.range(-3, 60);
  v.size[3] = in.chance(220) ? (channels > 0 ? channels : 1) : in.range(-3, 8);
  return v;
}

// An environment with a stack of its own; the level of its stack is the
// same after every call as before it.
struct Env {
  SornXE xe;
  Env() {
    std::memset(&xe, 0, sizeof xe);
    SornXEinit(&xe, nullptr);
  }
  ~Env() { SornXEfini(&xe); }
  KuMark level() {
    KuMark m;
    SornXEgetmmsp(&xe, &m);
    return m;
  }
};

// With SORN_FUZZ_VERBOSE set, the targets describe the call they make, to
// turn a kept input into a reproducer by hand.
inline bool verbose() {
  static const bool v = std::getenv("SORN_FUZZ_VERBOSE") != nullptr;
  return v;
}

inline void describe(const char *name, const SornArray &a) {
  std::fprintf(stderr,
               "%s: type %u ndims %u dims {%d %d %d %d} bounds {%d %d %d %d} strides {%d %d %d %d} "
               "offset %lld\n",
               name, a.elemtype, a.ndims, a.dims[0], a.dims[1], a.dims[2], a.dims[3], a.bounds[0],
               a.bounds[1], a.bounds[2], a.bounds[3], a.strides[0], a.strides[1], a.strides[2],
               a.strides[3], (long long)a.offset);
}

inline void describe(const char *name, const SornVolume *v) {
  if (v == nullptr) {
    std::fprintf(stderr, "%s: null\n", name);
    return;
  }
  std::fprintf(stderr, "%s: origin {%d %d %d %d} size {%d %d %d %d}\n", name, v->origin[0],
               v->origin[1], v->origin[2], v->origin[3], v->size[0], v->size[1], v->size[2],
               v->size[3]);
}

inline bool same_level(const KuMark &a, const KuMark &b) {
  return a.w[0] == b.w[0] && a.w[1] == b.w[1] && a.w[2] == b.w[2];
}

inline bool is_status(SornStatus st) {
  return st == SORN_OK || st == SORN_EINVAL || st == SORN_ENOMEM || st == SORN_ENOSPC ||
         st == SORN_ENOTSUP;
}

}  // namespace sorn_fuzz
