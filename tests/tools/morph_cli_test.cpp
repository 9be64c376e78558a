// sorn morph, run as a user runs it: the pictures it writes against
// rectangles and discs worked out here, and its usage errors.

// Built only with the tool, which tells where its program is.
#ifdef SORN_TOOL_EXE
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "tool_testutil.h"

using sorn::tool::Image;
using tool_test::expect_failure;
using tool_test::reflect101;
using tool_test::run_tool;
using tool_test::Scratch;
using tool_test::ToolRun;

namespace {

Image picture(int32_t w, int32_t h, int32_t c) {
  return tool_test::make_image(
      w, h, c, [](int y, int x, int k) { return (y * 37 + x * 11 + k * 53) % 241; });
}

// The cells of an element of w by h: all, or those of the inscribed disc.
std::vector<bool> element(int32_t w, int32_t h, bool disc) {
  std::vector<bool> m(size_t(w) * h, true);
  if (disc)
    for (int32_t i = 0; i < h; ++i)
      for (int32_t j = 0; j < w; ++j) {
        const double dy = (2.0 * i - (h - 1)) / h, dx = (2.0 * j - (w - 1)) / w;
        m[size_t(i) * w + j] = dy * dy + dx * dx <= 1.0;
      }
  return m;
}

// One pass over a plane: the extreme under the element centred on each
// pixel; outside the plane the first pass reflects, the second (inside a
// chain) sees nothing.
std::vector<int> pass(const std::vector<int> &p, int32_t W, int32_t H, const std::vector<bool> &m,
                      int32_t w, int32_t h, bool max, bool reflect) {
  std::vector<int> o(p.size());
  for (int32_t y = 0; y < H; ++y)
    for (int32_t x = 0; x < W; ++x) {
      int e = max ? 0 : 255;
      for (int32_t i = 0; i < h; ++i)
        for (int32_t j = 0; j < w; ++j) {
          if (!m[size_t(i) * w + j]) continue;
          int32_t yy = y + i - h / 2, xx = x + j - w / 2;
          if (reflect) {
            yy = reflect101(yy, H);
            xx = reflect101(xx, W);
          } else if (yy < 0 || xx < 0 || yy >= H || xx >= W) {
            continue;
          }
          const int v = p[size_t(yy) * W + xx];
          e = max ? std::max(e, v) : std::min(e, v);
        }
      o[size_t(y) * W + x] = e;
    }
  return o;
}

void expect_morph(const char *op, const char *shape, int32_t w, int32_t h) {
  Scratch dir;
  const Image in = picture(13, 9, 3);
  sorn::tool::write_image(dir.path("in.ppm"), in);
  const std::string size = std::to_string(w) + "x" + std::to_string(h);
  ToolRun r = run_tool({"morph", op, dir.path("in.ppm"), "--shape", shape, "--size", size, "-o",
                        dir.path("out.ppm")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out,
            "wrote " + dir.path("out.ppm") + ": 13x9 RGB, " + op + " " + shape + " " + size + "\n");
  const Image out = sorn::tool::read_image(dir.path("out.ppm"));
  ASSERT_EQ(out.width, 13);
  ASSERT_EQ(out.channels, 3);
  const std::vector<bool> m = element(w, h, std::string(shape) == "disc");
  const std::string o = op;
  for (int32_t c = 0; c < 3; ++c) {
    std::vector<int> p(13 * 9);
    for (int32_t y = 0; y < 9; ++y)
      for (int32_t x = 0; x < 13; ++x) p[size_t(y) * 13 + x] = in.at(y, x, c);
    std::vector<int> want;
    if (o == "erode") want = pass(p, 13, 9, m, w, h, false, true);
    if (o == "dilate") want = pass(p, 13, 9, m, w, h, true, true);
    if (o == "open" || o == "tophat")
      want = pass(pass(p, 13, 9, m, w, h, false, true), 13, 9, m, w, h, true, false);
    if (o == "close" || o == "blackhat")
      want = pass(pass(p, 13, 9, m, w, h, true, true), 13, 9, m, w, h, false, false);
    // The differences saturate: with an even side the element is not
    // symmetric about its anchor, and an opening may pass the picture.
    for (size_t i = 0; i < p.size(); ++i) {
      if (o == "tophat") want[i] = std::max(0, p[i] - want[i]);
      if (o == "blackhat") want[i] = std::max(0, want[i] - p[i]);
    }
    for (int32_t y = 0; y < 9; ++y)
      for (int32_t x = 0; x < 13; ++x)
        ASSERT_EQ(want[size_t(y) * 13 + x], out.at(y, x, c))
            << op << " " << shape << " " << size << " at " << y << "," << x << "," << c;
  }
}

TEST(ToolMorph, EveryOperationWithADiscAndARectangle) {
  for (const char *op : {"erode", "dilate", "open", "close", "tophat", "blackhat"}) {
    expect_morph(op, "disc", 5, 5);
    expect_morph(op, "rect", 4, 3);
  }
  expect_morph("dilate", "disc", 7, 3);
}

TEST(ToolMorph, AOneByOneElementCopies) {
  Scratch dir;
  const Image in = picture(6, 5, 1);
  sorn::tool::write_image(dir.path("in.pgm"), in);
  ToolRun r =
      run_tool({"morph", "tophat", dir.path("in.pgm"), "--size", "1", "-o", dir.path("out.pgm")});
  ASSERT_EQ(r.code, 0) << r.err;
  const Image out = sorn::tool::read_image(dir.path("out.pgm"));
  EXPECT_EQ(in.pixels, out.pixels);
}

TEST(ToolMorphUsage, BadArgumentsAreUsageErrors) {
  expect_failure(run_tool({"morph", "-o", "a.png"}), 2,
                 "sorn morph: missing the operation: erode, dilate, open, close, tophat or "
                 "blackhat (try 'sorn morph --help')");
  expect_failure(run_tool({"morph", "gradient", "-o", "a.png"}), 2,
                 "sorn morph: unknown operation 'gradient' (erode, dilate, open, close, tophat or "
                 "blackhat) (try 'sorn morph --help')");
  expect_failure(run_tool({"morph", "erode"}), 2,
                 "sorn morph: missing -o OUT (try 'sorn morph --help')");
  expect_failure(run_tool({"morph", "erode", "--size", "0", "-o", "a.png"}), 2,
                 "sorn morph: --size: '0' is not N or WxH with sides from 1 to 255 (try 'sorn "
                 "morph --help')");
  expect_failure(run_tool({"morph", "erode", "--size", "3x", "-o", "a.png"}), 2,
                 "sorn morph: --size: '3x' is not N or WxH with sides from 1 to 255 (try 'sorn "
                 "morph --help')");
  expect_failure(run_tool({"morph", "erode", "--shape", "star", "-o", "a.png"}), 2,
                 "sorn morph: invalid value 'star' for --shape: expected rect|disc (try 'sorn "
                 "morph --help')");
}

TEST(ToolMorphUsage, HelpNamesEveryOperation) {
  ToolRun r = run_tool({"morph", "--help"});
  ASSERT_EQ(r.code, 0);
  for (const char *op : {"erode", "dilate", "open", "close", "tophat", "blackhat", "--shape"})
    EXPECT_NE(std::string::npos, r.out.find(op)) << op;
}

}  // namespace
#endif
