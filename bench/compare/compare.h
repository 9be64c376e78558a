// What the rows of sorn_compare share: the timing race, records over OpenCV
// matrices, the pictures, the table of rows, and the registry of families.
//
// Each family's rows live in a rows_<family>.cpp of their own that ends with
// one SORN_COMPARE_FAMILY line; compare.cpp runs every registered family in
// the order of its rank and writes the report. A new family is a new file:
// nothing else needs an edit.
#pragma once

#include <sorn.h>

#include <opencv2/core.hpp>

#include <cmath>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace compare {

struct Options {
  bool quick = false;
  int samples = 31;
  std::string photo;
  std::string out;
  std::string only;  // one family's rows, printed and not written
  // Sorn's times written to a file (and no report), and the times of a run
  // of the library built with the plain kernels only, read from one, for a
  // column of their own.
  std::string save_times, plain_times;
  // The load average when the run began: the run's own thread raises the
  // one at its end by up to 1.
  std::string load_at_start;
};

// Times up to three contenders in interleaved batches; the median time of
// one call of each, in milliseconds.
std::vector<double> race(const std::vector<std::function<void()>> &fns, int samples);

// A record over an OpenCV matrix of rows, columns and channels.
SornArray rec_of(const cv::Mat &m);

struct Env {
  SornXE xe;
  Env();
  ~Env();
  Env(const Env &) = delete;
  Env &operator=(const Env &) = delete;
};

// A negative status fails the run (once reported, with what answered it).
void check(SornStatus s, const char *what);

// The pictures of the rows: a photograph scaled to the size asked, or a
// generated scene when there is none.
struct Scenes {
  cv::Mat photo;
  std::string source;
  cv::Mat at(int rows, int cols, uint64_t seed) const;
};

// The sizes of the element-wise and statistics rows.
constexpr int kFrameSizes[2][2] = {{480, 640}, {1080, 1920}};

// A row timed here: Sorn against the peer, and against a memcpy of `traffic`
// bytes when the operation is element-wise (traffic 0 otherwise). The goal is
// the ratio Sorn/peer to stay at or below at 1920x1080.
void add_row(const std::string &op, int rows, int cols, const std::string &peer,
             std::function<void()> sorn, std::function<void()> other, size_t traffic, double goal,
             int samples, const std::string &note = "");
// A row whose times were taken in a race of more than two contenders; a NAN
// Sorn time marks it pending. The goal holds at this row's size.
void add_timed_row(const std::string &op, int rows, int cols, const std::string &peer,
                   double sorn_ms, double peer_ms, double goal, const std::string &note);

// The same for a row whose size is not an image's (records, points): the
// size column reads `size`, and the goal holds at this row.
void add_sized_row(const std::string &op, const std::string &size, const std::string &peer,
                   double sorn_ms, double peer_ms, double goal, const std::string &note);

// A paragraph under the table that says how a family's rows were measured
// and what their notes mean.
void add_note(const std::string &paragraph);

// The registry: every family's rows, run in the order of their rank.
using RowsFn = void (*)(const Scenes &scenes, const Options &opt);
struct Family {
  const char *name;
  int rank;
  RowsFn rows;
};
std::vector<Family> &families();
struct Registration {
  Registration(const char *name, int rank, RowsFn rows) { families().push_back({name, rank, rows}); }
};

}  // namespace compare

#define SORN_COMPARE_FAMILY(name, rank, rows) \
  static const ::compare::Registration sorn_compare_family_##name(#name, rank, rows)
