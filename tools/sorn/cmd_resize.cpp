// sorn resize: nearest-neighbour resizing by factors or to a size.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "cli.h"

namespace sorn::tool {

const char *const kResizeHelp =
    "usage: sorn resize [IMAGE] -o OUT (--factor F | --fx FX | --fy FY | --size WxH)\n"
    "\n"
    "Resizes IMAGE by nearest neighbour and writes OUT: every output pixel is a\n"
    "copy of one input pixel, never a blend. Without IMAGE the default picture is\n"
    "resized.\n"
    "\n"
    "--factor F scales columns and rows by F; --fx and --fy scale the columns and\n"
    "the rows alone (the other stays 1, or F when --factor is given too). The\n"
    "output then has round(width * fx) columns and round(height * fy) rows,\n"
    "halves rounded to even. --size WxH asks for the output size instead, and\n"
    "the factors are the ratios of the sizes.\n"
    "\n"
    "Which input pixel: when shrinking (or keeping the size) column x / fx and\n"
    "row y / fy, rounded down; when enlarging, the column x / fx rounded to\n"
    "nearest (halves to even) and the row y / fy + 1/2 rounded down; never past\n"
    "the last. Doubling thus takes columns 0, 0, 1, 2, 2, 2, 3, 4, ... and rows\n"
    "0, 1, 1, 2, 2, ...\n"
    "\n"
    "Factors run from 0.004 to 1000: below 1/255 the library steps from one\n"
    "source column to the next in bytes that wrap. Grey and RGBA pixels move as\n"
    "they are; grey+alpha and RGB are widened to four bytes a pixel on the way,\n"
    "since the library moves pixels of 1, 4, 8, 12 or 16 bytes.\n"
    "\n"
    "options:\n"
    "  -o, --output OUT  the result: .png, .pgm or .ppm (required)\n"
    "  --factor F        the factor of both directions\n"
    "  --fx FX           the factor of the columns\n"
    "  --fy FY           the factor of the rows\n"
    "  --size WxH        the output size instead of factors\n"
    "  -h, --help        this text\n";

namespace {

constexpr double kLeastFactor = 0.004, kMostFactor = 1000.0;

// "640x480" into its two numbers, each 1 to kMaxSide.
void parse_size(const std::string &text, int32_t *w, int32_t *h) {
  const size_t x = text.find('x');
  auto number = [&](const std::string &part, int32_t *out) {
    char *end = nullptr;
    const long v = part.empty() ? -1 : std::strtol(part.c_str(), &end, 10);
    if (part.empty() || *end != '\0' || v < 1 || v > kMaxSide) return false;
    *out = (int32_t)v;
    return true;
  };
  if (x == std::string::npos || !number(text.substr(0, x), w) || !number(text.substr(x + 1), h))
    usage_error("invalid value '" + text + "' for --size: expected WxH, each from 1 to " +
                std::to_string(kMaxSide));
}

// An image of 2 or 3 channels widened to 4 (or narrowed back): the extra
// bytes are 0 and carry nothing.
Image with_channels(const Image &in, int32_t channels) {
  Image out(in.width, in.height, channels);
  const int32_t common = std::min(in.channels, channels);
  for (int32_t y = 0; y < in.height; ++y)
    for (int32_t x = 0; x < in.width; ++x)
      for (int32_t c = 0; c < common; ++c) out.at(y, x, c) = in.at(y, x, c);
  return out;
}

std::string shown(double f) {
  char b[32];
  std::snprintf(b, sizeof b, "%g", f);
  return b;
}

}  // namespace

int run_resize(const std::vector<std::string> &argv) {
  Args args("resize", argv,
            {{"-o", "--output", true},
             {"--factor", nullptr, true},
             {"--fx", nullptr, true},
             {"--fy", nullptr, true},
             {"--size", nullptr, true}},
            1);
  if (args.help()) return print_help(kResizeHelp);
  if (!args.has("-o")) usage_error("missing -o OUT");
  const std::string outname = args.text("-o", "");
  format_for_output(outname);  // a bad name fails before any work
  const bool by_size = args.has("--size");
  const bool by_factor = args.has("--factor") || args.has("--fx") || args.has("--fy");
  if (by_size && by_factor) usage_error("--size goes alone, without factors");
  if (!by_size && !by_factor) usage_error("needs --factor, --fx, --fy or --size");
  const double both = args.real("--factor", 1.0, kLeastFactor, kMostFactor);
  double fx = args.real("--fx", both, kLeastFactor, kMostFactor);
  double fy = args.real("--fy", both, kLeastFactor, kMostFactor);
  int32_t ow = 0, oh = 0;
  if (by_size) parse_size(args.text("--size", ""), &ow, &oh);

  Input in = load_input(args.positionals(), 0);
  const Image &src = in.image;
  if (by_size) {
    fx = (double)ow / src.width;
    fy = (double)oh / src.height;
    if (fx < 1.0 / 255 || fy < 1.0 / 255)
      input_error(in.name + ": " + std::to_string(src.width) + "x" + std::to_string(src.height) +
                  " to " + std::to_string(ow) + "x" + std::to_string(oh) +
                  " shrinks by more than 255 times");
  } else {
    const double w = std::nearbyint(src.width * fx), h = std::nearbyint(src.height * fy);
    if (w < 1 || h < 1)
      input_error(in.name + ": " + std::to_string(src.width) + "x" + std::to_string(src.height) +
                  " scaled by " + shown(fx) + ", " + shown(fy) + " leaves no pixel");
    if (w > kMaxSide || h > kMaxSide || w * h * src.channels > (double)kMaxBytes)
      input_error(in.name + ": " + std::to_string(src.width) + "x" + std::to_string(src.height) +
                  " scaled by " + shown(fx) + ", " + shown(fy) + " is larger than the tool makes");
    ow = (int32_t)w;
    oh = (int32_t)h;
  }

  // Pixels of two or three bytes go as four.
  const int32_t moved = src.channels == 2 || src.channels == 3 ? 4 : src.channels;
  const Image wide = moved == src.channels ? Image() : with_channels(src, moved);
  const Image &from = moved == src.channels ? src : wide;
  Image out(ow, oh, moved);
  SornArray rs = array_of(from), rd = array_of(out);
  const double factors[2] = {fy, fx};
  Env env;
  check_status(
      SornEResize(env.get(), 0, &rd, &rs, nullptr, nullptr, 0, by_size ? nullptr : factors),
      "SornEResize");
  const Image result = moved == src.channels ? out : with_channels(out, src.channels);
  write_image(outname, result);
  std::printf("wrote %s: %dx%d %s, %s (%dx%d) resized by %s across and %s down\n", outname.c_str(),
              result.width, result.height, channel_layout_name(result.channels), in.name.c_str(),
              src.width, src.height, shown(fx).c_str(), shown(fy).c_str());
  return kOk;
}

}  // namespace sorn::tool
