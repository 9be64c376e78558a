// sorn rank: for every pixel, how many pixels of the box around it stand in
// a relation to it (equal, less, ...), scaled by a power of two: a local
// rank picture.
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "cli.h"

namespace sorn::tool {

const char *const kRankHelp =
    "usage: sorn rank [IMAGE] -o OUT [--op eq|lt|le|gt|ge] [--box N|WxH] [--anchor X,Y]\n"
    "                 [--shift S] [--range LO,HI] [--fast | --fast2]\n"
    "\n"
    "Counts, for every pixel of every channel of IMAGE (the default picture when\n"
    "none is given), the pixels of the box around it, itself included, that are\n"
    "equal to it (eq), below it (lt), at most it (le), above it (gt) or at least\n"
    "it (ge): le gives each pixel its rank in its neighbourhood, a local\n"
    "equalisation. Near the edges the box reads the picture mirrored about the\n"
    "edge pixel (c b | a b c). The count is scaled by 2^S: below 0 it is divided\n"
    "and rounded, and the result saturates at 255. The cost of a pixel does not\n"
    "depend on the box's height.\n"
    "\n"
    "options:\n"
    "  -o, --output OUT  the result: .png, .pgm or .ppm (required)\n"
    "  --op OP           eq, lt, le, gt or ge (default le)\n"
    "  --box N|WxH       the box, columns by rows, 1 to 1023 each (default 15);\n"
    "                    1x1 is the library's default box, 5x5\n"
    "  --anchor X,Y      the box's cell on the pixel (default the centre)\n"
    "  --shift S         the scale 2^S, -16 to 16 (default: the largest at which a\n"
    "                    full box still reads at most 255)\n"
    "  --range LO,HI     the values the picture holds, 0 to 255, LO at most HI\n"
    "                    (default: the type's limits for boxes of up to 256 pixels\n"
    "                    and for smaller than 64 wide and 32 high, else measured)\n"
    "  --fast            bins of two values for a range above 79 levels\n"
    "  --fast2           bins of four values for a range above 79 levels, of two\n"
    "                    for 40 to 79 levels: values in one bin count as equal\n"
    "  -h, --help        this text\n";

namespace {

const std::vector<std::string> kOps = {"eq", "lt", "le", "gt", "ge"};

uint32_t op_of(const std::string &name) {
  if (name == "eq") return SORN_CMP_EQ;
  if (name == "lt") return SORN_CMP_LT;
  if (name == "gt") return SORN_CMP_GT;
  if (name == "ge") return SORN_CMP_GE;
  return SORN_CMP_LE;
}

// N, or two numbers split by `sep`, each lo to hi.
std::vector<int64_t> pair_of(const std::string &option, const std::string &text, char sep,
                             bool one_for_both, int64_t lo, int64_t hi, const std::string &form) {
  std::vector<int64_t> v = whole_numbers(option, text, sep, lo, hi);
  if (v.size() == 1 && one_for_both) v.push_back(v[0]);
  if (v.size() != 2) usage_error(option + ": '" + text + "' is not " + form);
  return v;
}

// The largest shift at which the count of a full box, area pixels, still
// reads at most 255.
int32_t fitting_shift(int64_t area) {
  int32_t s = 0;
  while (s < 16 && (area << (s + 1)) <= 255) ++s;
  while (s > -16 && ((s < 0 ? (area + (int64_t(1) << (-s - 1))) >> -s : area << s) > 255)) --s;
  return s;
}

}  // namespace

int run_rank(const std::vector<std::string> &argv) {
  Args args("rank", argv,
            {kOutputOption, valued("--op"), valued("--box"), valued("--anchor"), valued("--shift"),
             valued("--range"), flag("--fast"), flag("--fast2")},
            1);
  if (args.help()) return print_help(kRankHelp);
  if (!args.has("-o")) usage_error("missing -o OUT");
  const std::string outname = args.text("-o", "");
  format_for_output(outname);
  const std::string opname = args.choice("--op", "le", kOps);
  const std::string boxtext = args.text("--box", "15");
  const std::vector<int64_t> wh =
      pair_of("--box", boxtext, boxtext.find('x') != std::string::npos ? 'x' : ',', true, 1, 1023,
              "N or WxH");
  // A 1x1 box is the library's 5x5 default, centred.
  const bool one = wh[0] == 1 && wh[1] == 1;
  const int32_t w = one ? 5 : int32_t(wh[0]), h = one ? 5 : int32_t(wh[1]);
  std::vector<int64_t> anchor = {w / 2, h / 2};
  if (args.has("--anchor")) {
    if (one) usage_error("--anchor: a 1x1 box is the 5x5 default, centred");
    anchor = pair_of("--anchor", args.text("--anchor", ""), ',', false, 0, 1022, "X,Y");
    if (anchor[0] >= w || anchor[1] >= h)
      usage_error("--anchor: '" + args.text("--anchor", "") + "' is not X,Y inside the box");
  }
  const int32_t shift = args.has("--shift") ? int32_t(args.integer("--shift", 0, -16, 16))
                                            : fitting_shift(int64_t(w) * h);
  SornVrng range = {0.0, 255.0};
  const bool ranged = args.has("--range");
  if (ranged) {
    const std::vector<int64_t> r =
        pair_of("--range", args.text("--range", ""), ',', false, 0, 255, "LO,HI");
    if (r[0] > r[1]) usage_error("--range: '" + args.text("--range", "") + "' has LO above HI");
    range = {double(r[0]), double(r[1])};
  }
  if (args.has("--fast") && args.has("--fast2"))
    usage_error("--fast and --fast2 exclude each other");
  const SornFlags flags = args.has("--fast2")  ? SORN_F_RANK_FAST2
                          : args.has("--fast") ? SORN_F_RANK_FAST
                                               : 0;

  Input in = load_input(args.positionals(), 0);
  const Image &src = in.image;
  SornSeShape box;
  std::memset(&box, 0, sizeof box);
  box.size[0] = 1;
  box.size[1] = h;
  box.size[2] = w;
  box.anchor[1] = int32_t(anchor[1]);
  box.anchor[2] = int32_t(anchor[0]);
  Env env;
  Image out(src.width, src.height, src.channels);
  for (int32_t c = 0; c < src.channels; ++c) {
    const Image plane = src.channels == 1 ? src : channel_plane(src, c);
    Image result(src.width, src.height, 1);
    SornArray d = array_of(result), s = array_of(plane);
    check_status(SornCountRelBox(env.get(), flags, &d, &s, nullptr, nullptr, op_of(opname), &box,
                                 ranged ? &range : nullptr, shift, 0),
                 "SornCountRelBox");
    if (src.channels == 1)
      out = result;
    else
      put_channel(out, result, c);
  }
  write_image(outname, out);
  std::printf("wrote %s: %dx%d %s, %s over %dx%d anchor %d,%d, shift %d%s\n", outname.c_str(),
              out.width, out.height, channel_layout_name(out.channels), opname.c_str(), w, h,
              int(anchor[0]), int(anchor[1]), shift,
              flags == SORN_F_RANK_FAST2  ? ", fast2"
              : flags == SORN_F_RANK_FAST ? ", fast"
                                          : "");
  return kOk;
}

}  // namespace sorn::tool
