// sorn mser: counts, overlay and JSON on scenes whose regions are known.

// Built only with the tool, which tells where its program is.
#ifdef SORN_TOOL_EXE
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <sstream>
#include <string>
#include <vector>

#include "tool_testutil.h"

using sorn::tool::Image;
using tool_test::Json;
using tool_test::run_tool;
using tool_test::Scratch;
using tool_test::ToolRun;

namespace {

// 64 x 64 of grey 128 with a dark 16 x 16 square of 20 at column 10, row 12
// and a bright 12 x 10 one of 230 at column 36, row 40. Each square is the
// one stable region of its pass: the background around it is too large and
// the whole picture is the root.
Image two_squares() {
  return tool_test::make_image(64, 64, 1, [](int y, int x, int) {
    if (x >= 10 && x < 26 && y >= 12 && y < 28) return 20;
    if (x >= 36 && x < 48 && y >= 40 && y < 50) return 230;
    return 128;
  });
}

Json region_list(const std::string &path) { return tool_test::parse_json(tool_test::read_file(path)); }

int count_of(const std::string &out, const std::string &label) {
  size_t at = out.find(label);
  if (at == std::string::npos) return -1;
  return std::stoi(out.substr(at + label.size()));
}

}  // namespace

TEST(ToolMser, FindsEachSquareInItsPass) {
  Scratch dir;
  sorn::tool::write_image(dir.path("sq.png"), two_squares());
  ToolRun r = run_tool({"mser", dir.path("sq.png"), "-o", dir.path("o.png"), "--shape", "pixels",
                        "--json", dir.path("r.json")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(count_of(r.out, "dark regions: "), 1) << r.out;
  EXPECT_EQ(count_of(r.out, "bright regions: "), 1) << r.out;
  EXPECT_NE(r.out.find("\ntime: "), std::string::npos);
  EXPECT_NE(r.out.find(" ms\n"), std::string::npos);

  Json j = region_list(dir.path("r.json"));
  EXPECT_EQ(j["image"].string(), dir.path("sq.png"));
  EXPECT_EQ(j["width"].number(), 64);
  EXPECT_EQ(j["counts"]["dark"].number(), 1);
  EXPECT_EQ(j["counts"]["bright"].number(), 1);
  EXPECT_EQ(j["parameters"]["delta"].number(), 10);
  EXPECT_EQ(j["parameters"]["mode"].string(), "both");
  const auto &regions = j["regions"].array();
  ASSERT_EQ(regions.size(), 2u);
  const Json &dark = regions[0], &bright = regions[1];
  EXPECT_EQ(dark["pass"].string(), "dark");
  EXPECT_EQ(dark["level"].number(), 20);
  EXPECT_EQ(dark["size"].number(), 256);
  EXPECT_EQ(dark["pixels"].number(), 256);
  EXPECT_EQ(dark["bbox"]["x"].number(), 10);
  EXPECT_EQ(dark["bbox"]["y"].number(), 12);
  EXPECT_EQ(dark["bbox"]["width"].number(), 16);
  EXPECT_EQ(dark["bbox"]["height"].number(), 16);
  EXPECT_EQ(bright["pass"].string(), "bright");
  EXPECT_EQ(bright["level"].number(), 230);  // the true grey level, not the inverted one
  EXPECT_EQ(bright["size"].number(), 120);
  EXPECT_EQ(bright["bbox"]["x"].number(), 36);
  EXPECT_EQ(bright["bbox"]["y"].number(), 40);
  EXPECT_EQ(bright["bbox"]["width"].number(), 12);
  EXPECT_EQ(bright["bbox"]["height"].number(), 10);

  // The pixels drawing: the grey picture in colour, dark squares red,
  // bright blue.
  Image o = sorn::tool::read_image(dir.path("o.png"));
  ASSERT_EQ(o.width, 64);
  ASSERT_EQ(o.height, 64);
  ASSERT_EQ(o.channels, 3);
  EXPECT_GT(o.at(20, 15, 0), o.at(20, 15, 2));
  EXPECT_GT(o.at(45, 40, 2), o.at(45, 40, 0));
  EXPECT_EQ(o.at(5, 5, 0), 128);
  EXPECT_EQ(o.at(5, 5, 1), 128);
  EXPECT_EQ(o.at(5, 5, 2), 128);
}

// The measures in the JSON, in picture coordinates (x the column): the
// centroid, the ellipse of the second moments (a square's is a circle), the
// least-area quadrilateral (a square's own corners).
TEST(ToolMser, JsonHoldsEachRegionsMeasures) {
  Scratch dir;
  sorn::tool::write_image(dir.path("sq.png"), two_squares());
  ToolRun r = run_tool({"mser", dir.path("sq.png"), "--json", dir.path("r.json")});
  ASSERT_EQ(r.code, 0) << r.err;
  Json j = region_list(dir.path("r.json"));
  const auto &regions = j["regions"].array();
  ASSERT_EQ(regions.size(), 2u);
  const Json &dark = regions[0], &bright = regions[1];
  EXPECT_EQ(dark["area"].number(), 256);
  EXPECT_EQ(dark["depth"].number(), 0);
  EXPECT_NEAR(dark["centroid"]["x"].number(), 17.5, 1e-6);
  EXPECT_NEAR(dark["centroid"]["y"].number(), 19.5, 1e-6);
  // Central moments of a 16-pixel side: (16^2 - 1) / 12 in both
  // directions; the semi-axes are twice their square roots.
  const double semi = 2 * std::sqrt(255.0 / 12);
  EXPECT_NEAR(dark["ellipse"]["a"].number(), semi, 1e-4);
  EXPECT_NEAR(dark["ellipse"]["b"].number(), semi, 1e-4);
  EXPECT_NEAR(dark["ellipse"]["x"].number(), 17.5, 1e-6);
  const auto &q = dark["quad"].array();
  ASSERT_EQ(q.size(), 4u);
  std::vector<std::pair<double, double>> corners;
  for (const Json &c : q) corners.push_back({c.array()[0].number(), c.array()[1].number()});
  std::sort(corners.begin(), corners.end());
  const std::pair<double, double> square[4] = {{10, 12}, {10, 27}, {25, 12}, {25, 27}};
  for (int k = 0; k < 4; ++k) {
    EXPECT_NEAR(corners[k].first, square[k].first, 1e-4) << k;
    EXPECT_NEAR(corners[k].second, square[k].second, 1e-4) << k;
  }
  // The bright 12 x 10 one: its longer axis along x.
  EXPECT_NEAR(bright["centroid"]["x"].number(), 41.5, 1e-6);
  EXPECT_NEAR(bright["centroid"]["y"].number(), 44.5, 1e-6);
  EXPECT_NEAR(bright["ellipse"]["b"].number(), 2 * std::sqrt(143.0 / 12), 1e-4);
  EXPECT_NEAR(bright["ellipse"]["a"].number(), 2 * std::sqrt(99.0 / 12), 1e-4);
  EXPECT_NEAR(std::cos(bright["ellipse"]["angle"].number()), 1.0, 1e-6);
}

// Every shape draws outlines over the dimmed picture, so that the picture
// stays visible inside the regions, and prints a legend line.
TEST(ToolMser, ShapesDrawOutlinesOverTheDimmedPicture) {
  Scratch dir;
  sorn::tool::write_image(dir.path("sq.png"), two_squares());
  auto dimmed = [](int v) { return 20 + v * 3 / 5; };
  for (const char *shape : {"ellipse", "quad", "box"}) {
    SCOPED_TRACE(shape);
    std::vector<std::string> argv = {"mser", dir.path("sq.png"), "-o", dir.path("o.png")};
    if (std::string(shape) != "ellipse") {
      argv.push_back("--shape");
      argv.push_back(shape);
    }
    ToolRun r = run_tool(argv);
    ASSERT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.out.find("\nlegend: "), std::string::npos) << r.out;
    Image o = sorn::tool::read_image(dir.path("o.png"));
    ASSERT_EQ(o.channels, 3);
    // Inside the dark square and in the background: the dimmed grey.
    EXPECT_EQ(o.at(20, 17, 0), dimmed(20));
    EXPECT_EQ(o.at(20, 17, 2), dimmed(20));
    EXPECT_EQ(o.at(2, 2, 1), dimmed(128));
    // Somewhere on the dark square's outline, red; on the bright one's, blue.
    int red = 0, blue = 0;
    for (int y = 0; y < 64; ++y)
      for (int x = 0; x < 64; ++x) {
        if (o.at(y, x, 0) > 200 && o.at(y, x, 2) < 60) ++red;
        if (o.at(y, x, 2) > 200 && o.at(y, x, 0) < 60) ++blue;
      }
    EXPECT_GT(red, 30);
    EXPECT_GT(blue, 25);
  }
  ToolRun r = run_tool({"mser", dir.path("sq.png"), "--shape", "circle"});
  EXPECT_EQ(r.code, 2);
}

TEST(ToolMser, OnePassOnly) {
  Scratch dir;
  sorn::tool::write_image(dir.path("sq.pgm"), two_squares());
  ToolRun r = run_tool({"mser", dir.path("sq.pgm"), "--mode", "dark", "--json", dir.path("r.json")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(count_of(r.out, "dark regions: "), 1);
  EXPECT_EQ(count_of(r.out, "bright regions: "), -1) << "no bright pass was made";
  Json j = region_list(dir.path("r.json"));
  EXPECT_EQ(j["counts"]["bright"].number(), 0);
  ASSERT_EQ(j["regions"].array().size(), 1u);
  EXPECT_EQ(j["regions"].array()[0]["pass"].string(), "dark");

  r = run_tool({"mser", dir.path("sq.pgm"), "--mode=bright"});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(count_of(r.out, "dark regions: "), -1);
  EXPECT_EQ(count_of(r.out, "bright regions: "), 1);
}

TEST(ToolMser, ParametersReachTheDetection) {
  Scratch dir;
  sorn::tool::write_image(dir.path("sq.png"), two_squares());
  // Half the picture at least: neither square is large enough.
  ToolRun r = run_tool({"mser", dir.path("sq.png"), "--min-area", "0.5", "--json", dir.path("r.json")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(count_of(r.out, "dark regions: "), 0);
  EXPECT_EQ(count_of(r.out, "bright regions: "), 0);
  Json j = region_list(dir.path("r.json"));
  EXPECT_TRUE(j["regions"].array().empty());
  EXPECT_NEAR(j["parameters"]["min_area"].number(), 0.5, 1e-7);
  // At most 245 pixels: the dark square of 256 is too large, the bright
  // one of 120 is not.
  r = run_tool({"mser", dir.path("sq.png"), "--max-area", "0.06"});
  EXPECT_EQ(count_of(r.out, "dark regions: "), 0);
  EXPECT_EQ(count_of(r.out, "bright regions: "), 1);
  // A step of 200 grey levels: no square differs that much from its surround.
  r = run_tool({"mser", dir.path("sq.png"), "--delta", "200"});
  EXPECT_EQ(count_of(r.out, "dark regions: "), 0);
  EXPECT_NE(r.out.find("parameters: delta 200, min-area 0.0001, max-area 0.75, max-variation 0.33, "
                       "min-diversity 0.2, mode both"),
            std::string::npos)
      << r.out;
}

TEST(ToolMser, DefaultPictureCountsAgreeWithTheJson) {
  Scratch dir;
  ToolRun r = run_tool({"mser", "-o", dir.path("mser.png"), "--json", dir.path("r.json")});
  ASSERT_EQ(r.code, 0) << r.err;
  int dark = count_of(r.out, "dark regions: "), bright = count_of(r.out, "bright regions: ");
  EXPECT_GT(dark, 0);
  EXPECT_GT(bright, 0);
  Json j = region_list(dir.path("r.json"));
  EXPECT_EQ(j["image"].string(), "(default picture)");
  EXPECT_EQ(j["counts"]["dark"].number(), dark);
  EXPECT_EQ(j["counts"]["bright"].number(), bright);
  const auto &regions = j["regions"].array();
  ASSERT_EQ(regions.size(), size_t(dark + bright));
  for (size_t i = 0; i < regions.size(); ++i) {
    const Json &g = regions[i];
    EXPECT_EQ(g["pass"].string(), i < size_t(dark) ? "dark" : "bright") << i;
    EXPECT_EQ(g["pixels"].number(), g["size"].number()) << i;
    EXPECT_GE(g["size"].number(), 9) << i;
    const Json &b = g["bbox"];
    EXPECT_GE(b["x"].number(), 0);
    EXPECT_GE(b["y"].number(), 0);
    EXPECT_LE(b["x"].number() + b["width"].number(), 320);
    EXPECT_LE(b["y"].number() + b["height"].number(), 240);
    EXPECT_LE(g["size"].number(), b["width"].number() * b["height"].number());
  }
  Image o = sorn::tool::read_image(dir.path("mser.png"));
  EXPECT_EQ(o.width, 320);
  EXPECT_EQ(o.height, 240);
  EXPECT_EQ(o.channels, 3);
}

TEST(ToolMser, FlatPictureHasNoRegions) {
  Scratch dir;
  sorn::tool::write_image(dir.path("flat.pgm"), Image(40, 30, 1, 77));
  ToolRun r = run_tool({"mser", dir.path("flat.pgm"), "--json", dir.path("r.json")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(count_of(r.out, "dark regions: "), 0);
  EXPECT_EQ(count_of(r.out, "bright regions: "), 0);
  EXPECT_NE(tool_test::read_file(dir.path("r.json")).find("\"regions\": []"), std::string::npos);
  EXPECT_TRUE(region_list(dir.path("r.json"))["regions"].array().empty());
}

TEST(ToolMser, ColourPicturesAreTakenAsGrey) {
  Scratch dir;
  Image grey = two_squares();
  Image rgba(64, 64, 4);
  for (int y = 0; y < 64; ++y)
    for (int x = 0; x < 64; ++x) {
      for (int k = 0; k < 3; ++k) rgba.at(y, x, k) = grey.at(y, x);
      rgba.at(y, x, 3) = 255;
    }
  sorn::tool::write_image(dir.path("c.png"), rgba);
  ToolRun r = run_tool({"mser", dir.path("c.png")});
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(count_of(r.out, "dark regions: "), 1);
  EXPECT_EQ(count_of(r.out, "bright regions: "), 1);
}

TEST(ToolMser, OutputFailures) {
  Scratch dir;
  ToolRun r = run_tool({"mser", "--json", dir.path("no/r.json")});
  EXPECT_EQ(r.code, 1);
  ASSERT_EQ(r.err_lines().size(), 1u) << r.err;
  EXPECT_EQ(r.err_lines()[0], "sorn mser: " + dir.path("no/r.json") + ": cannot create: No such file or directory");
  r = run_tool({"mser", "-o", dir.path("o.pgm")});
  EXPECT_EQ(r.code, 1);
  ASSERT_EQ(r.err_lines().size(), 1u) << r.err;
  EXPECT_EQ(r.err_lines()[0],
            "sorn mser: " + dir.path("o.pgm") + ": PGM holds grey images only, this one is RGB (write .png or .ppm)");
  r = run_tool({"mser", "-o", dir.path("o.tif")});
  EXPECT_EQ(r.code, 2);
}
#endif
