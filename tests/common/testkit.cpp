#include "testkit.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

namespace sorn_test {

namespace {

// The digest of the running test: FNV-1a over the length and the bytes of
// each buffer, in the order the buffers go.
struct Digest {
  uint64_t hash = 14695981039346656037ull;
  uint64_t buffers = 0;
  void add(const uint8_t *p, size_t n) {
    auto byte = [this](uint8_t b) { hash = (hash ^ b) * 1099511628211ull; };
    for (size_t i = 0; i < sizeof n; ++i) byte((uint8_t)(n >> (8 * i)));
    for (size_t i = 0; i < n; ++i) byte(p[i]);
    ++buffers;
  }
};

const char *digest_dir() {
  static const char *dir = [] {
    const char *d = std::getenv("SORN_TEST_DIGEST_DIR");
    return d != nullptr && *d != 0 ? d : nullptr;
  }();
  return dir;
}

Digest &running_digest() {
  static Digest d;
  return d;
}

class DigestWriter : public ::testing::EmptyTestEventListener {
  void OnTestStart(const ::testing::TestInfo &) override { running_digest() = Digest{}; }
  void OnTestEnd(const ::testing::TestInfo &info) override {
    std::string name = std::string(info.test_suite_name()) + "." + info.name();
    for (char &c : name)
      if (c == '/') c = '_';
    const std::string path = std::string(digest_dir()) + "/" + name;
    if (std::FILE *f = std::fopen(path.c_str(), "w")) {
      std::fprintf(f, "%016llx %llu\n", (unsigned long long)running_digest().hash,
                   (unsigned long long)running_digest().buffers);
      std::fclose(f);
    }
  }
};

const bool digest_writer_added = [] {
  if (digest_dir() != nullptr)
    ::testing::UnitTest::GetInstance()->listeners().Append(new DigestWriter);
  return true;
}();

}  // namespace

Guarded::Guarded(size_t bytes, uint8_t fill) : bytes_(bytes), store_(bytes + 2 * kGuard, kPattern) {
  std::memset(store_.data() + kGuard, fill, bytes);
}

Guarded::~Guarded() {
  if (digest_dir() != nullptr && ::testing::UnitTest::GetInstance()->current_test_info() != nullptr)
    running_digest().add(store_.data(), store_.size());
}

bool Guarded::guards_intact() const {
  for (size_t i = 0; i < kGuard; ++i)
    if (store_[i] != kPattern || store_[kGuard + bytes_ + i] != kPattern) return false;
  return true;
}

static int32_t elem_size(uint32_t type) {
  switch (type & 7) {
    case 1: return 1;
    case 2: return 2;
    case 3: case 5: return 4;
    case 4: case 6: return 8;
    default: return 0;
  }
}

Image::Image(int32_t rows, int32_t cols, int32_t channels, uint32_t type, int32_t pad_bytes,
             uint8_t fill)
    : rows_(rows), cols_(cols), ch_(channels), type_(type), esize_(elem_size(type)),
      rowstride_(cols * channels * elem_size(type) + pad_bytes),
      buf_((size_t)(rows > 0 ? rows : 0) * (size_t)rowstride_, fill) {}

double Image::get(int32_t y, int32_t x, int32_t c) const {
  switch (type_) {
    case SORN_U8: return at<uint8_t>(y, x, c);
    case SORN_S8: return at<int8_t>(y, x, c);
    case SORN_U16: return at<uint16_t>(y, x, c);
    case SORN_S16: return at<int16_t>(y, x, c);
    case SORN_U32: return at<uint32_t>(y, x, c);
    case SORN_S32: return at<int32_t>(y, x, c);
    case SORN_F32: return at<float>(y, x, c);
    case SORN_F64: return at<double>(y, x, c);
    default: return 0;
  }
}

void Image::set(int32_t y, int32_t x, int32_t c, double v) {
  switch (type_) {
    case SORN_U8: at<uint8_t>(y, x, c) = (uint8_t)v; break;
    case SORN_S8: at<int8_t>(y, x, c) = (int8_t)v; break;
    case SORN_U16: at<uint16_t>(y, x, c) = (uint16_t)v; break;
    case SORN_S16: at<int16_t>(y, x, c) = (int16_t)v; break;
    case SORN_U32: at<uint32_t>(y, x, c) = (uint32_t)v; break;
    case SORN_S32: at<int32_t>(y, x, c) = (int32_t)v; break;
    case SORN_F32: at<float>(y, x, c) = (float)v; break;
    case SORN_F64: at<double>(y, x, c) = v; break;
    default: break;
  }
}

SornArray Image::record() const {
  return make_record(const_cast<uint8_t *>(base()), rows_, cols_, ch_, type_, rowstride_);
}

std::vector<uint8_t> Image::bytes_copy() const { return std::vector<uint8_t>(base(), base() + bytes()); }

SornArray make_record(void *data, int32_t rows, int32_t cols, int32_t chword, uint32_t type,
                      int32_t rowstride) {
  SornArray a;
  std::memset(&a, 0, sizeof a);
  int32_t es = elem_size(type);
  int32_t ch = SORN_CHANNELS(chword);
  a.dims[0] = 1; a.dims[1] = rows; a.dims[2] = cols; a.dims[3] = chword;
  a.bounds[0] = 1; a.bounds[1] = rows; a.bounds[2] = cols; a.bounds[3] = chword;
  a.strides[0] = 0; a.strides[1] = rowstride; a.strides[2] = ch * es; a.strides[3] = es;
  a.ndims = 3; a.ndimsall = 3;
  a.elemtype = type;
  a.marker = 0x22;
  a.offset = 0;
  a.data = data;
  return a;
}

SornArray make_record4(void *data, int32_t planes, int32_t rows, int32_t cols, int32_t chword,
                       uint32_t type, int32_t planestride, int32_t rowstride) {
  SornArray a = make_record(data, rows, cols, chword, type, rowstride);
  a.dims[0] = planes; a.bounds[0] = planes; a.strides[0] = planestride;
  a.ndims = 4; a.ndimsall = 4;
  return a;
}

SornVolume make_roi(int32_t oy, int32_t ox, int32_t rows, int32_t cols, int32_t channels,
                    int32_t oz, int32_t planes) {
  SornVolume v = {{oz, oy, ox, 0}, {planes, rows, cols, channels}};
  return v;
}

ScratchEnv::ScratchEnv(size_t warm) {
  std::memset(&xe_, 0, sizeof xe_);
  SornXEinit(&xe_, nullptr);
  if (warm > 0) SornXEfreea(&xe_, SornXEalloca(&xe_, warm, 0));
  mark_ = probe();
}

ScratchEnv::~ScratchEnv() { SornXEfini(&xe_); }

void *ScratchEnv::probe() {
  void *p = SornXEalloca(&xe_, 16, 0);
  SornXEfreea(&xe_, p);
  return p;
}

std::mt19937_64 seeded_rng(uint64_t seed) {
  ::testing::Test::RecordProperty("seed", std::to_string(seed));
  std::printf("[ seed     ] %llu\n", (unsigned long long)seed);
  return std::mt19937_64(seed);
}

double random_value(std::mt19937_64 &rng, uint32_t type, bool extremes) {
  std::uniform_int_distribution<int> pick(0, 7);
  switch (type) {
    case SORN_U8: {
      if (extremes && pick(rng) == 0) return (rng() & 1) ? 255 : 0;
      return (double)(rng() & 0xff);
    }
    case SORN_S8: {
      if (extremes && pick(rng) == 0) return (rng() & 1) ? 127 : -128;
      return (double)(int8_t)(rng() & 0xff);
    }
    case SORN_U16: return (double)(rng() & 0xffff);
    case SORN_S16: {
      if (extremes && pick(rng) == 0) return (rng() & 1) ? 32767 : -32768;
      return (double)(int16_t)(rng() & 0xffff);
    }
    case SORN_U32: return (double)(uint32_t)rng();
    case SORN_S32: {
      if (extremes && pick(rng) == 0) return (rng() & 1) ? 2147483647.0 : -2147483648.0;
      int sel = pick(rng);
      if (sel < 3) return (double)(int32_t)(rng() & 0xffff) - 32768;  // small values
      return (double)(int32_t)(uint32_t)rng();
    }
    case SORN_F32: {
      if (extremes && pick(rng) == 0) {
        static const float ex[] = {0.0f, -0.0f, 1e30f, -1e30f, 3.4e38f, -3.4e38f, 0.5f, -0.5f,
                                   2147483520.0f, -2147483648.0f, 1e-30f};
        return ex[rng() % (sizeof ex / sizeof ex[0])];
      }
      std::uniform_real_distribution<double> d(-70000.0, 70000.0);
      int sel = pick(rng);
      if (sel < 2) return (float)(std::round(d(rng) * 2) / 2);  // halves: rounding ties
      if (sel < 4) return (float)(d(rng) / 256);
      return (float)d(rng);
    }
    case SORN_F64: {
      std::uniform_real_distribution<double> d(-1e6, 1e6);
      return d(rng);
    }
    default: return 0;
  }
}

const char *type_name(uint32_t type) {
  switch (type) {
    case SORN_U8: return "u8";
    case SORN_U16: return "u16";
    case SORN_U32: return "u32";
    case SORN_U64: return "u64";
    case SORN_S8: return "s8";
    case SORN_S16: return "s16";
    case SORN_S32: return "s32";
    case SORN_S64: return "s64";
    case SORN_F32: return "f32";
    case SORN_F64: return "f64";
    default: return "?";
  }
}

}  // namespace sorn_test
