#include "env.h"

#include <atomic>
#include <cstring>

namespace sorn::python {

namespace {

std::atomic<int64_t> g_live{0};

// The record opens its memory stack on the first request for scratch and
// keeps its largest chunk between calls; the thread's end gives it all back.
struct ThreadEnv {
  SornXE xe;
  ThreadEnv() {
    std::memset(&xe, 0, sizeof xe);
    SornXEinit(&xe, nullptr);
    g_live.fetch_add(1, std::memory_order_relaxed);
  }
  ~ThreadEnv() {
    SornXEfini(&xe);
    g_live.fetch_sub(1, std::memory_order_relaxed);
  }
  ThreadEnv(const ThreadEnv &) = delete;
  ThreadEnv &operator=(const ThreadEnv &) = delete;
};

}  // namespace

SornXE *thread_env() {
  thread_local ThreadEnv env;
  return &env.xe;
}

int64_t live_envs() { return g_live.load(std::memory_order_relaxed); }

}  // namespace sorn::python
