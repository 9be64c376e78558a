// Helpers of the tool tests: a scratch directory, running the installed-to-
// be program with its output captured, small image files, and a minimal
// JSON reader to parse the program's JSON back.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <variant>
#include <vector>

#include "cli.h"

namespace tool_test {

// A fresh directory per test, removed with its files at the end.
class Scratch {
 public:
  Scratch();
  ~Scratch();
  std::string path(const std::string &name) const { return dir_ + "/" + name; }

 private:
  std::string dir_;
};

struct ToolRun {
  int code = -1;
  std::string out;
  std::string err;
  // The lines of err; a failing run must report in exactly one.
  std::vector<std::string> err_lines() const;
};

// Runs the sorn program with these arguments (no shell word splitting).
// Standard output goes to stdout_path when one is given, and out stays
// empty.
ToolRun run_tool(const std::vector<std::string> &args, const std::string &stdout_path = "");

// A failing run: its exit code, and one line on stderr equal to 'line'.
void expect_failure(const ToolRun &r, int code, const std::string &line);

std::string read_file(const std::string &path);
void write_file(const std::string &path, const std::string &bytes);

// Reflection about the edge pixel, the tool's border: ..2 1 | 0 1 2 .. n-1 | n-2 ..
inline int32_t reflect101(int32_t i, int32_t n) {
  if (n == 1) return 0;
  const int32_t p = 2 * (n - 1), j = ((i % p) + p) % p;
  return j < n ? j : p - j;
}

// An image whose pixel (y, x, c) is f(y, x, c).
template <class F>
sorn::tool::Image make_image(int32_t w, int32_t h, int32_t c, F f) {
  sorn::tool::Image im(w, h, c);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x)
      for (int32_t k = 0; k < c; ++k) im.at(y, x, k) = uint8_t(f(y, x, k));
  return im;
}

// A PNG of bit depth 16 (grey), written with libpng directly.
void write_png16(const std::string &path, int32_t w, int32_t h);
// An interlaced PNG of an 8-bit image.
void write_interlaced_png(const std::string &path, const sorn::tool::Image &image);
// A palette PNG of 4 colours, index (x + y) % 4, the last colour half
// transparent when with_trns.
void write_palette_png(const std::string &path, int32_t w, int32_t h, bool with_trns);

// ------------------------------------------------------------------ JSON

struct Json;
using JsonObject = std::map<std::string, Json>;
using JsonArray = std::vector<Json>;
struct Json {
  std::variant<std::nullptr_t, bool, double, std::string, std::shared_ptr<JsonArray>,
               std::shared_ptr<JsonObject>>
      v;
  bool is_object() const { return std::holds_alternative<std::shared_ptr<JsonObject>>(v); }
  bool is_array() const { return std::holds_alternative<std::shared_ptr<JsonArray>>(v); }
  const Json &operator[](const std::string &key) const;
  const JsonArray &array() const;
  double number() const;
  const std::string &string() const;
  bool has(const std::string &key) const;
};

// Parses a whole document; throws std::runtime_error with the offset on
// malformed input.
Json parse_json(const std::string &text);

}  // namespace tool_test
