// sorn add | sub | mul | div | and | or | xor | not: element-wise
// arithmetic and logic on two images of the same shape, or on one image and
// a constant per channel. One body for all, driven by a table of the
// operations. sorn muladd: a product joined to a third image, of three
// images or of two and a constant.
#include <cmath>
#include <sstream>

#include "cli.h"

namespace sorn::tool {

const char *const kAddHelp =
    "usage: sorn add A B -o OUT [--sf N] [--saturate]\n"
    "       sorn add A --constant C -o OUT [--sf N] [--saturate]\n"
    "\n"
    "Writes OUT = A + B (or A + C), pixel by pixel and channel by channel, in 8\n"
    "bits. A and B must have the same size and the same channels. Without A and\n"
    "B the default picture is added to itself.\n"
    "\n"
    "The scale factor N works on the sum: 0 keeps it, N > 0 multiplies it by\n"
    "2^N, N < 0 divides it by 2^-N with rounding to even. At N = 0 a sum above\n"
    "255 wraps around unless --saturate is given; other factors always saturate.\n"
    "\n"
    "options:\n"
    "  -o, --output OUT  the result: .png, .pgm or .ppm (required)\n"
    "  --constant C      a constant instead of B: one number, or one per channel\n"
    "                    separated by commas (C1,C2,...)\n"
    "  --sf N            scale factor, -31 to 31 (default 0)\n"
    "  --saturate        clamp sums to 0..255 instead of wrapping\n"
    "  -h, --help        this text\n";

const char *const kSubHelp =
    "usage: sorn sub A B -o OUT [--sf N] [--saturate]\n"
    "       sorn sub A --constant C -o OUT [--sf N] [--saturate]\n"
    "\n"
    "Writes OUT = A - B (or A - C), pixel by pixel and channel by channel, in 8\n"
    "bits. At N = 0 a difference below 0 wraps around (10 - 20 is 246) unless\n"
    "--saturate is given; other scale factors always saturate.\n"
    "\n"
    "options:\n"
    "  -o, --output OUT  the result: .png, .pgm or .ppm (required)\n"
    "  --constant C      a constant instead of B: one number, or one per channel\n"
    "  --sf N            scale factor, -31 to 31 (default 0): N > 0 multiplies by\n"
    "                    2^N, N < 0 divides by 2^-N with rounding to even\n"
    "  --saturate        clamp differences to 0..255 instead of wrapping\n"
    "  -h, --help        this text\n";

const char *const kMulHelp =
    "usage: sorn mul A B -o OUT [--sf N]\n"
    "       sorn mul A --constant C -o OUT [--sf N]\n"
    "\n"
    "Writes OUT = A * B (or A * C), pixel by pixel and channel by channel, in 8\n"
    "bits. Products saturate at every scale factor: 16 * 16 gives 255, and 64\n"
    "with --sf -2. A constant is rounded to a whole number first unless it\n"
    "needs a fraction and the result cannot keep one: on 8-bit pictures 0.5\n"
    "becomes 0 (use --sf for halving).\n"
    "\n"
    "options:\n"
    "  -o, --output OUT  the result: .png, .pgm or .ppm (required)\n"
    "  --constant C      a constant instead of B: one number, or one per channel\n"
    "  --sf N            scale factor, -31 to 31 (default 0): N > 0 multiplies by\n"
    "                    2^N, N < 0 divides by 2^-N with rounding to even\n"
    "  -h, --help        this text\n";

const char *const kDivHelp =
    "usage: sorn div A B -o OUT [--sf N] [--truncate]\n"
    "       sorn div A --constant C -o OUT [--sf N] [--truncate]\n"
    "\n"
    "Writes OUT = A / B (or A / C), pixel by pixel and channel by channel, in 8\n"
    "bits, rounded to the nearest whole number (ties to even): 7 / 2 is 4, 5 / 2\n"
    "is 2. A division by 0 gives 0. With --truncate the quotient is cut toward\n"
    "zero (7 / 2 is 3) and B must have no 0. A constant is rounded to a whole\n"
    "number and limited to 0..255 first: 2.5 divides by 2. Pictures of two\n"
    "channels have no division by constants.\n"
    "\n"
    "options:\n"
    "  -o, --output OUT  the result: .png, .pgm or .ppm (required)\n"
    "  --constant C      a constant instead of B: one number, or one per channel\n"
    "  --sf N            scale factor, -31 to 31 (default 0): N > 0 multiplies the\n"
    "                    quotient by 2^N, N < 0 divides it by 2^-N, saturating\n"
    "  --truncate        cut quotients toward zero instead of rounding them\n"
    "  -h, --help        this text\n";

#define SORN_TOOL_LOGIC_HELP(op, sym)                                             \
  "usage: sorn " op                                                               \
  " A B -o OUT\n"                                                                 \
  "       sorn " op                                                               \
  " A --constant C -o OUT\n"                                                      \
  "\n"                                                                            \
  "Writes OUT = A " sym " B (or A " sym                                           \
  " C), bit by bit, pixel by pixel and channel\n"                                 \
  "by channel. A constant is rounded to a whole number and limited to 0..255.\n"  \
  "Pictures of two channels have no constant forms.\n"                            \
  "\n"                                                                            \
  "options:\n"                                                                    \
  "  -o, --output OUT  the result: .png, .pgm or .ppm (required)\n"               \
  "  --constant C      a constant instead of B: one number, or one per channel\n" \
  "  -h, --help        this text\n"

const char *const kAndHelp = SORN_TOOL_LOGIC_HELP("and", "&");
const char *const kOrHelp = SORN_TOOL_LOGIC_HELP("or", "|");
const char *const kXorHelp = SORN_TOOL_LOGIC_HELP("xor", "^");

const char *const kNotHelp =
    "usage: sorn not A -o OUT\n"
    "\n"
    "Writes OUT = ~A, every bit of every pixel inverted: 255 - A for 8-bit\n"
    "pictures. Without A the default picture is inverted.\n"
    "\n"
    "options:\n"
    "  -o, --output OUT  the result: .png, .pgm or .ppm (required)\n"
    "  -h, --help        this text\n";

const char *const kMulAddHelp =
    "usage: sorn muladd A B C -o OUT [--sf N] [--subtract]\n"
    "       sorn muladd A B --constant C -o OUT [--sf N] [--subtract]\n"
    "\n"
    "Writes OUT = A + B * C (or A - B * C with --subtract), pixel by pixel and\n"
    "channel by channel, in 8 bits. The product and the sum are exact and the\n"
    "result saturates at every scale factor: 200 + 10 * 10 gives 255, and\n"
    "10 - 4 * 4 gives 0. A, B and C must have the same size and channels. A\n"
    "constant that needs a fraction keeps it: 10 + 3 * 0.5 is 11.5, which\n"
    "rounds to the even 12.\n"
    "\n"
    "options:\n"
    "  -o, --output OUT  the result: .png, .pgm or .ppm (required)\n"
    "  --constant C      a constant instead of the image C: one number, or one\n"
    "                    per channel separated by commas (C1,C2,...)\n"
    "  --sf N            scale factor, -31 to 31 (default 0): N > 0 multiplies the\n"
    "                    result by 2^N, N < 0 divides it by 2^-N, saturating\n"
    "  --subtract        take the product from A instead of adding it\n"
    "  -h, --help        this text\n";

namespace {

using Arrays = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                              const SornArray *, const SornVolume *, const SornVolume *,
                              const SornVolume *, int32_t, uint32_t);
using Constant = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                const double *, const SornVolume *, const SornVolume *, int32_t,
                                uint32_t);

// The logical entries have no scale factor; these give them the shape of
// the others.
template <auto F>
SornStatus logic_arrays(SornXE *xe, SornFlags flags, const SornArray *d, const SornArray *a,
                        const SornArray *b, const SornVolume *rd, const SornVolume *ra,
                        const SornVolume *rb, int32_t, uint32_t) {
  return F(xe, flags, d, a, b, rd, ra, rb);
}
template <auto F>
SornStatus logic_constant(SornXE *xe, SornFlags flags, const SornArray *d, const SornArray *a,
                          const double *c, const SornVolume *rd, const SornVolume *ra, int32_t,
                          uint32_t) {
  return F(xe, flags, d, a, c, rd, ra);
}
SornStatus not_arrays(SornXE *xe, SornFlags flags, const SornArray *d, const SornArray *a,
                      const SornArray *, const SornVolume *rd, const SornVolume *ra,
                      const SornVolume *, int32_t, uint32_t) {
  return SornNot(xe, flags, d, a, rd, ra);
}

// One command: its entries (plain, and the variant an option asks for),
// its word for the result and its options.
struct Operation {
  const char *command;
  const char *noun;  // "sum of A and B"
  const char *help;
  Arrays arrays, arrays_variant;
  Constant constant, constant_variant;
  const char *arrays_name, *arrays_variant_name, *constant_name, *constant_variant_name;
  const char *variant_option;  // nullptr: none
  const char *variant_word;    // ", saturated"
  bool scale;                  // takes --sf
  bool unary;
  bool constant_134;  // constant kernels for 1, 3 and 4 channels only
};

const Operation kOperations[] = {
    {"add", "sum", kAddHelp, &SornAdd, &SornAddq, &SornAddC, &SornAddqC, "SornAdd", "SornAddq",
     "SornAddC", "SornAddqC", "--saturate", ", saturated", true, false, false},
    {"sub", "difference", kSubHelp, &SornSub, &SornSubq, &SornSubC, &SornSubqC, "SornSub",
     "SornSubq", "SornSubC", "SornSubqC", "--saturate", ", saturated", true, false, false},
    {"mul", "product", kMulHelp, &SornMul, nullptr, &SornMulC, nullptr, "SornMul", nullptr,
     "SornMulC", nullptr, nullptr, "", true, false, false},
    {"div", "quotient", kDivHelp, &SornDivr, &SornDiv, &SornDivrC, &SornDivC, "SornDivr", "SornDiv",
     "SornDivrC", "SornDivC", "--truncate", ", truncated", true, false, true},
    {"and", "and", kAndHelp, &logic_arrays<&SornAnd>, nullptr, &logic_constant<&SornAndC>, nullptr,
     "SornAnd", nullptr, "SornAndC", nullptr, nullptr, "", false, false, true},
    {"or", "or", kOrHelp, &logic_arrays<&SornOrr>, nullptr, &logic_constant<&SornOrrC>, nullptr,
     "SornOrr", nullptr, "SornOrrC", nullptr, nullptr, "", false, false, true},
    {"xor", "xor", kXorHelp, &logic_arrays<&SornXor>, nullptr, &logic_constant<&SornXorC>, nullptr,
     "SornXor", nullptr, "SornXorC", nullptr, nullptr, "", false, false, true},
    {"not", "complement", kNotHelp, &not_arrays, nullptr, nullptr, nullptr, "SornNot", nullptr,
     nullptr, nullptr, nullptr, "", false, true, false},
};

// "C" or "C1,C2,...": one value for every channel, or one per channel.
std::vector<double> parse_constants(const std::string &text, int32_t channels) {
  std::vector<double> v;
  std::stringstream ss(text);
  std::string item;
  while (std::getline(ss, item, ',')) {
    char *end = nullptr;
    const double d = std::strtod(item.c_str(), &end);
    if (item.empty() || end == nullptr || *end != '\0' || !std::isfinite(d))
      usage_error("value '" + text + "' for --constant: expected numbers separated by commas");
    v.push_back(d);
  }
  if (v.size() == 1)
    v.assign(4, v[0]);
  else if ((int32_t)v.size() != channels)
    input_error("--constant has " + std::to_string(v.size()) + " values but the picture has " +
                std::to_string(channels) + " channels");
  v.resize(4, 0.0);
  return v;
}

std::string format_constants(const std::vector<double> &c, int32_t channels, bool one) {
  std::ostringstream os;
  for (int32_t i = 0; i < (one ? 1 : channels); ++i) os << (i ? "," : "") << c[i];
  return os.str();
}

// The second image of a command has the first one's size and channels.
void require_same_shape(const Input &a, const Input &b) {
  if (a.image.width != b.image.width || a.image.height != b.image.height) {
    input_error(b.name + ": is " + std::to_string(b.image.width) + "x" +
                std::to_string(b.image.height) + " but " + a.name + " is " +
                std::to_string(a.image.width) + "x" + std::to_string(a.image.height));
  }
  if (a.image.channels != b.image.channels) {
    input_error(b.name + ": is " + channel_layout_name(b.image.channels) + " but " + a.name +
                " is " + channel_layout_name(a.image.channels));
  }
}

bool has_zero(const Image &image) {
  for (uint8_t v : image.pixels)
    if (v == 0) return true;
  return false;
}

int run_operation(const Operation &op, const std::vector<std::string> &argv) {
  std::vector<OptionSpec> options = {{"-o", "--output", true}};
  if (!op.unary) options.push_back({"--constant", nullptr, true});
  if (op.scale) options.push_back({"--sf", nullptr, true});
  if (op.variant_option) options.push_back({op.variant_option, nullptr, false});
  Args args(op.command, argv, options, op.unary ? 1 : 2);
  if (args.help()) return print_help(op.help);
  const bool constant = args.has("--constant");
  if (!op.unary && !constant && args.positionals().size() == 1)
    usage_error("needs two images A and B");
  if (constant && args.positionals().size() > 1) usage_error("takes one image A with --constant");
  if (!args.has("-o")) usage_error("missing -o OUT");
  std::string outname = args.text("-o", "");
  format_for_output(outname);  // a bad name fails before any work
  const int32_t sf = op.scale ? int32_t(args.integer("--sf", 0, -31, 31)) : 0;
  const bool variant = op.variant_option && args.has(op.variant_option);

  Input a = load_input(args.positionals(), 0);
  Image out(a.image.width, a.image.height, a.image.channels);
  SornArray ra = array_of(a.image), ro = array_of(out);
  Env env;
  std::string operand;
  if (constant) {
    const std::string text = args.text("--constant", "");
    const std::vector<double> c = parse_constants(text, a.image.channels);
    if (op.constant_134 && a.image.channels == 2)
      input_error(a.name + ": is grey+alpha, and " + op.command +
                  " with a constant takes 1, 3 or 4 channels");
    const Constant f = variant ? op.constant_variant : op.constant;
    check_status(f(env.get(), 0, &ro, &ra, c.data(), nullptr, nullptr, sf, 0),
                 variant ? op.constant_variant_name : op.constant_name);
    operand = format_constants(c, a.image.channels, text.find(',') == std::string::npos);
  } else {
    Input b = op.unary ? a : args.positionals().empty() ? a : load_input(args.positionals(), 1);
    require_same_shape(a, b);
    // A truncated quotient by 0 is not defined.
    if (op.command == std::string("div") && variant && has_zero(b.image))
      input_error(b.name + ": has pixels of 0, which --truncate cannot divide by");
    SornArray rb = array_of(b.image);
    const Arrays f = variant ? op.arrays_variant : op.arrays;
    check_status(f(env.get(), 0, &ro, &ra, &rb, nullptr, nullptr, nullptr, sf, 0),
                 variant ? op.arrays_variant_name : op.arrays_name);
    operand = b.name;
  }
  write_image(outname, out);
  std::printf("wrote %s: %dx%d %s, %s of %s", outname.c_str(), out.width, out.height,
              channel_layout_name(out.channels), op.noun, a.name.c_str());
  if (!op.unary) std::printf(" and %s", operand.c_str());
  if (op.scale) std::printf(", sf %d", sf);
  std::printf("%s\n", variant ? op.variant_word : "");
  return kOk;
}

const Operation &operation(const char *command) {
  for (const Operation &op : kOperations)
    if (std::string(op.command) == command) return op;
  return kOperations[0];
}

}  // namespace

int run_add(const std::vector<std::string> &argv) { return run_operation(operation("add"), argv); }
int run_sub(const std::vector<std::string> &argv) { return run_operation(operation("sub"), argv); }
int run_mul(const std::vector<std::string> &argv) { return run_operation(operation("mul"), argv); }
int run_div(const std::vector<std::string> &argv) { return run_operation(operation("div"), argv); }
int run_and(const std::vector<std::string> &argv) { return run_operation(operation("and"), argv); }
int run_or(const std::vector<std::string> &argv) { return run_operation(operation("or"), argv); }
int run_xor(const std::vector<std::string> &argv) { return run_operation(operation("xor"), argv); }
int run_not(const std::vector<std::string> &argv) { return run_operation(operation("not"), argv); }

int run_muladd(const std::vector<std::string> &argv) {
  Args args("muladd", argv,
            {{"-o", "--output", true},
             {"--constant", nullptr, true},
             {"--sf", nullptr, true},
             {"--subtract", nullptr, false}},
            3);
  if (args.help()) return print_help(kMulAddHelp);
  const bool constant = args.has("--constant");
  const size_t images = args.positionals().size();
  if (constant && images != 2) usage_error("takes two images A and B with --constant");
  if (!constant && images != 3) usage_error("needs three images A, B and C");
  if (!args.has("-o")) usage_error("missing -o OUT");
  std::string outname = args.text("-o", "");
  format_for_output(outname);  // a bad name fails before any work
  const int32_t sf = int32_t(args.integer("--sf", 0, -31, 31));
  const bool subtract = args.has("--subtract");

  Input a = load_input(args.positionals(), 0), b = load_input(args.positionals(), 1);
  require_same_shape(a, b);
  Image out(a.image.width, a.image.height, a.image.channels);
  SornArray ra = array_of(a.image), rb = array_of(b.image), ro = array_of(out);
  Env env;
  std::string factor;
  if (constant) {
    const std::string text = args.text("--constant", "");
    const std::vector<double> c = parse_constants(text, a.image.channels);
    const auto f = subtract ? &SornMulSubC : &SornMulAddC;
    check_status(f(env.get(), 0, &ro, &ra, &rb, c.data(), nullptr, nullptr, nullptr, sf, 0),
                 subtract ? "SornMulSubC" : "SornMulAddC");
    factor = format_constants(c, a.image.channels, text.find(',') == std::string::npos);
  } else {
    Input c = load_input(args.positionals(), 2);
    require_same_shape(a, c);
    SornArray rc = array_of(c.image);
    const auto f = subtract ? &SornMulSub : &SornMulAdd;
    check_status(f(env.get(), 0, &ro, &ra, &rb, &rc, nullptr, nullptr, nullptr, nullptr, sf, 0),
                 subtract ? "SornMulSub" : "SornMulAdd");
    factor = c.name;
  }
  write_image(outname, out);
  std::printf("wrote %s: %dx%d %s, %s of %s and the product of %s and %s, sf %d\n", outname.c_str(),
              out.width, out.height, channel_layout_name(out.channels),
              subtract ? "difference" : "sum", a.name.c_str(), b.name.c_str(), factor.c_str(), sf);
  return kOk;
}

}  // namespace sorn::tool
