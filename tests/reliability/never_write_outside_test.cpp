// The property every operation keeps: a call writes nothing but its
// destination ROI (or its result records), and a call that answers an error
// writes nothing at all. Thousands of random calls of every operation, each
// operand the site of a larger canvas filled with a known pattern; one call
// in four has one of its records or ROIs broken on purpose, and must then
// fail without a trace.
//
// The operations are rows of one table. A new family adds a row: a function
// that makes one random valid call, registering its canvases (with what they
// may have written), its records and ROIs, and the call itself.
#include <gtest/gtest.h>
#include <sorn.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <string>

#include "canvas.h"
#include "testkit.h"

namespace sorn_reliability {
namespace {

// One random call with everything it can touch.
struct Trial {
  explicit Trial(std::mt19937_64 &r) : rng(r) {
    std::memset(&xe, 0, sizeof xe);
    SornXEinit(&xe, nullptr);
  }
  ~Trial() { SornXEfini(&xe); }
  Trial(const Trial &) = delete;

  std::mt19937_64 &rng;
  SornXE xe;
  std::deque<Image> images;
  std::deque<Block> blocks;
  std::deque<SornVolume> vols;
  std::vector<Canvas *> canvases;
  std::vector<SornArray *> records;  // every record the call reads
  std::vector<SornVolume *> rois;    // every ROI it is given
  std::function<SornStatus()> call;
  bool answers_count = false;  // a non-negative answer may be a count

  int32_t uniform(int32_t lo, int32_t hi) {
    return std::uniform_int_distribution<int32_t>(lo, hi)(rng);
  }
  bool one_in(int32_t n) { return uniform(0, n - 1) == 0; }

  Image &image(uint32_t type, int32_t rows, int32_t cols, int32_t channels) {
    images.emplace_back();
    Image &im = images.back();
    make_image(im, type, 1, rows, cols, channels, uniform(1, 3), uniform(0, 3));
    canvases.push_back(&im.canvas);
    records.push_back(&im.rec);
    return im;
  }
  Block &block(size_t bytes) {
    blocks.emplace_back();
    blocks.back().make(bytes);
    canvases.push_back(&blocks.back().canvas);
    return blocks.back();
  }
  // A record the call does not get after all.
  void forget(SornArray *a) { records.erase(std::remove(records.begin(), records.end(), a), records.end()); }
  // A ROI, or null now and then; origins mostly inside the site.
  SornVolume *roi(int32_t rows, int32_t cols, int32_t channels) {
    if (one_in(4)) return nullptr;
    const bool anywhere = one_in(8);
    SornVolume v = sorn_test::make_roi(uniform(-2, anywhere ? rows : rows / 2),
                                       uniform(-2, anywhere ? cols : cols / 2),
                                       uniform(1, rows + 3), uniform(1, cols + 3), channels);
    vols.push_back(v);
    rois.push_back(&vols.back());
    return &vols.back();
  }
};

// The part of the site that a destination ROI covers.
void allow_roi(Image &im, const SornVolume *roi) {
  if (roi == nullptr) {
    im.allow(0, 0, im.rows, im.cols);
    return;
  }
  const int32_t y0 = std::max(0, roi->origin[1]), x0 = std::max(0, roi->origin[2]);
  const int32_t y1 = std::min(im.rows, roi->origin[1] + roi->size[1]);
  const int32_t x1 = std::min(im.cols, roi->origin[2] + roi->size[2]);
  if (y1 > y0 && x1 > x0) im.allow(y0, x0, y1 - y0, x1 - x0);
}

auto values_of(uint32_t type) {
  return [type](std::mt19937_64 &r) { return sorn_test::random_value(r, type, true); };
}

/* ---------------- rows ---------------- */

struct AddTriple {
  uint32_t d, a, b;
};
#define SORN_REL_CODE_u8 SORN_U8
#define SORN_REL_CODE_s16 SORN_S16
#define SORN_REL_CODE_s32 SORN_S32
#define SORN_REL_CODE_f32 SORN_F32
#define SORN_REL_TRIPLE(d, a, b) {SORN_REL_CODE_##d, SORN_REL_CODE_##a, SORN_REL_CODE_##b},
const AddTriple kAddTriples[] = {SORN_ADD_TRIPLES(SORN_REL_TRIPLE)};
#undef SORN_REL_TRIPLE

void make_add(Trial &t) {
  const AddTriple tr = kAddTriples[t.uniform(0, (int32_t)std::size(kAddTriples) - 1)];
  const int32_t ch = t.uniform(1, 4);
  const int32_t rows = t.uniform(1, 10), cols = t.uniform(1, 12);
  Image &d = t.image(tr.d, rows, cols, ch);
  // Sources of their own extents: the negotiation takes what they share.
  Image &a = t.image(tr.a, t.uniform(1, 12), t.uniform(1, 14), ch);
  Image &b = t.image(tr.b, t.uniform(1, 12), t.uniform(1, 14), ch);
  for (Image *im : {&d, &a, &b}) fill_site(*im, t.rng, values_of(im->type));
  const SornVolume *dr = t.roi(rows, cols, ch), *ar = t.roi(a.rows, a.cols, ch),
                   *br = t.roi(b.rows, b.cols, ch);
  const SornArray *pa = &a.rec, *pb = &b.rec;
  // In place: the destination as first source (null), or as second source
  // when the triple allows it.
  if (tr.a == tr.d && t.one_in(5)) pa = nullptr;
  if (tr.b == tr.d && t.one_in(5)) pb = &d.rec;
  if (pa != &a.rec) t.forget(&a.rec);
  if (pb != &b.rec) t.forget(&b.rec);
  allow_roi(d, dr);
  const int32_t sf = t.uniform(-33, 33);
  SornXE *xe = &t.xe;
  const SornArray *pd = &d.rec;
  t.call = [=] { return SornAdd(xe, 0, pd, pa, pb, dr, ar, br, sf, 0); };
}

void make_addc(Trial &t) {
  const uint32_t types[] = {SORN_U8, SORN_S16, SORN_S32, SORN_F32};
  const int32_t ch = t.uniform(1, 4);
  const int32_t rows = t.uniform(1, 10), cols = t.uniform(1, 12);
  Image &d = t.image(types[t.uniform(0, 3)], rows, cols, ch);
  Image &a = t.image(types[t.uniform(0, 3)], t.uniform(1, 12), t.uniform(1, 14), ch);
  fill_site(d, t.rng, values_of(d.type));
  fill_site(a, t.rng, values_of(a.type));
  const SornVolume *dr = t.roi(rows, cols, ch), *ar = t.roi(a.rows, a.cols, ch);
  allow_roi(d, dr);
  Block &c = t.block(4 * sizeof(double));
  for (int i = 0; i < 4; ++i) {
    const double v = sorn_test::random_value(t.rng, SORN_F32, false);
    std::memcpy(c.data() + i * sizeof(double), &v, sizeof v);
  }
  c.canvas.writable.clear();  // the constants are only read
  const double *cv = reinterpret_cast<const double *>(c.data());
  const int32_t sf = t.uniform(-33, 33);
  SornXE *xe = &t.xe;
  const SornArray *pd = &d.rec, *pa = t.one_in(5) ? nullptr : &a.rec;
  if (pa == nullptr) t.forget(&a.rec);
  t.call = [=] { return SornAddC(xe, 0, pd, pa, cv, dr, ar, sf, 0); };
}

// Histograms: the image's values lie inside the histogram's range, which the
// counting kernels require of their callers.
void make_histogram(Trial &t, bool masked) {
  const uint32_t types[] = {SORN_U8, SORN_S8, SORN_S16, SORN_S32, SORN_F32};
  const uint32_t type = types[t.uniform(0, 4)];
  // Mostly one channel; more are refused as a whole, before any count.
  const int32_t ch = t.one_in(6) ? (t.one_in(2) ? 3 : 4) : 1;
  const int32_t rows = t.uniform(1, 10), cols = t.uniform(1, 40);
  Image &src = t.image(type, rows, cols, ch);
  int32_t lo = 0, hi = 255;
  switch (type) {
    case SORN_S8: lo = t.uniform(-128, 0), hi = t.uniform(lo, 127); break;
    case SORN_S16: lo = t.uniform(-32768, 0), hi = t.uniform(lo, 32767); break;
    case SORN_S32: lo = t.uniform(-100000, 100000), hi = lo + t.uniform(0, 100000); break;
    case SORN_F32: lo = t.uniform(-1000, 1000), hi = lo + t.uniform(0, 2000); break;
    default: lo = t.uniform(0, 255), hi = t.uniform(lo, 255); break;
  }
  fill_site(src, t.rng, [&](std::mt19937_64 &r) {
    if (type == SORN_F32) return std::uniform_real_distribution<double>(lo, hi)(r);
    return (double)std::uniform_int_distribution<int32_t>(lo, hi)(r);
  });
  SornHistInit init;
  std::memset(&init, 0, sizeof init);
  init.elemtype = type;
  init.bins = t.uniform(1, 300);
  init.low = lo;
  init.high = hi;
  init.planes = 1;
  init.rows = rows;
  init.cols = cols;
  Block &recs = t.block((size_t)ch * sizeof(SornHist));
  SornHist *hists = reinterpret_cast<SornHist *>(recs.data());
  for (int32_t c = 0; c < ch; ++c) {
    Block &counts = t.block(((size_t)init.bins + 1) * sizeof(uint32_t));
    sorn_hist_inithdr(&hists[c], &init);
    hists[c].counts = reinterpret_cast<uint32_t *>(counts.data());
    std::memset(counts.data(), 0, counts.body);
  }
  const SornVolume *roi = t.roi(rows, cols, ch);
  SornXE *xe = &t.xe;
  const SornArray *ps = &src.rec;
  const SornFlags flags = t.one_in(2) ? SORN_F_STATS_INVMASK : 0;
  if (!masked) {
    t.call = [=] { return SornHistogram(xe, flags, ps, roi, 0, hists); };
    return;
  }
  Image &mask = t.image(SORN_U8, rows + t.uniform(0, 2), cols + t.uniform(0, 2), 1);
  fill_site(mask, t.rng, [](std::mt19937_64 &r) {
    const uint32_t k = (uint32_t)(r() % 4);
    return k == 0 ? 0.0 : k == 1 ? 255.0 : (double)(r() & 255);
  });
  const SornVolume *site = t.roi(mask.rows, mask.cols, 1);
  const SornArray *pm = &mask.rec;
  t.call = [=] { return SornHistogramEx(xe, flags, ps, pm, roi, site, 0, hists); };
}

// Sums and means overwrite one double per channel of the image.
void make_sum(Trial &t, bool mean, bool masked) {
  const uint32_t types[] = {SORN_U8, SORN_S16, SORN_S32, SORN_F32};
  const uint32_t type = types[t.uniform(0, 3)];
  const int32_t chs[] = {1, 1, 3, 4};
  const int32_t ch = chs[t.uniform(0, 3)];
  const int32_t rows = t.uniform(1, 10), cols = t.uniform(1, 40);
  Image &src = t.image(type, rows, cols, ch);
  fill_site(src, t.rng, values_of(type));
  Block &out = t.block((size_t)ch * sizeof(double));
  double *res = reinterpret_cast<double *>(out.data());
  const SornVolume *roi = t.roi(rows, cols, ch);
  const SornFlags choice[] = {0, SORN_F_STATS_INVMASK, SORN_F_SUM_FAST, SORN_F_SUM_COUNT,
                              SORN_F_SUM_COUNT | SORN_F_STATS_INVMASK};
  const SornFlags flags = choice[t.uniform(0, 4)];
  SornXE *xe = &t.xe;
  const SornArray *ps = &src.rec;
  if (!masked) {
    t.call = mean ? std::function<SornStatus()>([=] { return SornMean(xe, flags, ps, roi, res); })
                  : std::function<SornStatus()>([=] { return SornSum(xe, flags, ps, roi, res); });
    return;
  }
  t.answers_count = true;
  Image &mask = t.image(SORN_U8, rows + t.uniform(0, 2), cols + t.uniform(0, 2), 1);
  fill_site(mask, t.rng, [](std::mt19937_64 &r) {
    const uint32_t k = (uint32_t)(r() % 4);
    return k == 0 ? 0.0 : k == 1 ? 255.0 : (double)(r() & 255);
  });
  const SornVolume *site = t.roi(mask.rows, mask.cols, 1);
  const SornArray *pm = &mask.rec;
  t.call = mean ? std::function<SornStatus()>(
                      [=] { return SornMeanEx(xe, flags, ps, pm, roi, site, res); })
                : std::function<SornStatus()>(
                      [=] { return SornSumEx(xe, flags, ps, pm, roi, site, res); });
}

struct OpRow {
  const char *name;
  std::function<void(Trial &)> make;
};

// Every operation of the library that writes through records. Later
// families add their rows here (region flooding, stable regions, ...).
const OpRow kOps[] = {
    {"SornAdd", make_add},
    {"SornAddC", make_addc},
    {"SornHistogram", [](Trial &t) { make_histogram(t, false); }},
    {"SornHistogramEx", [](Trial &t) { make_histogram(t, true); }},
    {"SornSum", [](Trial &t) { make_sum(t, false, false); }},
    {"SornSumEx", [](Trial &t) { make_sum(t, false, true); }},
    {"SornMean", [](Trial &t) { make_sum(t, true, false); }},
    {"SornMeanEx", [](Trial &t) { make_sum(t, true, true); }},
};

/* ---------------- breaking one field ---------------- */

// Breaks one field of one record or ROI so that the call must fail: a rank
// other than 3 and 4, an outermost extent below 1, a channel count of 0 or
// 5, an unknown element type, no rows or columns, or a ROI that starts
// beyond every site.
std::string break_one(Trial &t) {
  const size_t nrec = t.records.size(), nroi = t.rois.size();
  const size_t k = (size_t)t.uniform(0, (int32_t)(nrec + nroi) - 1);
  if (k >= nrec) {
    SornVolume *v = t.rois[k - nrec];
    v->origin[t.uniform(1, 2)] = 100000;
    return "ROI beyond the site";
  }
  SornArray *a = t.records[k];
  switch (t.uniform(0, 5)) {
    case 0: { const uint16_t r[] = {0, 2, 5}; a->ndims = r[t.uniform(0, 2)]; return "rank"; }
    case 1: a->dims[0] = t.uniform(-1, 0); return "outermost extent";
    case 2: { const int32_t w[] = {0, 5, 6, 7, 12}; a->dims[3] = w[t.uniform(0, 4)]; return "channels"; }
    case 3: { const uint32_t c[] = {0, 5, 6, 7, 8, 16, 0x101}; a->elemtype = c[t.uniform(0, 6)]; return "type"; }
    case 4: a->dims[1] = t.uniform(-2, 0); return "rows";
    default: a->dims[2] = t.uniform(-2, 0); return "columns";
  }
}

bool same_level(const KuMark &a, const KuMark &b) {
  return a.w[0] == b.w[0] && a.w[1] == b.w[1] && a.w[2] == b.w[2];
}

class NeverWriteOutside : public ::testing::TestWithParam<size_t> {};

TEST_P(NeverWriteOutside, RandomCallsTouchOnlyTheirDestination) {
  const OpRow &row = kOps[GetParam()];
  std::mt19937_64 rng = sorn_test::seeded_rng(0x5EED0000u + GetParam());
  constexpr int kCalls = 2500;
  int succeeded = 0, broken = 0;
  for (int i = 0; i < kCalls; ++i) {
    Trial t(rng);
    row.make(t);
    std::string what;
    if (t.one_in(4)) {
      what = break_one(t);
      ++broken;
    }
    for (Canvas *c : t.canvases) c->snapshot();
    KuMark before, after;
    SornXEgetmmsp(&t.xe, &before);
    const SornStatus st = t.call();
    SornXEgetmmsp(&t.xe, &after);
    ASSERT_TRUE(same_level(before, after)) << row.name << " call " << i << ": scratch not given back";
    const bool failed = st < 0;
    if (!what.empty()) {
      ASSERT_TRUE(failed) << row.name << " call " << i << " with a broken " << what
                          << " answered " << st;
    }
    if (failed) {
      for (size_t c = 0; c < t.canvases.size(); ++c)
        ASSERT_TRUE(t.canvases[c]->unchanged())
            << row.name << " call " << i << " failed with " << st << " but changed canvas " << c
            << (what.empty() ? "" : " (broken " + what + ")");
      continue;
    }
    if (!t.answers_count) {
      ASSERT_EQ(st, SORN_OK) << row.name << " call " << i;
    }
    ++succeeded;
    for (size_t c = 0; c < t.canvases.size(); ++c)
      ASSERT_EQ(t.canvases[c]->first_stray(), -1)
          << row.name << " call " << i << " wrote outside its destination in canvas " << c;
  }
  // The property means little unless most valid calls did their work.
  if (std::string(row.name) != "SornAddC") {
    EXPECT_GT(succeeded, (kCalls - broken) / 2) << row.name;
  }
  std::printf("[ %-14s] %d calls, %d succeeded, %d with a broken field\n", row.name, kCalls,
              succeeded, broken);
}

INSTANTIATE_TEST_SUITE_P(Operations, NeverWriteOutside,
                         ::testing::Range<size_t>(0, std::size(kOps)),
                         [](const ::testing::TestParamInfo<size_t> &info) {
                           return std::string(kOps[info.param].name);
                         });

}  // namespace
}  // namespace sorn_reliability
