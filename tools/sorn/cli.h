// The sorn command-line tool: what its parts share.
//
// The tool sees the library only through <sorn.h>. Every failure travels up
// as a Failure carrying the exit code and one line of text; main() prints
// that line and leaves with the code, so no command prints errors itself.
#pragma once

#include <sorn.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace sorn::tool {

// Exit codes: 0 success, 1 bad input or a failed operation, 2 bad usage.
enum Exit : int { kOk = 0, kInputError = 1, kUsageError = 2 };

struct Failure {
  int code;
  std::string message;
};

[[noreturn]] void fail(int code, std::string message);
[[noreturn]] inline void usage_error(std::string message) { fail(kUsageError, std::move(message)); }
[[noreturn]] inline void input_error(std::string message) { fail(kInputError, std::move(message)); }

// ---------------------------------------------------------------- images

// 8-bit pixels, interleaved, rows packed: 1 grey, 2 grey+alpha, 3 RGB, 4 RGBA.
struct Image {
  int32_t width = 0;
  int32_t height = 0;
  int32_t channels = 0;
  std::vector<uint8_t> pixels;

  Image() = default;
  Image(int32_t w, int32_t h, int32_t c, uint8_t fill = 0)
      : width(w), height(h), channels(c), pixels(size_t(w) * size_t(h) * size_t(c), fill) {}
  size_t rowstride() const { return size_t(width) * size_t(channels); }
  uint8_t *row(int32_t y) { return pixels.data() + size_t(y) * rowstride(); }
  const uint8_t *row(int32_t y) const { return pixels.data() + size_t(y) * rowstride(); }
  uint8_t &at(int32_t y, int32_t x, int32_t c = 0) { return row(y)[size_t(x) * channels + c]; }
  uint8_t at(int32_t y, int32_t x, int32_t c = 0) const { return row(y)[size_t(x) * channels + c]; }
};

// Largest image the tool accepts: the library counts extents in 32 bits,
// and a forged header must not make us allocate gigabytes.
constexpr int64_t kMaxSide = 1 << 15;
constexpr int64_t kMaxBytes = int64_t(1) << 30;

enum class Format { Png, Pgm, Ppm };

// Reads PNG, PGM or PPM, recognised by content, not by name. A failure names
// the file and the reason.
Image read_image(const std::string &path);
// Writes by the file name's extension: .png, .pgm, .ppm.
void write_image(const std::string &path, const Image &image);
Format format_for_output(const std::string &path);  // fails for unknown names
const char *channel_layout_name(int32_t channels);  // "grey", "grey+alpha", ...

// The PNM codec, decoded into and encoded from Image. It reports through
// Failure like everything else; 'label' names the file in messages. (The
// PNG codec lives in png_io.c, because libpng reports errors by longjmp.)
Image decode_pnm(std::FILE *f, const std::string &label);
void encode_pnm(std::FILE *f, const Image &image, const std::string &label);

// One channel of luminance: grey and grey+alpha give their grey, RGB and
// RGBA the rounded Rec. 601 weights.
Image to_grey(const Image &image);
// A plane holding channel c of image.
Image channel_plane(const Image &image, int32_t c);
// A plane of one channel back into channel c of image.
void put_channel(Image &image, const Image &plane, int32_t c);

// The picture used when no IMAGE is named: a generated RGB scene of
// textured background with dark and bright blobs, the same on every run.
Image default_picture();
constexpr const char *kDefaultPictureName = "(default picture)";

// The image named by the first positional argument, or the default picture.
struct Input {
  Image image;
  std::string name;  // the path, or kDefaultPictureName
};
Input load_input(const std::vector<std::string> &positionals, size_t index);

// ---------------------------------------------------------------- library

// An execution environment for the duration of a command.
class Env {
 public:
  Env() { SornXEinit(&xe_, nullptr); }
  ~Env() { SornXEfini(&xe_); }
  Env(const Env &) = delete;
  Env &operator=(const Env &) = delete;
  SornXE *get() { return &xe_; }

 private:
  SornXE xe_{};
};

// A 3-dimensional record over an image's pixels (or over raw bytes).
SornArray array_of(const Image &image);
SornArray array_of(void *data, int32_t rows, int32_t cols, int32_t channels, uint32_t type,
                   int32_t rowstride);

// "SORN_ENOSPC" and the like; a number for statuses the tool doesn't know.
std::string status_name(SornStatus status);
// Fails with exit 1 and "<what>: SORN_... (<meaning>)" when status < 0.
void check_status(SornStatus status, const std::string &what);

// ---------------------------------------------------------------- commands

// Command-line arguments after the subcommand's name, parsed against the
// options that the subcommand declares.
struct OptionSpec {
  const char *name;   // "--delta", or "-o" with alias "--output"
  const char *alias;  // another spelling, or nullptr
  bool takes_value;
};

// Options by kind: one that takes a value, a flag, and the picture a command
// writes, -o or --output.
inline OptionSpec valued(const char *name) { return {name, nullptr, true}; }
inline OptionSpec flag(const char *name) { return {name, nullptr, false}; }
inline constexpr OptionSpec kOutputOption{"-o", "--output", true};

class Args {
 public:
  // Parses argv; usage errors fail with exit 2 and name the option.
  Args(const std::string &command, const std::vector<std::string> &argv,
       const std::vector<OptionSpec> &options, size_t max_positionals);

  bool help() const { return help_; }
  bool has(const char *name) const;
  const std::string *value(const char *name) const;
  const std::vector<std::string> &positionals() const { return positionals_; }

  // Typed values with range checks; a bad one is a usage error naming the
  // option.
  int64_t integer(const char *name, int64_t fallback, int64_t lo, int64_t hi) const;
  double real(const char *name, double fallback, double lo, double hi) const;
  std::string text(const char *name, const std::string &fallback) const;
  // One of the given words.
  std::string choice(const char *name, const std::string &fallback,
                     const std::vector<std::string> &words) const;

 private:
  std::string command_;
  bool help_ = false;
  std::vector<std::pair<std::string, std::string>> values_;  // canonical name, value
  std::vector<std::string> positionals_;
};

// Whole numbers separated by `sep`, each lo to hi; a bad list is a usage
// error naming the option.
std::vector<int64_t> whole_numbers(const std::string &option, const std::string &text, char sep,
                                   int64_t lo, int64_t hi);

struct Command {
  const char *name;
  const char *summary;  // one line for 'sorn --help'
  const char *help;     // the whole text for 'sorn NAME --help'
  int (*run)(const std::vector<std::string> &argv);
};

// The table of subcommands, in the order 'sorn --help' lists them.
const std::vector<Command> &commands();

// Prints a help text to stdout; the answer is the exit code of a command
// that was asked for help.
int print_help(const char *text);

int run_mser(const std::vector<std::string> &argv);
int run_hist(const std::vector<std::string> &argv);
int run_stats(const std::vector<std::string> &argv);
int run_add(const std::vector<std::string> &argv);
int run_sub(const std::vector<std::string> &argv);
int run_mul(const std::vector<std::string> &argv);
int run_div(const std::vector<std::string> &argv);
int run_and(const std::vector<std::string> &argv);
int run_or(const std::vector<std::string> &argv);
int run_xor(const std::vector<std::string> &argv);
int run_not(const std::vector<std::string> &argv);
int run_muladd(const std::vector<std::string> &argv);
int run_convert(const std::vector<std::string> &argv);
int run_threshold(const std::vector<std::string> &argv);
int run_resize(const std::vector<std::string> &argv);
int run_filter(const std::vector<std::string> &argv);
int run_border(const std::vector<std::string> &argv);
int run_morph(const std::vector<std::string> &argv);
int run_firefly(const std::vector<std::string> &argv);
int run_rank(const std::vector<std::string> &argv);

extern const char *const kMserHelp;
extern const char *const kHistHelp;
extern const char *const kStatsHelp;
extern const char *const kAddHelp;
extern const char *const kSubHelp;
extern const char *const kMulHelp;
extern const char *const kDivHelp;
extern const char *const kAndHelp;
extern const char *const kOrHelp;
extern const char *const kXorHelp;
extern const char *const kNotHelp;
extern const char *const kMulAddHelp;
extern const char *const kConvertHelp;
extern const char *const kThresholdHelp;
extern const char *const kResizeHelp;
extern const char *const kFilterHelp;
extern const char *const kBorderHelp;
extern const char *const kMorphHelp;
extern const char *const kFireflyHelp;
extern const char *const kRankHelp;

}  // namespace sorn::tool
