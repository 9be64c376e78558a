// sorn filter and sorn border, run as a user runs them: the pictures they
// write against windows and border rules worked out here, and their usage
// errors.

// Built only with the tool, which tells where its program is.
#ifdef SORN_TOOL_EXE
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "tool_testutil.h"

using sorn::tool::Image;
using tool_test::run_tool;
using tool_test::Scratch;
using tool_test::ToolRun;
using tool_test::expect_failure;
using tool_test::reflect101;

namespace {

int32_t wrap(int32_t i, int32_t n) { return ((i % n) + n) % n; }
int32_t reflect(int32_t i, int32_t n) {
  const int32_t p = 2 * n, j = ((i % p) + p) % p;
  return j < n ? j : p - 1 - j;
}

Image picture(int32_t w, int32_t h, int32_t c) {
  return tool_test::make_image(w, h, c, [](int y, int x, int k) { return (y * 29 + x * 13 + k * 71) % 251; });
}

TEST(ToolFilter, MaximumWithAWrappedBorder) {
  Scratch dir;
  const Image in = picture(11, 7, 3);
  sorn::tool::write_image(dir.path("in.ppm"), in);
  ToolRun r = run_tool({"filter", "max", dir.path("in.ppm"), "--size", "4x3", "--anchor", "1,2",
                        "--border", "wrap", "-o", dir.path("out.ppm")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, "wrote " + dir.path("out.ppm") + ": 11x7 RGB, max 4x3 anchor 1,2, border wrap\n");
  const Image out = sorn::tool::read_image(dir.path("out.ppm"));
  ASSERT_EQ(out.width, 11);
  ASSERT_EQ(out.channels, 3);
  for (int32_t y = 0; y < 7; ++y)
    for (int32_t x = 0; x < 11; ++x)
      for (int32_t c = 0; c < 3; ++c) {
        int m = 0;
        for (int32_t i = 0; i < 3; ++i)
          for (int32_t j = 0; j < 4; ++j) m = std::max<int>(m, in.at(wrap(y + i - 2, 7), wrap(x + j - 1, 11), c));
        ASSERT_EQ(m, out.at(y, x, c)) << y << "," << x << "," << c;
      }
}

TEST(ToolFilter, BoxOfThreeByThreeReflectsAboutTheEdgePixel) {
  Scratch dir;
  const Image in = picture(9, 6, 1);
  sorn::tool::write_image(dir.path("in.pgm"), in);
  ToolRun r = run_tool({"filter", "box", dir.path("in.pgm"), "-o", dir.path("out.pgm")});
  ASSERT_EQ(r.code, 0) << r.err;
  const Image out = sorn::tool::read_image(dir.path("out.pgm"));
  for (int32_t y = 0; y < 6; ++y)
    for (int32_t x = 0; x < 9; ++x) {
      int s = 0;
      for (int32_t i = -1; i <= 1; ++i)
        for (int32_t j = -1; j <= 1; ++j) s += in.at(reflect101(y + i, 6), reflect101(x + j, 9));
      const int want = (int)std::nearbyintf((float)s * (1.0f / 9.0f));
      ASSERT_EQ(want, out.at(y, x)) << y << "," << x;
    }
}

// The Gaussian of a window w by h: the bell of each axis centred on its
// anchor, down the columns first and then along the rows (as the library
// orders a window no wider than twice its height), each pass rounded.
std::vector<double> bell(int32_t anchor, int32_t size, double sigma) {
  std::vector<double> k(size_t(size), 0.0);
  double sum = 0;
  for (int32_t t = 0; t < size; ++t) sum += k[size_t(t)] = std::exp(-double((anchor - t) * (anchor - t)) / (2 * sigma * sigma));
  for (double &v : k) v /= sum;
  return k;
}
int rounded_u8(double v) { return std::clamp((int)std::nearbyint(v), 0, 255); }

void expect_gauss(const Image &in, const Image &out, int32_t w, int32_t h, double sx, double sy) {
  const std::vector<double> kr = bell(w / 2, w, sx), kc = bell(h / 2, h, sy);
  const int32_t W = in.width, H = in.height;
  for (int32_t y = 0; y < H; ++y)
    for (int32_t x = 0; x < W; ++x) {
      double acc = 0;
      bool first = true;
      for (int32_t j = 0; j < w; ++j) {
        const int32_t cx = reflect101(x - w / 2 + j, W);
        double col = 0;
        for (int32_t i = 0; i < h; ++i) {
          const double p = kc[size_t(i)] * in.at(reflect101(y - h / 2 + i, H), cx);
          col = i == 0 ? p : col + p;
        }
        const double p = kr[size_t(j)] * rounded_u8(col);
        acc = first ? p : acc + p;
        first = false;
      }
      ASSERT_EQ(rounded_u8(acc), out.at(y, x)) << y << "," << x;
    }
}

TEST(ToolFilter, GaussianOfTheSizeAndOfAGivenSigma) {
  Scratch dir;
  const Image in = picture(10, 7, 1);
  sorn::tool::write_image(dir.path("in.pgm"), in);
  ToolRun r = run_tool({"filter", "gauss", dir.path("in.pgm"), "-o", dir.path("out.pgm")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, "wrote " + dir.path("out.pgm") + ": 10x7 grey, gauss 3x3 anchor 1,1, border reflect101\n");
  expect_gauss(in, sorn::tool::read_image(dir.path("out.pgm")), 3, 3, 0.8, 0.8);
  r = run_tool({"filter", "gauss", dir.path("in.pgm"), "--size", "5x3", "--sigma", "2,0.5", "-o",
                dir.path("out2.pgm")});
  ASSERT_EQ(r.code, 0) << r.err;
  expect_gauss(in, sorn::tool::read_image(dir.path("out2.pgm")), 5, 3, 2.0, 0.5);
}

TEST(ToolFilter, GaussianHelpNamesTheSigma) {
  ToolRun r = run_tool({"filter", "--help"});
  ASSERT_EQ(r.code, 0);
  EXPECT_NE(r.out.find("box|min|max|gauss"), std::string::npos);
  EXPECT_NE(r.out.find("--sigma S|SX,SY"), std::string::npos);
}

TEST(ToolFilter, MinimumWithAConstantBorder) {
  Scratch dir;
  const Image in = picture(5, 5, 1);
  sorn::tool::write_image(dir.path("in.pgm"), in);
  ToolRun r = run_tool({"filter", "min", dir.path("in.pgm"), "--size", "3", "--border", "const",
                        "--value", "0", "-o", dir.path("out.pgm")});
  ASSERT_EQ(r.code, 0) << r.err;
  const Image out = sorn::tool::read_image(dir.path("out.pgm"));
  for (int32_t y = 0; y < 5; ++y)
    for (int32_t x = 0; x < 5; ++x) {
      const bool edge = y == 0 || x == 0 || y == 4 || x == 4;
      if (edge) {
        EXPECT_EQ(0, out.at(y, x)) << y << "," << x;
      }
    }
}

TEST(ToolBorder, EveryKindAroundTheDefaultSizes) {
  Scratch dir;
  const Image in = picture(6, 4, 2);
  sorn::tool::write_image(dir.path("in.png"), in);
  struct K {
    const char *name;
    int32_t (*map)(int32_t, int32_t);
  } kinds[] = {{"reflect101", reflect101}, {"reflect", reflect}, {"wrap", wrap}};
  for (const K &k : kinds) {
    ToolRun r = run_tool({"border", dir.path("in.png"), "--kind", k.name, "--widths", "3,9,1,0",
                          "-o", dir.path("out.png")});
    ASSERT_EQ(r.code, 0) << r.err;
    const Image out = sorn::tool::read_image(dir.path("out.png"));
    ASSERT_EQ(out.width, 6 + 9);
    ASSERT_EQ(out.height, 4 + 3 + 1);
    for (int32_t y = 0; y < out.height; ++y)
      for (int32_t x = 0; x < out.width; ++x)
        for (int32_t c = 0; c < 2; ++c)
          ASSERT_EQ(in.at(k.map(y - 3, 4), k.map(x - 9, 6), c), out.at(y, x, c)) << k.name;
  }
  ToolRun r = run_tool({"border", dir.path("in.png"), "--kind", "const", "--value", "200", "-o",
                        dir.path("c.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, "wrote " + dir.path("c.png") + ": 10x8 grey+alpha, const border 2,2,2,2 around " +
                       dir.path("in.png") + "\n");
  const Image c = sorn::tool::read_image(dir.path("c.png"));
  EXPECT_EQ(200, c.at(0, 0, 0));
  EXPECT_EQ(in.at(0, 0, 1), c.at(2, 2, 1));
}

TEST(ToolFilterUsage, BadArgumentsAreUsageErrors) {
  expect_failure(run_tool({"filter", "-o", "a.png"}), 2,
                 "sorn filter: missing the filter: box, min, max or gauss (try 'sorn filter --help')");
  expect_failure(run_tool({"filter", "median", "-o", "a.png"}), 2,
                 "sorn filter: unknown filter 'median' (box, min, max or gauss) (try 'sorn filter --help')");
  expect_failure(run_tool({"filter", "box"}), 2, "sorn filter: missing -o OUT (try 'sorn filter --help')");
  expect_failure(run_tool({"filter", "box", "--size", "0", "-o", "a.png"}), 2,
                 "sorn filter: --size: '0' is not a list of whole numbers from 1 to 255 (try 'sorn filter --help')");
  expect_failure(run_tool({"filter", "box", "--size", "3x4x5", "-o", "a.png"}), 2,
                 "sorn filter: --size: '3x4x5' is not N or WxH (try 'sorn filter --help')");
  expect_failure(run_tool({"filter", "box", "--size", "3", "--anchor", "3,0", "-o", "a.png"}), 2,
                 "sorn filter: --anchor: '3,0' is not X,Y inside the window (try 'sorn filter --help')");
  expect_failure(run_tool({"filter", "box", "--border", "mirror", "-o", "a.png"}), 2,
                 "sorn filter: invalid value 'mirror' for --border: expected reflect101|reflect|replicate|wrap|const (try 'sorn filter --help')");
  expect_failure(run_tool({"filter", "gauss", "--sigma", "0", "-o", "a.png"}), 2,
                 "sorn filter: --sigma: '0' is not S or SX,SY with each above 0 and at most 1000 (try 'sorn filter --help')");
  expect_failure(run_tool({"filter", "gauss", "--sigma", "1,2,3", "-o", "a.png"}), 2,
                 "sorn filter: --sigma: '1,2,3' is not S or SX,SY (try 'sorn filter --help')");
  expect_failure(run_tool({"filter", "box", "--sigma", "1", "-o", "a.png"}), 2,
                 "sorn filter: --sigma is for gauss only (try 'sorn filter --help')");
  expect_failure(run_tool({"border", "--widths", "1,2", "-o", "a.png"}), 2,
                 "sorn border: --widths: '1,2' is not N or T,L,B,R (try 'sorn border --help')");
  expect_failure(run_tool({"border", "--widths", "5000", "-o", "a.png"}), 2,
                 "sorn border: --widths: '5000' is not a list of whole numbers from 0 to 4096 (try 'sorn border --help')");
  expect_failure(run_tool({"border", "--value", "256", "-o", "a.png"}), 2,
                 "sorn border: value 256 for --value out of range: expected an integer from 0 to 255 (try 'sorn border --help')");
  expect_failure(run_tool({"border"}), 2, "sorn border: missing -o OUT (try 'sorn border --help')");
}

TEST(ToolFilterUsage, AMissingPictureIsAnInputError) {
  Scratch dir;
  const std::string p = dir.path("none.png");
  expect_failure(run_tool({"filter", "box", p, "-o", dir.path("o.png")}), 1,
                 "sorn filter: " + p + ": cannot open: No such file or directory");
  expect_failure(run_tool({"border", p, "-o", dir.path("o.png")}), 1,
                 "sorn border: " + p + ": cannot open: No such file or directory");
}

}  // namespace
#endif
