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
    "usage: sorn mser [IMAGE] [-o OUT] [--delta N] [--min-area F] [--max-area F]\n"
    "                 [--max-variation F] [--min-diversity F] [--mode dark|bright|both]\n"
    "                 [--json FILE]\n"
    "\n"
    "Finds the maximally stable extremal regions of IMAGE (the default picture\n"
    "when none is given), taken as grey: regions darker than their surround\n"
    "(dark pass) and brighter than it (bright pass) whose area changes little\n"
    "over N grey levels. Prints the number of regions of each pass and the time\n"
    "the detection took.\n"
    "\n"
    "options:\n"
    "  -o, --output OUT     overlay of the regions on the grey picture, .png or\n"
    "                       .ppm: pixels of dark regions tinted red, of bright\n"
    "                       regions tinted blue, of both purple\n"
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
    "  --json FILE          every region as JSON: pass, level, size, pixel count\n"
    "                       and bounding box (x column, y row)\n"
    "  -h, --help           this text\n";

namespace {

struct Region {
  const char *pass;
  int32_t level;
  uint32_t size;
  uint64_t pixels;
  int32_t x0, y0, x1, y1;  // bounding box, inclusive
};

// The filter's results, regions and point vector are given back on every
// path out of the command.
struct FilterGuard {
  SornFMSERFilter filter{};
  SornVec points{};
  ~FilterGuard() {
    sorn_fmserf_destroy(&filter);
    if (points.items) _KuMfree(points.items);
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
    std::fprintf(out,
                 "%s\n    {\"pass\": \"%s\", \"level\": %d, \"size\": %u, \"pixels\": %llu, "
                 "\"bbox\": {\"x\": %d, \"y\": %d, \"width\": %d, \"height\": %d}}",
                 i ? "," : "", r.pass, r.level, r.size, (unsigned long long)r.pixels, r.x0, r.y0,
                 r.x1 - r.x0 + 1, r.y1 - r.y0 + 1);
  }
  std::fprintf(out, "%s]\n}\n", regions.empty() ? "" : "\n  ");
  bool ok = !std::ferror(out);
  if (std::fclose(out) != 0 || !ok) input_error(path + ": cannot write: " + std::strerror(errno));
}

// Tints: dark regions towards red, bright ones towards blue.
Image overlay(const Image &grey, const std::vector<uint8_t> &marks) {
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

}  // namespace

int run_mser(const std::vector<std::string> &argv) {
  Args args("mser", argv,
            {{"-o", "--output", true},
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
  FilterGuard g;
  __sorn_fmserfilt__$ex(&g.filter, nullptr, nullptr, delta, modeword, 0, 0, 0, nullptr, minarea,
                        maxarea, maxvariation, mindiversity);
  auto t0 = std::chrono::steady_clock::now();
  SornStatus st = SornGenerateFMSERs(env.get(), 0, &a, nullptr, &g.filter);
  auto t1 = std::chrono::steady_clock::now();
  check_status(st, "SornGenerateFMSERs");
  double ms = std::chrono::duration<double, std::milli>(t1 - t0).count();

  // Every picked region's pixels, its own and those of the regions inside.
  std::vector<Region> regions;
  std::vector<uint8_t> marks(grey.pixels.size(), 0);
  const SornFMSERFilter &f = g.filter;
  SornFWTSRegion **items = static_cast<SornFWTSRegion **>(f.regions.items);
  for (uint32_t i = 0; i < f.count1 + f.count2; ++i) {
    bool dark = i < f.count1;
    const SornFWTSRES *res = dark ? f.res1 : f.res2;
    if (!res || !res->links)
      input_error("SornGenerateFMSERs: regions without a result to read them from");
    const SornFWTSRegion *r = items[i];
    g.points.count = 0;
    sorn_fwtsr_fetchpix_$2d(&g.points, r, res->links, 0, grey.height, grey.width);
    Region out{dark ? "dark" : "bright",
               r->level,
               r->size,
               g.points.count,
               grey.width,
               grey.height,
               -1,
               -1};
    const Sorn2dPt *p = static_cast<const Sorn2dPt *>(g.points.items);
    for (uint64_t k = 0; k < g.points.count; ++k) {
      int32_t row = p[k].x, col = p[k].y;
      out.y0 = std::min(out.y0, row);
      out.y1 = std::max(out.y1, row);
      out.x0 = std::min(out.x0, col);
      out.x1 = std::max(out.x1, col);
      marks[size_t(row) * size_t(grey.width) + size_t(col)] |= dark ? 1 : 2;
    }
    if (g.points.count == 0) out.x0 = out.y0 = 0;
    regions.push_back(out);
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
    write_image(outname, overlay(grey, marks));
    std::printf("wrote %s\n", outname.c_str());
  }
  if (!jsonname.empty()) {
    write_json(jsonname, in.name, grey, f, mode.c_str(), f.count1, f.count2, regions);
    std::printf("wrote %s\n", jsonname.c_str());
  }
  return kOk;
}

}  // namespace sorn::tool
