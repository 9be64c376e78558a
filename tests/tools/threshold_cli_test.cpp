// sorn threshold and the extremes of sorn stats, run as a user runs them.

// Built only with the tool, which tells where its program is.
#ifdef SORN_TOOL_EXE
#include <gtest/gtest.h>

#include <sstream>

#include "tool_testutil.h"

using sorn::tool::Image;
using tool_test::run_tool;
using tool_test::Scratch;
using tool_test::ToolRun;

namespace {

std::vector<std::string> lines_of(const std::string &text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string l; std::getline(in, l);) out.push_back(l);
  return out;
}

// The line of `text` that starts with `start`.
std::string line_starting(const std::string &text, const std::string &start) {
  for (const std::string &l : lines_of(text))
    if (l.rfind(start, 0) == 0) return l;
  ADD_FAILURE() << "no line starting with '" << start << "' in:\n" << text;
  return "";
}

void expect_one_error_line(const ToolRun &r, int code, const std::string &line) {
  EXPECT_EQ(r.code, code) << r.err;
  auto lines = r.err_lines();
  ASSERT_EQ(lines.size(), 1u) << r.err;
  EXPECT_EQ(lines[0], line);
}

}  // namespace

// ------------------------------------------------------------------ threshold

TEST(ToolThreshold, FixedValue) {
  Scratch dir;
  Image im = tool_test::make_image(8, 2, 1, [](int y, int x, int) { return 95 + x + 10 * y; });
  sorn::tool::write_image(dir.path("a.pgm"), im);
  ToolRun r = run_tool({"threshold", dir.path("a.pgm"), "--value", "100", "-o", dir.path("b.pgm")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(line_starting(r.out, "threshold"), "threshold 100 (fixed): values below 100 are black");
  Image out = sorn::tool::read_image(dir.path("b.pgm"));
  ASSERT_EQ(out.channels, 1);
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 8; ++x) EXPECT_EQ(out.at(y, x), im.at(y, x) < 100 ? 0 : 255) << x;
  EXPECT_NE(r.out.find("11 of 16 pixels white"), std::string::npos) << r.out;
}

TEST(ToolThreshold, FractionalValueRoundsToEven) {
  Scratch dir;
  Image im = tool_test::make_image(4, 1, 1, [](int, int x, int) { return 99 + x; });
  sorn::tool::write_image(dir.path("a.pgm"), im);
  ToolRun r = run_tool({"threshold", dir.path("a.pgm"), "--value", "100.5", "-o", dir.path("b.pgm")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(line_starting(r.out, "threshold"), "threshold 100.5 (fixed): values below 100 are black");
  Image out = sorn::tool::read_image(dir.path("b.pgm"));
  EXPECT_EQ(out.at(0, 0), 0);
  EXPECT_EQ(out.at(0, 1), 255);
}

TEST(ToolThreshold, OtsuPartsTwoLevels) {
  Scratch dir;
  Image im = tool_test::make_image(10, 6, 1, [](int y, int x, int) { return (x + y) % 3 ? 10 : 200; });
  sorn::tool::write_image(dir.path("a.png"), im);
  ToolRun r = run_tool({"threshold", dir.path("a.png"), "--otsu", "-o", dir.path("b.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(line_starting(r.out, "threshold"), "threshold 11 (Otsu): values below 11 are black");
  Image out = sorn::tool::read_image(dir.path("b.png"));
  for (int y = 0; y < 6; ++y)
    for (int x = 0; x < 10; ++x) EXPECT_EQ(out.at(y, x), im.at(y, x) == 10 ? 0 : 255);
}

TEST(ToolThreshold, OtsuIsTheDefaultAndColourGoesToGrey) {
  Scratch dir;
  ToolRun r = run_tool({"threshold", "-o", dir.path("b.pgm")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(line_starting(r.out, "threshold").find("(Otsu)"), std::string::npos);
  EXPECT_NE(r.out.find("320x240 grey from (default picture)"), std::string::npos) << r.out;
  Image rgb = tool_test::make_image(3, 1, 3, [](int, int x, int k) { return x == 2 ? 250 : k == 1 ? 180 : 20; });
  sorn::tool::write_image(dir.path("c.ppm"), rgb);
  r = run_tool({"threshold", dir.path("c.ppm"), "--value", "128", "-o", dir.path("d.pgm")});
  ASSERT_EQ(r.code, 0) << r.err;
  Image out = sorn::tool::read_image(dir.path("d.pgm"));
  EXPECT_EQ(out.at(0, 0), 0);    // grey of (20, 180, 20) is about 117
  EXPECT_EQ(out.at(0, 2), 255);  // grey of white
}

// The usto and blur methods run the box filter, which the library does not
// have yet: the tool reports the library's refusal.
TEST(ToolThreshold, UstoAndBlurReportTheLibrarysRefusal) {
  Scratch dir;
  for (const std::vector<std::string> &method : {std::vector<std::string>{"--usto"},
                                                 std::vector<std::string>{"--blur", "7"}}) {
    std::vector<std::string> args = {"threshold", "-o", dir.path("b.pgm")};
    args.insert(args.end(), method.begin(), method.end());
    ToolRun r = run_tool(args);
    EXPECT_EQ(r.code, 1) << r.out;
    auto lines = r.err_lines();
    ASSERT_EQ(lines.size(), 1u) << r.err;
    EXPECT_EQ(lines[0].rfind("sorn threshold: SornThreshold: SORN_ENOTSUP", 0), 0u) << lines[0];
  }
}

TEST(ToolThreshold, UsageErrors) {
  Scratch dir;
  const std::string out = dir.path("b.pgm");
  expect_one_error_line(run_tool({"threshold", "--otsu", "--value", "3", "-o", out}), 2,
                        "sorn threshold: give one of --value, --otsu, --usto and --blur (try "
                        "'sorn threshold --help')");
  EXPECT_EQ(run_tool({"threshold", "--otsu"}).code, 2);
  expect_one_error_line(run_tool({"threshold", "--blur", "4", "-o", out}), 2,
                        "sorn threshold: --blur: the box size must be odd, not 4 (try 'sorn "
                        "threshold --help')");
  EXPECT_EQ(run_tool({"threshold", "--value", "300", "-o", out}).code, 2);
  EXPECT_EQ(run_tool({"threshold", "--blur", "1", "-o", out}).code, 2);
  EXPECT_EQ(run_tool({"threshold", "-o", dir.path("b.gif")}).code, 2);
}

// ------------------------------------------------------------------ stats

TEST(ToolStats, LeastAndGreatestValueWithTheirFirstPlaces) {
  Scratch dir;
  // 6 x 4 RGB: red has its minimum at (4, 1) and again later; green is
  // constant; blue rises along the rows.
  Image im = tool_test::make_image(6, 4, 3, [](int y, int x, int k) {
    if (k == 0) return (x == 4 && y == 1) || (x == 0 && y == 3) ? 3 : 50 + x + y;
    if (k == 1) return 9;
    return 10 * y + x;
  });
  sorn::tool::write_image(dir.path("a.ppm"), im);
  ToolRun r = run_tool({"stats", dir.path("a.ppm")});
  ASSERT_EQ(r.code, 0) << r.err;
  std::vector<std::string> rows;
  for (const std::string &l : lines_of(r.out))
    if (l.find("(") != std::string::npos && l.rfind("image", 0) != 0 && l.rfind("channel", 0) != 0)
      rows.push_back(l);
  ASSERT_EQ(rows.size(), 3u) << r.out;
  auto fields = [](const std::string &l) {
    std::istringstream in(l);
    std::vector<std::string> f;
    for (std::string w; in >> w;) f.push_back(w);
    return f;
  };
  EXPECT_EQ(fields(rows[0]), (std::vector<std::string>{"red", "3", "(4,1)", "58", "(5,3)"}));
  EXPECT_EQ(fields(rows[1]), (std::vector<std::string>{"green", "9", "(0,0)", "9", "(0,0)"}));
  EXPECT_EQ(fields(rows[2]), (std::vector<std::string>{"blue", "0", "(0,0)", "35", "(5,3)"}));
}

TEST(ToolStats, MaskedExtremes) {
  Scratch dir;
  Image im = tool_test::make_image(5, 3, 1, [](int y, int x, int) { return 20 * y + x; });
  Image mask = tool_test::make_image(5, 3, 1, [](int y, int x, int) { return y == 1 && x >= 2 ? 1 : 0; });
  sorn::tool::write_image(dir.path("a.pgm"), im);
  sorn::tool::write_image(dir.path("m.pgm"), mask);
  ToolRun r = run_tool({"stats", dir.path("a.pgm"), "--mask", dir.path("m.pgm")});
  ASSERT_EQ(r.code, 0) << r.err;
  const std::string row = lines_of(r.out).back();
  std::istringstream in(row);
  std::vector<std::string> f;
  for (std::string w; in >> w;) f.push_back(w);
  EXPECT_EQ(f, (std::vector<std::string>{"grey", "0", "(0,0)", "44", "(4,2)", "22", "(2,1)", "24",
                                         "(4,1)"}))
      << r.out;
  sorn::tool::write_image(dir.path("z.pgm"), Image(5, 3, 1, 0));
  r = run_tool({"stats", dir.path("a.pgm"), "--mask", dir.path("z.pgm")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_NE(lines_of(r.out).back().find(" - "), std::string::npos) << r.out;
}

#endif  // SORN_TOOL_EXE
