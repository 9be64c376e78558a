// sorn filter box|min|max|gauss: a rectangular window over every channel, and
// sorn border: a frame around the picture, by the library's border kinds.
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "cli.h"

namespace sorn::tool {

const char *const kFilterHelp =
    "usage: sorn filter box|min|max|gauss [IMAGE] -o OUT [--size N|WxH] [--anchor X,Y]\n"
    "                   [--sigma S|SX,SY] [--border KIND] [--value V]\n"
    "\n"
    "Filters every channel of IMAGE (the default picture when none is given) with\n"
    "a rectangular window: box writes the window's mean (rounded to even), min its\n"
    "smallest value, max its largest. The cost of a pixel does not depend on the\n"
    "window's size. gauss smooths with a Gaussian bell centred on the anchor,\n"
    "along columns and then rows (each pass rounded), of spread SX along a row and\n"
    "SY down a column; without --sigma the spread follows the size,\n"
    "0.3 * ((size - 1) / 2 - 1) + 0.8: 0.8 for 3, 1.1 for 5.\n"
    "Near the edges the window reads the border KIND:\n"
    "  reflect101  mirrored about the edge pixel: c b | a b c (the default)\n"
    "  reflect     mirrored about the edge: b a | a b c\n"
    "  replicate   the edge pixel repeated: a a | a b c\n"
    "  wrap        the other side of the picture: b c | a b c\n"
    "  const       the value V\n"
    "\n"
    "options:\n"
    "  -o, --output OUT  the result: .png, .pgm or .ppm (required)\n"
    "  --size N|WxH      the window, columns by rows, 1 to 255 each (default 3);\n"
    "                    1x1 is the library's default window, 5x5\n"
    "  --anchor X,Y      the window's cell on the output pixel (default the centre)\n"
    "  --sigma S|SX,SY   gauss: the bell's spread along rows and columns, above 0\n"
    "                    and at most 1000 (default from the size)\n"
    "  --border KIND     reflect101, reflect, replicate, wrap or const\n"
    "  --value V         the value of a const border, 0 to 255 (default 0)\n"
    "  -h, --help        this text\n";

const char *const kBorderHelp =
    "usage: sorn border [IMAGE] -o OUT [--kind KIND] [--widths N|T,L,B,R] [--value V]\n"
    "\n"
    "Writes IMAGE (the default picture when none is given) with a border around\n"
    "it: T rows above, L columns to the left, B rows below, R columns to the\n"
    "right. Its pixels follow KIND:\n"
    "  reflect101  mirrored about the edge pixel: c b | a b c (the default)\n"
    "  reflect     mirrored about the edge: b a | a b c\n"
    "  replicate   the edge pixel repeated: a a | a b c\n"
    "  wrap        the other side of the picture: b c | a b c\n"
    "  const       the value V in every channel\n"
    "A border wider than the picture goes on with the same period.\n"
    "\n"
    "options:\n"
    "  -o, --output OUT   the result: .png, .pgm or .ppm (required)\n"
    "  --kind KIND        reflect101, reflect, replicate, wrap or const\n"
    "  --widths N|T,L,B,R the border's widths, 0 to 4096 each (default 2)\n"
    "  --value V          the value of a const border, 0 to 255 (default 0)\n"
    "  -h, --help         this text\n";

namespace {

const std::vector<std::string> kKindNames = {"reflect101", "reflect", "replicate", "wrap", "const"};

int32_t kind_of(const std::string &name) {
  if (name == "reflect") return SORN_BORDER_REFLECT;
  if (name == "replicate") return SORN_BORDER_REPLICATE;
  if (name == "wrap") return SORN_BORDER_WRAP;
  if (name == "const") return SORN_BORDER_CONST;
  return SORN_BORDER_REFLECT101;
}

SornBrShape border_of(int32_t top, int32_t left, int32_t bottom, int32_t right, double value) {
  SornBrShape b;
  std::memset(&b, 0, sizeof b);
  b.lo[1] = -top;
  b.lo[2] = -left;
  b.hi[1] = bottom;
  b.hi[2] = right;
  for (double &f : b.fill) f = value;
  return b;
}

// The spreads of --sigma: S, or SX,SY, each above 0 and at most 1000.
std::vector<double> spreads(const std::string &text) {
  std::vector<double> out;
  size_t at = 0;
  while (true) {
    const size_t end = text.find(',', at);
    const std::string part =
        text.substr(at, end == std::string::npos ? std::string::npos : end - at);
    char *stop = nullptr;
    const double v = std::strtod(part.c_str(), &stop);
    if (part.empty() || *stop != '\0' || !(v > 0.0 && v <= 1000.0))
      usage_error("--sigma: '" + text + "' is not S or SX,SY with each above 0 and at most 1000");
    out.push_back(v);
    if (end == std::string::npos) break;
    at = end + 1;
  }
  if (out.size() == 1) out.push_back(out[0]);
  if (out.size() != 2) usage_error("--sigma: '" + text + "' is not S or SX,SY");
  return out;
}

}  // namespace

int run_filter(const std::vector<std::string> &argv) {
  Args args("filter", argv,
            {kOutputOption, valued("--size"), valued("--anchor"), valued("--sigma"),
             valued("--border"), valued("--value")},
            2);
  if (args.help()) return print_help(kFilterHelp);
  if (args.positionals().empty()) usage_error("missing the filter: box, min, max or gauss");
  const std::string which = args.positionals()[0];
  int32_t kind = 0;
  if (which == "box") kind = SORN_FILTER_BOX;
  if (which == "min") kind = SORN_FILTER_MIN;
  if (which == "max") kind = SORN_FILTER_MAX;
  const bool gauss = which == "gauss";
  if (kind == 0 && !gauss) usage_error("unknown filter '" + which + "' (box, min, max or gauss)");
  if (args.has("--sigma") && !gauss) usage_error("--sigma is for gauss only");
  // Rows first, as the library takes them; none given: from the size.
  double sigmas[2] = {0, 0};
  if (args.has("--sigma")) {
    const std::vector<double> sx_sy = spreads(args.text("--sigma", ""));
    sigmas[0] = sx_sy[1];
    sigmas[1] = sx_sy[0];
  }
  if (!args.has("-o")) usage_error("missing -o OUT");
  const std::string outname = args.text("-o", "");
  format_for_output(outname);
  const std::string size = args.text("--size", "3");
  std::vector<int64_t> wh =
      whole_numbers("--size", size, size.find('x') != std::string::npos ? 'x' : ',', 1, 255);
  if (wh.size() == 1) wh.push_back(wh[0]);
  if (wh.size() != 2) usage_error("--size: '" + size + "' is not N or WxH");
  const int32_t w = int32_t(wh[0]), h = int32_t(wh[1]);
  std::vector<int64_t> anchor = {w / 2, h / 2};
  if (args.has("--anchor")) {
    anchor = whole_numbers("--anchor", args.text("--anchor", ""), ',', 0, 254);
    if (anchor.size() != 2 || anchor[0] >= w || anchor[1] >= h)
      usage_error("--anchor: '" + args.text("--anchor", "") + "' is not X,Y inside the window");
  }
  const std::string bname = args.choice("--border", "reflect101", kKindNames);
  const int32_t border = kind_of(bname);
  const double value = double(args.integer("--value", 0, 0, 255));

  std::vector<std::string> rest(args.positionals().begin() + 1, args.positionals().end());
  Input in = load_input(rest, 0);
  const Image &src = in.image;
  SornSeShape se;
  std::memset(&se, 0, sizeof se);
  se.size[0] = 1;
  se.size[1] = h;
  se.size[2] = w;
  se.anchor[1] = int32_t(anchor[1]);
  se.anchor[2] = int32_t(anchor[0]);
  // A 1x1 window is the library's 5x5 default: the margin follows it.
  const int32_t ew = (w == 1 && h == 1) ? 5 : w, eh = (w == 1 && h == 1) ? 5 : h;
  const int32_t ax = (w == 1 && h == 1) ? 2 : se.anchor[2],
                ay = (w == 1 && h == 1) ? 2 : se.anchor[1];

  Env env;
  auto filter = [&](const SornArray *d, const SornArray *s) {
    if (gauss)
      check_status(SornGaussianFilter(env.get(), 0, d, s, nullptr, nullptr, &se, sigmas),
                   "SornGaussianFilter");
    else
      check_status(SornFilter(env.get(), 0, d, s, nullptr, nullptr, kind, &se), "SornFilter");
  };
  Image out(src.width, src.height, src.channels);
  for (int32_t c = 0; c < src.channels; ++c) {
    const Image plane = src.channels == 1 ? src : channel_plane(src, c);
    Image result(src.width, src.height, 1);
    SornArray d = array_of(result);
    if (border == SORN_BORDER_REFLECT101) {
      SornArray s = array_of(plane);
      filter(&d, &s);
    } else {
      // The plane with the border the window reaches, then the filter of the
      // plane inside it: the window reads the border as real pixels.
      const int32_t top = ay, left = ax, bottom = eh - 1 - ay, right = ew - 1 - ax;
      Image framed(src.width + left + right, src.height + top + bottom, 1);
      SornArray f = array_of(framed), s = array_of(plane);
      const SornBrShape b = border_of(top, left, bottom, right, value);
      check_status(SornCopyMkb(env.get(), 0, &f, &s, nullptr, nullptr, border, &b), "SornCopyMkb");
      SornArray inner = f;
      inner.dims[1] = src.height;
      inner.dims[2] = src.width;
      inner.offset = int64_t(top) * f.strides[1] + int64_t(left) * f.strides[2];
      filter(&d, &inner);
    }
    if (src.channels == 1)
      out = result;
    else
      put_channel(out, result, c);
  }
  write_image(outname, out);
  std::printf("wrote %s: %dx%d %s, %s %dx%d anchor %d,%d, border %s\n", outname.c_str(), out.width,
              out.height, channel_layout_name(out.channels), which.c_str(), ew, eh, ax, ay,
              bname.c_str());
  return kOk;
}

int run_border(const std::vector<std::string> &argv) {
  Args args("border", argv,
            {kOutputOption, valued("--kind"), valued("--widths"), valued("--value")}, 1);
  if (args.help()) return print_help(kBorderHelp);
  if (!args.has("-o")) usage_error("missing -o OUT");
  const std::string outname = args.text("-o", "");
  format_for_output(outname);
  const std::string kname = args.choice("--kind", "reflect101", kKindNames);
  std::vector<int64_t> wd = whole_numbers("--widths", args.text("--widths", "2"), ',', 0, 4096);
  if (wd.size() == 1) wd.assign(4, wd[0]);
  if (wd.size() != 4)
    usage_error("--widths: '" + args.text("--widths", "") + "' is not N or T,L,B,R");
  const double value = double(args.integer("--value", 0, 0, 255));

  Input in = load_input(args.positionals(), 0);
  const Image &src = in.image;
  const int32_t top = int32_t(wd[0]), left = int32_t(wd[1]), bottom = int32_t(wd[2]),
                right = int32_t(wd[3]);
  if (int64_t(src.width) + left + right > kMaxSide || int64_t(src.height) + top + bottom > kMaxSide)
    usage_error("--widths: the result would be larger than " + std::to_string(kMaxSide) +
                " pixels a side");
  Image out(src.width + left + right, src.height + top + bottom, src.channels);
  SornArray d = array_of(out), s = array_of(src);
  const SornBrShape b = border_of(top, left, bottom, right, value);
  Env env;
  check_status(SornCopyMkb(env.get(), 0, &d, &s, nullptr, nullptr, kind_of(kname), &b),
               "SornCopyMkb");
  write_image(outname, out);
  std::printf("wrote %s: %dx%d %s, %s border %d,%d,%d,%d around %s\n", outname.c_str(), out.width,
              out.height, channel_layout_name(out.channels), kname.c_str(), top, left, bottom,
              right, in.name.c_str());
  return kOk;
}

}  // namespace sorn::tool
