// sorn convert: the values of a picture mapped onto a range, or by a scale
// and an offset, through SornVConvert and SornConvert.
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "cli.h"

namespace sorn::tool {

const char *const kConvertHelp =
    "usage: sorn convert [IMAGE] -o OUT [--range LO,HI | --scale S --offset O]\n"
    "\n"
    "Maps the values of the picture linearly. With --range, the picture's own\n"
    "range (its least and greatest value over all channels) goes onto LO..HI:\n"
    "--range 0,255 stretches the contrast to the whole scale. With --scale and\n"
    "--offset, the picture's range of width W becomes O .. O + W * S, moved\n"
    "back into 0..255 while it fits and clipped otherwise. With neither, the\n"
    "picture is moved so that its least value becomes 0. Without IMAGE the\n"
    "default picture is converted. Grey+alpha pictures are refused: their\n"
    "range is not measured.\n"
    "\n"
    "options:\n"
    "  -o, --output OUT  the result: .png, .pgm or .ppm (required)\n"
    "  --range LO,HI     the range to map onto (0 <= LO, HI <= 255)\n"
    "  --scale S         the slope (default 1)\n"
    "  --offset O        the value of the picture's least value (default 0)\n"
    "  -h, --help        this text\n";

namespace {

bool number(const std::string &text, double &out) {
  char *end = nullptr;
  out = std::strtod(text.c_str(), &end);
  return !text.empty() && end != nullptr && *end == '\0' && std::isfinite(out);
}

// "LO,HI" within 0..255.
SornVrng parse_range(const std::string &text) {
  std::stringstream ss(text);
  std::string lo, hi;
  double v[2];
  if (!std::getline(ss, lo, ',') || !std::getline(ss, hi) || !number(lo, v[0]) ||
      !number(hi, v[1]) || !(v[0] >= 0 && v[1] <= 255))
    usage_error("value '" + text + "' for --range: expected LO,HI within 0..255");
  return {v[0], v[1]};
}

}  // namespace

int run_convert(const std::vector<std::string> &argv) {
  Args args("convert", argv,
            {{"-o", "--output", true},
             {"--range", nullptr, true},
             {"--scale", nullptr, true},
             {"--offset", nullptr, true}},
            1);
  if (args.help()) return print_help(kConvertHelp);
  if (!args.has("-o")) usage_error("missing -o OUT");
  const bool ranged = args.has("--range");
  if (ranged && (args.has("--scale") || args.has("--offset")))
    usage_error("takes --range or --scale and --offset, not both");
  std::string outname = args.text("-o", "");
  format_for_output(outname);
  SornVrng to = ranged ? parse_range(args.text("--range", "")) : SornVrng{0, 0};
  const double scale = args.real("--scale", 1.0, -1e6, 1e6);
  const double offset = args.real("--offset", 0.0, -1e6, 1e6);

  Input a = load_input(args.positionals(), 0);
  if (a.image.channels == 2) input_error(a.name + ": is grey+alpha, whose range is not measured");
  Image out(a.image.width, a.image.height, a.image.channels);
  SornArray ra = array_of(a.image), ro = array_of(out);
  Env env;
  std::string how;
  if (ranged) {
    SornVrng ranges[4] = {to, to, to, to};
    check_status(SornVConvert(env.get(), 0, &ro, &ra, nullptr, nullptr, ranges, nullptr),
                 "SornVConvert");
    std::ostringstream os;
    os << "onto " << to.lo << ".." << to.hi;
    how = os.str();
  } else {
    const double scales[4] = {scale, scale, scale, scale};
    const double offsets[4] = {offset, offset, offset, offset};
    const bool given = args.has("--scale") || args.has("--offset");
    check_status(SornConvert(env.get(), 0, &ro, &ra, nullptr, nullptr, given ? scales : nullptr,
                             given ? offsets : nullptr, nullptr),
                 "SornConvert");
    std::ostringstream os;
    os << "scale " << scale << ", offset " << offset;
    how = os.str();
  }
  write_image(outname, out);
  std::printf("wrote %s: %dx%d %s, %s converted %s\n", outname.c_str(), out.width, out.height,
              channel_layout_name(out.channels), a.name.c_str(), how.c_str());
  return kOk;
}

}  // namespace sorn::tool
