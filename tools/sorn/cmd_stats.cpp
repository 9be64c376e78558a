// sorn stats: sum and mean of every channel, over the whole picture and,
// with a mask, over the pixels that the mask selects.
#include "cli.h"

namespace sorn::tool {

const char *const kStatsHelp =
    "usage: sorn stats [IMAGE] [--mask MASK]\n"
    "\n"
    "Prints the sum and the mean of every channel of IMAGE (the default picture\n"
    "when none is given). With --mask, also the sum and mean over the pixels\n"
    "where MASK, a grey image of the same size, is not 0, and how many those are.\n"
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

const char *channel_name(int32_t channels, int32_t c) {
  static const char *const names[5][4] = {
      {}, {"grey"}, {"grey", "alpha"}, {"red", "green", "blue"}, {"red", "green", "blue", "alpha"}};
  return names[channels][c];
}

}  // namespace

int run_stats(const std::vector<std::string> &argv) {
  Args args("stats", argv, {{"--mask", nullptr, true}}, 1);
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
  return kOk;
}

}  // namespace sorn::tool
