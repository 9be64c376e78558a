// Built only with the tool, which tells where its program is.
#ifdef SORN_TOOL_EXE
#include "tool_testutil.h"

#include <fcntl.h>
#include <png.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

extern char **environ;

namespace tool_test {

Scratch::Scratch() {
  std::string base = ::testing::TempDir();
  if (base.empty() || base.back() != '/') base += '/';
  std::string pattern = base + "sorn_tool_XXXXXX";
  std::vector<char> buf(pattern.begin(), pattern.end());
  buf.push_back('\0');
  if (!mkdtemp(buf.data())) throw std::runtime_error("mkdtemp failed");
  dir_ = buf.data();
}

Scratch::~Scratch() {
  std::error_code ec;
  std::filesystem::remove_all(dir_, ec);
}

std::vector<std::string> ToolRun::err_lines() const {
  std::vector<std::string> lines;
  std::istringstream in(err);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

void expect_failure(const ToolRun &r, int code, const std::string &line) {
  EXPECT_EQ(r.code, code) << r.err;
  auto lines = r.err_lines();
  ASSERT_EQ(lines.size(), 1u) << r.err;
  EXPECT_EQ(lines[0], line);
}

std::string read_file(const std::string &path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

void write_file(const std::string &path, const std::string &bytes) {
  std::ofstream out(path, std::ios::binary);
  out << bytes;
}

ToolRun run_tool(const std::vector<std::string> &args, const std::string &stdout_path) {
  Scratch io;
  std::string outpath = stdout_path.empty() ? io.path("stdout") : stdout_path;
  std::string errpath = io.path("stderr");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, outpath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, 2, errpath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  std::vector<std::string> words;
  words.push_back(SORN_TOOL_EXE);
  words.insert(words.end(), args.begin(), args.end());
  std::vector<char *> argv;
  for (std::string &w : words) argv.push_back(w.data());
  argv.push_back(nullptr);
  pid_t pid = 0;
  ToolRun run;
  int rc = posix_spawn(&pid, SORN_TOOL_EXE, &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) {
    run.err = "spawn failed";
    return run;
  }
  int status = 0;
  waitpid(pid, &status, 0);
  run.code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  if (stdout_path.empty()) run.out = read_file(outpath);
  run.err = read_file(errpath);
  return run;
}

namespace {
void write_png_rows(const std::string &path, int32_t w, int32_t h, int depth, int type,
                    const std::vector<uint8_t> &bytes, size_t rowbytes,
                    const std::vector<png_color> &palette, const std::vector<png_byte> &trns,
                    bool interlaced = false) {
  std::FILE *f = std::fopen(path.c_str(), "wb");
  if (!f) throw std::runtime_error("cannot create " + path);
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_init_io(png, f);
  png_set_IHDR(png, info, uint32_t(w), uint32_t(h), depth, type,
               interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  if (!palette.empty()) png_set_PLTE(png, info, palette.data(), int(palette.size()));
  if (!trns.empty()) png_set_tRNS(png, info, trns.data(), int(trns.size()), nullptr);
  png_write_info(png, info);
  std::vector<png_bytep> rows;
  for (int32_t y = 0; y < h; ++y) rows.push_back(const_cast<png_bytep>(bytes.data() + size_t(y) * rowbytes));
  png_write_image(png, rows.data());
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  std::fclose(f);
}
}  // namespace

void write_png16(const std::string &path, int32_t w, int32_t h) {
  std::vector<uint8_t> bytes(size_t(w) * h * 2, 0x40);
  write_png_rows(path, w, h, 16, PNG_COLOR_TYPE_GRAY, bytes, size_t(w) * 2, {}, {});
}

void write_interlaced_png(const std::string &path, const sorn::tool::Image &image) {
  static const int types[5] = {0, PNG_COLOR_TYPE_GRAY, PNG_COLOR_TYPE_GRAY_ALPHA, PNG_COLOR_TYPE_RGB,
                               PNG_COLOR_TYPE_RGB_ALPHA};
  write_png_rows(path, image.width, image.height, 8, types[image.channels], image.pixels,
                 image.rowstride(), {}, {}, true);
}

void write_palette_png(const std::string &path, int32_t w, int32_t h, bool with_trns) {
  std::vector<uint8_t> bytes(size_t(w) * h);
  for (int32_t y = 0; y < h; ++y)
    for (int32_t x = 0; x < w; ++x) bytes[size_t(y) * w + x] = uint8_t((x + y) % 4);
  std::vector<png_color> palette = {{10, 20, 30}, {200, 0, 0}, {0, 200, 0}, {0, 0, 200}};
  std::vector<png_byte> trns;
  if (with_trns) trns = {255, 255, 255, 128};
  write_png_rows(path, w, h, 8, PNG_COLOR_TYPE_PALETTE, bytes, size_t(w), palette, trns);
}

// ------------------------------------------------------------------ JSON

const Json &Json::operator[](const std::string &key) const {
  if (!is_object()) throw std::runtime_error("not an object");
  auto &o = *std::get<std::shared_ptr<JsonObject>>(v);
  auto it = o.find(key);
  if (it == o.end()) throw std::runtime_error("no key " + key);
  return it->second;
}
bool Json::has(const std::string &key) const {
  return is_object() && std::get<std::shared_ptr<JsonObject>>(v)->count(key) != 0;
}
const JsonArray &Json::array() const {
  if (!is_array()) throw std::runtime_error("not an array");
  return *std::get<std::shared_ptr<JsonArray>>(v);
}
double Json::number() const { return std::get<double>(v); }
const std::string &Json::string() const { return std::get<std::string>(v); }

namespace {
struct Parser {
  const std::string &s;
  size_t i = 0;
  [[noreturn]] void bad(const char *what) {
    throw std::runtime_error(std::string("JSON: ") + what + " at offset " + std::to_string(i));
  }
  void ws() {
    while (i < s.size() && (s[i] == ' ' || s[i] == '\n' || s[i] == '\t' || s[i] == '\r')) ++i;
  }
  bool eat(char c) {
    ws();
    if (i < s.size() && s[i] == c) {
      ++i;
      return true;
    }
    return false;
  }
  void expect(char c) {
    if (!eat(c)) bad("unexpected character");
  }
  std::string str() {
    expect('"');
    std::string out;
    while (i < s.size() && s[i] != '"') {
      char c = s[i++];
      if (c == '\\') {
        if (i >= s.size()) bad("bad escape");
        char e = s[i++];
        switch (e) {
          case '"': case '\\': case '/': out += e; break;
          case 'n': out += '\n'; break;
          case 't': out += '\t'; break;
          case 'r': out += '\r'; break;
          case 'b': out += '\b'; break;
          case 'f': out += '\f'; break;
          case 'u': {
            if (i + 4 > s.size()) bad("bad escape");
            unsigned code = unsigned(std::stoul(s.substr(i, 4), nullptr, 16));
            i += 4;
            if (code > 0x7f) bad("non-ASCII escape");
            out += char(code);
            break;
          }
          default: bad("bad escape");
        }
      } else if (static_cast<unsigned char>(c) < 0x20) {
        bad("control character in string");
      } else {
        out += c;
      }
    }
    if (i >= s.size()) bad("unterminated string");
    ++i;
    return out;
  }
  Json value() {
    ws();
    if (i >= s.size()) bad("unexpected end");
    char c = s[i];
    Json j;
    if (c == '{') {
      ++i;
      auto o = std::make_shared<JsonObject>();
      if (!eat('}')) {
        do {
          ws();
          std::string k = str();
          expect(':');
          (*o)[k] = value();
        } while (eat(','));
        expect('}');
      }
      j.v = o;
    } else if (c == '[') {
      ++i;
      auto a = std::make_shared<JsonArray>();
      if (!eat(']')) {
        do a->push_back(value());
        while (eat(','));
        expect(']');
      }
      j.v = a;
    } else if (c == '"') {
      j.v = str();
    } else if (s.compare(i, 4, "true") == 0) {
      i += 4;
      j.v = true;
    } else if (s.compare(i, 5, "false") == 0) {
      i += 5;
      j.v = false;
    } else if (s.compare(i, 4, "null") == 0) {
      i += 4;
      j.v = nullptr;
    } else {
      size_t end = i;
      while (end < s.size() && std::string("+-0123456789.eE").find(s[end]) != std::string::npos) ++end;
      if (end == i) bad("unexpected character");
      j.v = std::stod(s.substr(i, end - i));
      i = end;
    }
    return j;
  }
};
}  // namespace

Json parse_json(const std::string &text) {
  Parser p{text};
  Json j = p.value();
  p.ws();
  if (p.i != text.size()) p.bad("trailing characters");
  return j;
}

}  // namespace tool_test
#endif
