// Morphology from the public entries: SornMorphop with structuring
// elements of every sort (no mask, masks of any shape, size, anchor, cells,
// element type and row stride) and SornFilter with the kinds of erosion,
// dilation and their chains, at rank 3 and 4, in place and not, on operands
// decoded from the input. Every operand and mask lives in a block of
// exactly its size. Properties, beside the sanitizers' silence:
//   - the answer is a status of the library;
//   - a strel whose mask breaks the checks answers SORN_EINVAL;
//   - sources and masks are never written, unless the call works in place;
//   - no byte of the destination's block outside its site is written, and a
//     failing call writes nothing at all;
//   - the environment's stack is at the same level after the call;
//   - a mask of all 255 gives what SornFilter gives with its rectangle
//     (but for SORN_F_BORDER_ONLY, which only the masked form keeps).
#include "fuzz_input.h"

namespace {

using namespace sorn_fuzz;

const uint32_t kTypes[] = {SORN_U8, SORN_S16, SORN_S32, SORN_F32, SORN_U16, SORN_S8};

// A mask in a block of exactly its bytes.
struct MaskBlock {
  SornStrel strel;
  std::unique_ptr<uint8_t[]> store;
  size_t bytes = 0;
  bool flat = false;  // every cell is 255 and the mask is of bytes
  bool good = false;  // at least one row and column, the anchor inside

  std::vector<uint8_t> snapshot() const {
    return std::vector<uint8_t>(store.get(), store.get() + bytes);
  }
};

void decode_mask(Input &in, MaskBlock &m) {
  std::memset(&m.strel, 0, sizeof m.strel);
  SornArray &a = m.strel.mask;
  const int32_t h = in.chance(240) ? in.range(1, 7) : in.range(-2, 0);
  const int32_t w = in.chance(240) ? in.range(1, 7) : in.range(-2, 0);
  const int32_t chword = in.chance(230) ? 1 : in.range(1, 4);
  static const uint32_t types[] = {SORN_U8, SORN_U8, SORN_U8, SORN_S16, SORN_S32, SORN_F32};
  const uint32_t type = in.chance(230) ? SORN_U8 : in.pick(types);
  const int32_t es = SORN_ELEMSIZE(type);
  const int32_t row = (w > 0 ? w : 0) * chword * es;
  const int32_t pitch = row + in.range(0, 3) * es;
  const int32_t lead = in.range(0, 2) * es;
  m.strel.anchor[1] = in.chance(230) ? in.range(0, h > 0 ? h - 1 : 0) : in.range(-2, 8);
  m.strel.anchor[2] = in.chance(230) ? in.range(0, w > 0 ? w - 1 : 0) : in.range(-2, 8);
  m.strel.anchor[0] = in.chance(240) ? 0 : in.range(-2, 2);
  m.strel.anchor[3] = in.chance(240) ? 0 : in.range(-2, 2);
  m.bytes = (size_t)lead + (h > 0 && w > 0 ? (size_t)(h - 1) * pitch + (size_t)row : 0);
  m.store.reset(new uint8_t[m.bytes ? m.bytes : 1]);
  // Mostly 0 and 255; all 255 now and then, any byte now and then.
  const uint8_t style = in.u8();
  for (size_t i = 0; i < m.bytes; ++i) {
    if (style < 64)
      m.store[i] = 255;
    else if (style < 230)
      m.store[i] = in.chance(128) ? 255 : 0;
    else
      m.store[i] = in.u8();
  }
  a.dims[0] = 1;
  a.dims[1] = h;
  a.dims[2] = w;
  a.dims[3] = chword;
  std::memcpy(a.bounds, a.dims, sizeof a.bounds);
  a.strides[0] = h * pitch;
  a.strides[1] = pitch;
  a.strides[2] = chword * es;
  a.strides[3] = es;
  a.ndims = 3;
  a.ndimsall = 3;
  a.elemtype = type;
  a.marker = 0x22;
  a.offset = lead;
  a.data = in.chance(245) ? m.store.get() : nullptr;
  if (a.data == nullptr) a.offset = 0;
  m.good = h >= 1 && w >= 1 && m.strel.anchor[1] >= 0 && m.strel.anchor[1] < h &&
           m.strel.anchor[2] >= 0 && m.strel.anchor[2] < w;
  m.flat = m.good && type == SORN_U8 && a.data != nullptr;
  for (int32_t i = 0; m.flat && i < h; ++i)
    for (int32_t j = 0; j < w * chword; ++j)
      if (m.store[(size_t)lead + (size_t)i * pitch + j] != 255) m.flat = false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  const bool through_filter = in.chance(48);
  Pixels px(in.u64());
  Operand dst, src;
  const Shape ds = decode_shape(in, kTypes, 6, 18, 24);
  build(dst, ds, px);
  Shape ss = decode_shape(in, kTypes, 6, 18, 24);
  if (in.chance(210)) {
    ss.type = ds.type;
    ss.chword = ds.chword;
    if (in.chance(200)) ss.ndims = ds.ndims;
    if (ss.ndims == ds.ndims && in.chance(200)) ss.planes = ds.planes;
  }
  build(src, ss, px);
  MaskBlock mask;
  decode_mask(in, mask);
  const bool in_place = in.chance(40);
  const SornArray *psrc = in_place ? nullptr : &src.rec;
  SornVolume r1 = decode_roi(in, dst.channels), r2 = decode_roi(in, dst.channels);
  const SornVolume *p1 = in.chance(128) ? &r1 : nullptr;
  const SornVolume *p2 = in.chance(128) ? &r2 : nullptr;
  static const SornFlags common[] = {
      0, 0, 0, SORN_F_NOMARGIN, SORN_F_SITEMARGIN, SORN_F_BORDER_ONLY, SORN_F_PROBE, 0x30};
  const SornFlags flags = in.chance(240) ? in.pick(common) : in.u64();
  static const int32_t kinds[] = {3, 4, 5, 6, 7, 8, 3, 4, 5, 6, 7, 8, 0, 9, 1, 2, 10, 0x13, -1};
  static const int32_t filter_kinds[] = {3, 4, 105, 106, 107, 108, 105, 106, 107, 108, 0, 109};
  const int32_t kind = through_filter ? in.pick(filter_kinds) : in.pick(kinds);
  const bool no_strel = !through_filter && in.chance(20);
  const SornStrel *pstrel = no_strel ? nullptr : &mask.strel;

  if (verbose()) {
    std::fprintf(stderr, "%s kind %d flags %llx%s\n", through_filter ? "filter" : "morphop", kind,
                 (unsigned long long)flags, in_place ? " in place" : "");
    describe("dst", dst.rec);
    if (psrc) describe("src", src.rec);
    describe("mask", mask.strel.mask);
    std::fprintf(stderr, "anchor {%d %d %d %d}\n", mask.strel.anchor[0], mask.strel.anchor[1],
                 mask.strel.anchor[2], mask.strel.anchor[3]);
    describe("roi1", p1);
    describe("roi2", p2);
  }

  const std::vector<uint8_t> d0 = dst.snapshot(), s0 = src.snapshot(), m0 = mask.snapshot();
  Env env;
  const KuMark before = env.level();
  const SornSeShape *window = reinterpret_cast<const SornSeShape *>(&mask.strel);
  const SornStatus st = through_filter
                            ? SornFilter(&env.xe, flags, &dst.rec, psrc, p1, p2, kind, window)
                            : SornMorphop(&env.xe, flags, &dst.rec, psrc, p1, p2, kind, pstrel);

  FUZZ_CHECK(is_status(st) || st == SORN_ENOTIMP);
  if (!through_filter && pstrel != nullptr && mask.strel.mask.data != nullptr && !mask.good)
    FUZZ_CHECK(st == SORN_EINVAL);
  FUZZ_CHECK(same_level(before, env.level()));
  FUZZ_CHECK(m0 == mask.snapshot());
  if (!in_place) FUZZ_CHECK(s0 == src.snapshot());
  const std::vector<uint8_t> d1 = dst.snapshot();
  if (st != SORN_OK) FUZZ_CHECK(d0 == d1);
  for (size_t i = 0; i < d1.size(); ++i)
    if (d0[i] != d1[i]) FUZZ_CHECK(dst.in_site(i));

  // A mask of all 255 is its rectangle: the same call through SornFilter
  // gives the same bytes (a 1 by 1 mask is a copy, which the filter's 5 by
  // 5 default does not give).
  const bool single = mask.strel.mask.dims[1] == 1 && mask.strel.mask.dims[2] == 1;
  // The filter does not check the channel cell of roiDst. Nor does its
  // frame keep SORN_F_BORDER_ONLY, which the masked form passes on to the
  // bordered copy as the caller gave it, so that the copy leaves the
  // interior of its block as it found it.
  const bool channels_checked = p1 == nullptr || p1->size[3] == SORN_CHANNELS(dst.rec.dims[3]);
  if (!through_filter && pstrel != nullptr && mask.flat && !single && kind >= 3 && kind <= 8 &&
      channels_checked && !(flags & SORN_F_BORDER_ONLY)) {
    static const int32_t as_filter[] = {0, 0, 0, 3, 4, 105, 106, 107, 108};
    if (!d0.empty()) std::memcpy(dst.data(), d0.data(), d0.size());
    // A null roiSrc is roiDst for SornMorphop, whether in place or not.
    const SornStatus again =
        SornFilter(&env.xe, flags, &dst.rec, psrc, p1, p2 ? p2 : p1, as_filter[kind], window);
    FUZZ_CHECK(again == st);
    if (st == SORN_OK) FUZZ_CHECK(d1 == dst.snapshot());
  }
  return 0;
}
