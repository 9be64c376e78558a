// sorn stats: sum, mean, minimum and maximum with their places of every
// channel, over the whole picture and, with a mask, over the pixels that the
// mask selects.
#include <cstring>

#include "cli.h"

namespace sorn::tool {

const char *const kStatsHelp =
    "usage: sorn stats [IMAGE] [--mask MASK]\n"
    "\n"
    "Prints the sum and the mean of every channel of IMAGE (the default picture\n"
    "when none is given), then its least and greatest value with the place (x, y)\n"
    "where each first occurs, row by row from the top. With --mask, also the sum,\n"
    "mean, least and greatest value over the pixels where MASK, a grey image of\n"
    "the same size, is not 0, and how many those are.\n"
    "\n"
    "options:\n"
    "  --mask MASK   grey PNG, PGM or PPM of the same size as IMAGE\n"
    "  -h, --help    this text\n";

namespace {

struct Columns {
  std::vector<double> sums, means;
  int64_t selected = -1;  // pixels under the mask; -1 without one
};

// Runs the sum and the mean; channel words 1, 3 and 4 have kernels of their
// own, other counts go plane by plane.
Columns measure(Env &env, const Image &image, const Image *mask) {
  Columns out;
  out.sums.assign(size_t(image.channels), 0.0);
  out.means.assign(size_t(image.channels), 0.0);
  SornArray m{};
  if (mask) m = array_of(*mask);
  auto run = [&](const Image &part, double *sums, double *means) {
    SornArray a = array_of(part);
    if (!mask) {
      check_status(SornSum(env.get(), 0, &a, nullptr, sums), "SornSum");
      check_status(SornMean(env.get(), 0, &a, nullptr, means), "SornMean");
      return;
    }
    SornStatus counted = SornSumEx(env.get(), SORN_F_SUM_COUNT, &a, &m, nullptr, nullptr, sums);
    check_status(counted, "SornSumEx");
    SornStatus selected = SornMeanEx(env.get(), 0, &a, &m, nullptr, nullptr, means);
    check_status(selected, "SornMeanEx");
    out.selected = selected;
  };
  if (image.channels == 2) {
    for (int32_t c = 0; c < image.channels; ++c) {
      run(channel_plane(image, c), &out.sums[size_t(c)], &out.means[size_t(c)]);
    }
  } else {
    run(image, out.sums.data(), out.means.data());
  }
  return out;
}

// The least and greatest value of each channel and where each first
// occurs. One-channel searches under a mask, and two-channel images, go
// plane by plane.
struct Extreme {
  bool found = false;  // false for a mask that selects nothing
  int32_t min = 0, max = 0;
  int32_t min_x = 0, min_y = 0, max_x = 0, max_y = 0;
};

std::vector<Extreme> extremes(Env &env, const Image &image, const Image *mask) {
  std::vector<Extreme> out(size_t(image.channels));
  SornArray m{};
  if (mask) m = array_of(*mask);
  auto run = [&](const Image &part, Extreme *e) {
    SornArray a = array_of(part);
    SornMinmaxRec r;
    std::memset(&r, 0, sizeof r);
    r.what = SORN_MINMAX_POSITIONS | SORN_MINMAX_MINCOL | SORN_MINMAX_MAXCOL;
    SornStatus st = mask ? SornMinmaxEx(env.get(), 0, &a, &m, nullptr, nullptr, &r)
                         : SornMinmax(env.get(), 0, &a, nullptr, &r);
    if (mask && st == SORN_ENOSPC) return;  // nothing selected
    check_status(st, mask ? "SornMinmaxEx" : "SornMinmax");
    for (int32_t c = 0; c < part.channels; ++c)
      e[c] = Extreme{true,         r.min[c].ivalue, r.max[c].ivalue, r.min[c].col,
                     r.min[c].row, r.max[c].col,    r.max[c].row};
  };
  if (mask || image.channels == 2) {
    for (int32_t c = 0; c < image.channels; ++c)
      run(image.channels == 1 ? image : channel_plane(image, c), &out[size_t(c)]);
  } else {
    run(image, out.data());
  }
  return out;
}

const char *channel_name(int32_t channels, int32_t c) {
  static const char *const names[5][4] = {
      {}, {"grey"}, {"grey", "alpha"}, {"red", "green", "blue"}, {"red", "green", "blue", "alpha"}};
  return names[channels][c];
}

}  // namespace

int run_stats(const std::vector<std::string> &argv) {
  Args args("stats", argv, {valued("--mask")}, 1);
  if (args.help()) return print_help(kStatsHelp);
  Input in = load_input(args.positionals(), 0);
  const Image &image = in.image;

  Image mask;
  const Image *maskp = nullptr;
  std::string maskname;
  if (args.has("--mask")) {
    maskname = args.text("--mask", "");
    mask = read_image(maskname);
    if (mask.width != image.width || mask.height != image.height) {
      input_error(maskname + ": mask is " + std::to_string(mask.width) + "x" +
                  std::to_string(mask.height) + " but the image is " + std::to_string(image.width) +
                  "x" + std::to_string(image.height));
    }
    if (mask.channels > 2) {
      input_error(maskname + ": mask must be a grey image, this one is " +
                  channel_layout_name(mask.channels));
    }
    if (mask.channels == 2) mask = channel_plane(mask, 0);
    maskp = &mask;
  }

  Env env;
  Columns whole = measure(env, image, nullptr);
  Columns masked;
  if (maskp) masked = measure(env, image, maskp);

  int64_t pixels = int64_t(image.width) * image.height;
  std::printf("image: %s, %dx%d %s, %lld pixels\n", in.name.c_str(), image.width, image.height,
              channel_layout_name(image.channels), (long long)pixels);
  if (maskp) {
    std::printf("mask: %s, %lld of %lld pixels selected\n", maskname.c_str(),
                (long long)masked.selected, (long long)pixels);
    std::printf("%-8s %14s %12s %14s %12s\n", "channel", "sum", "mean", "masked sum",
                "masked mean");
  } else {
    std::printf("%-8s %14s %12s\n", "channel", "sum", "mean");
  }
  for (int32_t c = 0; c < image.channels; ++c) {
    std::printf("%-8s %14.0f %12.4f", channel_name(image.channels, c), whole.sums[size_t(c)],
                whole.means[size_t(c)]);
    if (maskp) std::printf(" %14.0f %12.4f", masked.sums[size_t(c)], masked.means[size_t(c)]);
    std::printf("\n");
  }
  if (maskp && masked.selected == 0) std::printf("the mask selects no pixel: masked means are 0\n");

  const std::vector<Extreme> whole_ext = extremes(env, image, nullptr);
  std::vector<Extreme> masked_ext;
  if (maskp) masked_ext = extremes(env, image, maskp);
  auto place = [](int32_t x, int32_t y) {
    char text[32];
    std::snprintf(text, sizeof text, "(%d,%d)", (int)x, (int)y);
    return std::string(text);
  };
  std::printf("%-8s %5s %-11s %5s %-11s", "channel", "min", "at (x,y)", "max", "at (x,y)");
  if (maskp)
    std::printf(" %10s %-11s %10s %-11s", "masked min", "at (x,y)", "masked max", "at (x,y)");
  std::printf("\n");
  for (int32_t c = 0; c < image.channels; ++c) {
    const Extreme &e = whole_ext[size_t(c)];
    std::printf("%-8s %5d %-11s %5d %-11s", channel_name(image.channels, c), e.min,
                place(e.min_x, e.min_y).c_str(), e.max, place(e.max_x, e.max_y).c_str());
    if (maskp) {
      const Extreme &k = masked_ext[size_t(c)];
      if (k.found)
        std::printf(" %10d %-11s %10d %-11s", k.min, place(k.min_x, k.min_y).c_str(), k.max,
                    place(k.max_x, k.max_y).c_str());
      else
        std::printf(" %10s %-11s %10s %-11s", "-", "", "-", "");
    }
    std::printf("\n");
  }
  return kOk;
}

}  // namespace sorn::tool
