// sorn resize: factors and target sizes on images whose pixels name their
// place, every channel layout, and the refusals.

// Built only with the tool, which tells where its program is.
#ifdef SORN_TOOL_EXE
#include <gtest/gtest.h>

#include <cmath>

#include "tool_testutil.h"

using sorn::tool::Image;
using tool_test::run_tool;
using tool_test::Scratch;
using tool_test::expect_failure;
using tool_test::ToolRun;

namespace {


// Pixel (y, x, c) holds y * 16 + x + c, so that a copied pixel shows where
// it came from (for images up to 16 columns).
Image placed(int32_t w, int32_t h, int32_t c) {
  return tool_test::make_image(w, h, c, [](int y, int x, int k) { return y * 16 + x + k; });
}

Image resized(Scratch &dir, const Image &in, std::vector<std::string> how, const char *out) {
  sorn::tool::write_image(dir.path(in.channels == 1 ? "in.pgm" : "in.png"), in);
  std::vector<std::string> args = {"resize", dir.path(in.channels == 1 ? "in.pgm" : "in.png"), "-o",
                                   dir.path(out)};
  args.insert(args.end(), how.begin(), how.end());
  ToolRun r = run_tool(args);
  EXPECT_EQ(r.code, 0) << r.err;
  return sorn::tool::read_image(dir.path(out));
}

TEST(ToolResize, HalvingTakesEveryOtherPixel) {
  Scratch dir;
  const Image out = resized(dir, placed(8, 6, 1), {"--factor", "0.5"}, "out.pgm");
  ASSERT_EQ(out.width, 4);
  ASSERT_EQ(out.height, 3);
  for (int y = 0; y < 3; ++y)
    for (int x = 0; x < 4; ++x) EXPECT_EQ(out.at(y, x), 2 * y * 16 + 2 * x);
}

// Doubling rounds columns to even (0, 0, 1, 2, 2, 2, 3, ...) and adds a
// half to rows (0, 1, 1, 2, 2, ...), the last clamped.
TEST(ToolResize, DoublingRoundsColumnsToEvenAndRowsUpFromAHalf) {
  Scratch dir;
  const Image out = resized(dir, placed(4, 3, 1), {"--factor=2"}, "out.pgm");
  ASSERT_EQ(out.width, 8);
  ASSERT_EQ(out.height, 6);
  const int cols[8] = {0, 0, 1, 2, 2, 2, 3, 3}, rows[6] = {0, 1, 1, 2, 2, 2};
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 8; ++x) EXPECT_EQ(out.at(y, x), rows[y] * 16 + cols[x]) << y << " " << x;
}

TEST(ToolResize, EveryChannelLayoutKeepsItsPixelsWhole) {
  Scratch dir;
  for (int32_t c = 1; c <= 4; ++c) {
    const Image in = placed(9, 7, c);
    const Image out = resized(dir, in, {"--fx", "0.5", "--fy", "1.5"}, c == 1 ? "o.pgm" : "o.png");
    ASSERT_EQ(out.channels, c);
    ASSERT_EQ(out.width, 4);    // 4.5 rounds to even
    ASSERT_EQ(out.height, 10);  // 10.5 rounds to even
    for (int y = 0; y < 10; ++y)
      for (int x = 0; x < 4; ++x) {
        const int sy = std::min(6, (int)std::trunc(y / 1.5 + 0.5)), sx = 2 * x;
        for (int k = 0; k < c; ++k) EXPECT_EQ(out.at(y, x, k), in.at(sy, sx, k)) << c;
      }
  }
}

TEST(ToolResize, ASizeGivesTheFactors) {
  Scratch dir;
  sorn::tool::write_image(dir.path("in.png"), placed(12, 10, 3));
  ToolRun r = run_tool({"resize", dir.path("in.png"), "--size", "4x5", "-o", dir.path("o.ppm")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, "wrote " + dir.path("o.ppm") + ": 4x5 RGB, " + dir.path("in.png") +
                       " (12x10) resized by 0.333333 across and 0.5 down\n");
  const Image out = sorn::tool::read_image(dir.path("o.ppm"));
  EXPECT_EQ(out.at(4, 3, 2), 8 * 16 + 9 + 2);
}

TEST(ToolResize, DefaultPicture) {
  Scratch dir;
  ToolRun r = run_tool({"resize", "--factor", "1", "-o", dir.path("d.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(sorn::tool::read_image(dir.path("d.png")).pixels, sorn::tool::default_picture().pixels);
}

TEST(ToolResize, Refusals) {
  Scratch dir;
  sorn::tool::write_image(dir.path("a.pgm"), Image(4, 4, 1, 1));
  expect_failure(run_tool({"resize", dir.path("a.pgm"), "--factor", "2"}), 2,
                 "sorn resize: missing -o OUT (try 'sorn resize --help')");
  expect_failure(run_tool({"resize", dir.path("a.pgm"), "-o", dir.path("b.pgm")}), 2,
                 "sorn resize: needs --factor, --fx, --fy or --size (try 'sorn resize --help')");
  expect_failure(run_tool({"resize", dir.path("a.pgm"), "-o", dir.path("b.pgm"), "--size", "3x3",
                           "--fx", "2"}),
                 2, "sorn resize: --size goes alone, without factors (try 'sorn resize --help')");
  expect_failure(run_tool({"resize", "-o", dir.path("b.pgm"), "--factor", "0.001"}), 2,
                 "sorn resize: value 0.001 for --factor out of range: expected a number from 0.004 "
                 "to 1000 (try 'sorn resize --help')");
  expect_failure(run_tool({"resize", "-o", dir.path("b.pgm"), "--size", "3by3"}), 2,
                 "sorn resize: invalid value '3by3' for --size: expected WxH, each from 1 to 32768 "
                 "(try 'sorn resize --help')");
  expect_failure(
      run_tool({"resize", dir.path("a.pgm"), "-o", dir.path("b.pgm"), "--factor", "0.1"}), 1,
      "sorn resize: " + dir.path("a.pgm") + ": 4x4 scaled by 0.1, 0.1 leaves no pixel");
  sorn::tool::write_image(dir.path("wide.pgm"), Image(600, 1, 1, 1));
  expect_failure(
      run_tool({"resize", dir.path("wide.pgm"), "-o", dir.path("b.pgm"), "--size", "2x1"}), 1,
      "sorn resize: " + dir.path("wide.pgm") + ": 600x1 to 2x1 shrinks by more than 255 times");
  sorn::tool::write_image(dir.path("c.pgm"), Image(40, 40, 1, 1));
  expect_failure(
      run_tool({"resize", dir.path("c.pgm"), "-o", dir.path("b.pgm"), "--factor", "1000"}), 1,
      "sorn resize: " + dir.path("c.pgm") +
          ": 40x40 scaled by 1000, 1000 is larger than the tool makes");
}

}  // namespace
#endif
