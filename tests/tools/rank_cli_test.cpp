// sorn rank, run as a user runs it: the pictures it writes against box
// counts worked out here, its default scale, and its usage errors.

// Built only with the tool, which tells where its program is.
#ifdef SORN_TOOL_EXE
#include <gtest/gtest.h>

#include <algorithm>

#include "tool_testutil.h"

using sorn::tool::Image;
using tool_test::expect_failure;
using tool_test::reflect101;
using tool_test::run_tool;
using tool_test::Scratch;
using tool_test::ToolRun;

namespace {

Image picture(int32_t w, int32_t h, int32_t c) {
  return tool_test::make_image(w, h, c, [](int y, int x, int k) { return (y * 29 + x * 13 + k * 71) % 251; });
}

// The count of the box w by h with anchor (ax, ay) around (y, x) of channel
// c, by `rel`, scaled by 2^shift and saturated at 255.
template <class Rel>
int expected(const Image &in, int32_t y, int32_t x, int32_t c, int32_t w, int32_t h, int32_t ax,
             int32_t ay, int32_t shift, Rel rel) {
  int n = 0;
  const int v = in.at(y, x, c);
  for (int32_t i = 0; i < h; ++i)
    for (int32_t j = 0; j < w; ++j)
      n += rel(in.at(reflect101(y + i - ay, in.height), reflect101(x + j - ax, in.width), c), v);
  const int s = shift < 0 ? (n + (1 << (-shift - 1))) >> -shift : n << shift;
  return std::min(s, 255);
}

TEST(ToolRank, AtOrBelowOverEveryChannelWithTheFittingScale) {
  Scratch dir;
  const Image in = picture(13, 9, 3);
  sorn::tool::write_image(dir.path("in.ppm"), in);
  ToolRun r = run_tool({"rank", dir.path("in.ppm"), "--box", "5x3", "-o", dir.path("out.ppm")});
  ASSERT_EQ(r.code, 0) << r.err;
  // 15 pixels: 15 * 16 = 240 is the largest that fits.
  EXPECT_EQ(r.out, "wrote " + dir.path("out.ppm") + ": 13x9 RGB, le over 5x3 anchor 2,1, shift 4\n");
  const Image out = sorn::tool::read_image(dir.path("out.ppm"));
  ASSERT_EQ(out.channels, 3);
  for (int32_t y = 0; y < 9; ++y)
    for (int32_t x = 0; x < 13; ++x)
      for (int32_t c = 0; c < 3; ++c)
        ASSERT_EQ(expected(in, y, x, c, 5, 3, 2, 1, 4, [](int p, int v) { return p <= v; }),
                  out.at(y, x, c))
            << y << "," << x << "," << c;
}

TEST(ToolRank, EqualWithAnAnchorAndAShiftDown) {
  Scratch dir;
  const Image in = tool_test::make_image(20, 11, 1, [](int y, int x, int) { return (x / 3 + y / 4) * 10; });
  sorn::tool::write_image(dir.path("in.pgm"), in);
  ToolRun r = run_tool({"rank", dir.path("in.pgm"), "--op", "eq", "--box", "30x20", "--anchor",
                        "3,17", "--shift", "-1", "-o", dir.path("out.pgm")});
  ASSERT_EQ(r.code, 0) << r.err;
  const Image out = sorn::tool::read_image(dir.path("out.pgm"));
  for (int32_t y = 0; y < 11; ++y)
    for (int32_t x = 0; x < 20; ++x)
      ASSERT_EQ(expected(in, y, x, 0, 30, 20, 3, 17, -1, [](int p, int v) { return p == v; }),
                out.at(y, x))
          << y << "," << x;
}

TEST(ToolRank, TheSecondSpeedFlagCountsFourValuesAsOne) {
  Scratch dir;
  // 40, 41, 42, 43 over a range of 100 levels: one bin of four.
  const Image in = tool_test::make_image(6, 5, 1, [](int y, int x, int) { return 40 + (x + y) % 4; });
  sorn::tool::write_image(dir.path("in.pgm"), in);
  ToolRun r = run_tool({"rank", dir.path("in.pgm"), "--op", "eq", "--box", "3", "--range", "0,99",
                        "--fast2", "--shift", "0", "-o", dir.path("out.pgm")});
  ASSERT_EQ(r.code, 0) << r.err;
  const Image out = sorn::tool::read_image(dir.path("out.pgm"));
  for (int32_t y = 0; y < 5; ++y)
    for (int32_t x = 0; x < 6; ++x) ASSERT_EQ(9, out.at(y, x));
}

TEST(ToolRank, UsageErrorsNameTheOption) {
  Scratch dir;
  expect_failure(run_tool({"rank"}), 2, "sorn rank: missing -o OUT (try 'sorn rank --help')");
  const std::string out = dir.path("o.png");
  expect_failure(run_tool({"rank", "-o", out, "--op", "ne"}), 2,
                 "sorn rank: invalid value 'ne' for --op: expected eq|lt|le|gt|ge (try 'sorn rank --help')");
  expect_failure(run_tool({"rank", "-o", out, "--box", "0x3"}), 2,
                 "sorn rank: --box: '0x3' is not a list of whole numbers from 1 to 1023 (try 'sorn rank --help')");
  expect_failure(run_tool({"rank", "-o", out, "--box", "3", "--anchor", "3,0"}), 2,
                 "sorn rank: --anchor: '3,0' is not X,Y inside the box (try 'sorn rank --help')");
  expect_failure(run_tool({"rank", "-o", out, "--range", "9,3"}), 2,
                 "sorn rank: --range: '9,3' has LO above HI (try 'sorn rank --help')");
  expect_failure(run_tool({"rank", "-o", out, "--fast", "--fast2"}), 2,
                 "sorn rank: --fast and --fast2 exclude each other (try 'sorn rank --help')");
}

}  // namespace
#endif
