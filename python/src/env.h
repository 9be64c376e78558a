// The execution environment of the calling thread. Every call into the
// library takes its scratch memory from one: each thread has its own, made
// when the thread first calls, ended when the thread ends, so that Python
// threads run the library side by side without sharing a memory stack.
#pragma once

#include <sorn.h>

#include <cstdint>

namespace sorn::python {

// This thread's environment, made on first use.
SornXE *thread_env();

// How many environments are alive in the process: one per thread that has
// called and not yet ended.
int64_t live_envs();

}  // namespace sorn::python
