// The packing rules and cost formulas, on values worked out by hand.
#include <gtest/gtest.h>
#include <sorn.h>

TEST(MulPacking, DenseRowsAreNeverPacked) {
  EXPECT_FALSE(__sorn_mulmm_should_copy_src2(64, 24, 32, 0));
  EXPECT_FALSE(__sorn_mulmm_should_copy_src2(100000, 24, 32, 0));
}

TEST(MulPacking, ALongNarrowMatrixWithAWideGapIsPacked) {
  // (368 * 64)^2 * 64 / (32 * 2500000) is about 443.
  EXPECT_TRUE(__sorn_mulmm_should_copy_src2(64, 24, 32, 368));
  // (8 * 4)^2 * 4 / (32 * 2500000) is tiny.
  EXPECT_FALSE(__sorn_mulmm_should_copy_src2(4, 24, 32, 8));
}

TEST(MulPacking, ListRuleWithoutARegularStep) {
  // (count * m) / (rowBytes * 2500) above 16.5.
  EXPECT_TRUE(__sorn_mulmvn_should_copy_src2(1000, 20, 1000, -1));   // 20
  EXPECT_FALSE(__sorn_mulmvn_should_copy_src2(1000, 20, 100, -1));   // 2
}

TEST(MulPacking, ListRuleWithAStep) {
  // (count * m * gap) / (rowBytes * 2500000) above 16.5.
  EXPECT_TRUE(__sorn_mulmvn_should_copy_src2(1000, 20, 1000, 1000));  // 20
  EXPECT_FALSE(__sorn_mulmvn_should_copy_src2(64, 20, 64, 4000));     // 0.33
  EXPECT_FALSE(__sorn_mulmvn_should_copy_src2(1000, 20, 1000, 0));
}

TEST(MulCost, ProductSelection) {
  EXPECT_TRUE(__sorn_mulmm_impalg_sel(30, 10, 200, 0));   // 2000 >= 1200
  EXPECT_FALSE(__sorn_mulmm_impalg_sel(30, 10, 100, 0));  // 1000 < 1200
  EXPECT_TRUE(__sorn_mulmm_impalg_sel(17, 10, 100, 1));   // 1000 >= 680
  EXPECT_TRUE(__sorn_mulmm_impalg_sel(10, 2, 100, 0));    // 100 >= 2
  EXPECT_FALSE(__sorn_mulmm_impalg_sel(10, 20, 100, 0));  // 100 < 200
  EXPECT_TRUE(__sorn_mulmm_impalg_sel(2, 1, 10, 1));      // 2 >= 0.5
  EXPECT_FALSE(__sorn_mulmm_impalg_sel(2, 1, 40, 1));     // 2 < 3.2
  EXPECT_FALSE(__sorn_mulmm_impalg_sel(3, 1, 1, 1));
  EXPECT_FALSE(__sorn_mulmm_impalg_sel(2, 1, 1, 0));
}

TEST(MulCost, ListSelection) {
  EXPECT_FALSE(__sorn_mulmvn_impalg_sel(5, 8, 100, 1));
  EXPECT_FALSE(__sorn_mulmvn_impalg_sel(100, 8, 31, 1));
  EXPECT_FALSE(__sorn_mulmvn_impalg_sel(6, 8, 32, 0));    // fits, 0.046
  EXPECT_TRUE(__sorn_mulmvn_impalg_sel(100, 1, 32, 1));   // fits, 102.4
  EXPECT_TRUE(__sorn_mulmvn_impalg_sel(100, 1, 32, 0));
  EXPECT_FALSE(__sorn_mulmvn_impalg_sel(1000, 4, 64, 0)); // big, 0.001
  EXPECT_TRUE(__sorn_mulmvn_impalg_sel(6, 1000, 64, 1));  // otherwise, 0.64
  EXPECT_FALSE(__sorn_mulmvn_impalg_sel(6, 200, 64, 1));  // otherwise, 0.128
  EXPECT_TRUE(__sorn_mulmvn_impalg_sel(6, 200, 64, 0));
}

TEST(MulCost, BlockSizesOnEveryBranch) {
  SornBlockSizes b;
  __sorn_mulmm_blocksizes(&b, 4, 4, 4);
  EXPECT_EQ(16, b.first); EXPECT_EQ(32, b.second);
  __sorn_mulmm_blocksizes(&b, 100, 2, 1000);
  EXPECT_EQ(496, b.first); EXPECT_EQ(32, b.second);
  __sorn_mulmm_blocksizes(&b, 4, 3000, 3000);
  EXPECT_EQ(64, b.first); EXPECT_EQ(32, b.second);
  __sorn_mulmm_blocksizes(&b, 64, 64, 512);
  EXPECT_EQ(16, b.first); EXPECT_EQ(64, b.second);
  __sorn_mulmm_blocksizes(&b, 1000, 1000, 1000);
  EXPECT_EQ(128, b.first); EXPECT_EQ(976, b.second);
}

TEST(MulCost, CacheConstants) {
  EXPECT_EQ(32768, sorn_level1_dcache_size());
  EXPECT_EQ(0x200000, sorn_level2_cache_size());
}
