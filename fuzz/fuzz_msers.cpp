// Stable region generation, both forms, on images and masks decoded from
// the input: SornGenerateFMSERs(Ex) and SornGenerateMSERs(Ex) at rank 3 and
// 4, with filters built by every construction function, parameters that run
// from the defaults to anything (huge deltas, level shifts past the byte,
// ratios that are negative, infinite or not a number), results of the f
// form from outside or embedded, features of the plain form (none,
// moments, pixels, both), gathering at once or afterwards, and now and then
// a second run on the same f-form filter. Every image and mask lives in a block of
// exactly its size. Properties, beside the sanitizers' silence:
//   - the answer is a status of the library;
//   - images and masks are never written; the environment's stack is at the
//     same level after the call (the plain form: once the filter is
//     destroyed, since its builders' stacks lie over it);
//   - a failing run leaves the filter without regions (and the plain form
//     without builders);
//   - after a run, the picked regions are the two passes' lists one after
//     the other, each region picked (flag set) and of at least 16 pixels,
//     and an f-form result is a proper tree;
//   - destroying the filter (and finishing results from outside) leaks
//     nothing.
#include "fuzz_region.h"

#include <cmath>

namespace {

using namespace sorn_fuzz;

enum Op { kF, kFEx, kPlain, kPlainEx };

double ratio(Input &in, double usual) {
  const uint8_t b = in.u8();
  if (b < 96) return usual;
  if (b < 200) return (double)in.u16() / 65536.0 * (b & 1 ? 1.0 : 4.0);
  static const double odd[] = {0.0, -0.0, -0.5, 1.0, 1e-9, 1e30, -1e30, HUGE_VAL, -HUGE_VAL,
                               NAN, 3.4e38, 2.0};
  if (b < 240) return odd[b % (sizeof odd / sizeof odd[0])];
  return in.f64();
}

struct Params {
  int32_t delta, mode, restore, connectivity, shift;
  uint32_t seed[4];
  double minarea, maxarea, maxvariation, mindiversity;
  int32_t minpixels;
  uint32_t gathernow;
};

Params decode_params(Input &in, const Shape &s) {
  Params p;
  const uint8_t d = in.u8();
  p.delta = d < 200 ? d % 24 : (int32_t)in.u32();
  const uint8_t m = in.u8();
  p.mode = m < 240 ? m % 3 : (int32_t)in.u32();
  p.restore = in.u8() & 1;
  p.connectivity = in.u8() & 1;
  const uint8_t sh = in.u8();
  p.shift = sh < 160 ? 0 : sh < 240 ? sh & 7 : (int32_t)in.u16();
  decode_seed(in, p.seed, s.rows, s.cols);
  p.minarea = ratio(in, SORN_MSER_DEFAULT_MINAREA);
  p.maxarea = ratio(in, SORN_MSER_DEFAULT_MAXAREA);
  p.maxvariation = ratio(in, SORN_MSER_DEFAULT_MAXVARIATION);
  p.mindiversity = ratio(in, SORN_MSER_DEFAULT_MINDIVERSITY);
  const uint8_t mp = in.u8();
  p.minpixels = mp < 128 ? 0 : mp < 240 ? mp % 40 - 4 : (int32_t)in.u32();
  p.gathernow = in.u8() & 1;
  return p;
}

// The picked regions of either form: the two passes' lists one after the
// other, each region picked and of at least 16 pixels.
template <class Region, class Filter>
void check_list(const Filter &f) {
  FUZZ_CHECK((uint64_t)f.count1 + f.count2 == f.regions.count);
  auto **items = static_cast<Region **>(f.regions.items);
  if (f.regions.count) {
    FUZZ_CHECK(f.list1 == items && f.list2 == items + f.count1);
    for (uint64_t i = 0; i < f.regions.count; ++i) {
      FUZZ_CHECK(items[i] != nullptr);
      FUZZ_CHECK(items[i]->mserflag == 1);
      FUZZ_CHECK(items[i]->size >= 16);
    }
  }
}

void check_fpicked(const SornFMSERFilter &f, const Shape &s) {
  check_list<SornFWTSRegion>(f);
  if (f.res1) check_fres(*f.res1, link_bound(s));
  if (f.res2) check_fres(*f.res2, link_bound(s));
}

void check_picked(const SornMSERFilter &f, const Shape &s) {
  check_list<SornWTSRegion>(f);
  check_tree(f.builder1, all_pixels(s));
  check_tree(f.builder2, all_pixels(s));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  const Op op = (Op)(in.u8() % 4);
  const bool fform = op == kF || op == kFEx;
  Pixels px(in.u64());

  Operand img, mask;
  const Shape is = decode_shape(in, kRegionTypes, 1, 24, 40);
  const Shape ms = decode_mask_shape(in, is);
  const RegionOperands ops = build_region_operands(in, px, img, is, mask, ms);
  const SornVolume *roi = ops.roi(), *mroi = ops.mroi();
  const SornArray *pmask = ops.mask_left_out() ? nullptr : &mask.rec;

  SornFlags flags = 0;
  const uint8_t fb = in.u8();
  if (fb & 1) flags |= SORN_F_WTS_INVMASK;
  if (fb & 2) flags |= fb & 4 ? 0x200000ull : 0x400000ull;  // gathering, with gathernow
  if (fb & 8) flags |= 0x100000ull;
  if (fb >= 240) flags = in.u64();

  const uint8_t how = in.u8();  // which construction, which features or results
  const Params p = decode_params(in, is);
  // A second run on the same f-form filter reuses its results and extends
  // its list; the plain form opens new builders each run, so a second run
  // without destroying first is the caller's leak.
  const bool again = fform && in.chance(24);

  SornFMSERFilter ff;
  SornMSERFilter pf;
  SornFWTSRES ext[2];
  std::memset(ext, 0, sizeof ext);  // init keeps what a record already names
  SornWTSFeatureDs ds[2];
  bool ext_used[2] = {false, false};
  if (fform) {
    SornFWTSRES *r[2] = {nullptr, nullptr};
    for (int k = 0; k < 2; ++k)
      if (how & (16 << k)) {
        SornFWTSRESinit(&ext[k], nullptr, nullptr);
        ext_used[k] = true;
        r[k] = &ext[k];
      }
    switch (how & 3) {
      case 0: __sorn_fmserfilt__$(&ff); break;
      case 1: __sorn_fmserfilt__$fwtsres(&ff, r[0], r[1]); break;
      default:
        __sorn_fmserfilt__$ex(&ff, r[0], r[1], p.delta, p.mode, p.restore, p.connectivity,
                              p.shift, (how & 4) ? nullptr : p.seed, p.minarea, p.maxarea,
                              p.maxvariation, p.mindiversity);
        ff.minpixels = p.minpixels;
        ff.gathernow = p.gathernow;
        break;
    }
    // A filter from $ uses embedded results only.
    if ((how & 3) == 0)
      for (int k = 0; k < 2; ++k)
        if (ext_used[k]) SornFWTSRESfini(&ext[k]), ext_used[k] = false;
  } else {
    int32_t n = 0;
    if (how & 16) SornWTSMFinitFeatureDs(&ds[n++], nullptr);
    if (how & 32) SornWTSPFinitFeatureDs(&ds[n++], nullptr);
    switch (how & 3) {
      case 0: __sorn_mserfilt__$(&pf); break;
      case 1: __sorn_mserfilt__$feats(&pf, n ? ds : nullptr, n); break;
      case 2:
        __sorn_mserfilt__$mf(&pf, p.delta, p.mode, p.restore, p.connectivity, p.shift,
                             (how & 4) ? nullptr : p.seed, p.minarea, p.maxarea, p.maxvariation,
                             p.mindiversity);
        pf.minpixels = p.minpixels;
        pf.gathernow = p.gathernow;
        break;
      default:
        __sorn_mserfilt__$ex(&pf, n ? ds : nullptr, n, p.delta, p.mode, p.restore,
                             p.connectivity, p.shift, (how & 4) ? nullptr : p.seed, p.minarea,
                             p.maxarea, p.maxvariation, p.mindiversity);
        pf.minpixels = p.minpixels;
        pf.gathernow = p.gathernow;
        break;
    }
  }

  if (verbose()) {
    std::fprintf(stderr,
                 "op %d mask %d flags %llx how %02x delta %d mode %d restore %d conn %d shift %d "
                 "seed {%u %u %u %u} areas %g %g var %g div %g minpixels %d gathernow %u again %d\n",
                 op, pmask != nullptr, (unsigned long long)flags, how, p.delta, p.mode, p.restore,
                 p.connectivity, p.shift, p.seed[0], p.seed[1], p.seed[2], p.seed[3], p.minarea,
                 p.maxarea, p.maxvariation, p.mindiversity, p.minpixels, p.gathernow, again);
    describe("image", img.rec);
    describe("mask", mask.rec);
    describe("roi", roi);
    describe("maskroi", mroi);
  }

  const std::vector<uint8_t> i0 = img.snapshot(), m0 = mask.snapshot();
  Env env;
  const KuMark before = env.level();
  for (int run = 0; run < (again ? 2 : 1); ++run) {
    SornStatus st = SORN_EINVAL;
    switch (op) {
      case kF: st = SornGenerateFMSERs(&env.xe, flags, &img.rec, roi, &ff); break;
      case kFEx: st = SornGenerateFMSERsEx(&env.xe, flags, &img.rec, pmask, roi, mroi, &ff); break;
      case kPlain: st = SornGenerateMSERs(&env.xe, flags, &img.rec, roi, &pf); break;
      case kPlainEx:
        st = SornGenerateMSERsEx(&env.xe, flags, &img.rec, pmask, roi, mroi, &pf);
        break;
    }
    FUZZ_CHECK(is_status(st));
    // The plain form's builders keep their stacks over the environment's
    // until the filter is destroyed.
    if (fform) FUZZ_CHECK(same_level(before, env.level()));
    FUZZ_CHECK(i0 == img.snapshot());
    FUZZ_CHECK(m0 == mask.snapshot());
    if (fform) {
      if (st != SORN_OK) {
        FUZZ_CHECK(ff.regions.items == nullptr && ff.regions.count == 0);
        // Results given at construction stay named when the entry's checks
        // refuse the call; a failing run clears them.
        FUZZ_CHECK(ff.count1 == 0 && ff.count2 == 0);
        break;
      }
      check_fpicked(ff, is);
    } else {
      if (st != SORN_OK) {
        FUZZ_CHECK(pf.regions.items == nullptr && pf.regions.count == 0);
        FUZZ_CHECK(pf.count1 == 0 && pf.count2 == 0 && pf.builder1 == nullptr &&
                   pf.builder2 == nullptr);
        break;
      }
      check_picked(pf, is);
      // Gathering afterwards: everything, or one region of a pass, named by
      // its pass or by 0.
      const uint8_t g = in.u8();
      if (g & 1) FUZZ_CHECK(SornMSERgatherFeatures(&pf) == SORN_OK);
      if ((g & 2) && pf.count1) {
        const SornStatus gs = SornMSERgatherFeaturesOfRegion(&pf, pf.list1[0], g & 4 ? 0 : 1);
        FUZZ_CHECK(gs == SORN_OK);
      }
      if ((g & 8) && pf.count2) {
        const SornStatus gs = SornMSERgatherFeaturesOfRegion(&pf, pf.list2[0], g & 16 ? 0 : -1);
        FUZZ_CHECK(gs == (g & 16 ? SORN_EINVAL : SORN_OK));
      }
    }
  }

  if (fform) {
    sorn_fmserf_destroy(&ff);
    for (int k = 0; k < 2; ++k)
      if (ext_used[k]) SornFWTSRESfini(&ext[k]);
  } else {
    sorn_mserf_destroy(&pf);
  }
  FUZZ_CHECK(same_level(before, env.level()));
  return 0;
}
