// The execution environment of a benchmark: one SornXE, opened for the
// benchmark and finished after it, whose scratch stack every call reuses.
#pragma once

#include <sorn.h>

#include <cstring>

namespace bench {

struct Env {
  SornXE xe;
  Env() {
    std::memset(&xe, 0, sizeof xe);
    SornXEinit(&xe, nullptr);
  }
  ~Env() { SornXEfini(&xe); }
  Env(const Env &) = delete;
  Env &operator=(const Env &) = delete;
};

}  // namespace bench
