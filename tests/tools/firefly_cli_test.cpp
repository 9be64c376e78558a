// sorn firefly, run as a user runs it: the pictures it writes against the
// library's firefly of each channel with the windows the tool describes,
// its kinds by name and number, and its usage errors.

// Built only with the tool, which tells where its program is.
#ifdef SORN_TOOL_EXE
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "tool_testutil.h"

using sorn::tool::Image;
using tool_test::expect_failure;
using tool_test::run_tool;
using tool_test::Scratch;
using tool_test::ToolRun;

namespace {

Image picture(int32_t w, int32_t h, int32_t c) {
  return tool_test::make_image(
      w, h, c, [](int y, int x, int k) { return (y * 29 + x * 13 + k * 71 + (x * y) % 17) % 251; });
}

SornSeShape window(int32_t w, int32_t h) {
  SornSeShape se;
  std::memset(&se, 0, sizeof se);
  se.size[0] = 1;
  se.size[1] = h;
  se.size[2] = w;
  se.anchor[1] = h / 2;
  se.anchor[2] = w / 2;
  return se;
}

// The library's answer for every channel of `in` on its own.
Image library_firefly(const Image &in, int32_t kind, const SornSeShape *shapes,
                      const int32_t *weights) {
  SornXE xe{};
  SornXEinit(&xe, nullptr);
  Image out(in.width, in.height, in.channels);
  for (int32_t c = 0; c < in.channels; ++c) {
    Image plane(in.width, in.height, 1), result(in.width, in.height, 1);
    for (int32_t y = 0; y < in.height; ++y)
      for (int32_t x = 0; x < in.width; ++x) plane.at(y, x) = in.at(y, x, c);
    SornArray d = sorn::tool::array_of(result), s = sorn::tool::array_of(plane);
    EXPECT_EQ(SORN_OK, SornFireflyEx(&xe, 0, &d, &s, nullptr, nullptr, kind, shapes, weights, 3));
    for (int32_t y = 0; y < in.height; ++y)
      for (int32_t x = 0; x < in.width; ++x) out.at(y, x, c) = result.at(y, x);
  }
  SornXEfini(&xe);
  return out;
}

void expect_same(const Image &want, const Image &got) {
  ASSERT_EQ(want.width, got.width);
  ASSERT_EQ(want.height, got.height);
  ASSERT_EQ(want.channels, got.channels);
  for (int32_t y = 0; y < want.height; ++y)
    for (int32_t x = 0; x < want.width; ++x)
      for (int32_t c = 0; c < want.channels; ++c)
        ASSERT_EQ(want.at(y, x, c), got.at(y, x, c)) << y << "," << x << "," << c;
}

TEST(ToolFirefly, BlursOfTheWindowAndFiveAndFifteenTimesItMixedOneSixNine) {
  Scratch dir;
  const Image in = picture(23, 17, 3);
  sorn::tool::write_image(dir.path("in.ppm"), in);
  ToolRun r = run_tool({"firefly", dir.path("in.ppm"), "--window", "3", "-o", dir.path("out.ppm")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, "wrote " + dir.path("out.ppm") +
                       ": 23x17 RGB, firefly gauss, blurs 3x3 15x15 45x45, weights 1,6,9\n");
  const SornSeShape shapes[3] = {window(3, 3), window(15, 15), window(45, 45)};
  const int32_t weights[3] = {1, 6, 9};
  expect_same(library_firefly(in, SORN_FIREFLY_GAUSS, shapes, weights),
              sorn::tool::read_image(dir.path("out.ppm")));
}

TEST(ToolFirefly, RankKindsByNameAndNumberWithTheirWindowsAndQuantile) {
  Scratch dir;
  const Image in = picture(31, 26, 1);
  sorn::tool::write_image(dir.path("in.pgm"), in);
  struct Case {
    const char *kind;
    int32_t code;
    const char *weights;
    int32_t w[3];
  } cases[] = {{"crb", SORN_FIREFLY_CRB, nullptr, {1, 1, -1}},
               {"3", SORN_FIREFLY_CRB, "0,0,1", {0, 0, 1}},
               {"crbln", SORN_FIREFLY_CRBLN, nullptr, {1, 6, 9}},
               {"4", SORN_FIREFLY_CRBLN, "1,2,3", {1, 2, 3}}};
  for (const Case &c : cases) {
    std::vector<std::string> args = {"firefly",      dir.path("in.pgm"), "--kind", c.kind,
                                     "--rank-window", "8",               "--quantile", "3/4",
                                     "-o",            dir.path("out.pgm")};
    if (c.weights) {
      args.push_back("--weights");
      args.push_back(c.weights);
    }
    ToolRun r = run_tool(args);
    ASSERT_EQ(r.code, 0) << r.err;
    const std::string name = c.code == SORN_FIREFLY_CRB ? "crb" : "crbln";
    EXPECT_EQ(r.out, "wrote " + dir.path("out.pgm") + ": 31x26 grey, firefly " + name +
                         ", rank window 8, quantile 3/4, weights " + std::to_string(c.w[0]) +
                         "," + std::to_string(c.w[1]) + "," + std::to_string(c.w[2]) + "\n");
    SornSeShape shapes[3] = {window(3, 3), window(3, 3), window(8, 8)};
    shapes[1].anchor[0] = 3;
    shapes[1].size[0] = 4;
    expect_same(library_firefly(in, c.code, shapes, c.w),
                sorn::tool::read_image(dir.path("out.pgm")));
  }
}

TEST(ToolFirefly, ADecimalQuantileIsInTenThousandthsAndCopyCopies) {
  Scratch dir;
  const Image in = picture(16, 12, 1);
  sorn::tool::write_image(dir.path("in.pgm"), in);
  ToolRun r = run_tool({"firefly", dir.path("in.pgm"), "--kind", "crbln", "--quantile", "0.5",
                        "-o", dir.path("q.pgm")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find("quantile 5000/10000"), std::string::npos) << r.out;
  r = run_tool({"firefly", dir.path("in.pgm"), "--kind", "copy", "-o", dir.path("c.pgm")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, "wrote " + dir.path("c.pgm") + ": 16x12 grey, firefly copy\n");
  expect_same(in, sorn::tool::read_image(dir.path("c.pgm")));
}

TEST(ToolFireflyUsage, BadArgumentsAreUsageErrors) {
  expect_failure(run_tool({"firefly"}), 2,
                 "sorn firefly: missing -o OUT (try 'sorn firefly --help')");
  expect_failure(run_tool({"firefly", "--kind", "median", "-o", "a.png"}), 2,
                 "sorn firefly: invalid value 'median' for --kind: expected "
                 "gauss|crb|crbln|copy|5|3|4|0 (try 'sorn firefly --help')");
  expect_failure(run_tool({"firefly", "--window", "3x5", "-o", "a.png"}), 2,
                 "sorn firefly: --window: '3x5' is not square, as gauss needs (try 'sorn "
                 "firefly --help')");
  expect_failure(run_tool({"firefly", "--kind", "crb", "--window", "3", "-o", "a.png"}), 2,
                 "sorn firefly: --window is for gauss only (try 'sorn firefly --help')");
  expect_failure(run_tool({"firefly", "--quantile", "0.5", "-o", "a.png"}), 2,
                 "sorn firefly: --quantile is for crb and crbln only (try 'sorn firefly --help')");
  expect_failure(run_tool({"firefly", "--kind", "crb", "--rank-window", "12", "-o", "a.png"}), 2,
                 "sorn firefly: --rank-window: 12 is not a power of two (try 'sorn firefly "
                 "--help')");
  expect_failure(run_tool({"firefly", "--kind", "crb", "--quantile", "1", "-o", "a.png"}), 2,
                 "sorn firefly: --quantile: '1' is not a fraction from 0 to below 1 (try 'sorn "
                 "firefly --help')");
  expect_failure(run_tool({"firefly", "--kind", "crb", "--quantile", "3/3", "-o", "a.png"}), 2,
                 "sorn firefly: --quantile: '3/3' is not a fraction from 0 to below 1 (try "
                 "'sorn firefly --help')");
  expect_failure(run_tool({"firefly", "--weights", "1,2", "-o", "a.png"}), 2,
                 "sorn firefly: --weights: '1,2' is not W0,W1,W2 (try 'sorn firefly --help')");
  expect_failure(run_tool({"firefly", "--weights", "1,2,2000", "-o", "a.png"}), 2,
                 "sorn firefly: --weights: '1,2,2000' is not a list of whole numbers from -1000 "
                 "to 1000 (try 'sorn firefly --help')");
}

TEST(ToolFireflyUsage, HelpNamesEveryOption) {
  ToolRun r = run_tool({"firefly", "--help"});
  ASSERT_EQ(r.code, 0);
  for (const char *o : {"--kind", "--window", "--weights", "--rank-window", "--quantile", "-o"})
    EXPECT_NE(r.out.find(o), std::string::npos) << o;
}

}  // namespace
#endif
