// Allocation failure on demand, for the out-of-memory paths.
//
// The library takes every block from the base library: memory stacks
// (KuSMEMSTGopen, KuSMEMSTGaalloc) and heap blocks (_KuMcalloc,
// _KuMrealloc). A test program that links alloc_failure.cpp puts its own
// definitions of those four in front of the base library's (the dynamic
// linker binds the library's calls to the program's definitions first);
// they pass every request on, except the one an armed AllocFailure picks,
// which answers null as the base library does when memory runs out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>

namespace sorn_test {

// The allocators a failure may pick, as a mask.
enum AllocKind : unsigned {
  kStackOpen = 1,     // KuSMEMSTGopen of a stack on the heap
  kStackBlock = 2,    // KuSMEMSTGaalloc, scratch and builder memory
  kHeapCalloc = 4,    // _KuMcalloc
  kHeapRealloc = 8,   // _KuMrealloc, every growing block
  kAnyAlloc = 15,
};

// While it lives, request number `fail_at` (0 is the first request made
// after construction) answers null; with `every_later` true, so does every
// request after it. Only requests of the kinds in `kinds` are counted and
// failed; the others pass.
class AllocFailure {
 public:
  explicit AllocFailure(int64_t fail_at, bool every_later = false, unsigned kinds = kAnyAlloc);
  ~AllocFailure();
  AllocFailure(const AllocFailure &) = delete;
  AllocFailure &operator=(const AllocFailure &) = delete;

  // Requests seen so far, failed ones included.
  int64_t requests() const;
  // True once a request has been failed.
  bool fired() const;
  // The size asked for by the last stack block request seen (a failed one
  // too), 0 before any: how large a scratch block a call takes. With
  // fail_at -1 nothing fails and the requests are only watched.
  size_t last_block_size() const;
};

// Calls `run(k)` for k = 0, 1, 2, ... `run` sets up, arms an AllocFailure
// at request k around the call under test only, checks the outcome, and
// answers whether the failure fired. The sweep stops at the first run in
// which it did not (the call made fewer than k + 1 requests), so every
// request the call makes is failed once. Answers the number of runs in which
// a request failed.
int64_t for_each_allocation_failure(const std::function<bool(int64_t k)> &run,
                                    int64_t limit = 100000);

}  // namespace sorn_test
