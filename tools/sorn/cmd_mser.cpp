// sorn mser: maximally stable extremal regions of the grey picture, by the
// fast flooding form, drawn over the picture and listed as JSON.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstring>

#include "cli.h"

// The library's defaults spelled as text, for the help.
#define SORN_TOOL_TEXT(x) SORN_TOOL_TEXT_(x)
#define SORN_TOOL_TEXT_(x) #x

namespace sorn::tool {

const char *const kMserHelp =
    "usage: sorn mser [IMAGE] [-o OUT] [--shape ellipse|quad|box|pixels] [--delta N]\n"
    "                 [--min-area F] [--max-area F] [--max-variation F]\n"
    "                 [--min-diversity F] [--mode dark|bright|both] [--json FILE]\n"
    "\n"
    "Finds the maximally stable extremal regions of IMAGE (the default picture\n"
    "when none is given), taken as grey: regions darker than their surround\n"
    "(dark pass) and brighter than it (bright pass) whose area changes little\n"
    "over N grey levels. Prints the number of regions of each pass and the time\n"
    "the detection took.\n"
    "\n"
    "options:\n"
    "  -o, --output OUT     the regions drawn over the picture, .png or .ppm, and a\n"
    "                       legend line printed: outlines in warm colours for dark\n"
    "                       regions and cool ones for bright regions, lighter for\n"
    "                       regions inside others, over the dimmed grey picture\n"
    "  --shape S            what is drawn of each region (default ellipse):\n"
    "                         ellipse  the ellipse of its second moments\n"
    "                         quad     its bounding quadrilateral of least area\n"
    "                         box      its bounding box\n"
    "                         pixels   its pixels, tinted (dark red, bright blue,\n"
    "                                  both purple)\n"
    "  --delta N            grey-level step of the stability measure, 1 to 255\n"
    "                       (default " SORN_TOOL_TEXT(SORN_MSER_DEFAULT_DELTA) ")\n"
    "  --min-area F         smallest region as a fraction of the picture, 0 to 1\n"
    "                       (default " SORN_TOOL_TEXT(SORN_MSER_DEFAULT_MINAREA) "; never fewer than 9 pixels)\n"
    "  --max-area F         largest region as a fraction of the picture, 0 to 1\n"
    "                       (default " SORN_TOOL_TEXT(SORN_MSER_DEFAULT_MAXAREA) ")\n"
    "  --max-variation F    largest relative growth over N levels, 0 or more\n"
    "                       (default " SORN_TOOL_TEXT(SORN_MSER_DEFAULT_MAXVARIATION) ")\n"
    "  --min-diversity F    of two nested regions closer than F in relative size\n"
    "                       only the outer is kept, 0 to 1 (default " SORN_TOOL_TEXT(SORN_MSER_DEFAULT_MINDIVERSITY) ")\n"
    "  --mode M             dark, bright or both (default both)\n"
    "  --json FILE          every region as JSON: pass, level, area in pixels,\n"
    "                       bounding box, centroid, ellipse (semi-axes a <= b, b at\n"
    "                       angle radians from the x axis toward y) and least-area\n"
    "                       quadrilateral; x is the column, y the row\n"
    "  -h, --help           this text\n";

namespace {

// One picked region with its measures, in picture coordinates: x the
// column, y the row. The library measures (row, column) points; the
// conversions are here.
struct Region {
  const char *pass;
  int32_t level;
  uint32_t size;
  int depth;               // picked regions around it, in its pass
  int32_t x0, y0, x1, y1;  // bounding box, inclusive
  double cx, cy;           // centroid
  double a, b, angle;      // semi-axes a <= b; b at angle from x toward y
  double quad[4][2];       // least-area quadrilateral, (x, y) corners
};

// The filter and every vector of the command are given back on every path
// out of it.
struct Vecs {
  SornFMSERFilter filter{};
  SornVec regs{}, points{}, ellipses{}, quads{}, boxes{};
  ~Vecs() {
    sorn_fmserf_destroy(&filter);
    for (SornVec *v : {&regs, &points, &ellipses, &quads, &boxes})
      if (v->items) _KuMfree(v->items);
  }
};

std::string json_string(const std::string &s) {
  std::string out = "\"";
  for (unsigned char ch : s) {
    if (ch == '"' || ch == '\\') {
      out += '\\';
      out += char(ch);
    } else if (ch < 0x20) {
      char b[8];
      std::snprintf(b, sizeof b, "\\u%04x", ch);
      out += b;
    } else {
      out += char(ch);
    }
  }
  return out + "\"";
}

void write_json(const std::string &path, const std::string &name, const Image &grey,
                const SornFMSERFilter &f, const char *mode, uint32_t dark, uint32_t bright,
                const std::vector<Region> &regions) {
  errno = 0;
  std::FILE *out = std::fopen(path.c_str(), "w");
  if (!out) input_error(path + ": cannot create: " + std::strerror(errno));
  // The filter keeps its ratios in single precision: seven digits give
  // them back as they were typed.
  std::fprintf(out, "{\n  \"image\": %s,\n  \"width\": %d,\n  \"height\": %d,\n",
               json_string(name).c_str(), grey.width, grey.height);
  std::fprintf(out,
               "  \"parameters\": {\"delta\": %u, \"min_area\": %.7g, \"max_area\": %.7g, "
               "\"max_variation\": %.7g, \"min_diversity\": %.7g, \"mode\": \"%s\"},\n",
               f.delta, double(f.minarea), double(f.maxarea), double(f.maxvariation),
               double(f.mindiversity), mode);
  std::fprintf(out, "  \"counts\": {\"dark\": %u, \"bright\": %u},\n  \"regions\": [", dark,
               bright);
  for (size_t i = 0; i < regions.size(); ++i) {
    const Region &r = regions[i];
    std::fprintf(
        out,
        "%s\n    {\"pass\": \"%s\", \"level\": %d, \"size\": %u, \"pixels\": %u, "
        "\"area\": %u, \"depth\": %d,\n     \"bbox\": {\"x\": %d, \"y\": %d, \"width\": %d, "
        "\"height\": %d},\n     \"centroid\": {\"x\": %.6g, \"y\": %.6g},\n"
        "     \"ellipse\": {\"x\": %.6g, \"y\": %.6g, \"a\": %.6g, \"b\": %.6g, "
        "\"angle\": %.6g},\n     \"quad\": [[%.6g, %.6g], [%.6g, %.6g], [%.6g, %.6g], "
        "[%.6g, %.6g]]}",
        i ? "," : "", r.pass, r.level, r.size, r.size, r.size, r.depth, r.x0, r.y0, r.x1 - r.x0 + 1,
        r.y1 - r.y0 + 1, r.cx, r.cy, r.cx, r.cy, r.a, r.b, r.angle, r.quad[0][0], r.quad[0][1],
        r.quad[1][0], r.quad[1][1], r.quad[2][0], r.quad[2][1], r.quad[3][0], r.quad[3][1]);
  }
  std::fprintf(out, "%s]\n}\n", regions.empty() ? "" : "\n  ");
  bool ok = !std::ferror(out);
  if (std::fclose(out) != 0 || !ok) input_error(path + ": cannot write: " + std::strerror(errno));
}

// ---------------------------------------------------------------- drawing

struct Rgb {
  uint8_t r, g, b;
};

// Outlines of dark regions run from red (outermost) through orange to
// yellow, of bright regions from blue through cyan to green: the pass by
// warm or cool, nesting by lightness.
Rgb colour_of(bool dark, int depth) {
  static const Rgb kDark[4] = {{230, 30, 30}, {255, 120, 0}, {255, 200, 0}, {255, 255, 120}};
  static const Rgb kBright[4] = {{40, 90, 255}, {0, 180, 255}, {0, 230, 180}, {150, 255, 150}};
  return (dark ? kDark : kBright)[depth < 3 ? depth : 3];
}

// The grey picture, dimmed and in colour, so that outlines stand out and
// the picture stays readable beneath them.
Image canvas_of(const Image &grey) {
  Image out(grey.width, grey.height, 3);
  for (size_t i = 0; i < grey.pixels.size(); ++i) {
    const uint8_t v = uint8_t(20 + grey.pixels[i] * 3 / 5);
    out.pixels[3 * i] = out.pixels[3 * i + 1] = out.pixels[3 * i + 2] = v;
  }
  return out;
}

void plot(Image &im, double x, double y, Rgb c, int width) {
  const int32_t x0 = int32_t(std::lround(x)), y0 = int32_t(std::lround(y));
  for (int dy = 0; dy < width; ++dy)
    for (int dx = 0; dx < width; ++dx) {
      const int32_t px = x0 + dx - width / 2, py = y0 + dy - width / 2;
      if (px < 0 || py < 0 || px >= im.width || py >= im.height) continue;
      im.at(py, px, 0) = c.r;
      im.at(py, px, 1) = c.g;
      im.at(py, px, 2) = c.b;
    }
}

void line(Image &im, double xa, double ya, double xb, double yb, Rgb c, int width) {
  const int steps = std::max(1, int(std::ceil(std::max(std::fabs(xb - xa), std::fabs(yb - ya)))));
  for (int i = 0; i <= steps; ++i) {
    const double t = double(i) / steps;
    plot(im, xa + (xb - xa) * t, ya + (yb - ya) * t, c, width);
  }
}

void draw_ellipse(Image &im, const Region &r, Rgb c, int width) {
  const double s = std::sin(r.angle), co = std::cos(r.angle);
  const int n = std::clamp(int(2 * 3.14159265358979 * std::max(r.b, 1.0)), 16, 4096);
  double px = 0, py = 0;
  for (int i = 0; i <= n; ++i) {
    const double t = 2 * 3.14159265358979 * i / n;
    const double u = r.b * std::cos(t), v = r.a * std::sin(t);  // along b, along a
    const double x = r.cx + u * co - v * s, y = r.cy + u * s + v * co;
    if (i) line(im, px, py, x, y, c, width);
    px = x, py = y;
  }
}

void draw_quad(Image &im, const double (*q)[2], Rgb c, int width) {
  for (int k = 0; k < 4; ++k)
    line(im, q[k][0], q[k][1], q[(k + 1) % 4][0], q[(k + 1) % 4][1], c, width);
}

// Today's tint of every pixel: dark regions towards red, bright ones
// towards blue, pixels of both purple.
Image tinted(const Image &grey, const std::vector<uint8_t> &marks) {
  Image out(grey.width, grey.height, 3);
  for (size_t i = 0; i < grey.pixels.size(); ++i) {
    int g = grey.pixels[i];
    int r = g, gg = g, b = g;
    switch (marks[i]) {
      case 1: r = (g + 3 * 230) / 4, gg = (g + 3 * 40) / 4, b = (g + 3 * 40) / 4; break;
      case 2: r = (g + 3 * 40) / 4, gg = (g + 3 * 110) / 4, b = (g + 3 * 240) / 4; break;
      case 3: r = (g + 3 * 180) / 4, gg = (g + 3 * 40) / 4, b = (g + 3 * 200) / 4; break;
      default: break;
    }
    out.pixels[3 * i] = uint8_t(r);
    out.pixels[3 * i + 1] = uint8_t(gg);
    out.pixels[3 * i + 2] = uint8_t(b);
  }
  return out;
}

const char *legend_of(const std::string &shape) {
  if (shape == "pixels")
    return "legend: pixels of dark regions tinted red, of bright regions blue, of both purple";
  if (shape == "quad")
    return "legend: least-area bounding quadrilaterals; dark regions red to yellow, bright "
           "regions blue to green, lighter inside other regions";
  if (shape == "box")
    return "legend: bounding boxes; dark regions red to yellow, bright regions blue to green, "
           "lighter inside other regions";
  return "legend: ellipses of the regions' second moments; dark regions red to yellow, bright "
         "regions blue to green, lighter inside other regions";
}

}  // namespace

int run_mser(const std::vector<std::string> &argv) {
  Args args("mser", argv,
            {{"-o", "--output", true},
             {"--shape", nullptr, true},
             {"--delta", nullptr, true},
             {"--min-area", nullptr, true},
             {"--max-area", nullptr, true},
             {"--max-variation", nullptr, true},
             {"--min-diversity", nullptr, true},
             {"--mode", nullptr, true},
             {"--json", nullptr, true}},
            1);
  if (args.help()) return print_help(kMserHelp);
  std::string outname = args.text("-o", "");
  if (!outname.empty()) format_for_output(outname);
  std::string jsonname = args.text("--json", "");
  std::string shape = args.choice("--shape", "ellipse", {"ellipse", "quad", "box", "pixels"});
  int32_t delta = int32_t(args.integer("--delta", SORN_MSER_DEFAULT_DELTA, 1, 255));
  double minarea = args.real("--min-area", SORN_MSER_DEFAULT_MINAREA, 0.0, 1.0);
  double maxarea = args.real("--max-area", SORN_MSER_DEFAULT_MAXAREA, 0.0, 1.0);
  double maxvariation = args.real("--max-variation", SORN_MSER_DEFAULT_MAXVARIATION, 0.0, 1e9);
  double mindiversity = args.real("--min-diversity", SORN_MSER_DEFAULT_MINDIVERSITY, 0.0, 1.0);
  std::string mode = args.choice("--mode", "both", {"dark", "bright", "both"});
  int32_t modeword = mode == "dark"     ? SORN_MSER_DARK
                     : mode == "bright" ? SORN_MSER_BRIGHT
                                        : SORN_MSER_BOTH;

  Input in = load_input(args.positionals(), 0);
  Image grey = to_grey(in.image);
  SornArray a = array_of(grey);

  Env env;
  Vecs v;
  __sorn_fmserfilt__$ex(&v.filter, nullptr, nullptr, delta, modeword, 0, 0, 0, nullptr, minarea,
                        maxarea, maxvariation, mindiversity);
  auto t0 = std::chrono::steady_clock::now();
  SornStatus st = SornGenerateFMSERs(env.get(), 0, &a, nullptr, &v.filter);
  auto t1 = std::chrono::steady_clock::now();
  check_status(st, "SornGenerateFMSERs");
  double ms = std::chrono::duration<double, std::milli>(t1 - t0).count();
  const SornFMSERFilter &f = v.filter;

  // Every picked region fetched once, dark ones first, with its pixels
  // (its own and those of the regions inside it), then measured.
  const uint32_t n = f.count1 + f.count2;
  if (n != 0 && uint32_t(sorn_fmserf_pixreg_$2d(&f, &v.regs, &v.points, 2)) != n)
    input_error("sorn_fmserf_pixreg_$2d: the regions could not be fetched (out of memory)");
  sorn_fwtsr_ellipse_$f2d(&v.ellipses, &v.regs);
  sorn_fwtsr_minbquad_$f2d(&v.quads, &v.regs);
  sorn_fwtsr_brect_$2d(&v.boxes, &v.regs);
  if (v.ellipses.count != n || v.quads.count != n || v.boxes.count != n)
    input_error("sorn_fwtsr_*: the regions could not be measured (out of memory)");
  const auto *recs = static_cast<const SornFwtsrPixReg *>(v.regs.items);
  const auto *ells = static_cast<const SornF2dEll *>(v.ellipses.items);
  const auto *quads = static_cast<const SornF2dQuad *>(v.quads.items);
  const auto *boxes = static_cast<const Sorn2dRect *>(v.boxes.items);
  std::vector<Region> regions;
  for (uint32_t i = 0; i < n; ++i) {
    const SornFwtsrPixReg &g = recs[i];
    Region r{};
    r.pass = i < f.count1 ? "dark" : "bright";
    r.level = g.level;
    r.size = g.size;
    for (const SornFwtsrPixReg *p = g.parent; p; p = p->parent) ++r.depth;
    // The library's first coordinate is the row.
    const Sorn2dRect &b = boxes[i];
    r.x0 = b.y, r.y0 = b.x, r.x1 = b.y + b.height, r.y1 = b.x + b.width;
    const SornF2dEll &e = ells[i];
    r.cx = e.cy, r.cy = e.cx, r.a = e.a, r.b = e.b, r.angle = e.rotation;
    for (int k = 0; k < 4; ++k) r.quad[k][0] = quads[i].q[k].y, r.quad[k][1] = quads[i].q[k].x;
    regions.push_back(r);
  }

  std::printf("image: %s, %dx%d\n", in.name.c_str(), grey.width, grey.height);
  std::printf(
      "parameters: delta %d, min-area %g, max-area %g, max-variation %g, min-diversity %g, mode "
      "%s\n",
      delta, minarea, maxarea, maxvariation, mindiversity, mode.c_str());
  if (modeword != SORN_MSER_BRIGHT) std::printf("dark regions: %u\n", f.count1);
  if (modeword != SORN_MSER_DARK) std::printf("bright regions: %u\n", f.count2);
  std::printf("time: %.3f ms\n", ms);
  if (!outname.empty()) {
    Image out;
    if (shape == "pixels") {
      std::vector<uint8_t> marks(grey.pixels.size(), 0);
      for (uint32_t i = 0; i < n; ++i)
        for (uint32_t k = 0; k < recs[i].size; ++k) {
          const Sorn2dPt &p = recs[i].pixels[k];
          marks[size_t(p.x) * size_t(grey.width) + size_t(p.y)] |= i < f.count1 ? 1 : 2;
        }
      out = tinted(grey, marks);
    } else {
      out = canvas_of(grey);
      // Lines one pixel wide up to a megapixel picture, two beyond; outer
      // regions first, so that the inner ones stay on top.
      const int width = int64_t(grey.width) * grey.height > 1200000 ? 2 : 1;
      std::vector<uint32_t> order(n);
      for (uint32_t i = 0; i < n; ++i) order[i] = i;
      std::stable_sort(order.begin(), order.end(),
                       [&](uint32_t p, uint32_t q) { return regions[p].depth < regions[q].depth; });
      for (uint32_t i : order) {
        const Region &r = regions[i];
        const Rgb c = colour_of(i < f.count1, r.depth);
        if (shape == "ellipse") {
          draw_ellipse(out, r, c, width);
        } else if (shape == "quad") {
          draw_quad(out, r.quad, c, width);
        } else {
          const double q[4][2] = {{double(r.x0), double(r.y0)},
                                  {double(r.x1), double(r.y0)},
                                  {double(r.x1), double(r.y1)},
                                  {double(r.x0), double(r.y1)}};
          draw_quad(out, q, c, width);
        }
      }
    }
    write_image(outname, out);
    std::printf("%s\n", legend_of(shape));
    std::printf("wrote %s\n", outname.c_str());
  }
  if (!jsonname.empty()) {
    write_json(jsonname, in.name, grey, f, mode.c_str(), f.count1, f.count2, regions);
    std::printf("wrote %s\n", jsonname.c_str());
  }
  return kOk;
}

}  // namespace sorn::tool
