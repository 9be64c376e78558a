// The flooding, both forms, on images and masks decoded from the input:
// SornWatershed and SornWatershedEx (rank 3 and 4, the f form reached at
// rank 4 through the flags), and the type-generic layers sorna_watershed,
// sorna_watershed_xm, sorna_fwatershed and sorna_fwatershed_xm on the same
// images. Polarities, neighbour counts, level shifts, seeds (inside, on the
// edge, anywhere), excluded mask values, ROIs, origins and padded strides
// vary. Every image and mask lives in a block of exactly its size.
// Properties, beside the sanitizers' silence:
//   - the answer is a status of the library;
//   - images and masks are never written;
//   - the environment's stack is at the same level after the call;
//   - an f-form result is a proper tree: each region's own chain ends
//     inside the working array after at most its size, and a size is the
//     own pixels plus the children's sizes; a plain tree is finite and
//     every node carries a region;
//   - ending the builder or the result leaks nothing.
#include "fuzz_region.h"

namespace {

using namespace sorn_fuzz;

enum Op { kEntry, kEntryEx, kPlain, kPlainXm, kF, kFXm };

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Input in(data, size);
  const Op op = (Op)(in.u8() % 6);
  Pixels px(in.u64());

  Operand img, mask;
  const Shape is = decode_shape(in, kRegionTypes, 1, 24, 40);
  Shape ms = decode_mask_shape(in, is);
  const bool generic = op == kPlain || op == kPlainXm || op == kF || op == kFXm;
  if (generic) {
    // The type-generic layers take extents as they are given: the harness
    // gives them a real image, and a mask of its rows and columns.
    if (is.rows < 1 || is.cols < 1 || (is.ndims == 4 && is.planes < 1)) return 0;
    ms.ndims = 3;
    ms.rows = is.rows;
    ms.cols = is.cols;
    ms.type = SORN_U8;
  }
  const RegionOperands ops = build_region_operands(in, px, img, is, mask, ms);
  const SornVolume *roi = ops.roi(), *mroi = ops.mroi();
  const bool masked = (op == kEntryEx || op == kPlainXm || op == kFXm) && !ops.mask_left_out();

  SornFlags flags = 0;
  const uint8_t fb = in.u8();
  if (fb & 1) flags |= SORN_F_WTS_INVMASK;
  if (fb & 2) flags |= fb & 4 ? 0x200000ull : 0x400000ull;
  if (fb & 8) flags |= 0x100000ull;  // merges combine features at once
  if (fb >= 240) flags = in.u64();

  SornWTSState st;
  std::memset(&st, 0, sizeof st);
  const uint8_t pb = in.u8();
  st.polarity = pb < 200 ? (uint16_t)(pb & 1) : in.u16();
  st.restore = (uint16_t)(in.u8() & 1);
  const uint8_t cb = in.u8();
  st.connectivity = cb < 200 ? (uint16_t)(cb & 1) : in.u16();
  const uint8_t sb = in.u8();
  st.shift = sb < 160 ? 0 : sb < 240 ? (uint16_t)(sb & 7) : in.u16();
  decode_seed(in, st.seed, is.rows, is.cols);
  const uint8_t feat = in.u8();

  // The form that the call reaches decides what the state's builder is.
  const bool rank4 = is.ndims == 4;
  const bool fform = op == kF || op == kFXm ||
                     ((op == kEntry || op == kEntryEx) && rank4 && (flags & SORN_F_WTS_FFORM));

  if (verbose()) {
    std::fprintf(stderr,
                 "op %d masked %d flags %llx polarity %u restore %u conn %u shift %u seed {%u %u "
                 "%u %u} feat %u fform %d\n",
                 op, masked, (unsigned long long)flags, st.polarity, st.restore, st.connectivity,
                 st.shift, st.seed[0], st.seed[1], st.seed[2], st.seed[3], feat, fform);
    describe("image", img.rec);
    describe("mask", mask.rec);
    describe("roi", roi);
    describe("maskroi", mroi);
  }

  // A result record starts zeroed: its init keeps a link array or a stack
  // that the record already names.
  SornFWTSRES res;
  std::memset(&res, 0, sizeof res);
  SornSTB *builder = nullptr;
  SornWTSFeatureDs ds[2];
  SornWTSLSC lsc;
  if (fform) {
    SornFWTSRESinit(&res, nullptr, nullptr);
    st.builder = &res;
  } else {
    builder = SornWTSTBopen(nullptr, nullptr, nullptr, nullptr);
    FUZZ_CHECK(builder != nullptr);
    // Regions measure nothing, moments, pixels, or both.
    int32_t n = 0;
    if (feat & 1) SornWTSMFinitFeatureDs(&ds[n++], nullptr);
    if (feat & 2) SornWTSPFinitFeatureDs(&ds[n++], nullptr);
    SornWTSLSCinit2D(&lsc, n ? ds : nullptr, n, 0, 0, 0);
    st.builder = builder;
    st.lsc = &lsc;
  }

  const std::vector<uint8_t> i0 = img.snapshot(), m0 = mask.snapshot();
  Env env;
  const KuMark before = env.level();
  SornStatus status = SORN_EINVAL;
  // A packed rank 3 reads one cell in front of each vector, the plane cell
  // of a full record: the layers get four-cell vectors from their second.
  const SornDimPack pack = SORN_DIMPACK(3);
  const int32_t dims4[4] = {1, is.rows, is.cols, is.chword};
  const int32_t strides4[4] = {img.planestride, img.rowstride, img.pixstride, img.esize};
  const int32_t origin4[4] = {0, is.py, is.px, 0};
  const int32_t mstrides4[4] = {mask.planestride, mask.rowstride, mask.pixstride, mask.esize};
  const int32_t morigin4[4] = {0, ms.py, ms.px, 0};
  const int32_t *dims = dims4 + 1, *strides = strides4 + 1, *origin = origin4 + 1;
  const int32_t *mstrides = mstrides4 + 1, *morigin = morigin4 + 1;
  const uint32_t masktype = in.chance(240) ? SORN_U8 : decode_type(in, kRegionTypes, 1);
  const void *mbase = in.chance(240) ? mask.data() : nullptr;
  switch (op) {
    case kEntry: status = SornWatershed(&env.xe, flags, &img.rec, roi, &st); break;
    case kEntryEx:
      status = SornWatershedEx(&env.xe, flags, &img.rec, masked ? &mask.rec : nullptr, roi, mroi,
                               &st);
      break;
    case kPlain:
      status = sorna_watershed(&env.xe, flags, &st, pack, dims, is.type, img.data(), origin,
                               strides);
      break;
    case kPlainXm:
      status = sorna_watershed_xm(&env.xe, flags, &st, pack, dims, is.type, img.data(), origin,
                                  strides, masktype, mbase, morigin, mstrides);
      break;
    case kF:
      status = sorna_fwatershed(&env.xe, flags, &st, pack, dims, is.type, img.data(), origin,
                                strides);
      break;
    case kFXm:
      status = sorna_fwatershed_xm(&env.xe, flags, &st, pack, dims, is.type, img.data(), origin,
                                   strides, masktype, mbase, morigin, mstrides);
      break;
  }

  FUZZ_CHECK(is_status(status));
  FUZZ_CHECK(same_level(before, env.level()));
  FUZZ_CHECK(i0 == img.snapshot());
  FUZZ_CHECK(m0 == mask.snapshot());
  if (status == SORN_OK) {
    if (fform)
      check_fres(res, link_bound(is));
    else
      check_tree(builder, all_pixels(is));
  }
  if (fform)
    SornFWTSRESfini(&res);
  else
    SornSTBclose(builder, 0);
  return 0;
}
