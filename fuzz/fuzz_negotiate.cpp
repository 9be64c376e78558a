// ROI negotiation between two records, and the vector and volume
// arithmetic under it, on words decoded from the input. Records here are
// only read, never their pixels, so their fields may take any value; the
// arithmetic wraps at 32 bits by definition and must never be undefined
// (the undefined-behaviour sanitizer watches every shift, division and
// conversion). Properties:
//   - a negotiation that answers true gives each operand a region inside its
//     site, of the same positive extent in the negotiated cells (checked
//     where no cell comes near the 32-bit limits, beyond which the wrap is
//     the defined result);
//   - the regions given as input are never written.
#include "fuzz_input.h"

#include <algorithm>

namespace {

using namespace sorn_fuzz;

// A word that is mostly small, now and then anything.
int32_t word(Input &in) {
  const uint8_t k = in.u8();
  if (k < 192) return (int32_t)(k % 48) - 8;
  if (k < 240) return (int32_t)(int16_t)in.u16();
  static const int32_t edge[] = {INT32_MIN, INT32_MAX, INT32_MIN + 1, INT32_MAX - 1, -1, 1 << 30,
                                 -(1 << 30), 65536};
  if (k < 248) return edge[k & 7];
  return (int32_t)in.u32();
}

SornArray record(Input &in) {
  SornArray a;
  std::memset(&a, 0, sizeof a);
  for (int i = 0; i < 4; ++i) a.dims[i] = word(in);
  if (in.chance(200)) {
    a.dims[0] = 1;
    a.dims[3] = 1 + in.u8() % 4;
  }
  for (int i = 0; i < 4; ++i) a.bounds[i] = in.chance(200) ? a.dims[i] : word(in);
  for (int i = 0; i < 4; ++i) a.strides[i] = word(in);
  a.ndims = in.chance(200) ? 3 : (uint16_t)in.range(0, 5);
  a.ndimsall = a.ndims;
  a.elemtype = SORN_U8;
  a.offset = in.chance(200) ? 0 : (int64_t)(int32_t)in.u32();
  a.marker = 0x22;
  return a;
}

SornVolume volume(Input &in) {
  SornVolume v;
  for (int i = 0; i < 4; ++i) v.origin[i] = word(in);
  for (int i = 0; i < 4; ++i) v.size[i] = word(in);
  return v;
}

bool moderate(const int32_t *v, int n) {
  for (int i = 0; i < n; ++i)
    if (v[i] > (1 << 28) || v[i] < -(1 << 28)) return false;
  return true;
}

bool moderate(const SornArray &a) { return moderate(a.dims, 4); }
bool moderate(const SornVolume *v) { return v == nullptr || (moderate(v->origin, 4) && moderate(v->size, 4)); }

// Cell i of r lies inside the site of a, whose cell 3 is its channel count.
bool inside(const SornArray &a, const SornVolume &r, int i) {
  const int64_t extent = i == 3 ? SORN_CHANNELS(a.dims[3]) : a.dims[i];
  return r.origin[i] >= 0 && (int64_t)r.origin[i] + r.size[i] <= extent;
}

void negotiate_blocks(Input &in) {
  SornArray a = record(in), b = record(in);
  SornVolume ia = volume(in), ib = volume(in);
  const SornVolume *pa = in.chance(160) ? &ia : nullptr;
  const SornVolume *pb = in.chance(160) ? &ib : nullptr;
  const int32_t m = in.chance(200) ? 3 : word(in);
  const SornVolume ia0 = ia, ib0 = ib;
  SornVolume ra, rb;
  const int ok = sorn_arr_negotiateRoi(&a, &b, &ra, &rb, pa, pb, m);
  FUZZ_CHECK(ok == 0 || ok == 1);
  FUZZ_CHECK(std::memcmp(&ia, &ia0, sizeof ia) == 0 && std::memcmp(&ib, &ib0, sizeof ib) == 0);
  if (!ok || !moderate(a) || !moderate(b) || !moderate(pa) || !moderate(pb)) return;
  const int cells = (m >= 1 && m <= 3) ? m : 3;
  for (int i = 0; i < cells; ++i) {
    FUZZ_CHECK(ra.size[i] > 0 && ra.size[i] == rb.size[i]);
    FUZZ_CHECK(inside(a, ra, i));
    FUZZ_CHECK(inside(b, rb, i));
  }
  // The first operand's region is its site cut down in every cell.
  for (int i = 0; i < 3; ++i)
    if (ra.size[i] > 0) FUZZ_CHECK(inside(a, ra, i));
}

void negotiate_cells(Input &in) {
  SornArray a = record(in), b = record(in);
  const int32_t n = in.range(1, 4);
  const int32_t m = in.range(0, 5);
  int32_t ro[4], rs[4], at[4];
  for (int i = 0; i < 4; ++i) ro[i] = word(in), rs[i] = word(in), at[i] = word(in);
  const bool nulls = in.chance(64);
  int32_t oa[4], sa[4], ob[4], sb[4];
  sorn_arr__negotiateRoi(&a, &b, n, m, oa, sa, ob, sb, nulls ? nullptr : ro, nulls ? nullptr : rs,
                         in.chance(64) ? nullptr : at);
}

void negotiate_scaled(Input &in) {
  SornArray a = record(in), b = record(in);
  SornVolume ia = volume(in), ib = volume(in);
  double ratio[3];
  for (double &r : ratio) {
    const uint8_t k = in.u8();
    if (k < 96)
      r = 0.0;
    else if (k < 200)
      r = (double)word(in) / (double)(1 + in.u8());
    else
      r = in.f64();  // any double: tiny, huge, infinite, not a number
  }
  SornVolume ra, rb;
  sorn_arr_negotiateRoiEx(&a, &b, &ra, &rb, in.chance(220) ? ratio : nullptr,
                          in.chance(160) ? &ia : nullptr, in.chance(160) ? &ib : nullptr,
                          word(in));
}

void vectors(Input &in) {
  int32_t c[4], s[4], o[4], z[4];
  for (int i = 0; i < 4; ++i) c[i] = word(in), s[i] = word(in), o[i] = word(in), z[i] = word(in);
  const int32_t n = in.range(-1, 4);
  const int32_t off = word(in);
  int32_t out[4];
  sorn_vec_fromloff(n, out, s, off);
  sorn_vec_update_$loff(n, c, s, off);
  // Forms that take n & 15 cells get a count the arrays can hold.
  const int32_t n4 = in.range(0, 4);
  (void)sorn_vec_mkloff(n4, c, s);
  const SornDimPack pack = (SornDimPack)in.u16();
  if (((pack & 15) + ((pack >> 4) & 15)) <= 4) {
    // Packed forms read 'off' cells in front of the pointer: give them room.
    const int32_t front = (int32_t)((pack >> 4) & 15);
    (void)sorn_vec_mkloff_$L(pack, c + front, s + front);
    (void)sorn_vec_mkloff_$LS(pack, in.chance(32) ? nullptr : c + front, s + front);
  }
  (void)sorn_volume__capacity_$Q(n, z);
  if (n >= 1) (void)sorn_volume__capacity(n, z);
  (void)sorn_volume__empty(n, z);
  int32_t o1[4], s1[4];
  std::memcpy(o1, o, sizeof o1);
  std::memcpy(s1, z, sizeof s1);
  (void)sorn__intersecI(n, o1, s1, c, s);
  int32_t oo[4], so[4];
  (void)sorn_intersecS(n4, in.chance(32) ? nullptr : oo, so, in.chance(32) ? nullptr : o, z,
                       in.chance(32) ? nullptr : c, s);
  int32_t d[4], st[4];
  for (int i = 0; i < 4; ++i) d[i] = word(in), st[i] = word(in);
  (void)sorn_vmemsize(in.range(1, 4), d, st, in.range(-1, 3));
  (void)sorn__vmemsize0(word(in), word(in), in.range(-1, 3));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  switch (in.u8() & 3) {
    case 0: negotiate_blocks(in); break;
    case 1: negotiate_cells(in); break;
    case 2: negotiate_scaled(in); break;
    default: vectors(in); break;
  }
  return 0;
}
