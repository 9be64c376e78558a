// sorn hist: the 256-bin histogram of every channel, as a table and as a
// bar plot.
#include <algorithm>
#include <memory>

#include "cli.h"

namespace sorn::tool {

const char *const kHistHelp =
    "usage: sorn hist [IMAGE] [-o PLOT]\n"
    "\n"
    "Counts the values 0 to 255 of every channel of IMAGE (the default picture\n"
    "when none is given) and prints, per channel, the pixel count, the least and\n"
    "the greatest value, the most frequent one and the counts of all 256 values,\n"
    "eight to a line; lines of zeros are left out.\n"
    "\n"
    "With -o, also draws the histograms as a bar plot: one panel per channel,\n"
    "stacked from top to bottom, each scaled to its own highest count. The plot\n"
    "is 528 pixels wide and 8 + 136 per channel high.\n"
    "\n"
    "options:\n"
    "  -o, --output PLOT  bar plot: .png, .pgm or .ppm\n"
    "  -h, --help         this text\n";

namespace {

constexpr int32_t kBins = 256;
// Plot geometry: a margin around panels of two pixels per bin.
constexpr int32_t kMargin = 8;
constexpr int32_t kPanelHeight = 128;
constexpr int32_t kPlotWidth = 2 * kBins + 2 * kMargin;

const char *channel_name(int32_t channels, int32_t c) {
  static const char *const names[5][4] = {
      {}, {"grey"}, {"grey", "alpha"}, {"red", "green", "blue"}, {"red", "green", "blue", "alpha"}};
  return names[channels][c];
}

// Histogram records own their counters; this gives them back on every path.
struct HistGuard {
  std::vector<SornHist> hists;
  explicit HistGuard(size_t n) : hists(n) {}
  ~HistGuard() {
    for (SornHist &h : hists) sorn_hist_fini(&h);
  }
};

std::vector<std::vector<uint32_t>> count(const Image &image) {
  Env env;
  HistGuard guard(size_t(image.channels));
  std::vector<std::vector<uint32_t>> out;
  // Only one-channel images are counted by the library: each channel goes
  // in as a plane of its own.
  for (int32_t c = 0; c < image.channels; ++c) {
    Image plane = image.channels == 1 ? image : channel_plane(image, c);
    SornHistInit init{SORN_U8, kBins, 0.0, 255.0, 1, plane.height, plane.width};
    SornHist &h = guard.hists[size_t(c)];
    check_status(__sorn_histogram__$ia(&h, &init), "histogram set-up");
    SornArray a = array_of(plane);
    check_status(SornHistogram(env.get(), 0, &a, nullptr, 0, &h), "SornHistogram");
    out.emplace_back(h.counts, h.counts + kBins);
  }
  return out;
}

void print_table(const Image &image, const std::vector<std::vector<uint32_t>> &counts) {
  for (int32_t c = 0; c < image.channels; ++c) {
    const std::vector<uint32_t> &h = counts[size_t(c)];
    uint64_t total = 0;
    int lo = -1, hi = -1, mode = 0;
    for (int v = 0; v < kBins; ++v) {
      total += h[size_t(v)];
      if (h[size_t(v)]) {
        if (lo < 0) lo = v;
        hi = v;
      }
      if (h[size_t(v)] > h[size_t(mode)]) mode = v;
    }
    std::printf("channel %s: %llu pixels, min %d, max %d, mode %d (%u pixels)\n",
                channel_name(image.channels, c), (unsigned long long)total, lo, hi, mode,
                h[size_t(mode)]);
    for (int v = 0; v < kBins; v += 8) {
      bool any = false;
      for (int k = 0; k < 8; ++k) any = any || h[size_t(v + k)];
      if (!any) continue;
      std::printf("  %3d:", v);
      for (int k = 0; k < 8; ++k) std::printf(" %7u", h[size_t(v + k)]);
      std::printf("\n");
    }
  }
}

Image plot(const Image &image, const std::vector<std::vector<uint32_t>> &counts) {
  int32_t height = kMargin + image.channels * (kPanelHeight + kMargin);
  Image out(kPlotWidth, height, 3, 255);
  static const uint8_t colours[5][4][3] = {
      {},
      {{70, 70, 70}},
      {{70, 70, 70}, {150, 110, 40}},
      {{200, 40, 40}, {40, 150, 40}, {40, 70, 200}},
      {{200, 40, 40}, {40, 150, 40}, {40, 70, 200}, {150, 110, 40}}};
  for (int32_t c = 0; c < image.channels; ++c) {
    const std::vector<uint32_t> &h = counts[size_t(c)];
    uint32_t peak = std::max<uint32_t>(1, *std::max_element(h.begin(), h.end()));
    int32_t top = kMargin + c * (kPanelHeight + kMargin);
    int32_t base = top + kPanelHeight - 1;
    // A light panel with tick marks every 32 values along the base line.
    for (int32_t y = top; y <= base; ++y) {
      for (int32_t x = kMargin; x < kMargin + 2 * kBins; ++x) {
        for (int k = 0; k < 3; ++k) out.at(y, x, k) = 244;
      }
    }
    for (int32_t x = kMargin; x < kMargin + 2 * kBins; ++x) {
      for (int k = 0; k < 3; ++k) out.at(base, x, k) = 0;
    }
    for (int32_t v = 0; v <= kBins; v += 32) {
      int32_t x = std::min(kMargin + 2 * v, kMargin + 2 * kBins - 1);
      for (int32_t y = base - 3; y < base; ++y) {
        for (int k = 0; k < 3; ++k) out.at(y, x, k) = 0;
      }
    }
    for (int32_t v = 0; v < kBins; ++v) {
      if (!h[size_t(v)]) continue;
      // Any non-zero count shows as at least one pixel.
      int32_t bar =
          std::max<int32_t>(1, int32_t(uint64_t(h[size_t(v)]) * (kPanelHeight - 1) / peak));
      for (int32_t y = base - bar; y < base; ++y) {
        for (int32_t x = kMargin + 2 * v; x < kMargin + 2 * v + 2; ++x) {
          for (int k = 0; k < 3; ++k) out.at(y, x, k) = colours[image.channels][c][k];
        }
      }
    }
  }
  return out;
}

}  // namespace

int run_hist(const std::vector<std::string> &argv) {
  Args args("hist", argv, {kOutputOption}, 1);
  if (args.help()) return print_help(kHistHelp);
  std::string plotname = args.text("-o", "");
  if (!plotname.empty()) format_for_output(plotname);
  Input in = load_input(args.positionals(), 0);
  std::vector<std::vector<uint32_t>> counts = count(in.image);
  std::printf("image: %s, %dx%d %s\n", in.name.c_str(), in.image.width, in.image.height,
              channel_layout_name(in.image.channels));
  print_table(in.image, counts);
  if (!plotname.empty()) {
    Image p = plot(in.image, counts);
    write_image(plotname, p);
    std::printf("wrote %s: %dx%d bar plot\n", plotname.c_str(), p.width, p.height);
  }
  return kOk;
}

}  // namespace sorn::tool
