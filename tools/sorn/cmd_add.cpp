// sorn add: element-wise sum of two images of the same shape.
#include "cli.h"

namespace sorn::tool {

const char *const kAddHelp =
    "usage: sorn add A B -o OUT [--sf N] [--saturate]\n"
    "\n"
    "Writes OUT = A + B, pixel by pixel and channel by channel, in 8 bits. A and B\n"
    "must have the same size and the same channels. Without A and B the default\n"
    "picture is added to itself.\n"
    "\n"
    "The scale factor N works on the sum: 0 keeps it, N > 0 multiplies it by\n"
    "2^N, N < 0 divides it by 2^-N with rounding to even. At N = 0 a sum above\n"
    "255 wraps around unless --saturate is given; other factors always saturate.\n"
    "\n"
    "options:\n"
    "  -o, --output OUT  the result: .png, .pgm or .ppm (required)\n"
    "  --sf N            scale factor, -31 to 31 (default 0)\n"
    "  --saturate        clamp sums to 0..255 instead of wrapping\n"
    "  -h, --help        this text\n";

int run_add(const std::vector<std::string> &argv) {
  Args args("add", argv, {kOutputOption, valued("--sf"), flag("--saturate")}, 2);
  if (args.help()) return print_help(kAddHelp);
  if (args.positionals().size() == 1) usage_error("needs two images A and B");
  if (!args.has("-o")) usage_error("missing -o OUT");
  std::string outname = args.text("-o", "");
  format_for_output(outname);  // a bad name fails before any work
  int32_t sf = int32_t(args.integer("--sf", 0, -31, 31));
  bool saturate = args.has("--saturate");

  Input a = load_input(args.positionals(), 0);
  Input b = args.positionals().empty() ? a : load_input(args.positionals(), 1);
  if (a.image.width != b.image.width || a.image.height != b.image.height) {
    input_error(b.name + ": is " + std::to_string(b.image.width) + "x" +
                std::to_string(b.image.height) + " but " + a.name + " is " +
                std::to_string(a.image.width) + "x" + std::to_string(a.image.height));
  }
  if (a.image.channels != b.image.channels) {
    input_error(b.name + ": is " + channel_layout_name(b.image.channels) + " but " + a.name +
                " is " + channel_layout_name(a.image.channels));
  }

  Image sum(a.image.width, a.image.height, a.image.channels);
  SornArray ra = array_of(a.image), rb = array_of(b.image), rs = array_of(sum);
  Env env;
  SornStatus st = saturate ? SornAddq(env.get(), 0, &rs, &ra, &rb, nullptr, nullptr, nullptr, sf, 0)
                           : SornAdd(env.get(), 0, &rs, &ra, &rb, nullptr, nullptr, nullptr, sf, 0);
  check_status(st, saturate ? "SornAddq" : "SornAdd");
  write_image(outname, sum);
  std::printf("wrote %s: %dx%d %s, sum of %s and %s, sf %d%s\n", outname.c_str(), sum.width,
              sum.height, channel_layout_name(sum.channels), a.name.c_str(), b.name.c_str(), sf,
              saturate ? ", saturated" : "");
  return kOk;
}

}  // namespace sorn::tool
