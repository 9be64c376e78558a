// Image files: PNG through libpng, PGM and PPM by hand, and the small
// conversions the commands need.
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "cli.h"
#include "png_io.h"

namespace sorn::tool {

void fail(int code, std::string message) { throw Failure{code, std::move(message)}; }

namespace {

struct FileCloser {
  void operator()(std::FILE *f) const {
    if (f) std::fclose(f);
  }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

std::string lower_extension(const std::string &path) {
  size_t slash = path.find_last_of('/');
  size_t dot = path.find_last_of('.');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return "";
  std::string ext = path.substr(dot);
  for (char &c : ext) c = char(std::tolower(static_cast<unsigned char>(c)));
  return ext;
}

void check_size(int64_t width, int64_t height, int64_t channels, const std::string &label) {
  if (width < 1 || height < 1) input_error(label + ": image has no pixels");
  if (width > kMaxSide || height > kMaxSide || width * height * channels > kMaxBytes) {
    input_error(label + ": image too large (" + std::to_string(width) + "x" +
                std::to_string(height) + "; at most " + std::to_string(kMaxSide) +
                " pixels a side)");
  }
}

// PNM header tokens: whitespace and '#' comments between them.
class PnmReader {
 public:
  PnmReader(std::FILE *f, const std::string &label) : f_(f), label_(label) {}

  int next_char() { return std::fgetc(f_); }

  // The next decimal number of the header; 'what' names it in a message.
  int64_t number(const char *what) {
    int c = next_char();
    for (;;) {
      if (c == '#') {
        while (c != '\n' && c != EOF) c = next_char();
      } else if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f') {
        c = next_char();
      } else {
        break;
      }
    }
    if (c == EOF) input_error(label_ + ": file ends too early (truncated header)");
    if (c < '0' || c > '9') input_error(label_ + ": corrupt PNM header (bad " + what + ")");
    int64_t v = 0;
    while (c >= '0' && c <= '9') {
      v = v * 10 + (c - '0');
      if (v > (int64_t(1) << 40))
        input_error(label_ + ": corrupt PNM header (" + what + " too large)");
      c = next_char();
    }
    last_ = c;
    return v;
  }
  int last() const { return last_; }

 private:
  std::FILE *f_;
  const std::string &label_;
  int last_ = 0;
};

}  // namespace

const char *channel_layout_name(int32_t channels) {
  switch (channels) {
    case 1: return "grey";
    case 2: return "grey+alpha";
    case 3: return "RGB";
    case 4: return "RGBA";
    default: return "unknown";
  }
}

Image decode_pnm(std::FILE *f, const std::string &label) {
  PnmReader in(f, label);
  int p = in.next_char();
  int kind = in.next_char();
  if (p != 'P' || (kind != '2' && kind != '3' && kind != '5' && kind != '6')) {
    input_error(label + ": not a PGM or PPM file");
  }
  bool ascii = kind == '2' || kind == '3';
  int channels = (kind == '3' || kind == '6') ? 3 : 1;
  int64_t width = in.number("width");
  int64_t height = in.number("height");
  int64_t maxval = in.number("maximum value");
  if (maxval < 1 || maxval > 65535)
    input_error(label + ": corrupt PNM header (maximum value " + std::to_string(maxval) + ")");
  if (maxval > 255) {
    input_error(label + ": unsupported bit depth 16 (maximum value " + std::to_string(maxval) +
                "; only 8-bit images are read)");
  }
  check_size(width, height, channels, label);
  Image image(int32_t(width), int32_t(height), channels);
  size_t count = image.pixels.size();
  if (!ascii) {
    // Exactly one whitespace byte separates the header from the pixels.
    int sep = in.last();
    if (sep != ' ' && sep != '\t' && sep != '\n' && sep != '\r') {
      input_error(label + ": corrupt PNM header (no separator before the pixels)");
    }
    if (std::fread(image.pixels.data(), 1, count, f) != count) {
      input_error(label + ": file ends too early (truncated pixel data)");
    }
  } else {
    for (size_t i = 0; i < count; ++i) {
      int64_t v = in.number("pixel value");
      if (v > maxval) input_error(label + ": corrupt PNM pixel value " + std::to_string(v));
      image.pixels[i] = uint8_t(v);
    }
  }
  // Values of a smaller range are stretched to the whole byte.
  if (maxval != 255) {
    for (uint8_t &v : image.pixels) {
      if (v > maxval) input_error(label + ": corrupt PNM pixel value " + std::to_string(v));
      v = uint8_t((v * 255 + maxval / 2) / maxval);
    }
  }
  return image;
}

void encode_pnm(std::FILE *f, const Image &image, const std::string &label) {
  bool ok = std::fprintf(f, "P%c\n%d %d\n255\n", image.channels == 1 ? '5' : '6', image.width,
                         image.height) > 0;
  ok = ok && std::fwrite(image.pixels.data(), 1, image.pixels.size(), f) == image.pixels.size();
  if (!ok) input_error(label + ": cannot write: " + std::strerror(errno));
}

Image read_image(const std::string &path) {
  errno = 0;
  File f(std::fopen(path.c_str(), "rb"));
  if (!f) input_error(path + ": cannot open: " + std::strerror(errno));
  int first = std::fgetc(f.get());
  if (first == EOF) {
    if (std::ferror(f.get())) input_error(path + ": cannot read: " + std::strerror(errno));
    input_error(path + ": file is empty");
  }
  std::rewind(f.get());
  if (first == 'P') return decode_pnm(f.get(), path);
  if (first != 0x89) input_error(path + ": not a PNG, PGM or PPM image");

  SornToolPixels raw;
  char why[160] = "";
  int rc = sorn_tool_png_read(f.get(), int32_t(kMaxSide), kMaxBytes, &raw, why, sizeof why);
  if (rc == SORN_TOOL_PNG_NOT_PNG) input_error(path + ": not a PNG, PGM or PPM image");
  if (rc == SORN_TOOL_PNG_CORRUPT) input_error(path + ": corrupt or truncated PNG: " + why);
  if (rc != SORN_TOOL_PNG_OK) input_error(path + ": " + why);
  std::unique_ptr<uint8_t, decltype(&std::free)> owned(raw.pixels, &std::free);
  Image image(raw.width, raw.height, raw.channels);
  std::memcpy(image.pixels.data(), raw.pixels, image.pixels.size());
  return image;
}

Format format_for_output(const std::string &path) {
  std::string ext = lower_extension(path);
  if (ext == ".png") return Format::Png;
  if (ext == ".pgm") return Format::Pgm;
  if (ext == ".ppm") return Format::Ppm;
  usage_error(path + ": unknown image format '" + ext +
              "' (use a name ending in .png, .pgm or .ppm)");
}

void write_image(const std::string &path, const Image &image) {
  Format format = format_for_output(path);
  if (format == Format::Pgm && image.channels != 1) {
    input_error(path + ": PGM holds grey images only, this one is " +
                channel_layout_name(image.channels) + " (write .png or .ppm)");
  }
  if (format == Format::Ppm && image.channels != 3 && image.channels != 1) {
    input_error(path + ": PPM has no alpha channel, this image is " +
                channel_layout_name(image.channels) + " (write .png)");
  }
  errno = 0;
  File f(std::fopen(path.c_str(), "wb"));
  if (!f) input_error(path + ": cannot create: " + std::strerror(errno));
  if (format == Format::Png) {
    char why[160] = "";
    if (sorn_tool_png_write(f.get(), image.pixels.data(), image.width, image.height, image.channels,
                            why, sizeof why) != SORN_TOOL_PNG_OK) {
      input_error(path + ": cannot write PNG: " + why);
    }
  } else if (format == Format::Ppm && image.channels == 1) {
    Image rgb(image.width, image.height, 3);
    for (size_t i = 0; i < image.pixels.size(); ++i) {
      rgb.pixels[3 * i] = rgb.pixels[3 * i + 1] = rgb.pixels[3 * i + 2] = image.pixels[i];
    }
    encode_pnm(f.get(), rgb, path);
  } else {
    encode_pnm(f.get(), image, path);
  }
  std::FILE *raw = f.release();
  if (std::fclose(raw) != 0) input_error(path + ": cannot write: " + std::strerror(errno));
}

Image to_grey(const Image &image) {
  if (image.channels == 1) return image;
  Image grey(image.width, image.height, 1);
  size_t n = size_t(image.width) * size_t(image.height);
  const uint8_t *s = image.pixels.data();
  for (size_t i = 0; i < n; ++i, s += image.channels) {
    if (image.channels <= 2) {
      grey.pixels[i] = s[0];
    } else {
      grey.pixels[i] = uint8_t((299 * s[0] + 587 * s[1] + 114 * s[2] + 500) / 1000);
    }
  }
  return grey;
}

Image channel_plane(const Image &image, int32_t c) {
  Image plane(image.width, image.height, 1);
  size_t n = size_t(image.width) * size_t(image.height);
  for (size_t i = 0; i < n; ++i) plane.pixels[i] = image.pixels[i * image.channels + c];
  return plane;
}

void put_channel(Image &image, const Image &plane, int32_t c) {
  const size_t n = size_t(image.width) * size_t(image.height);
  for (size_t i = 0; i < n; ++i) image.pixels[i * image.channels + c] = plane.pixels[i];
}

Input load_input(const std::vector<std::string> &positionals, size_t index) {
  if (positionals.size() > index) return Input{read_image(positionals[index]), positionals[index]};
  return Input{default_picture(), kDefaultPictureName};
}

}  // namespace sorn::tool
