// Running out of memory in the histogram record and the counting: every
// failure answers SORN_ENOMEM, leaves no block behind (the sanitizer build
// checks the heap, at_mark() the scratch stack) and counts nothing.
#include <alloc_failure.h>

#include "stats_testutil.h"

using sorn_test::AllocFailure;
using sorn_test::for_each_allocation_failure;
using sorn_test::Image;
using stats_test::Env;
using stats_test::TestHist;

namespace {

SornHistInit init_of(int32_t bins, double low, double high) {
  SornHistInit in;
  std::memset(&in, 0, sizeof in);
  in.elemtype = SORN_U8;
  in.bins = bins;
  in.low = low;
  in.high = high;
  in.planes = 1;
  in.rows = 4;
  in.cols = 5;
  return in;
}

// Four records whose every byte says "not touched".
struct Four {
  SornHist h[4];
  SornHistInit in[4];
  Four() {
    std::memset(h, 0x5a, sizeof h);
    for (int c = 0; c < 4; ++c) in[c] = init_of(16 + c, 0, 255);
  }
  bool untouched(int c) const {
    SornHist d;
    std::memset(&d, 0x5a, sizeof d);
    return std::memcmp(&h[c], &d, sizeof d) == 0;
  }
  static bool closed(const SornHist &h) {
    return h.counts == nullptr && h.bins == 0 && h.total == 0 && h.isum == 0 && h.fsum == 0.0f;
  }
};

constexpr uint32_t kFourChannels = 4;
constexpr uint32_t kChannels0And2 = 4 | (0x5u << 4);

}  // namespace

TEST(HistRecordOutOfMemory, HeapCountersAnswerNoMemoryWithTheHeaderSet) {
  SornHist h;
  std::memset(&h, 0x5a, sizeof h);
  const SornHistInit in = init_of(32, 0, 255);
  AllocFailure failure(0);
  EXPECT_EQ(SORN_ENOMEM, __sorn_histogram__$ia(&h, &in));
  EXPECT_TRUE(failure.fired());
  EXPECT_EQ(nullptr, h.counts);
  EXPECT_EQ(32u, h.bins);
  EXPECT_EQ(20u, h.total);
}

TEST(HistRecordOutOfMemory, ScratchCountersAnswerNoMemoryAndTakeNothing) {
  Env env;
  SornHist h;
  std::memset(&h, 0x5a, sizeof h);
  const SornHistInit in = init_of(32, 0, 255);
  {
    AllocFailure failure(0);
    EXPECT_EQ(SORN_ENOMEM, __sorn_histogram__$xe(&h, &in, env.xe()));
    EXPECT_TRUE(failure.fired());
  }
  EXPECT_EQ(nullptr, h.counts);
  EXPECT_TRUE(env.at_mark());
}

TEST(HistRecordOutOfMemory, ChannelsDoneBeforeTheFailureAreClosedDownward) {
  for (int fail = 0; fail < 4; ++fail) {
    Four f;
    {
      AllocFailure failure(fail);
      EXPECT_EQ(SORN_ENOMEM, __sorn_histogram__$n$ia(kFourChannels, f.h, f.in)) << fail;
    }
    for (int c = 0; c <= fail; ++c) EXPECT_TRUE(Four::closed(f.h[c])) << "channel " << c;
    for (int c = fail + 1; c < 4; ++c) EXPECT_TRUE(f.untouched(c)) << "channel " << c;
  }
  Four f;
  EXPECT_EQ(SORN_OK, __sorn_histogram__$n$ia(kFourChannels, f.h, f.in));
  sorn_hist_fini_$n(kFourChannels, f.h);
}

TEST(HistRecordOutOfMemory, OnlySelectedChannelsAreAllocatedOrClosed) {
  // Channels 0 and 2 selected: the second request is channel 2's.
  Four f;
  {
    AllocFailure failure(1);
    EXPECT_EQ(SORN_ENOMEM, __sorn_histogram__$n$ia(kChannels0And2, f.h, f.in));
    EXPECT_EQ(2, failure.requests());
  }
  EXPECT_TRUE(Four::closed(f.h[0]));
  EXPECT_TRUE(f.untouched(1));
  EXPECT_TRUE(Four::closed(f.h[2]));
  EXPECT_TRUE(f.untouched(3));
}

TEST(HistRecordOutOfMemory, ScratchChannelsAreGivenBackInReverseOrder) {
  for (uint32_t w : {kFourChannels, kChannels0And2}) {
    const int selected = w == kFourChannels ? 4 : 2;
    for (int fail = 0; fail < selected; ++fail) {
      Env env;
      Four f;
      {
        AllocFailure failure(fail);
        EXPECT_EQ(SORN_ENOMEM, __sorn_histogram__$n$xe(w, f.h, f.in, env.xe())) << fail;
      }
      // A block taken now lands where the first channel's did: every
      // channel's counters went back.
      EXPECT_TRUE(env.at_mark()) << "w " << w << " failing request " << fail;
    }
  }
}

TEST(HistRecordOutOfMemory, InitModesPassTheFailureOn) {
  Four f;
  Env env;
  {
    AllocFailure failure(0, true);
    EXPECT_EQ(SORN_ENOMEM, sorn_hist__init(1, &f.h[0], &f.in[0]));
    EXPECT_EQ(SORN_ENOMEM, sorn_hist__init_n(1, kFourChannels, f.h, f.in));
    EXPECT_EQ(SORN_ENOMEM, sorn_hist__init_xe(1, &f.h[0], &f.in[0], env.xe()));
    EXPECT_EQ(SORN_ENOMEM, sorn_hist__init_n_xe(1, kFourChannels, f.h, f.in, env.xe()));
    // The header-only mode takes nothing.
    EXPECT_EQ(SORN_OK, sorn_hist__init(0, &f.h[0], &f.in[0]));
  }
  EXPECT_TRUE(env.at_mark());
}

TEST(HistogramOutOfMemory, BankScratchFailureCountsNothing) {
  // A row above the bank limit takes the ten-block scratch; without it the
  // count answers SORN_ENOMEM before touching the record.
  Image img(3, 64, 1, SORN_U8);
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 64; ++x) img.set(y, x, 0, (y * 64 + x) % 256);
  const SornArray a = img.record();
  TestHist want(256, 0, 255);
  {
    Env env;
    ASSERT_EQ(SORN_OK, SornHistogram(env.xe(), 0, &a, nullptr, 0, &want.h));
  }
  const int64_t failing = for_each_allocation_failure([&](int64_t k) {
    Env env;
    TestHist t(256, 0, 255);
    SornStatus st;
    {
      AllocFailure failure(k);
      st = SornHistogram(env.xe(), 0, &a, nullptr, 0, &t.h);
      if (!failure.fired()) return false;
    }
    EXPECT_TRUE(env.at_mark());
    if (st == SORN_ENOMEM) {
      for (uint32_t c : t.store) EXPECT_EQ(0u, c);
      EXPECT_EQ(0u, t.h.isum);
    } else {
      EXPECT_EQ(SORN_OK, st);
      EXPECT_EQ(want.store, t.store);
    }
    return true;
  });
  EXPECT_GE(failing, 1);
}

TEST(SumOutOfMemory, EveryRequestOfASumFailsCleanly) {
  Image img(5, 37, 3, SORN_F32, 12);
  for (int y = 0; y < 5; ++y)
    for (int x = 0; x < 37; ++x)
      for (int c = 0; c < 3; ++c) img.set(y, x, c, y * 0.5 + x * 0.25 - c);
  const SornArray a = img.record();
  double want[4] = {};
  {
    Env env;
    ASSERT_EQ(SORN_OK, SornSum(env.xe(), 0, &a, nullptr, want));
  }
  for_each_allocation_failure([&](int64_t k) {
    Env env;
    double got[4] = {7, 7, 7, 7};
    SornStatus st;
    {
      AllocFailure failure(k);
      st = SornSum(env.xe(), 0, &a, nullptr, got);
      if (!failure.fired()) return false;
    }
    EXPECT_TRUE(env.at_mark());
    if (st == SORN_ENOMEM) {
      for (double g : got) EXPECT_EQ(7.0, g);
    } else {
      EXPECT_GE(st, 0);
      for (int c = 0; c < 3; ++c) EXPECT_EQ(want[c], got[c]);
    }
    return true;
  });
}
