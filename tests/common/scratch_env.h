// An execution environment for a test, whose scratch stack can be checked
// to be back at the level it had when the environment was made: a small
// block taken now lands where it landed then.
#pragma once

#include <sorn.h>

#include <cstring>

namespace sorn_test {

class ScratchEnv {
 public:
  ScratchEnv() {
    std::memset(&xe_, 0, sizeof xe_);
    SornXEinit(&xe_, nullptr);
    mark_ = probe();
  }
  ~ScratchEnv() { SornXEfini(&xe_); }
  ScratchEnv(const ScratchEnv &) = delete;
  ScratchEnv &operator=(const ScratchEnv &) = delete;
  SornXE *xe() { return &xe_; }
  bool at_mark() { return probe() == mark_; }

 private:
  void *probe() {
    void *p = SornXEalloca(&xe_, 16, 0);
    SornXEfreea(&xe_, p);
    return p;
  }
  SornXE xe_;
  void *mark_;
};

}  // namespace sorn_test
