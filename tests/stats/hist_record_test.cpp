// The histogram record: header arithmetic, allocation on the heap and on the
// scratch stack, reset, finish, and the mode switch of the init forms.
#include "stats_testutil.h"

using stats_test::Env;

namespace {

SornHistInit make_init(uint32_t type, int32_t bins, double low, double high, int32_t rows = 10,
                       int32_t cols = 20) {
  SornHistInit in;
  std::memset(&in, 0, sizeof in);
  in.elemtype = type;
  in.bins = bins;
  in.low = low;
  in.high = high;
  in.planes = 1;
  in.rows = rows;
  in.cols = cols;
  return in;
}

SornHist dirty_hist() {
  SornHist h;
  std::memset(&h, 0x5a, sizeof h);
  return h;
}

}  // namespace

TEST(HistRecord, LayoutHasTheFieldOrderAndWidths) {
  EXPECT_EQ(offsetof(SornHist, isum), 0u);
  EXPECT_EQ(offsetof(SornHist, iwidth), 16u);
  EXPECT_EQ(offsetof(SornHist, fsum), 20u);
  EXPECT_EQ(offsetof(SornHist, width), 36u);
  EXPECT_EQ(offsetof(SornHist, total), 40u);
  EXPECT_EQ(offsetof(SornHist, bins), 44u);
  EXPECT_EQ(offsetof(SornHist, counts), 48u);
  EXPECT_EQ(offsetof(SornHistInit, low), 8u);
  EXPECT_EQ(offsetof(SornHistInit, high), 16u);
  EXPECT_EQ(offsetof(SornHistInit, planes), 24u);
  EXPECT_EQ(offsetof(SornHistInit, cols), 32u);
}

TEST(HistRecord, InitHdrFillsEveryField) {
  SornHist h = dirty_hist();
  SornHistInit in = make_init(SORN_U8, 256, 0, 255, 10, 20);
  EXPECT_EQ(sorn_hist_inithdr(&h, &in), 256u);
  EXPECT_EQ(h.isum, 0u);
  EXPECT_EQ(h.fsum, 0.0f);
  EXPECT_EQ(h.ilow, 0);
  EXPECT_EQ(h.ihigh, 255);
  EXPECT_EQ(h.irange, 256);
  EXPECT_EQ(h.iwidth, 1);
  EXPECT_EQ(h.low, 0.0f);
  EXPECT_EQ(h.high, 255.0f);
  EXPECT_EQ(h.span, 255.0f);
  EXPECT_EQ(h.width, 1.0f);
  EXPECT_EQ(h.total, 200u);
  EXPECT_EQ(h.bins, 256u);
  EXPECT_EQ(h.counts, nullptr);
}

TEST(HistRecord, HalfBinsGiveIntegerWidthTwo) {
  SornHist h = dirty_hist();
  SornHistInit in = make_init(SORN_U8, 128, 0, 255);
  sorn_hist_inithdr(&h, &in);
  EXPECT_EQ(h.iwidth, 255 / 127);
  EXPECT_EQ(h.width, 255.0f / 127.0f);
}

TEST(HistRecord, MoreBinsThanValuesDivideByTheRange) {
  SornHist h = dirty_hist();
  SornHistInit in = make_init(SORN_S16, 100, 0, 9);
  sorn_hist_inithdr(&h, &in);
  EXPECT_EQ(h.irange, 10);
  EXPECT_EQ(h.iwidth, 1);  // d = r = 9
}

TEST(HistRecord, OneBinHasWidthZeroAndKeepsTheSpan) {
  SornHist h = dirty_hist();
  SornHistInit in = make_init(SORN_F32, 1, -2.0, 6.0);
  sorn_hist_inithdr(&h, &in);
  EXPECT_EQ(h.width, 0.0f);
  EXPECT_EQ(h.span, 8.0f);
  EXPECT_EQ(h.iwidth, 0);
}

TEST(HistRecord, EqualLowAndHighGiveWidthZero) {
  SornHist h = dirty_hist();
  SornHistInit in = make_init(SORN_F32, 16, 3.0, 3.0);
  sorn_hist_inithdr(&h, &in);
  EXPECT_EQ(h.span, 0.0f);
  EXPECT_EQ(h.width, 0.0f);
  EXPECT_EQ(h.irange, 1);
}

TEST(HistRecord, IntegerEndsRoundToNearestEven) {
  SornHist h = dirty_hist();
  SornHistInit in = make_init(SORN_S16, 10, 2.5, 3.5);
  sorn_hist_inithdr(&h, &in);
  EXPECT_EQ(h.ilow, 2);
  EXPECT_EQ(h.ihigh, 4);
  EXPECT_EQ(h.low, 2.5f);
}

TEST(HistRecord, PerChannelInitLeavesUnselectedChannelsOwnSums) {
  SornHist h[3] = {dirty_hist(), dirty_hist(), dirty_hist()};
  h[1].isum = 7;
  h[1].fsum = 7.0f;
  SornHistInit in[3] = {make_init(SORN_U8, 256, 0, 255), make_init(SORN_U8, 16, 0, 255),
                        make_init(SORN_U8, 8, 0, 255)};
  // Three channels, only channel 0 selected.
  EXPECT_EQ(sorn_hist_inithdr_$n(3 | (1 << 4), h, in), 1);
  EXPECT_EQ(h[0].bins, 256u);
  EXPECT_EQ(h[0].isum, 0u);
  for (int c = 1; c < 3; ++c) {
    EXPECT_EQ(h[c].total, 0u);
    EXPECT_EQ(h[c].bins, 0u);
    EXPECT_EQ(h[c].counts, nullptr);
  }
  EXPECT_EQ(h[1].isum, 7u);
  EXPECT_EQ(h[1].fsum, 7.0f);
}

TEST(HistRecord, PerChannelInitClearsTheFirstRecordsSumsForAnUnselectedChannel) {
  SornHist h[2] = {dirty_hist(), dirty_hist()};
  uint32_t own = h[1].isum;
  SornHistInit in[2] = {make_init(SORN_U8, 4, 0, 3), make_init(SORN_U8, 4, 0, 3)};
  // Channel 0 left out, channel 1 selected: channel 0's record loses its sums.
  sorn_hist_inithdr_$n(2 | (2 << 4), h, in);
  EXPECT_EQ(h[0].isum, 0u);
  EXPECT_EQ(h[0].fsum, 0.0f);
  EXPECT_EQ(h[0].bins, 0u);
  EXPECT_EQ(h[1].bins, 4u);
  EXPECT_NE(own, 0u);
}

TEST(HistRecord, HeapCountersAreZeroedAndFreedByFini) {
  SornHist h = dirty_hist();
  SornHistInit in = make_init(SORN_U8, 64, 0, 255);
  ASSERT_EQ(__sorn_histogram__$ia(&h, &in), SORN_OK);
  ASSERT_NE(h.counts, nullptr);
  for (int i = 0; i <= 64; ++i) EXPECT_EQ(h.counts[i], 0u);
  h.counts[64] = 3;
  h.isum = 9;
  sorn_hist_reset(&h);
  EXPECT_EQ(h.counts[64], 0u);
  EXPECT_EQ(h.isum, 0u);
  sorn_hist_fini(&h);
  EXPECT_EQ(h.counts, nullptr);
  EXPECT_EQ(h.bins, 0u);
  EXPECT_EQ(h.total, 0u);
}

TEST(HistRecord, PerChannelHeapInitAndFiniLeaveNothingBehind) {
  SornHist h[4];
  for (auto &x : h) x = dirty_hist();
  SornHistInit in[4] = {make_init(SORN_U8, 8, 0, 7), make_init(SORN_U8, 16, 0, 15),
                        make_init(SORN_U8, 32, 0, 31), make_init(SORN_U8, 4, 0, 3)};
  ASSERT_EQ(__sorn_histogram__$n$ia(4, h, in), SORN_OK);
  for (int c = 0; c < 4; ++c) ASSERT_NE(h[c].counts, nullptr);
  sorn_hist_fini_$n(4, h);
  for (int c = 0; c < 4; ++c) EXPECT_EQ(h[c].counts, nullptr);
}

TEST(HistRecord, PerChannelHeapInitTouchesOnlySelectedChannels) {
  SornHist h[2] = {dirty_hist(), dirty_hist()};
  SornHist before = h[1];
  SornHistInit in[2] = {make_init(SORN_U8, 8, 0, 7), make_init(SORN_U8, 8, 0, 7)};
  ASSERT_EQ(__sorn_histogram__$n$ia(2 | (1 << 4), h, in), SORN_OK);
  EXPECT_EQ(std::memcmp(&h[1], &before, sizeof before), 0);
  sorn_hist_fini(&h[0]);
}

TEST(HistRecord, ScratchCountersGoBackToTheMark) {
  Env env;
  SornHist h = dirty_hist();
  SornHistInit in = make_init(SORN_S16, 1000, -500, 499);
  ASSERT_EQ(__sorn_histogram__$xe(&h, &in, env.xe()), SORN_OK);
  for (int i = 0; i <= 1000; ++i) ASSERT_EQ(h.counts[i], 0u);
  EXPECT_FALSE(env.at_mark());
  sorn_hist_fini_$xe(&h, env.xe());
  EXPECT_EQ(h.counts, nullptr);
  EXPECT_TRUE(env.at_mark());
}

TEST(HistRecord, PerChannelScratchFiniGoesUpwardAndRestoresTheMark) {
  Env env;
  SornHist h[3] = {dirty_hist(), dirty_hist(), dirty_hist()};
  SornHistInit in[3] = {make_init(SORN_U8, 256, 0, 255), make_init(SORN_U8, 128, 0, 255),
                        make_init(SORN_U8, 2, 0, 255)};
  ASSERT_EQ(__sorn_histogram__$n$xe(3, h, in, env.xe()), SORN_OK);
  sorn_hist_fini_$n$xe(3, h, env.xe());
  for (int c = 0; c < 3; ++c) EXPECT_EQ(h[c].counts, nullptr);
  EXPECT_TRUE(env.at_mark());
}

TEST(HistRecord, ScratchFiniWithoutCountersOnlyClearsFields) {
  Env env;
  SornHist h = dirty_hist();
  h.counts = nullptr;
  sorn_hist_fini_$xe(&h, env.xe());
  EXPECT_EQ(h.isum, 0u);
  EXPECT_EQ(h.bins, 0u);
  EXPECT_TRUE(env.at_mark());
}

TEST(HistRecord, ResetPerChannelClearsSelectedOnly) {
  uint32_t c0[3] = {1, 2, 3}, c1[3] = {4, 5, 6};
  SornHist h[2];
  std::memset(h, 0, sizeof h);
  h[0].bins = h[1].bins = 2;
  h[0].counts = c0;
  h[1].counts = c1;
  h[0].isum = h[1].isum = 11;
  sorn_hist_reset_$n(2 | (2 << 4), h);
  EXPECT_EQ(h[0].isum, 11u);
  EXPECT_EQ(c0[2], 3u);
  EXPECT_EQ(h[1].isum, 0u);
  EXPECT_EQ(c1[0] + c1[1] + c1[2], 0u);
}

TEST(HistRecord, InitModesSwitchBetweenHeaderAllocationAndReset) {
  Env env;
  SornHist h = dirty_hist();
  SornHistInit in = make_init(SORN_U8, 16, 0, 255);
  EXPECT_EQ(sorn_hist__init(0, &h, &in), SORN_OK);
  EXPECT_EQ(h.counts, nullptr);
  EXPECT_EQ(h.bins, 16u);
  EXPECT_EQ(sorn_hist__init(1, &h, &in), SORN_OK);
  ASSERT_NE(h.counts, nullptr);
  h.counts[3] = 5;
  EXPECT_EQ(sorn_hist__init(2, &h, &in), SORN_OK);
  EXPECT_EQ(h.counts[3], 0u);
  EXPECT_EQ(sorn_hist__init(3, &h, &in), SORN_EINVAL);
  EXPECT_EQ(sorn_hist__init(-1, &h, &in), SORN_EINVAL);
  sorn_hist_fini(&h);

  SornHist hn[2] = {dirty_hist(), dirty_hist()};
  SornHistInit inn[2] = {in, in};
  EXPECT_EQ(sorn_hist__init_n(1, 2, hn, inn), SORN_OK);
  EXPECT_EQ(sorn_hist__init_n(2, 2, hn, inn), SORN_OK);
  EXPECT_EQ(sorn_hist__init_n(7, 2, hn, inn), SORN_EINVAL);
  sorn_hist_fini_$n(2, hn);

  EXPECT_EQ(sorn_hist__init_xe(1, &h, &in, env.xe()), SORN_OK);
  EXPECT_EQ(sorn_hist__init_xe(2, &h, &in, env.xe()), SORN_OK);
  EXPECT_EQ(sorn_hist__init_xe(5, &h, &in, env.xe()), SORN_EINVAL);
  sorn_hist_fini_$xe(&h, env.xe());
  EXPECT_EQ(sorn_hist__init_n_xe(1, 2, hn, inn, env.xe()), SORN_OK);
  EXPECT_EQ(sorn_hist__init_n_xe(0, 2, hn, inn, env.xe()), SORN_OK);  // header only: counts dropped
  EXPECT_EQ(hn[0].counts, nullptr);
  EXPECT_EQ(sorn_hist__init_n_xe(9, 2, hn, inn, env.xe()), SORN_EINVAL);
  SornXEclear(env.xe());
  EXPECT_TRUE(env.at_mark());
}

