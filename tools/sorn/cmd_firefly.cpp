// sorn firefly: three views of the picture mixed by integer weights, by the
// firefly filter's kinds, every channel on its own.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "cli.h"

namespace sorn::tool {

const char *const kFireflyHelp =
    "usage: sorn firefly [IMAGE] -o OUT [--kind KIND] [--window N|WxH]\n"
    "                    [--weights W0,W1,W2] [--rank-window N] [--quantile Q]\n"
    "\n"
    "Makes three views of every channel of IMAGE (the default picture when none\n"
    "is given) and mixes them with the weights W0, W1, W2. KIND picks the views:\n"
    "  gauss, 5  three Gaussian blurs: of the window, and of 5 and 15 times its\n"
    "            extent (5, 25 and 75 for the default window), each with the\n"
    "            spread that follows its size; the window must be square.\n"
    "            dst = (W0 * blur1 + W1 * blur2 + W2 * blur3) / (W0 + W1 + W2)\n"
    "  crb, 3    the picture, its gain image and its local rank, mixed in 16\n"
    "            bits: dst = (W0 * src + W1 * gain * src + W2 * rank) / sum\n"
    "  crbln, 4  differences of logarithms, stretched back onto 0..255:\n"
    "            W2 * (ln(1 + src) - ln(1 + rank)) + W1 * (ln(1 + src) -\n"
    "            ln(1 + gain * src)); W0 plays no part\n"
    "  copy, 0   the picture itself\n"
    "The gain is 255 over the value below which the fraction Q of the pixels\n"
    "lies; the rank of a pixel is the count of pixels at most its value in the\n"
    "rank window around it, scaled so that a full window reaches 255.\n"
    "The mix multiplies in the picture's bytes: a fractional constant there is\n"
    "rounded to a whole one, as the library's arithmetic does, so 1/16 counts\n"
    "as 0. The blurs thus keep about 15/16 of the brightness, and crb gives\n"
    "black for weights that add up to more than 2 (its default adds up to 1).\n"
    "Near the edges every window reads the picture mirrored about the edge\n"
    "pixel.\n"
    "\n"
    "options:\n"
    "  -o, --output OUT    the result: .png, .pgm or .ppm (required)\n"
    "  --kind KIND         gauss, crb, crbln or copy, or 5, 3, 4, 0 (default gauss)\n"
    "  --window N|WxH      gauss: the first blur's window, columns by rows, 1 to\n"
    "                      255 each (default 5); 1 is the library's default, 5\n"
    "  --weights W0,W1,W2  the weights, -1000 to 1000 each (default 1,6,9; crb\n"
    "                      1,1,-1)\n"
    "  --rank-window N     crb, crbln: the rank window's side, a power of two from\n"
    "                      2 to 256 (default 16)\n"
    "  --quantile Q        crb, crbln: the fraction of the pixels below the gain's\n"
    "                      value, from 0 to below 1, as a decimal or NUM/DEN\n"
    "                      (default 0.99)\n"
    "  -h, --help          this text\n";

namespace {

const std::vector<std::string> kKindWords = {"gauss", "crb", "crbln", "copy", "5", "3", "4", "0"};

int32_t kind_of(const std::string &word) {
  if (word == "crb" || word == "3") return SORN_FIREFLY_CRB;
  if (word == "crbln" || word == "4") return SORN_FIREFLY_CRBLN;
  if (word == "copy" || word == "0") return SORN_FIREFLY_COPY;
  return SORN_FIREFLY_GAUSS;
}

const char *name_of(int32_t kind) {
  switch (kind) {
    case SORN_FIREFLY_CRB: return "crb";
    case SORN_FIREFLY_CRBLN: return "crbln";
    case SORN_FIREFLY_COPY: return "copy";
    default: return "gauss";
  }
}

SornSeShape window(int32_t w, int32_t h) {
  SornSeShape se;
  std::memset(&se, 0, sizeof se);
  se.size[0] = 1;
  se.size[1] = h;
  se.size[2] = w;
  se.anchor[1] = h / 2;
  se.anchor[2] = w / 2;
  return se;
}

// The quantile as the ratio the library reads from a window's depth cells:
// NUM/DEN, or a decimal in ten-thousandths.
void quantile_of(const std::string &text, int32_t *num, int32_t *den) {
  const std::string bad = "--quantile: '" + text + "' is not a fraction from 0 to below 1";
  const size_t slash = text.find('/');
  if (slash != std::string::npos) {
    const std::vector<int64_t> nd = whole_numbers("--quantile", text, '/', 0, 1000000);
    if (nd.size() != 2 || nd[1] < 1 || nd[0] >= nd[1]) usage_error(bad);
    *num = int32_t(nd[0]);
    *den = int32_t(nd[1]);
    return;
  }
  char *stop = nullptr;
  const double q = std::strtod(text.c_str(), &stop);
  if (text.empty() || *stop != '\0' || !(q >= 0.0 && q < 1.0)) usage_error(bad);
  *den = 10000;
  *num = std::min(int32_t(std::lround(q * 10000.0)), 9999);
}

}  // namespace

int run_firefly(const std::vector<std::string> &argv) {
  Args args("firefly", argv,
            {kOutputOption, valued("--kind"), valued("--window"), valued("--weights"),
             valued("--rank-window"), valued("--quantile")},
            1);
  if (args.help()) return print_help(kFireflyHelp);
  if (!args.has("-o")) usage_error("missing -o OUT");
  const std::string outname = args.text("-o", "");
  format_for_output(outname);
  const int32_t kind = kind_of(args.choice("--kind", "gauss", kKindWords));
  const bool rank = kind == SORN_FIREFLY_CRB || kind == SORN_FIREFLY_CRBLN;
  if (args.has("--window") && kind != SORN_FIREFLY_GAUSS) usage_error("--window is for gauss only");
  if ((args.has("--rank-window") || args.has("--quantile")) && !rank)
    usage_error(std::string(args.has("--quantile") ? "--quantile" : "--rank-window") +
                " is for crb and crbln only");

  const std::string size = args.text("--window", "5");
  std::vector<int64_t> wh =
      whole_numbers("--window", size, size.find('x') != std::string::npos ? 'x' : ',', 1, 255);
  if (wh.size() == 1) wh.push_back(wh[0]);
  if (wh.size() != 2) usage_error("--window: '" + size + "' is not N or WxH");
  if (wh[0] != wh[1]) usage_error("--window: '" + size + "' is not square, as gauss needs");
  const std::string weights_text =
      args.text("--weights", kind == SORN_FIREFLY_CRB ? "1,1,-1" : "1,6,9");
  const std::vector<int64_t> wv = whole_numbers("--weights", weights_text, ',', -1000, 1000);
  if (wv.size() != 3) usage_error("--weights: '" + weights_text + "' is not W0,W1,W2");
  const int32_t side = int32_t(args.integer("--rank-window", 16, 2, 256));
  if ((side & (side - 1)) != 0)
    usage_error("--rank-window: " + std::to_string(side) + " is not a power of two");
  int32_t num = 99, den = 100;
  if (args.has("--quantile")) quantile_of(args.text("--quantile", ""), &num, &den);

  // The three windows: the blurs' (the window, then 5 and 15 times its
  // extent, as the one-window form makes them), or for the rank kinds a
  // window that carries the quantile and the rank window last.
  SornSeShape shapes[3];
  const int32_t w = int32_t(wh[0]), h = int32_t(wh[1]);
  // A 1 by 1 window is the library's 5 by 5 default.
  const int32_t fw = (w == 1 && h == 1) ? 5 : w, fh = (w == 1 && h == 1) ? 5 : h;
  if (rank) {
    shapes[0] = window(3, 3);
    shapes[1] = window(3, 3);
    shapes[1].anchor[0] = num;
    shapes[1].size[0] = den;
    shapes[2] = window(side, side);
  } else {
    for (int i = 0; i < 3; ++i) {
      const int32_t t = i == 0 ? 1 : i == 1 ? 5 : 15;
      shapes[i] = window(t * fw, t * fh);
    }
  }
  const int32_t weights[3] = {int32_t(wv[0]), int32_t(wv[1]), int32_t(wv[2])};

  Input in = load_input(args.positionals(), 0);
  const Image &src = in.image;
  Env env;
  Image out(src.width, src.height, src.channels);
  for (int32_t c = 0; c < src.channels; ++c) {
    const Image plane = src.channels == 1 ? src : channel_plane(src, c);
    Image result(src.width, src.height, 1);
    SornArray d = array_of(result), s = array_of(plane);
    check_status(SornFireflyEx(env.get(), 0, &d, &s, nullptr, nullptr, kind, shapes, weights, 3),
                 "SornFireflyEx");
    if (src.channels == 1)
      out = result;
    else
      put_channel(out, result, c);
  }
  write_image(outname, out);
  std::printf("wrote %s: %dx%d %s, firefly %s", outname.c_str(), out.width, out.height,
              channel_layout_name(out.channels), name_of(kind));
  if (kind == SORN_FIREFLY_GAUSS)
    std::printf(", blurs %dx%d %dx%d %dx%d", fw, fh, 5 * fw, 5 * fh, 15 * fw, 15 * fh);
  if (rank) std::printf(", rank window %d, quantile %d/%d", side, num, den);
  if (kind != SORN_FIREFLY_COPY)
    std::printf(", weights %d,%d,%d", weights[0], weights[1], weights[2]);
  std::printf("\n");
  return kOk;
}

}  // namespace sorn::tool
