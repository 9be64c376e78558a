// sorn_compare: each operation of Sorn beside the routine a user would pick
// instead, on the same pixels, in the same process, on one thread with warm
// caches. Prints one table and writes it, with the machine, the compiler and
// the date, to bench/RESULTS.md, and the ratios as a bar chart to
// bench/compare/ratios.svg. This unit is the machinery: the race, the
// records and pictures, the report; the rows of each family are in its
// rows_<family>.cpp (compare.h tells how they register).
//
//   sorn_compare [--quick] [--samples N] [--photo FILE] [--out DIR] [--only FAMILY]
//
// --only FAMILY times one family's rows (the name its rows file registers,
// such as sort or stats) and prints them, writing nothing.
// Each row times the Sorn call, the peer call and a memcpy that moves as
// many bytes (read plus written) as the operation, in interleaved batches;
// a batch runs long enough to be timed well, and the row reports the median
// batch of each. The memcpy column is the single-thread bandwidth limit
// that an element-wise operation can at best reach.
#include <sorn.h>

#include <opencv2/core.hpp>
#include <opencv2/core/utility.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

extern "C" {
#include <vl/generic.h>
}

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "compare.h"
#if SORN_COMPARE_CLONES
#include "core/kernel_level.h"
#endif

#ifndef SORN_COMPARE_BENCH_DIR
#define SORN_COMPARE_BENCH_DIR "bench"
#endif
#ifndef SORN_COMPARE_COMPILER
#define SORN_COMPARE_COMPILER "unknown"
#endif
#ifndef SORN_COMPARE_FLAGS
#define SORN_COMPARE_FLAGS "unknown"
#endif

namespace compare {

using Clock = std::chrono::steady_clock;

// ---------------------------------------------------------------- timing

double ms_since(Clock::time_point t0) {
  return std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
}

double median(std::vector<double> v) {
  if (v.empty()) return NAN;
  std::sort(v.begin(), v.end());
  const size_t n = v.size();
  return n & 1 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

// Times up to three contenders in interleaved batches, so that a burst of
// load from elsewhere on the machine falls on all of them alike. Each batch
// repeats a call often enough to last about a millisecond; the result is the
// median time of one call, in milliseconds.
std::vector<double> race(const std::vector<std::function<void()>> &fns, int samples) {
  const size_t k = fns.size();
  std::vector<int> inner(k, 1);
  double per_round = 0;
  for (size_t i = 0; i < k; ++i) {
    fns[i]();  // caches and lazy set-ups warm
    auto t0 = Clock::now();
    fns[i]();
    double one = std::max(ms_since(t0), 1e-4);
    if (one < 50) {
      // Fast calls: once more, now that the first timed call warmed up too.
      t0 = Clock::now();
      fns[i]();
      one = std::max(ms_since(t0), 1e-4);
    }
    inner[i] = (int)std::clamp(1.0 / one, 1.0, 10000.0);
    per_round += one * inner[i];
  }
  // Slow contenders (the region detectors) get fewer samples, within a
  // budget of about two seconds a row.
  const int n = std::clamp((int)(2000.0 / std::max(per_round, 1e-3)), 5, samples);
  std::vector<std::vector<double>> t(k);
  for (int s = 0; s < n; ++s) {
    for (size_t j = 0; j < k; ++j) {
      // The order turns from sample to sample, and every other round of k
      // samples runs backwards: turning alone keeps each contender behind
      // the same one, so that of three, one would always follow the copy
      // (which leaves its data out of the caches when the images do not
      // fit them together) and the next always follow it (and find the
      // sources they share already in the cache).
      const size_t turned = (j + (size_t)s) % k;
      const size_t i = (s / k) % 2 == 0 ? turned : k - 1 - turned;
      const auto t0 = Clock::now();
      for (int r = 0; r < inner[i]; ++r) fns[i]();
      t[i].push_back(ms_since(t0) / inner[i]);
    }
  }
  std::vector<double> m(k);
  for (size_t i = 0; i < k; ++i) m[i] = median(t[i]);
  return m;
}

// ---------------------------------------------------------------- records

SornArray rec_of(const cv::Mat &m) {
  uint32_t type = 0;
  switch (m.depth()) {
    case CV_8U: type = SORN_U8; break;
    case CV_8S: type = SORN_S8; break;
    case CV_16S: type = SORN_S16; break;
    case CV_32S: type = SORN_S32; break;
    case CV_32F: type = SORN_F32; break;
    default: std::fprintf(stderr, "no Sorn type for this matrix\n"); std::abort();
  }
  // Rows, columns, channels; strides in bytes of a row, a pixel, an element.
  const int32_t dims[3] = {m.rows, m.cols, m.channels()};
  const int32_t strides[3] = {(int32_t)m.step[0], (int32_t)m.elemSize(), (int32_t)m.elemSize1()};
  SornArray r;
  __sorn_array__$xtrn(&r, 3 | 3 << 8, dims, type, m.data, nullptr, strides);
  return r;
}

Env::Env() {
  std::memset(&xe, 0, sizeof xe);
  SornXEinit(&xe, nullptr);
}
Env::~Env() { SornXEfini(&xe); }

bool g_failed = false;

void check(SornStatus s, const char *what) {
  if (s < 0 && !g_failed) {
    std::fprintf(stderr, "%s answered %lld\n", what, (long long)s);
    g_failed = true;
  }
}

// ---------------------------------------------------------------- images

// A photograph from a Debian package, in grey, or an empty matrix.
cv::Mat load_photo(const std::string &asked, std::string &source) {
  std::vector<std::string> tries;
  if (!asked.empty()) tries.push_back(asked);
  for (const char *p : {"/usr/lib/python3/dist-packages/skimage/data/motorcycle_left.png",
                        "/usr/lib/python3/dist-packages/skimage/data/astronaut.png",
                        "/usr/lib/python3/dist-packages/skimage/data/coffee.png"})
    tries.push_back(p);
  for (const auto &p : tries) {
    cv::Mat m = cv::imread(p, cv::IMREAD_GRAYSCALE);
    if (!m.empty()) {
      source = p;
      return m;
    }
  }
  return cv::Mat();
}

// A generated scene when there is no photograph: smooth shading at three
// scales, a few hundred overlapping ellipses of random grey, a light blur
// and sensor-like noise. It has the flat areas, edges and nested blobs that
// stable regions are made of.
cv::Mat make_scene(int rows, int cols, uint64_t seed) {
  cv::RNG rng(seed);
  cv::Mat acc(rows, cols, CV_32F, cv::Scalar(0));
  const int grids[3][2] = {{6, 8}, {24, 32}, {96, 128}};
  const float weights[3] = {90.f, 40.f, 15.f};
  for (int g = 0; g < 3; ++g) {
    cv::Mat small(grids[g][0], grids[g][1], CV_32F);
    rng.fill(small, cv::RNG::UNIFORM, -1.0, 1.0);
    cv::Mat big;
    cv::resize(small, big, cv::Size(cols, rows), 0, 0, cv::INTER_CUBIC);
    acc += big * weights[g];
  }
  acc += 128.0;
  const int blobs = (int)(400.0 * rows * cols / 1e6) + 50;
  for (int i = 0; i < blobs; ++i) {
    const cv::Point c(rng.uniform(0, cols), rng.uniform(0, rows));
    const int a = rng.uniform(3, std::max(4, cols / 12)), b = rng.uniform(3, std::max(4, rows / 12));
    cv::ellipse(acc, c, cv::Size(a, b), rng.uniform(0.0, 180.0), 0, 360,
                cv::Scalar(rng.uniform(0.0, 255.0)), cv::FILLED, cv::LINE_AA);
  }
  cv::GaussianBlur(acc, acc, cv::Size(5, 5), 1.2);
  cv::Mat noise(rows, cols, CV_32F);
  rng.fill(noise, cv::RNG::NORMAL, 0.0, 3.0);
  acc += noise;
  cv::Mat out;
  acc.convertTo(out, CV_8U);
  return out;
}

cv::Mat Scenes::at(int rows, int cols, uint64_t seed) const {
  if (photo.empty()) return make_scene(rows, cols, seed);
  cv::Mat m;
  cv::resize(photo, m, cv::Size(cols, rows), 0, 0,
             (size_t)cols * rows > photo.total() ? cv::INTER_CUBIC : cv::INTER_AREA);
  if (seed & 1) cv::flip(m, m, -1);
  return m;
}

// ---------------------------------------------------------------- rows

std::string fmt(double v, int prec) {
  if (std::isnan(v)) return "pending";
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.*f", prec, v);
  return buf;
}

// A time in ms: three decimals, five for the calls on small images.
std::string fmt_ms(double ms) { return fmt(ms, std::fabs(ms) < 0.01 ? 5 : 3); }


struct Row {
  std::string op, size, peer;
  double sorn_ms = NAN, peer_ms = NAN, copy_ms = NAN;
  double plain_ms = NAN;  // the same row with the library's plain kernels only
  std::string note;
  bool elementwise = false;  // goal: at most as slow as the peer
  double goal = NAN;         // the ratio Sorn/peer to stay at or below, at 1920x1080
  double ratio() const { return sorn_ms / peer_ms; }
};

std::vector<Row> g_rows;
// Paragraphs that families add under the table, in the order they ran.
std::vector<std::string> g_notes;
// Single-thread memcpy bandwidth, by bytes copied: (bytes, GB/s).
std::vector<std::pair<size_t, double>> g_bandwidth;

std::string size_name(int rows, int cols) {
  return std::to_string(cols) + "x" + std::to_string(rows);
}

// memcpy that moves `traffic` bytes: half read, half written.
struct Copier {
  std::vector<uint8_t> from, to;
  size_t n;
  explicit Copier(size_t traffic) : from(traffic / 2 + 64, 1), to(traffic / 2 + 64), n(traffic / 2) {}
  void operator()() {
    std::memcpy(to.data(), from.data(), n);
    asm volatile("" ::"r"(to.data()) : "memory");
  }
};

void measure_bandwidth(size_t bytes, int samples) {
  Copier c(2 * bytes);
  const double ms = race({std::ref(c)}, samples)[0];
  g_bandwidth.push_back({bytes, (double)bytes / (ms * 1e6)});
  std::printf("memcpy of %zu bytes: %.4f ms, %.1f GB/s read and as much written\n", bytes, ms,
              g_bandwidth.back().second);
}

void add_row(const std::string &op, int rows, int cols, const std::string &peer,
             std::function<void()> sorn, std::function<void()> other, size_t traffic, double goal,
             int samples, const std::string &note) {
  Row r;
  r.op = op;
  r.size = size_name(rows, cols);
  r.peer = peer;
  r.goal = (rows == 1080 && cols == 1920) ? goal : NAN;
  r.elementwise = traffic != 0;
  std::vector<std::function<void()>> fns = {std::move(sorn), std::move(other)};
  Copier copier(traffic ? traffic : 64);
  if (traffic) fns.push_back(std::ref(copier));
  const auto t = race(fns, samples);
  r.sorn_ms = t[0];
  r.peer_ms = t[1];
  if (traffic) r.copy_ms = t[2];
  r.note = note;
  std::printf("%-34s %-10s %10.4f %10.4f %7.2f  %s%s\n", (op + " / " + peer).c_str(),
              r.size.c_str(), r.sorn_ms, r.peer_ms, r.ratio(),
              traffic ? ("memcpy " + fmt(r.copy_ms, 4) + "  ").c_str() : "", note.c_str());
  std::fflush(stdout);
  g_rows.push_back(r);
}

// A row whose times were taken in a race of more than two contenders. The
// goal is the ratio to stay at or below on the larger image.
void add_timed_row(const std::string &op, int rows, int cols, const std::string &peer,
                   double sorn_ms, double peer_ms, double goal, const std::string &note) {
  add_sized_row(op, size_name(rows, cols), peer, sorn_ms, peer_ms, goal, note);
}

void add_sized_row(const std::string &op, const std::string &size, const std::string &peer,
                   double sorn_ms, double peer_ms, double goal, const std::string &note) {
  Row r;
  r.op = op;
  r.size = size;
  r.peer = peer;
  r.sorn_ms = sorn_ms;
  r.peer_ms = peer_ms;
  r.goal = goal;
  r.note = note;
  std::printf("%-34s %-10s %10s %10.4f %7s  %s\n", (op + " / " + peer).c_str(), r.size.c_str(),
              std::isnan(sorn_ms) ? "pending" : fmt(sorn_ms, 4).c_str(), peer_ms,
              std::isnan(sorn_ms) ? "-" : fmt(sorn_ms / peer_ms, 2).c_str(), note.c_str());
  std::fflush(stdout);
  g_rows.push_back(r);
}

void add_note(const std::string &paragraph) { g_notes.push_back(paragraph); }

// Sorn's times by operation, size and peer, one row a line, tab-separated.
void save_times(const std::string &path) {
  std::ofstream o(path);
  for (const auto &r : g_rows)
    o << r.op << '\t' << r.size << '\t' << r.peer << '\t' << r.sorn_ms << '\n';
}

void read_plain_times(const std::string &path) {
  std::ifstream in(path);
  if (!in) {
    std::fprintf(stderr, "cannot read %s\n", path.c_str());
    g_failed = true;
    return;
  }
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream f(line);
    std::string op, size, peer, ms;
    if (!std::getline(f, op, '\t') || !std::getline(f, size, '\t') ||
        !std::getline(f, peer, '\t') || !std::getline(f, ms))
      continue;
    for (auto &r : g_rows)
      if (r.op == op && r.size == size && r.peer == peer) r.plain_ms = std::atof(ms.c_str());
  }
}


// ---------------------------------------------------------------- report

std::string read_first_line_with(const char *file, const char *key) {
  std::ifstream in(file);
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind(key, 0) == 0) {
      const auto c = line.find(':');
      std::string v = c == std::string::npos ? line : line.substr(c + 1);
      v.erase(0, v.find_first_not_of(" \t"));
      return v;
    }
  }
  return "unknown";
}

std::string load_average() {
  std::ifstream in("/proc/loadavg");
  std::string a, b, c;
  in >> a >> b >> c;
  return a + " " + b + " " + c;
}

std::string now_utc() {
  const std::time_t t = std::time(nullptr);
  char buf[64];
  std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M UTC", std::gmtime(&t));
  return buf;
}

std::string verdict(const Row &r) {
  if (std::isnan(r.goal)) return "";
  if (std::isnan(r.sorn_ms)) return "pending";
  if (r.ratio() <= r.goal) return "met";
  const double over = (r.ratio() / r.goal - 1) * 100;
  return "missed by " + fmt(over, 0) + " %" + (over <= 5 ? " (within run-to-run noise)" : "");
}

void write_svg(const std::string &path) {
  std::vector<const Row *> rows;
  for (const auto &r : g_rows)
    if (!std::isnan(r.sorn_ms) && !std::isnan(r.peer_ms)) rows.push_back(&r);
  const int bar = 18, gap = 6, left = 430, width = 420, top = 40;
  const int height = top + (int)rows.size() * (bar + gap) + 40;
  double maxr = 2.0;
  for (const Row *r : rows) maxr = std::max(maxr, std::min(r->ratio(), 8.0));
  maxr = std::ceil(maxr);
  std::ofstream o(path);
  o << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << left + width + 80 << "\" height=\""
    << height << "\" font-family=\"sans-serif\" font-size=\"12\">\n";
  o << "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
  o << "<text x=\"10\" y=\"20\" font-size=\"14\" font-weight=\"bold\">Sorn time / peer time "
       "(below 1: Sorn is faster), one thread</text>\n";
  auto xof = [&](double r) { return left + (int)(width * std::min(r, maxr) / maxr); };
  for (int t = 0; t <= (int)maxr; ++t) {
    const int x = xof(t);
    o << "<line x1=\"" << x << "\" y1=\"" << top - 5 << "\" x2=\"" << x << "\" y2=\"" << height - 30
      << "\" stroke=\"" << (t == 1 ? "black" : "#ccc") << "\"/>\n";
    o << "<text x=\"" << x - 3 << "\" y=\"" << height - 15 << "\">" << t << "</text>\n";
  }
  int y = top;
  for (const Row *r : rows) {
    const double q = r->ratio();
    const double goal = std::isnan(r->goal) ? 1.0 : r->goal;
    const char *colour = q <= goal ? "#3a8f3a" : "#c0392b";
    std::string label;
    for (char ch : r->op + " " + r->size + " vs " + r->peer)
      label += ch == '<' ? "&lt;" : ch == '>' ? "&gt;" : ch == '&' ? "&amp;" : std::string(1, ch);
    o << "<text x=\"" << left - 6 << "\" y=\"" << y + bar - 5 << "\" text-anchor=\"end\">" << label
      << "</text>\n";
    o << "<rect x=\"" << left << "\" y=\"" << y << "\" width=\"" << std::max(1, xof(q) - left)
      << "\" height=\"" << bar << "\" fill=\"" << colour << "\"/>\n";
    o << "<text x=\"" << xof(q) + 4 << "\" y=\"" << y + bar - 5 << "\">" << fmt(q, 2)
      << (q > maxr ? " (cut)" : "") << "</text>\n";
    y += bar + gap;
  }
  o << "</svg>\n";
}

// Which copy of the kernels the library runs here: the library asks the
// same question when it loads.
std::string kernels_in_use() {
#if SORN_COMPARE_CLONES
  switch (sorn_kernel_level()) {
    case 4:
      return "kernels for the baseline, x86-64-v3 and x86-64-v4, the x86-64-v4 copy (AVX-512) running";
    case 3:
      return "kernels for the baseline, x86-64-v3 and x86-64-v4, the x86-64-v3 copy (AVX2) running";
    default:
      return "kernels for the baseline, x86-64-v3 and x86-64-v4, the baseline copy running";
  }
#else
  return "kernels for the compiler's baseline only";
#endif
}

// The processor's vector units, from /proc/cpuinfo.
std::string vector_units() {
  std::string flags = " ";
  flags.append(read_first_line_with("/proc/cpuinfo", "flags")).append(" ");
  std::string out;
  for (const char *f : {"sse2", "ssse3", "sse4_1", "sse4_2", "avx", "avx2", "fma", "avx512f",
                        "avx512bw", "avx512vl", "avx512_vnni", "avx512_bf16"}) {
    std::string key = " ";
    key.append(f).append(" ");
    if (flags.find(key) == std::string::npos) continue;
    if (!out.empty()) out.append(" ");
    out.append(f);
  }
  return out;
}

void write_markdown(const std::string &path, const Options &opt, const Scenes &scenes) {
  std::ofstream o(path);
  o << "# Sorn beside OpenCV and VLFeat\n\n";
  o << "Written by `sorn_compare` (bench/compare); run it again to refresh this file and "
       "[the chart](compare/ratios.svg).\n\n";
  o << "- Date: " << now_utc() << "\n";
  o << "- CPU: " << read_first_line_with("/proc/cpuinfo", "model name") << ", "
    << "load average when the run began: " << opt.load_at_start
    << "; at its end (its own thread included): " << load_average() << "\n";
  {
    // Judged on the load before the run: other work that shares the
    // processor with the measurements.
    const double load = std::atof(opt.load_at_start.c_str());
    const unsigned cores = std::thread::hardware_concurrency();
    if (cores > 0 && load > 0.5 * cores)
      o << "- **Taken on a busy machine**: a load average of " << fmt(load, 1) << " on " << cores
        << " cores when the run began, other work sharing the processor: times are noisy, "
           "ratios more so on the small rows\n";
  }
  o << "- Vector units: " << vector_units() << "\n";
  o << "- Sorn built with: " << SORN_COMPARE_COMPILER << ", `" << SORN_COMPARE_FLAGS << "`; "
    << kernels_in_use() << "\n";
  o << "- OpenCV " << CV_VERSION << " (Debian's build), " << cv::getNumThreads()
    << " thread; CPU features it dispatches to: `" << cv::getCPUFeaturesLine() << "`\n";
  o << "- VLFeat " << vl_get_version_string() << " (Debian's build)\n";
  o << "- Region images: "
    << (scenes.photo.empty() ? std::string("generated scenes (no photograph found)")
                             : "the photograph `" + scenes.source + "` (" +
                                   std::to_string(scenes.photo.cols) + "x" +
                                   std::to_string(scenes.photo.rows) + ", grey) scaled")
    << "; element-wise and statistics inputs are the same picture at their size\n";
  o << "- Single-thread memcpy, caches warm:";
  for (size_t i = 0; i < g_bandwidth.size(); ++i)
    o << (i ? "," : "") << " " << fmt(g_bandwidth[i].first / 1048576.0, 1) << " MiB at "
      << fmt(g_bandwidth[i].second, 1) << " GB/s";
  o << " (bytes copied per second; as many are read as written)\n";
  o << "- Method: same data, same process, one thread, caches warm; Sorn, peer and memcpy "
       "batches interleaved, their order turning from one to the next and reversed every "
       "other round so that each follows each of the others as often, each batch about 1 ms; "
       "median of up to "
    << opt.samples << " batches. Times are of one call, in ms.\n\n";
  o << "Goals, on one thread: at 1920x1080 every element-wise operation, the histogram and the "
       "sum at most as slow as OpenCV (ratio <= 1.00); stable regions at least twice as fast as "
       "OpenCV's on the same image (ratio <= 0.50); other families state their goal in the Goal "
       "column of their rows (sorting a million records: at most as slow as the C library's "
       "qsort_r).\n\n";
  o << "Ratio is Sorn time over peer time: below 1.00 Sorn is faster. *memcpy* moves as many "
       "bytes (read plus written) as the operation does: the single-thread memory bandwidth "
       "limit; *Sorn/memcpy* near 1.00 means the operation runs at that limit.\n\n";
  const bool plain = !opt.plain_times.empty();
  if (plain)
    o << "*Sorn plain ms* is the same row with the library built with the kernels for the "
         "baseline only (preset release-plain), run just before; *plain ratio* is its ratio to "
         "the peer.\n\n";
  o << "| Operation | Size | Sorn ms | " << (plain ? "Sorn plain ms | Plain ratio | " : "")
    << "Peer | Peer ms | Ratio | memcpy ms | Sorn/memcpy | Goal | Notes |\n";
  o << "|---|---|--:|" << (plain ? "--:|--:|" : "") << "---|--:|--:|--:|--:|---|---|\n";
  for (const auto &r : g_rows) {
    o << "| " << r.op << " | " << r.size << " | " << fmt_ms(r.sorn_ms) << " | ";
    if (plain)
      o << (std::isnan(r.plain_ms) ? "" : fmt_ms(r.plain_ms)) << " | "
        << (std::isnan(r.plain_ms) ? "" : fmt(r.plain_ms / r.peer_ms, 2)) << " | ";
    o << r.peer << " | "
      << fmt_ms(r.peer_ms) << " | "
      << (std::isnan(r.sorn_ms) ? "pending" : fmt(r.ratio(), 2)) << " | "
      << (std::isnan(r.copy_ms) ? "" : fmt(r.copy_ms, 3)) << " | "
      << (std::isnan(r.copy_ms) ? "" : fmt(r.sorn_ms / r.copy_ms, 2)) << " | "
      << (std::isnan(r.goal) ? "" : "<= " + fmt(r.goal, 2) + ": " + verdict(r)) << " | " << r.note
      << " |\n";
  }
  o << "\nStable regions: all three detectors get the same parameters, the library's defaults "
       "(delta "
    << SORN_MSER_DEFAULT_DELTA << ", regions of " << SORN_MSER_DEFAULT_MINAREA << " to "
    << SORN_MSER_DEFAULT_MAXAREA << " of the image, largest variation "
    << SORN_MSER_DEFAULT_MAXVARIATION << ", smallest diversity " << SORN_MSER_DEFAULT_MINDIVERSITY
    << ") and find "
       "dark and bright regions. VLFeat finds dark regions only, so it runs a second time on the "
       "inverted image, the inversion counted in its time; its filter is made once and reused. "
       "OpenCV's detectRegions also lists every region's pixels. Each library measures "
       "stability and prunes near-duplicates by its own rules, so the region counts are a sanity "
       "check, not expected to agree. The 4-megapixel image is the photograph scaled up, smoother "
       "than a photograph taken at that size, hence fewer regions than at 1 megapixel. The row "
       "*component trees* times Sorn's two floodings alone, the bulk of its region detection.\n";
  for (const std::string &note : g_notes) o << "\n" << note << "\n";
  o << "\n![Ratios](compare/ratios.svg)\n";
}

std::vector<Family> &families() {
  static std::vector<Family> all;
  return all;
}

}  // namespace compare

using namespace compare;

int main(int argc, char **argv) {
  Options opt;
  opt.out = SORN_COMPARE_BENCH_DIR;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--quick") {
      opt.quick = true;
      opt.samples = 7;
    } else if (a == "--samples" && i + 1 < argc) {
      opt.samples = std::max(3, std::atoi(argv[++i]));
    } else if (a == "--photo" && i + 1 < argc) {
      opt.photo = argv[++i];
    } else if (a == "--out" && i + 1 < argc) {
      opt.out = argv[++i];
    } else if (a == "--only" && i + 1 < argc) {
      opt.only = argv[++i];
    } else if (a == "--save-times" && i + 1 < argc) {
      opt.save_times = argv[++i];
    } else if (a == "--plain-times" && i + 1 < argc) {
      opt.plain_times = argv[++i];
    } else {
      std::fprintf(stderr,
                   "usage: %s [--quick] [--samples N] [--photo FILE] [--out DIR] [--only FAMILY]"
                   " [--save-times FILE] [--plain-times FILE]\n",
                   argv[0]);
      return 2;
    }
  }
  opt.load_at_start = load_average();
  cv::setNumThreads(1);
  Scenes scenes;
  scenes.photo = load_photo(opt.photo, scenes.source);

  // The bandwidth ceiling at the sizes the rows move: a u8 frame of each
  // size, and an f32 full-HD frame.
  for (size_t b : {(size_t)640 * 480, (size_t)1920 * 1080, (size_t)1920 * 1080 * 4})
    measure_bandwidth(b, opt.samples);
  std::printf("%-34s %-10s %10s %10s %7s\n", "operation / peer", "size", "Sorn ms", "peer ms", "ratio");
  std::vector<Family> all = families();
  std::stable_sort(all.begin(), all.end(),
                   [](const Family &a, const Family &b) { return a.rank < b.rank; });
  bool ran = false;
  for (const Family &f : all) {
    if (!opt.only.empty() && opt.only != f.name) continue;
    f.rows(scenes, opt);
    ran = true;
  }
  if (!ran) {
    std::fprintf(stderr, "no family of rows is named '%s'\n", opt.only.c_str());
    return 2;
  }
  // A run that saves its times is the plain half of a report: it writes nothing else.
  if (!opt.save_times.empty()) save_times(opt.save_times);
  if (!opt.only.empty() || !opt.save_times.empty()) return g_failed ? 1 : 0;

  if (!opt.plain_times.empty()) read_plain_times(opt.plain_times);
  write_svg(opt.out + "/compare/ratios.svg");
  write_markdown(opt.out + "/RESULTS.md", opt, scenes);
  std::printf("wrote %s/RESULTS.md and %s/compare/ratios.svg\n", opt.out.c_str(), opt.out.c_str());
  return g_failed ? 1 : 0;
}
