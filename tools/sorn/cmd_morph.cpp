// sorn morph erode|dilate|open|close|tophat|blackhat: morphology of every
// channel with a rectangle or a disc.
#include <cstdlib>
#include <cstring>

#include "cli.h"

namespace sorn::tool {

const char *const kMorphHelp =
    "usage: sorn morph erode|dilate|open|close|tophat|blackhat [IMAGE] -o OUT\n"
    "                  [--shape rect|disc] [--size N|WxH]\n"
    "\n"
    "Morphology of every channel of IMAGE (the default picture when none is given)\n"
    "with a flat structuring element centred on each pixel:\n"
    "  erode     the smallest value under the element\n"
    "  dilate    the largest value under the element\n"
    "  open      erosion, then dilation of its result: removes bright details\n"
    "            smaller than the element\n"
    "  close     dilation, then erosion: fills dark details smaller than it\n"
    "  tophat    the picture less its opening: the bright details alone\n"
    "  blackhat  the closing less the picture: the dark details alone\n"
    "Near the edges the element reads the picture mirrored about the edge pixel\n"
    "(c b | a b c); the second pass of a chain sees the first pass's results only.\n"
    "A rectangle costs the same whatever its size; a disc costs in proportion to\n"
    "its cells.\n"
    "\n"
    "options:\n"
    "  -o, --output OUT  the result: .png, .pgm or .ppm (required)\n"
    "  --shape rect|disc the element: a rectangle, or the ellipse inscribed in the\n"
    "                    box (the cells whose centres lie inside it); default rect\n"
    "  --size N|WxH      the element's box, columns by rows, 1 to 255 each\n"
    "                    (default 3); 1x1 is a copy\n"
    "  -h, --help        this text\n";

namespace {

struct Operation {
  const char *name;
  int32_t kind;
};
const Operation kOperations[] = {
    {"erode", SORN_MORPH_ERODE}, {"dilate", SORN_MORPH_DILATE}, {"open", SORN_MORPH_OPEN},
    {"close", SORN_MORPH_CLOSE}, {"tophat", SORN_MORPH_TOPHAT}, {"blackhat", SORN_MORPH_BOTHAT},
};

// N or WxH, each 1 to 255.
void box_of(const std::string &text, int32_t *w, int32_t *h) {
  const size_t x = text.find('x');
  const std::string a = text.substr(0, x), b = x == std::string::npos ? a : text.substr(x + 1);
  char *ea = nullptr, *eb = nullptr;
  const long wv = std::strtol(a.c_str(), &ea, 10), hv = std::strtol(b.c_str(), &eb, 10);
  if (a.empty() || b.empty() || *ea != '\0' || *eb != '\0' || wv < 1 || wv > 255 || hv < 1 ||
      hv > 255)
    usage_error("--size: '" + text + "' is not N or WxH with sides from 1 to 255");
  *w = int32_t(wv);
  *h = int32_t(hv);
}

}  // namespace

int run_morph(const std::vector<std::string> &argv) {
  Args args("morph", argv, {kOutputOption, valued("--shape"), valued("--size")}, 2);
  if (args.help()) return print_help(kMorphHelp);
  if (args.positionals().empty())
    usage_error("missing the operation: erode, dilate, open, close, tophat or blackhat");
  const std::string which = args.positionals()[0];
  int32_t kind = -1;
  for (const Operation &op : kOperations)
    if (which == op.name) kind = op.kind;
  if (kind < 0)
    usage_error("unknown operation '" + which +
                "' (erode, dilate, open, close, tophat or blackhat)");
  if (!args.has("-o")) usage_error("missing -o OUT");
  const std::string outname = args.text("-o", "");
  format_for_output(outname);
  const std::string shape = args.choice("--shape", "rect", {"rect", "disc"});
  int32_t w = 3, h = 3;
  box_of(args.text("--size", "3"), &w, &h);

  // The mask: every cell of a rectangle, or the cells of a disc, whose
  // centres (2j - (w - 1), 2i - (h - 1)) in half cells lie in the ellipse of
  // half-axes w and h.
  std::vector<uint8_t> cells(size_t(w) * size_t(h), 255);
  if (shape == "disc")
    for (int32_t i = 0; i < h; ++i)
      for (int32_t j = 0; j < w; ++j) {
        const int64_t dy = 2 * i - (h - 1), dx = 2 * j - (w - 1);
        const int64_t ww = int64_t(w) * w, hh = int64_t(h) * h;
        cells[size_t(i) * w + j] = dy * dy * ww + dx * dx * hh <= ww * hh ? 255 : 0;
      }
  SornStrel strel;
  std::memset(&strel, 0, sizeof strel);
  strel.anchor[1] = h / 2;
  strel.anchor[2] = w / 2;
  strel.mask = array_of(cells.data(), h, w, 1, SORN_U8, w);

  std::vector<std::string> rest(args.positionals().begin() + 1, args.positionals().end());
  Input in = load_input(rest, 0);
  const Image &src = in.image;
  Env env;
  Image out(src.width, src.height, src.channels);
  // Channel by channel: a masked window walks the elements of a row.
  for (int32_t c = 0; c < src.channels; ++c) {
    const Image plane = src.channels == 1 ? src : channel_plane(src, c);
    Image result(src.width, src.height, 1);
    SornArray d = array_of(result), s = array_of(plane);
    check_status(SornMorphop(env.get(), 0, &d, &s, nullptr, nullptr, kind, &strel), "SornMorphop");
    if (src.channels == 1)
      out = result;
    else
      put_channel(out, result, c);
  }
  write_image(outname, out);
  std::printf("wrote %s: %dx%d %s, %s %s %dx%d\n", outname.c_str(), out.width, out.height,
              channel_layout_name(out.channels), which.c_str(), shape.c_str(), w, h);
  return kOk;
}

}  // namespace sorn::tool
