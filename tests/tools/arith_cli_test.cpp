// sorn sub, mul, div, and, or, xor, not, and the constant operand of every
// arithmetic command, run as a user runs them.

// Built only with the tool, which tells where its program is.
#ifdef SORN_TOOL_EXE
#include <gtest/gtest.h>

#include "tool_testutil.h"

using sorn::tool::Image;
using tool_test::expect_failure;
using tool_test::run_tool;
using tool_test::Scratch;
using tool_test::ToolRun;

namespace {

// Two one-row grey pictures a and b in dir, and a runner that returns the
// row written.
struct Pair {
  Scratch dir;
  Pair(std::vector<int> a, std::vector<int> b) {
    const int n = (int)a.size();
    sorn::tool::write_image(dir.path("a.pgm"),
                            tool_test::make_image(n, 1, 1, [&](int, int x, int) { return a[x]; }));
    sorn::tool::write_image(dir.path("b.png"),
                            tool_test::make_image(n, 1, 1, [&](int, int x, int) { return b[x]; }));
  }
  std::vector<int> run(std::vector<std::string> args) {
    args.insert(args.end(), {"-o", dir.path("out.pgm")});
    for (std::string &s : args) {
      if (s == "A") s = dir.path("a.pgm");
      if (s == "B") s = dir.path("b.png");
    }
    ToolRun r = run_tool(args);
    EXPECT_EQ(r.code, 0) << r.err;
    Image o = sorn::tool::read_image(dir.path("out.pgm"));
    std::vector<int> v;
    for (int x = 0; x < o.width; ++x) v.push_back(o.at(0, x));
    return v;
  }
};

TEST(ToolArith, SubWrapsSaturatesAndTakesConstants) {
  Pair p({10, 200, 0}, {20, 100, 1});
  EXPECT_EQ(p.run({"sub", "A", "B"}), (std::vector<int>{246, 100, 255}));
  EXPECT_EQ(p.run({"sub", "A", "B", "--saturate"}), (std::vector<int>{0, 100, 0}));
  EXPECT_EQ(p.run({"sub", "A", "--constant", "5"}), (std::vector<int>{5, 195, 251}));
  EXPECT_EQ(p.run({"sub", "A", "--constant", "5", "--saturate", "--sf", "-1"}),
            (std::vector<int>{2, 98, 0}));
}

TEST(ToolArith, AddTakesAConstantPerChannel) {
  Scratch dir;
  sorn::tool::write_image(dir.path("c.ppm"),
                          tool_test::make_image(2, 1, 3, [](int, int x, int k) { return 100 * k + x; }));
  ToolRun r = run_tool({"add", dir.path("c.ppm"), "--constant", "1,2,300", "--saturate", "-o",
                        dir.path("s.ppm")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, "wrote " + dir.path("s.ppm") + ": 2x1 RGB, sum of " + dir.path("c.ppm") +
                       " and 1,2,300, sf 0, saturated\n");
  Image s = sorn::tool::read_image(dir.path("s.ppm"));
  EXPECT_EQ(s.at(0, 1, 0), 2);
  EXPECT_EQ(s.at(0, 1, 1), 103);
  EXPECT_EQ(s.at(0, 1, 2), 255);
}

TEST(ToolArith, MulSaturatesAtEveryScale) {
  Pair p({16, 3, 0}, {16, 5, 9});
  EXPECT_EQ(p.run({"mul", "A", "B"}), (std::vector<int>{255, 15, 0}));
  EXPECT_EQ(p.run({"mul", "A", "B", "--sf", "-2"}), (std::vector<int>{64, 4, 0}));
  EXPECT_EQ(p.run({"mul", "A", "--constant", "3"}), (std::vector<int>{48, 9, 0}));
}

TEST(ToolArith, DivRoundsOrTruncates) {
  Pair p({7, 5, 9, 200}, {2, 2, 0, 3});
  EXPECT_EQ(p.run({"div", "A", "B"}), (std::vector<int>{4, 2, 0, 67}))
      << "to even, and a division by 0 gives 0";
  EXPECT_EQ(p.run({"div", "A", "--constant", "2.5"}), (std::vector<int>{4, 2, 4, 100}))
      << "2.5 rounds to 2";
  EXPECT_EQ(p.run({"div", "A", "--constant", "2", "--truncate"}), (std::vector<int>{3, 2, 4, 100}));
  EXPECT_EQ(p.run({"div", "A", "--constant", "300"}), (std::vector<int>{0, 0, 0, 1}));
  expect_failure(run_tool({"div", p.dir.path("a.pgm"), p.dir.path("b.png"), "--truncate", "-o",
                           p.dir.path("q.pgm")}),
                 1, "sorn div: " + p.dir.path("b.png") + ": has pixels of 0, which --truncate cannot divide by");
  Pair q({7, 9}, {2, 4});
  EXPECT_EQ(q.run({"div", "A", "B", "--truncate"}), (std::vector<int>{3, 2}));
}

TEST(ToolArith, MulAddSaturatesAndTakesAConstantFactor) {
  Pair p({200, 10, 10, 7}, {10, 4, 3, 0});
  sorn::tool::write_image(p.dir.path("c.pgm"), tool_test::make_image(4, 1, 1, [](int, int x, int) {
                            return std::vector<int>{10, 4, 2, 9}[x];
                          }));
  const std::string c = p.dir.path("c.pgm");
  EXPECT_EQ(p.run({"muladd", "A", "B", c}), (std::vector<int>{255, 26, 16, 7}));
  EXPECT_EQ(p.run({"muladd", "A", "B", c, "--subtract"}), (std::vector<int>{100, 0, 4, 7}));
  EXPECT_EQ(p.run({"muladd", "A", "B", c, "--sf", "-1"}), (std::vector<int>{150, 13, 8, 4}))
      << "halves rounded to even";
  EXPECT_EQ(p.run({"muladd", "A", "B", "--constant", "0.5"}), (std::vector<int>{205, 12, 12, 7}))
      << "10 + 1.5 rounds to 12";
  ToolRun r = run_tool({"muladd", p.dir.path("a.pgm"), p.dir.path("b.png"), "--constant", "2",
                        "-o", p.dir.path("m.pgm")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, "wrote " + p.dir.path("m.pgm") + ": 4x1 grey, sum of " + p.dir.path("a.pgm") +
                       " and the product of " + p.dir.path("b.png") + " and 2, sf 0\n");
  expect_failure(run_tool({"muladd", p.dir.path("a.pgm"), p.dir.path("b.png"), "-o",
                           p.dir.path("m.pgm")}),
                 2, "sorn muladd: needs three images A, B and C (try 'sorn muladd --help')");
  expect_failure(run_tool({"muladd", p.dir.path("a.pgm"), "--constant", "2", "-o",
                           p.dir.path("m.pgm")}),
                 2, "sorn muladd: takes two images A and B with --constant (try 'sorn muladd --help')");
  ToolRun h = run_tool({"muladd", "--help"});
  EXPECT_EQ(h.code, 0);
  EXPECT_EQ(h.out.substr(0, 24), "usage: sorn muladd A B C");
}

TEST(ToolArith, LogicOfTwoPicturesAndOfConstants) {
  Pair p({0x0f, 0xf0, 0xaa}, {0xff, 0x3c, 0x55});
  EXPECT_EQ(p.run({"and", "A", "B"}), (std::vector<int>{0x0f, 0x30, 0x00}));
  EXPECT_EQ(p.run({"or", "A", "B"}), (std::vector<int>{0xff, 0xfc, 0xff}));
  EXPECT_EQ(p.run({"xor", "A", "B"}), (std::vector<int>{0xf0, 0xcc, 0xff}));
  EXPECT_EQ(p.run({"and", "A", "--constant", "300"}), (std::vector<int>{0x0f, 0xf0, 0xaa}))
      << "300 is 255";
  EXPECT_EQ(p.run({"xor", "A", "--constant", "-1"}), (std::vector<int>{0x0f, 0xf0, 0xaa}))
      << "-1 is 0";
  EXPECT_EQ(p.run({"not", "A"}), (std::vector<int>{0xf0, 0x0f, 0x55}));
}

TEST(ToolArith, NotOfTheDefaultPicture) {
  Scratch dir;
  ToolRun r = run_tool({"not", "-o", dir.path("n.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  Image n = sorn::tool::read_image(dir.path("n.png")), d = sorn::tool::default_picture();
  ASSERT_EQ(n.pixels.size(), d.pixels.size());
  for (size_t i = 0; i < n.pixels.size(); ++i) ASSERT_EQ(n.pixels[i], 255 - d.pixels[i]);
  EXPECT_EQ(r.out.substr(0, 6), "wrote ");
}

TEST(ToolArith, Failures) {
  Scratch dir;
  sorn::tool::write_image(dir.path("a.pgm"), Image(4, 4, 1, 1));
  sorn::tool::write_image(dir.path("g.png"), Image(4, 4, 2, 1));
  expect_failure(run_tool({"mul", dir.path("a.pgm"), "-o", dir.path("s.pgm")}), 2,
                 "sorn mul: needs two images A and B (try 'sorn mul --help')");
  expect_failure(run_tool({"sub", dir.path("a.pgm"), dir.path("a.pgm"), "--constant", "3", "-o",
                           dir.path("s.pgm")}),
                 2, "sorn sub: takes one image A with --constant (try 'sorn sub --help')");
  expect_failure(run_tool({"add", dir.path("a.pgm"), "--constant", "3,x", "-o", dir.path("s.pgm")}), 2,
                 "sorn add: value '3,x' for --constant: expected numbers separated by commas (try 'sorn add --help')");
  expect_failure(run_tool({"add", dir.path("a.pgm"), "--constant", "3,4", "-o", dir.path("s.pgm")}), 1,
                 "sorn add: --constant has 2 values but the picture has 1 channels");
  expect_failure(run_tool({"xor", dir.path("g.png"), "--constant", "3", "-o", dir.path("s.png")}), 1,
                 "sorn xor: " + dir.path("g.png") + ": is grey+alpha, and xor with a constant takes 1, 3 or 4 channels");
  expect_failure(run_tool({"not", dir.path("a.pgm"), dir.path("a.pgm"), "-o", dir.path("s.pgm")}), 2,
                 "sorn not: unexpected argument '" + dir.path("a.pgm") + "' (try 'sorn not --help')");
  expect_failure(run_tool({"and", dir.path("a.pgm"), dir.path("a.pgm"), "--sf", "1", "-o",
                           dir.path("s.pgm")}),
                 2, "sorn and: unknown option '--sf' (try 'sorn and --help')");
  expect_failure(run_tool({"div", dir.path("a.pgm"), dir.path("a.pgm")}), 2,
                 "sorn div: missing -o OUT (try 'sorn div --help')");
}

TEST(ToolConvert, MapsOntoARangeOrByScaleAndOffset) {
  Pair p({10, 20, 30}, {0, 0, 0});
  // 10..30 onto 0..100 in fixed point, halves rounded down.
  EXPECT_EQ(p.run({"convert", "A", "--range", "0,100"}), (std::vector<int>{0, 50, 100}));
  // Without options the least value moves to 0.
  EXPECT_EQ(p.run({"convert", "A"}), (std::vector<int>{0, 10, 20}));
  EXPECT_EQ(p.run({"convert", "A", "--scale", "2", "--offset", "5"}),
            (std::vector<int>{5, 25, 45}));
}

TEST(ToolConvert, Failures) {
  Scratch dir;
  sorn::tool::write_image(dir.path("ga.png"),
                          tool_test::make_image(2, 2, 2, [](int, int x, int k) { return x + k; }));
  expect_failure(run_tool({"convert", "--range", "0,300", "-o", dir.path("o.pgm")}), 2,
                 "sorn convert: value '0,300' for --range: expected LO,HI within 0..255 (try "
                 "'sorn convert --help')");
  expect_failure(run_tool({"convert", "--range", "0,9", "--scale", "2", "-o", dir.path("o.pgm")}),
                 2,
                 "sorn convert: takes --range or --scale and --offset, not both (try 'sorn "
                 "convert --help')");
  expect_failure(run_tool({"convert", dir.path("ga.png"), "-o", dir.path("o.png")}), 1,
                 "sorn convert: " + dir.path("ga.png") + ": is grey+alpha, whose range is not measured");
}

}  // namespace

#endif  // SORN_TOOL_EXE
