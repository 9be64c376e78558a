// sorn threshold: a black-and-white picture from the grey of an image, by a
// fixed threshold, Otsu's, Otsu's on a flattened picture, or the local mean.
#include <cmath>
#include <cstring>

#include "cli.h"

namespace sorn::tool {

const char *const kThresholdHelp =
    "usage: sorn threshold [IMAGE] -o OUT [--value T | --otsu | --usto | --blur N]\n"
    "\n"
    "Writes OUT, a grey picture of the luminance of IMAGE (the default picture\n"
    "when none is given) in which every pixel below the threshold is 0 and every\n"
    "other pixel is 255, and prints the threshold it used. Without a method\n"
    "option the threshold is Otsu's.\n"
    "\n"
    "methods:\n"
    "  --value T   a fixed threshold T (0 to 255, fractions allowed)\n"
    "  --otsu      Otsu's threshold of the picture's 256-bin histogram\n"
    "  --usto      Otsu's threshold of the picture with its slow background\n"
    "              taken out (the picture plus its mean, less its 5x5 box mean)\n"
    "  --blur N    each pixel against the mean of the N by N box around it\n"
    "              (N odd, 3 to 255)\n"
    "\n"
    "options:\n"
    "  -o, --output OUT  the result: .png, .pgm or .ppm (required)\n"
    "  -h, --help        this text\n";

namespace {

SornThresholdSpec spec_of(uint32_t method) {
  SornThresholdSpec s;
  std::memset(&s, 0, sizeof s);
  s.method = method;
  for (SornVrng &r : s.vrng) r = SornVrng{NAN, 0.0};
  return s;
}

SornThresholdCriterion condition(uint32_t op, double t, double v) {
  SornThresholdCriterion c;
  std::memset(&c, 0, sizeof c);
  c.op = op;
  for (int k = 0; k < 4; ++k) {
    c.thresh[k] = t;
    c.value[k] = v;
  }
  return c;
}

// The comparison rounds a threshold to the nearest 8-bit value (ties to
// even): what lies below that integer is black.
std::string effective(const char *how, double t) {
  char text[128];
  std::snprintf(text, sizeof text, "threshold %.7g (%s): values below %d are black", t, how,
                (int)std::nearbyint(t));
  return text;
}

}  // namespace

int run_threshold(const std::vector<std::string> &argv) {
  Args args("threshold", argv,
            {{"-o", "--output", true},
             {"--value", nullptr, true},
             {"--otsu", nullptr, false},
             {"--usto", nullptr, false},
             {"--blur", nullptr, true}},
            1);
  if (args.help()) return print_help(kThresholdHelp);
  const int methods = int(args.has("--value")) + int(args.has("--otsu")) + int(args.has("--usto")) +
                      int(args.has("--blur"));
  if (methods > 1) usage_error("give one of --value, --otsu, --usto and --blur");
  if (!args.has("-o")) usage_error("missing -o OUT");
  const std::string outname = args.text("-o", "");
  format_for_output(outname);  // a bad name fails before any work
  const double value = args.real("--value", 128.0, 0.0, 255.0);
  const int64_t box = args.integer("--blur", 5, 3, 255);
  if (box % 2 == 0) usage_error("--blur: the box size must be odd, not " + std::to_string(box));

  Input in = load_input(args.positionals(), 0);
  const Image grey = to_grey(in.image);
  Image out(grey.width, grey.height, 1);
  SornArray src = array_of(grey), dst = array_of(out);
  Env env;
  std::string used;
  if (args.has("--value")) {
    // Below the value 0, at or above it 255: two conditions, one pass.
    const SornThresholdCriterion c[2] = {condition(SORN_CMP_LT, value, 0),
                                         condition(SORN_CMP_GE, value, 255)};
    check_status(SornThreshold(env.get(), 0, &dst, &src, nullptr, nullptr, nullptr, c, 2),
                 "SornThreshold");
    used = effective("fixed", value);
  } else if (args.has("--usto")) {
    const SornThresholdSpec s = spec_of(SORN_THH_USTO | SORN_THH_DEFAULTS);
    check_status(SornThreshold(env.get(), 0, &dst, &src, nullptr, nullptr, &s, nullptr, 0),
                 "SornThreshold");
    used = "threshold: Otsu's of the flattened picture";
  } else if (args.has("--blur")) {
    SornThresholdSpec s = spec_of(SORN_THH_BLUR);
    const int32_t n = int32_t(box), a = int32_t(box / 2);
    const SornVolume window = {{0, a, a, 0}, {1, n, n, 0}};
    std::memcpy(s.vrng, &window, sizeof window);
    check_status(SornThreshold(env.get(), 0, &dst, &src, nullptr, nullptr, &s, nullptr, 0),
                 "SornThreshold");
    used = "threshold: the mean of the " + std::to_string(n) + "x" + std::to_string(n) +
           " box around each pixel";
  } else {
    double t = 0;
    check_status(SornComputeThresholdByOtsu(env.get(), 0, &src, nullptr, &t, nullptr, nullptr),
                 "SornComputeThresholdByOtsu");
    const SornThresholdSpec s = spec_of(SORN_THH_OTSU);
    check_status(SornThreshold(env.get(), 0, &dst, &src, nullptr, nullptr, &s, nullptr, 0),
                 "SornThreshold");
    used = effective("Otsu", t);
  }
  write_image(outname, out);
  int64_t white = 0;
  for (uint8_t p : out.pixels) white += p != 0;
  std::printf("%s\n", used.c_str());
  std::printf("wrote %s: %dx%d grey from %s, %lld of %lld pixels white\n", outname.c_str(),
              out.width, out.height, in.name.c_str(), (long long)white,
              (long long)out.pixels.size());
  return kOk;
}

}  // namespace sorn::tool
