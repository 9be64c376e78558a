// The sorn program, run as a user runs it: arguments in, exit code, output
// and files out.

// Built only with the tool, which tells where its program is.
#ifdef SORN_TOOL_EXE
#include <gtest/gtest.h>

#include <sstream>

#include "tool_testutil.h"

using sorn::tool::Image;
using tool_test::expect_failure;
using tool_test::run_tool;
using tool_test::ToolRun;
using tool_test::Scratch;

namespace {


// The number after 'key' on the line that starts with it.
double number_after(const std::string &text, const std::string &key) {
  size_t at = text.find(key);
  if (at == std::string::npos) {
    ADD_FAILURE() << "no '" << key << "' in:\n" << text;
    return -1;
  }
  return std::stod(text.substr(at + key.size()));
}

std::vector<std::string> lines_of(const std::string &text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string l; std::getline(in, l);) out.push_back(l);
  return out;
}

}  // namespace

// ------------------------------------------------------------------ help

TEST(ToolHelp, ListsEveryCommand) {
  ToolRun r = run_tool({"--help"});
  EXPECT_EQ(r.code, 0);
  EXPECT_EQ(r.err, "");
  for (const char *c : {"mser", "hist", "stats", "add", "sub", "mul", "div", "and", "or", "xor", "not", "convert", "threshold", "resize", "filter", "border", "rank"}) {
    EXPECT_NE(r.out.find(std::string("  ") + c + " "), std::string::npos) << c;
  }
}

TEST(ToolHelp, EveryCommandHasItsOwn) {
  for (const sorn::tool::Command &c : sorn::tool::commands()) {
    for (const char *flag : {"--help", "-h"}) {
      ToolRun r = run_tool({c.name, flag});
      EXPECT_EQ(r.code, 0) << c.name;
      EXPECT_EQ(r.out, c.help);
      EXPECT_EQ(r.out.rfind(std::string("usage: sorn ") + c.name, 0), 0u) << c.name;
    }
    ToolRun r = run_tool({"help", c.name});
    EXPECT_EQ(r.out, c.help);
  }
}

TEST(ToolHelp, HelpWinsOverOtherArguments) {
  ToolRun r = run_tool({"mser", "--delta", "zero", "--help"});
  EXPECT_EQ(r.code, 0);
  EXPECT_EQ(r.out, sorn::tool::kMserHelp);
}

TEST(ToolUsage, MissingOrUnknownCommand) {
  expect_failure(run_tool({}), 2, "sorn: missing command (try 'sorn --help')");
  expect_failure(run_tool({"blur"}), 2, "sorn: unknown command 'blur' (try 'sorn --help')");
  expect_failure(run_tool({"--bogus"}), 2, "sorn: unknown option '--bogus' (try 'sorn --help')");
  expect_failure(run_tool({"help", "blur"}), 2, "sorn: unknown command 'blur' (try 'sorn --help')");
}

TEST(ToolUsage, BadOptionsNameTheOption) {
  expect_failure(run_tool({"mser", "--bogus"}), 2, "sorn mser: unknown option '--bogus' (try 'sorn mser --help')");
  expect_failure(run_tool({"mser", "--delta"}), 2,
                 "sorn mser: option '--delta' needs a value (try 'sorn mser --help')");
  expect_failure(run_tool({"mser", "--delta", "ten"}), 2,
                 "sorn mser: invalid value 'ten' for --delta: expected an integer from 1 to 255 (try 'sorn mser --help')");
  expect_failure(run_tool({"mser", "--delta=300"}), 2,
                 "sorn mser: value 300 for --delta out of range: expected an integer from 1 to 255 (try 'sorn mser --help')");
  expect_failure(run_tool({"mser", "--min-area", "2"}), 2,
                 "sorn mser: value 2 for --min-area out of range: expected a number from 0 to 1 (try 'sorn mser --help')");
  expect_failure(run_tool({"mser", "--max-variation", "nan"}), 2,
                 "sorn mser: invalid value 'nan' for --max-variation: expected a number from 0 to 1e+09 (try 'sorn mser --help')");
  expect_failure(run_tool({"mser", "--mode", "grey"}), 2,
                 "sorn mser: invalid value 'grey' for --mode: expected dark|bright|both (try 'sorn mser --help')");
  expect_failure(run_tool({"mser", "--delta", "5", "--delta", "6"}), 2,
                 "sorn mser: option '--delta' given twice (try 'sorn mser --help')");
  expect_failure(run_tool({"stats", "a.png", "b.png"}), 2,
                 "sorn stats: unexpected argument 'b.png' (try 'sorn stats --help')");
  expect_failure(run_tool({"add", "--saturate=yes"}), 2,
                 "sorn add: option '--saturate' takes no value (try 'sorn add --help')");
  expect_failure(run_tool({"add", "--sf", "40", "-o", "x.png"}), 2,
                 "sorn add: value 40 for --sf out of range: expected an integer from -31 to 31 (try 'sorn add --help')");
  expect_failure(run_tool({"hist", "-o", "plot.gif"}), 2,
                 "sorn hist: plot.gif: unknown image format '.gif' (use a name ending in .png, .pgm or .ppm) (try 'sorn hist --help')");
}

TEST(ToolOutput, LostStandardOutputIsAFailure) {
  ToolRun r = run_tool({"stats"}, "/dev/full");
  expect_failure(r, 1, "sorn stats: cannot write to standard output: No space left on device");
}

// ------------------------------------------------------------------ inputs

TEST(ToolInputs, MissingFile) {
  Scratch dir;
  std::string p = dir.path("nothing.png");
  for (const char *cmd : {"mser", "hist", "stats"}) {
    expect_failure(run_tool({cmd, p}), 1, std::string("sorn ") + cmd + ": " + p + ": cannot open: No such file or directory");
  }
}

TEST(ToolInputs, UnreadableFile) {
  Scratch dir;
  std::string d = dir.path("");
  expect_failure(run_tool({"stats", d}), 1, "sorn stats: " + d + ": cannot read: Is a directory");
}

TEST(ToolInputs, CorruptTruncatedAndDeepImages) {
  Scratch dir;
  sorn::tool::write_image(dir.path("a.png"), tool_test::make_image(30, 20, 1, [](int y, int x, int) { return x * y; }));
  std::string bytes = tool_test::read_file(dir.path("a.png"));
  tool_test::write_file(dir.path("t.png"), bytes.substr(0, bytes.size() / 2));
  ToolRun r = run_tool({"hist", dir.path("t.png")});
  EXPECT_EQ(r.code, 1);
  ASSERT_EQ(r.err_lines().size(), 1u) << r.err;
  EXPECT_EQ(r.err.rfind("sorn hist: " + dir.path("t.png") + ": corrupt or truncated PNG: ", 0), 0u) << r.err;

  std::string bad = bytes;
  bad[bad.find("IDAT") + 8] ^= 0x33;
  tool_test::write_file(dir.path("c.png"), bad);
  r = run_tool({"mser", dir.path("c.png")});
  EXPECT_EQ(r.code, 1);
  ASSERT_EQ(r.err_lines().size(), 1u) << r.err;
  EXPECT_NE(r.err.find(dir.path("c.png") + ": corrupt or truncated PNG"), std::string::npos) << r.err;

  tool_test::write_png16(dir.path("d.png"), 3, 3);
  expect_failure(run_tool({"stats", dir.path("d.png")}), 1,
                 "sorn stats: " + dir.path("d.png") + ": unsupported bit depth 16 (only 8-bit images are read)");

  tool_test::write_file(dir.path("x.png"), "GIF89a");
  expect_failure(run_tool({"stats", dir.path("x.png")}), 1,
                 "sorn stats: " + dir.path("x.png") + ": not a PNG, PGM or PPM image");
}

// ------------------------------------------------------------------ stats

TEST(ToolStats, SumAndMeanOfEachChannel) {
  Scratch dir;
  // 4 x 3 RGB: red = x, green = 10 y, blue = 200.
  Image im = tool_test::make_image(4, 3, 3, [](int y, int x, int k) { return k == 0 ? x : k == 1 ? 10 * y : 200; });
  sorn::tool::write_image(dir.path("a.ppm"), im);
  ToolRun r = run_tool({"stats", dir.path("a.ppm")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(number_after(r.out, "red "), 18);          // 3 * (0+1+2+3)
  EXPECT_EQ(number_after(r.out, "green "), 120);       // 4 * (0+10+20)
  EXPECT_EQ(number_after(r.out, "blue "), 2400);
  auto lines = lines_of(r.out);
  ASSERT_EQ(lines.size(), 9u) << r.out;  // image, sums and means, extremes
  std::istringstream red(lines[2]);
  std::string name;
  double sum, mean;
  red >> name >> sum >> mean;
  EXPECT_EQ(name, "red");
  EXPECT_DOUBLE_EQ(mean, 1.5);
}

TEST(ToolStats, GreyAlphaGoesPlaneByPlane) {
  Scratch dir;
  Image im = tool_test::make_image(5, 2, 2, [](int, int x, int k) { return k ? 255 : x; });
  sorn::tool::write_image(dir.path("a.png"), im);
  ToolRun r = run_tool({"stats", dir.path("a.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(number_after(r.out, "grey "), 20);
  EXPECT_EQ(number_after(r.out, "alpha "), 2550);
}

TEST(ToolStats, MaskSelectsPixels) {
  Scratch dir;
  Image im = tool_test::make_image(5, 2, 1, [](int y, int x, int) { return 10 * y + x; });
  Image mask = tool_test::make_image(5, 2, 1, [](int y, int x, int) { return (x == 1 || x == 4) && y == 1 ? 255 : 0; });
  sorn::tool::write_image(dir.path("a.pgm"), im);
  sorn::tool::write_image(dir.path("m.png"), mask);
  ToolRun r = run_tool({"stats", dir.path("a.pgm"), "--mask", dir.path("m.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find("mask: " + dir.path("m.png") + ", 2 of 10 pixels selected"), std::string::npos) << r.out;
  std::istringstream row(lines_of(r.out)[3]);
  std::string name;
  double sum, mean, msum, mmean;
  row >> name >> sum >> mean >> msum >> mmean;
  EXPECT_EQ(name, "grey");
  EXPECT_EQ(sum, 70);  // 0..4 and 10..14
  EXPECT_DOUBLE_EQ(mean, 7.0);
  EXPECT_EQ(msum, 25);  // 11 + 14
  EXPECT_DOUBLE_EQ(mmean, 12.5);
}

TEST(ToolStats, EmptyMaskGivesZeroMeans) {
  Scratch dir;
  sorn::tool::write_image(dir.path("m.pgm"), Image(320, 240, 1, 0));
  ToolRun r = run_tool({"stats", "--mask", dir.path("m.pgm")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find("0 of 76800 pixels selected"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("the mask selects no pixel"), std::string::npos);
}

TEST(ToolStats, MaskMustFit) {
  Scratch dir;
  sorn::tool::write_image(dir.path("small.pgm"), Image(3, 3, 1, 1));
  sorn::tool::write_image(dir.path("rgb.ppm"), Image(320, 240, 3, 1));
  expect_failure(run_tool({"stats", "--mask", dir.path("small.pgm")}), 1,
                 "sorn stats: " + dir.path("small.pgm") + ": mask is 3x3 but the image is 320x240");
  expect_failure(run_tool({"stats", "--mask", dir.path("rgb.ppm")}), 1,
                 "sorn stats: " + dir.path("rgb.ppm") + ": mask must be a grey image, this one is RGB");
}

TEST(ToolStats, DefaultPicture) {
  ToolRun r = run_tool({"stats"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out.rfind("image: (default picture), 320x240 RGB, 76800 pixels\n", 0), 0u) << r.out;
}

// ------------------------------------------------------------------ hist

TEST(ToolHist, TableCountsEveryPixelOnce) {
  Scratch dir;
  // 16 x 16 grey, every value 0..255 once; a second channel of value 7.
  Image im = tool_test::make_image(16, 16, 2, [](int y, int x, int k) { return k ? 7 : 16 * y + x; });
  sorn::tool::write_image(dir.path("a.png"), im);
  ToolRun r = run_tool({"hist", dir.path("a.png"), "-o", dir.path("plot.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(r.out.find("channel grey: 256 pixels, min 0, max 255, mode 0 (1 pixels)"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("channel alpha: 256 pixels, min 7, max 7, mode 7 (256 pixels)"), std::string::npos) << r.out;
  // Every count line: its counts add up to the channel's pixels.
  uint64_t grey = 0, alpha = 0;
  int block = -1;
  for (const std::string &l : lines_of(r.out)) {
    if (l.rfind("channel ", 0) == 0) ++block;
    if (l.rfind("  ", 0) != 0) continue;
    std::istringstream in(l.substr(l.find(':') + 1));
    for (uint64_t v; in >> v;) (block == 0 ? grey : alpha) += v;
  }
  EXPECT_EQ(grey, 256u);
  EXPECT_EQ(alpha, 256u);
  // Lines of zeros are left out: the alpha channel has one line.
  EXPECT_NE(r.out.find("    0:       0       0       0       0       0       0       0     256"), std::string::npos);
  Image plot = sorn::tool::read_image(dir.path("plot.png"));
  EXPECT_EQ(plot.width, 528);
  EXPECT_EQ(plot.height, 8 + 2 * 136);
  EXPECT_EQ(plot.channels, 3);
}

TEST(ToolHist, PlotOfTheDefaultPicture) {
  Scratch dir;
  ToolRun r = run_tool({"hist", "--output=" + dir.path("plot.ppm")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(lines_of(r.out)[1].rfind("channel red: 76800 pixels", 0), 0u) << r.out;
  Image plot = sorn::tool::read_image(dir.path("plot.ppm"));
  EXPECT_EQ(plot.width, 528);
  EXPECT_EQ(plot.height, 8 + 3 * 136);
}

// ------------------------------------------------------------------ add

TEST(ToolAdd, WrapsSaturatesAndScales) {
  Scratch dir;
  Image a = tool_test::make_image(3, 1, 1, [](int, int x, int) { return 200; });
  Image b = tool_test::make_image(3, 1, 1, [](int, int x, int) { return x == 0 ? 100 : x == 1 ? 20 : 55; });
  sorn::tool::write_image(dir.path("a.pgm"), a);
  sorn::tool::write_image(dir.path("b.png"), b);
  auto sum = [&](std::vector<std::string> extra) {
    std::vector<std::string> args = {"add", dir.path("a.pgm"), dir.path("b.png"), "-o", dir.path("s.pgm")};
    args.insert(args.end(), extra.begin(), extra.end());
    ToolRun r = run_tool(args);
    EXPECT_EQ(r.code, 0) << r.err;
    Image s = sorn::tool::read_image(dir.path("s.pgm"));
    return std::vector<int>{s.at(0, 0), s.at(0, 1), s.at(0, 2)};
  };
  EXPECT_EQ(sum({}), (std::vector<int>{44, 220, 255}));
  EXPECT_EQ(sum({"--saturate"}), (std::vector<int>{255, 220, 255}));
  EXPECT_EQ(sum({"--sf", "-1"}), (std::vector<int>{150, 110, 128}));  // 127.5 rounds to even
  EXPECT_EQ(sum({"--sf=1"}), (std::vector<int>{255, 255, 255}));
}

TEST(ToolAdd, FourChannelsAndPngOutput) {
  Scratch dir;
  Image a = tool_test::make_image(7, 5, 4, [](int y, int x, int k) { return y + x + k; });
  sorn::tool::write_image(dir.path("a.png"), a);
  ToolRun r = run_tool({"add", dir.path("a.png"), dir.path("a.png"), "-o", dir.path("s.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.out, "wrote " + dir.path("s.png") + ": 7x5 RGBA, sum of " + dir.path("a.png") + " and " +
                       dir.path("a.png") + ", sf 0\n");
  Image s = sorn::tool::read_image(dir.path("s.png"));
  EXPECT_EQ(s.channels, 4);
  EXPECT_EQ(s.at(4, 6, 3), 2 * (4 + 6 + 3));
}

TEST(ToolAdd, RoundTripPngToPgmToPngThroughHalvedSums) {
  // (a + a) / 2 is a, so two runs carry a picture from PNG to PGM and back.
  Scratch dir;
  Image a = tool_test::make_image(23, 11, 1, [](int y, int x, int) { return (y * 31 + x * 7) & 255; });
  sorn::tool::write_image(dir.path("a.png"), a);
  ASSERT_EQ(run_tool({"add", dir.path("a.png"), dir.path("a.png"), "--sf", "-1", "-o", dir.path("b.pgm")}).code, 0);
  EXPECT_EQ(tool_test::read_file(dir.path("b.pgm")).substr(0, 11), "P5\n23 11\n25");
  ASSERT_EQ(run_tool({"add", dir.path("b.pgm"), dir.path("b.pgm"), "--sf", "-1", "-o", dir.path("c.png")}).code, 0);
  Image c = sorn::tool::read_image(dir.path("c.png"));
  EXPECT_EQ(c.pixels, a.pixels);
  EXPECT_EQ(c.width, 23);
  EXPECT_EQ(c.channels, 1);
}

TEST(ToolAdd, DefaultPictureTwice) {
  Scratch dir;
  ToolRun r = run_tool({"add", "--sf", "-1", "-o", dir.path("d.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  Image d = sorn::tool::read_image(dir.path("d.png"));
  EXPECT_EQ(d.pixels, sorn::tool::default_picture().pixels);
}

TEST(ToolAdd, Failures) {
  Scratch dir;
  sorn::tool::write_image(dir.path("a.pgm"), Image(4, 4, 1, 1));
  sorn::tool::write_image(dir.path("b.pgm"), Image(5, 4, 1, 1));
  sorn::tool::write_image(dir.path("c.ppm"), Image(4, 4, 3, 1));
  expect_failure(run_tool({"add", dir.path("a.pgm"), dir.path("a.pgm")}), 2,
                 "sorn add: missing -o OUT (try 'sorn add --help')");
  expect_failure(run_tool({"add", dir.path("a.pgm"), "-o", dir.path("s.pgm")}), 2,
                 "sorn add: needs two images A and B (try 'sorn add --help')");
  expect_failure(run_tool({"add", dir.path("a.pgm"), dir.path("b.pgm"), "-o", dir.path("s.pgm")}), 1,
                 "sorn add: " + dir.path("b.pgm") + ": is 5x4 but " + dir.path("a.pgm") + " is 4x4");
  expect_failure(run_tool({"add", dir.path("a.pgm"), dir.path("c.ppm"), "-o", dir.path("s.pgm")}), 1,
                 "sorn add: " + dir.path("c.ppm") + ": is RGB but " + dir.path("a.pgm") + " is grey");
  expect_failure(run_tool({"add", dir.path("c.ppm"), dir.path("c.ppm"), "-o", dir.path("s.pgm")}), 1,
                 "sorn add: " + dir.path("s.pgm") + ": PGM holds grey images only, this one is RGB (write .png or .ppm)");
  expect_failure(run_tool({"add", dir.path("a.pgm"), dir.path("a.pgm"), "-o", dir.path("no/s.pgm")}), 1,
                 "sorn add: " + dir.path("no/s.pgm") + ": cannot create: No such file or directory");
}
#else
#include <gtest/gtest.h>
TEST(Tool, NotBuilt) { GTEST_SKIP() << "the sorn tool is not built (SORN_BUILD_TOOLS is off)"; }
#endif
