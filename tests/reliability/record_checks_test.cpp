// Every entry that takes records answers its status for each bad field on
// its own, never crashes, and writes nothing: a rank other than 3 or 4, an
// outermost extent below 1, no rows or columns, channel counts 0 and 5,
// unknown and unsupported element types, missing required records and
// results, empty ROIs. Each case starts from a good call (checked to
// succeed) and breaks one thing.
#include <gtest/gtest.h>
#include <sorn.h>

#include <deque>
#include <functional>
#include <string>

#include "canvas.h"
#include "testkit.h"

namespace sorn_reliability {
namespace {

enum class Kind { kDest, kFirst, kSecond, kImage, kMask };

// One good call of an entry, with its canvases.
struct CallSetup {
  CallSetup() {
    std::memset(&xe, 0, sizeof xe);
    SornXEinit(&xe, nullptr);
  }
  ~CallSetup() { SornXEfini(&xe); }
  CallSetup(const CallSetup &) = delete;
  SornXE xe;
  std::deque<Image> images;
  std::deque<Block> blocks;
  std::vector<Canvas *> canvases;
  SornArray *rec[3] = {nullptr, nullptr, nullptr};    // by slot
  SornVolume roi[3];
  SornVolume *rois[3] = {nullptr, nullptr, nullptr};  // by slot, null: whole site
  void *out = nullptr;                                // result records or vector

  SornArray *image(uint32_t type, int32_t rows, int32_t cols, int32_t ch) {
    images.emplace_back();
    Image &im = images.back();
    make_image(im, type, 1, rows, cols, ch, 2, 1);
    canvases.push_back(&im.canvas);
    return &im.rec;
  }
  uint8_t *block(size_t bytes) {
    blocks.emplace_back();
    blocks.back().make(bytes);
    canvases.push_back(&blocks.back().canvas);
    return blocks.back().data();
  }
  void hists(uint32_t type) {
    SornHistInit init;
    std::memset(&init, 0, sizeof init);
    init.elemtype = type;
    init.bins = 256;
    init.low = 0;
    init.high = 255;
    init.planes = 1;
    init.rows = 6;
    init.cols = 8;
    SornHist *h = reinterpret_cast<SornHist *>(block(sizeof(SornHist)));
    sorn_hist_inithdr(h, &init);
    h->counts = reinterpret_cast<uint32_t *>(block(257 * sizeof(uint32_t)));
    std::memset(h->counts, 0, 257 * sizeof(uint32_t));
    out = h;
  }
};

struct Entry {
  const char *name;
  std::vector<std::pair<const char *, Kind>> slots;  // records, in call order
  int nrois;                                         // ROIs, in call order
  const char *result;                                // the required result argument, or null
  std::function<void(CallSetup &)> make;
  std::function<SornStatus(CallSetup &)> call;
};

SornArray *at(CallSetup &s, int i) { return s.rec[i]; }

const Entry kEntries[] = {
    {"SornAdd", {{"dst", Kind::kDest}, {"a", Kind::kFirst}, {"b", Kind::kSecond}}, 3, nullptr,
     [](CallSetup &s) {
       s.rec[0] = s.image(SORN_S16, 6, 8, 1);
       s.rec[1] = s.image(SORN_U8, 6, 8, 1);
       s.rec[2] = s.image(SORN_U8, 6, 8, 1);
     },
     [](CallSetup &s) {
       return SornAdd(&s.xe, 0, at(s, 0), at(s, 1), at(s, 2), s.rois[0], s.rois[1], s.rois[2], 0, 0);
     }},
    {"SornAddC", {{"dst", Kind::kDest}, {"a", Kind::kFirst}}, 2, "cvec",
     [](CallSetup &s) {
       s.rec[0] = s.image(SORN_S16, 6, 8, 1);
       s.rec[1] = s.image(SORN_U8, 6, 8, 1);
       double *c = reinterpret_cast<double *>(s.block(4 * sizeof(double)));
       for (int i = 0; i < 4; ++i) c[i] = 3.0;
       s.out = c;
     },
     [](CallSetup &s) {
       return SornAddC(&s.xe, 0, at(s, 0), at(s, 1), static_cast<const double *>(s.out), s.rois[0],
                       s.rois[1], 0, 0);
     }},
    {"SornHistogram", {{"src", Kind::kImage}}, 1, "hists",
     [](CallSetup &s) {
       s.rec[0] = s.image(SORN_U8, 6, 8, 1);
       s.hists(SORN_U8);
     },
     [](CallSetup &s) {
       return SornHistogram(&s.xe, 0, at(s, 0), s.rois[0], 0, static_cast<SornHist *>(s.out));
     }},
    {"SornHistogramEx", {{"src", Kind::kImage}, {"mask", Kind::kMask}}, 2, "hists",
     [](CallSetup &s) {
       s.rec[0] = s.image(SORN_U8, 6, 8, 1);
       s.rec[1] = s.image(SORN_U8, 6, 8, 1);
       s.hists(SORN_U8);
     },
     [](CallSetup &s) {
       return SornHistogramEx(&s.xe, 0, at(s, 0), at(s, 1), s.rois[0], s.rois[1], 0,
                              static_cast<SornHist *>(s.out));
     }},
    {"SornSum", {{"src", Kind::kImage}}, 1, "sums",
     [](CallSetup &s) {
       s.rec[0] = s.image(SORN_U8, 6, 8, 1);
       s.out = s.block(4 * sizeof(double));
     },
     [](CallSetup &s) { return SornSum(&s.xe, 0, at(s, 0), s.rois[0], static_cast<double *>(s.out)); }},
    {"SornSumEx", {{"src", Kind::kImage}, {"mask", Kind::kMask}}, 2, "sums",
     [](CallSetup &s) {
       s.rec[0] = s.image(SORN_U8, 6, 8, 1);
       s.rec[1] = s.image(SORN_U8, 6, 8, 1);
       s.out = s.block(4 * sizeof(double));
     },
     [](CallSetup &s) {
       return SornSumEx(&s.xe, 0, at(s, 0), at(s, 1), s.rois[0], s.rois[1],
                        static_cast<double *>(s.out));
     }},
    {"SornMean", {{"src", Kind::kImage}}, 1, "means",
     [](CallSetup &s) {
       s.rec[0] = s.image(SORN_U8, 6, 8, 1);
       s.out = s.block(4 * sizeof(double));
     },
     [](CallSetup &s) { return SornMean(&s.xe, 0, at(s, 0), s.rois[0], static_cast<double *>(s.out)); }},
    {"SornMeanEx", {{"src", Kind::kImage}, {"mask", Kind::kMask}}, 2, "means",
     [](CallSetup &s) {
       s.rec[0] = s.image(SORN_U8, 6, 8, 1);
       s.rec[1] = s.image(SORN_U8, 6, 8, 1);
       s.out = s.block(4 * sizeof(double));
     },
     [](CallSetup &s) {
       return SornMeanEx(&s.xe, 0, at(s, 0), at(s, 1), s.rois[0], s.rois[1],
                         static_cast<double *>(s.out));
     }},
};

// A bad field and the status it must give in each kind of slot (0: the
// case does not apply to that kind).
struct Break {
  const char *name;
  std::function<void(SornArray &)> apply;  // null: the record itself is left out
  SornStatus dest, first, second, image, mask;
};

const Break kBreaks[] = {
    {"Rank0", [](SornArray &a) { a.ndims = 0; }, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL},
    {"Rank2", [](SornArray &a) { a.ndims = 2; }, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL},
    {"Rank5", [](SornArray &a) { a.ndims = 5; }, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL},
    {"OutermostExtent0", [](SornArray &a) { a.dims[0] = 0; }, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL},
    {"OutermostExtentNegative", [](SornArray &a) { a.dims[0] = -3; }, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL},
    {"Rows0", [](SornArray &a) { a.dims[1] = 0; }, SORN_ENOSPC, SORN_ENOSPC, SORN_ENOSPC, SORN_ENOSPC, SORN_ENOSPC},
    {"RowsNegative", [](SornArray &a) { a.dims[1] = -2; }, SORN_ENOSPC, SORN_ENOSPC, SORN_ENOSPC, SORN_ENOSPC, SORN_ENOSPC},
    {"Columns0", [](SornArray &a) { a.dims[2] = 0; }, SORN_ENOSPC, SORN_ENOSPC, SORN_ENOSPC, SORN_ENOSPC, SORN_ENOSPC},
    {"ColumnsNegative", [](SornArray &a) { a.dims[2] = -5; }, SORN_ENOSPC, SORN_ENOSPC, SORN_ENOSPC, SORN_ENOSPC, SORN_ENOSPC},
    {"Channels0", [](SornArray &a) { a.dims[3] = 0; }, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL},
    {"Channels5", [](SornArray &a) { a.dims[3] = 5; }, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL},
    {"ChannelsWord12", [](SornArray &a) { a.dims[3] = 12; }, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL},
    {"TypeCode0", [](SornArray &a) { a.elemtype = 0; }, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL},
    {"TypeCode5", [](SornArray &a) { a.elemtype = 5; }, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL},
    {"TypeCode7", [](SornArray &a) { a.elemtype = 7; }, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL},
    {"TypeCode8", [](SornArray &a) { a.elemtype = 8; }, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL},
    {"TypeCode17", [](SornArray &a) { a.elemtype = 17; }, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL},
    {"TypeCodeHuge", [](SornArray &a) { a.elemtype = 0x80000001u; }, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL, SORN_EINVAL},
    {"TypeU16WithoutKernel", [](SornArray &a) { a.elemtype = SORN_U16; }, SORN_ENOTSUP, SORN_ENOTSUP, SORN_ENOTSUP, SORN_ENOTSUP, SORN_EINVAL},
    {"TypeF64WithoutKernel", [](SornArray &a) { a.elemtype = SORN_F64; }, SORN_ENOTSUP, SORN_ENOTSUP, SORN_ENOTSUP, SORN_ENOTSUP, SORN_EINVAL},
    // A missing destination or second source is an error; a missing first
    // source or mask is a form of the call of its own.
    {"Null", nullptr, SORN_EINVAL, 0, SORN_EINVAL, SORN_EINVAL, 0},
};

SornStatus expected(const Break &b, Kind k) {
  switch (k) {
    case Kind::kDest: return b.dest;
    case Kind::kFirst: return b.first;
    case Kind::kSecond: return b.second;
    case Kind::kImage: return b.image;
    default: return b.mask;
  }
}

// Cases: (entry, what is broken). Records by slot and bad field, ROIs by
// slot, and the result argument.
struct Case {
  size_t entry;
  int slot;       // record slot, or -1
  size_t brk;     // index into kBreaks
  int roi;        // ROI slot made empty, or -1
  bool result;    // the result argument left out
  std::string name;
};

std::vector<Case> all_cases() {
  std::vector<Case> v;
  for (size_t e = 0; e < std::size(kEntries); ++e) {
    const Entry &en = kEntries[e];
    for (int s = 0; s < (int)en.slots.size(); ++s)
      for (size_t b = 0; b < std::size(kBreaks); ++b) {
        if (expected(kBreaks[b], en.slots[s].second) == 0) continue;
        v.push_back({e, s, b, -1, false,
                     std::string(en.name) + "_" + en.slots[s].first + "_" + kBreaks[b].name});
      }
    for (int r = 0; r < en.nrois; ++r)
      v.push_back({e, -1, 0, r, false, std::string(en.name) + "_EmptyRoi" + std::to_string(r)});
    if (en.result) v.push_back({e, -1, 0, -1, true, std::string(en.name) + "_Null_" + en.result});
  }
  return v;
}

const std::vector<Case> &cases() {
  static const std::vector<Case> c = all_cases();
  return c;
}

class RecordChecks : public ::testing::TestWithParam<size_t> {};

TEST(RecordChecks, EveryGoodCallSucceeds) {
  for (const Entry &en : kEntries) {
    CallSetup s;
    en.make(s);
    EXPECT_GE(en.call(s), 0) << en.name;
  }
}

TEST_P(RecordChecks, AnswersItsStatusAndWritesNothing) {
  const Case &c = cases()[GetParam()];
  const Entry &en = kEntries[c.entry];
  CallSetup s;
  en.make(s);
  SornStatus want = SORN_ENOSPC;
  if (c.slot >= 0) {
    const Break &b = kBreaks[c.brk];
    want = expected(b, en.slots[c.slot].second);
    if (b.apply)
      b.apply(*s.rec[c.slot]);
    else
      s.rec[c.slot] = nullptr;
  } else if (c.roi >= 0) {
    // A region that starts beyond the site: for the sources of the
    // arithmetic only the origin of a ROI counts, so the size cannot empty
    // it.
    s.roi[c.roi] = sorn_test::make_roi(100, 100, 4, 4, 1);
    s.rois[c.roi] = &s.roi[c.roi];
  } else {
    want = SORN_EINVAL;
    s.out = nullptr;
  }
  for (Canvas *cv : s.canvases) cv->snapshot();
  const SornStatus st = en.call(s);
  for (size_t i = 0; i < s.canvases.size(); ++i)
    EXPECT_TRUE(s.canvases[i]->unchanged()) << "canvas " << i << " changed";
  EXPECT_EQ(st, want);
}

INSTANTIATE_TEST_SUITE_P(Entries, RecordChecks, ::testing::Range<size_t>(0, cases().size()),
                         [](const ::testing::TestParamInfo<size_t> &info) {
                           return cases()[info.param].name;
                         });

TEST(RecordChecks, FirstSourceRoiSizeIsNotRead) {
  // Only the origin of the first and second sources' ROIs counts: a size of
  // zero there still makes a good call.
  CallSetup s;
  kEntries[0].make(s);
  s.roi[1] = sorn_test::make_roi(0, 0, 0, 0, 0);
  s.roi[2] = sorn_test::make_roi(0, 0, 0, 0, 0);
  s.rois[1] = &s.roi[1];
  s.rois[2] = &s.roi[2];
  EXPECT_EQ(kEntries[0].call(s), SORN_OK);
}

TEST(RecordChecks, FourDimensionalArithmeticIsNotSupported) {
  CallSetup s;
  kEntries[0].make(s);
  for (int i = 0; i < 3; ++i) s.rec[i]->ndims = 4;
  for (Canvas *cv : s.canvases) cv->snapshot();
  EXPECT_EQ(kEntries[0].call(s), SORN_ENOTSUP);
  for (Canvas *cv : s.canvases) EXPECT_TRUE(cv->unchanged());
}

}  // namespace
}  // namespace sorn_reliability
