// Test helpers shared by every test folder. Nothing here calls the library:
// records are filled field by field, so that a test of a constructor or of
// an operation never depends on the code it checks.
#pragma once

#include <sorn.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace sorn_test {

// A buffer with guard bytes on both sides. check() is true when no guard
// byte changed.
//
// With SORN_TEST_DIGEST_DIR set, every buffer's last bytes go into a digest
// of the test that ran, written to that folder as one file per test: two
// builds of the library (with and without the kernels for the wider vector
// units, say) must leave the very same files. tools/compare-digests.sh
// compares two folders.
class Guarded {
 public:
  static constexpr size_t kGuard = 64;
  static constexpr uint8_t kPattern = 0xA5;

  explicit Guarded(size_t bytes, uint8_t fill = 0);
  ~Guarded();
  Guarded(const Guarded &) = default;
  Guarded(Guarded &&) = default;
  Guarded &operator=(const Guarded &) = default;
  Guarded &operator=(Guarded &&) = default;
  uint8_t *data() { return store_.data() + kGuard; }
  const uint8_t *data() const { return store_.data() + kGuard; }
  size_t size() const { return bytes_; }
  bool guards_intact() const;

 private:
  size_t bytes_;
  std::vector<uint8_t> store_;
};

// An image of rows x cols x channels elements of one type inside a guarded
// buffer whose rows are padded by pad_bytes. Elements are written through
// at<T>(), records come from record().
class Image {
 public:
  Image(int32_t rows, int32_t cols, int32_t channels, uint32_t type, int32_t pad_bytes = 0,
        uint8_t fill = 0);
  int32_t rows() const { return rows_; }
  int32_t cols() const { return cols_; }
  int32_t channels() const { return ch_; }
  uint32_t type() const { return type_; }
  int32_t esize() const { return esize_; }
  int32_t rowstride() const { return rowstride_; }
  uint8_t *base() { return buf_.data(); }
  const uint8_t *base() const { return buf_.data(); }
  size_t bytes() const { return buf_.size(); }
  bool guards_intact() const { return buf_.guards_intact(); }

  template <class T>
  T &at(int32_t y, int32_t x, int32_t c = 0) {
    return *reinterpret_cast<T *>(base() + (size_t)y * rowstride_ + ((size_t)x * ch_ + c) * esize_);
  }
  template <class T>
  const T &at(int32_t y, int32_t x, int32_t c = 0) const {
    return *reinterpret_cast<const T *>(base() + (size_t)y * rowstride_ +
                                        ((size_t)x * ch_ + c) * esize_);
  }
  // The element as a double, whatever its type.
  double get(int32_t y, int32_t x, int32_t c = 0) const;
  void set(int32_t y, int32_t x, int32_t c, double v);

  // A 3-dimensional record of the whole image, filled field by field.
  SornArray record() const;
  // Snapshot of every byte, guards excluded, to compare after a call.
  std::vector<uint8_t> bytes_copy() const;

 private:
  int32_t rows_, cols_, ch_;
  uint32_t type_;
  int32_t esize_, rowstride_;
  Guarded buf_;
};

// A record built by hand: dims {1, rows, cols, chword}, tight pixels.
SornArray make_record(void *data, int32_t rows, int32_t cols, int32_t chword, uint32_t type,
                      int32_t rowstride);

// A 4-dimensional record: planes of rows x cols x channels.
SornArray make_record4(void *data, int32_t planes, int32_t rows, int32_t cols, int32_t chword,
                       uint32_t type, int32_t planestride, int32_t rowstride);

SornVolume make_roi(int32_t oy, int32_t ox, int32_t rows, int32_t cols, int32_t channels,
                    int32_t oz = 0, int32_t planes = 1);

// An execution environment for a test, whose scratch stack can be checked
// after every call: at_mark() is true when the stack is back at the level
// it had when the environment was made (a small block taken now lands
// where it landed then).
//
// A call whose scratch outgrows the stack's first chunk leaves the larger
// chunk as the stack's spare, where the next block lands: such a test asks
// for `warm` bytes to be taken and given back before the mark is set, so
// that its calls stay inside the chunk the mark lies in.
class ScratchEnv {
 public:
  explicit ScratchEnv(size_t warm = 0);
  ~ScratchEnv();
  ScratchEnv(const ScratchEnv &) = delete;
  ScratchEnv &operator=(const ScratchEnv &) = delete;
  SornXE *xe() { return &xe_; }
  bool at_mark() { return probe() == mark_; }

 private:
  void *probe();
  SornXE xe_;
  void *mark_;
};

// A seeded generator whose seed the test output shows.
std::mt19937_64 seeded_rng(uint64_t seed);

// Random value of a type: integers over their whole range, floats over a
// few magnitudes with extremes mixed in when extremes is true.
double random_value(std::mt19937_64 &rng, uint32_t type, bool extremes);

const char *type_name(uint32_t type);

}  // namespace sorn_test
