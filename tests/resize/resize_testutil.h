// What the resize tests share: an environment whose scratch level is
// checked after every call, the kernels of the catalogue as a list, and
// random bytes.
#pragma once

#include <gtest/gtest.h>
#include <sorn.h>

#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "testkit.h"

namespace resize_test {

using Env = sorn_test::ScratchEnv;

// Bytes per pixel of each unit, by its class token.
#define RESIZE_TEST_UNIT_BYTES(unit, bytes) constexpr int32_t kBytes_##unit = bytes;
SORN_RESIZE_NN_UNITS(RESIZE_TEST_UNIT_BYTES)
#undef RESIZE_TEST_UNIT_BYTES

struct Kernel {
  std::string name;
  SornResizeRowKernel run;
  int32_t bytes;  // the pixel unit
};

// Every kernel of the catalogue, every family of the four-byte unit and
// every selector: all of them give the result of the rule.
inline std::vector<Kernel> all_kernels() {
  std::vector<Kernel> k;
#define RESIZE_TEST_KERNEL(unit, name, ...) \
  k.push_back({#unit #name, &__sorna__resize_nn_##unit##name, kBytes_##unit});
  SORN_RESIZE_NN_KERNELS(RESIZE_TEST_KERNEL)
#undef RESIZE_TEST_KERNEL
#define RESIZE_TEST_FAMILY(fam) k.push_back({"c1w32" #fam, &__sorna__resize_nn_c1w32##fam, 4});
  SORN_RESIZE_NN_C1W32_FAMILIES(RESIZE_TEST_FAMILY)
#undef RESIZE_TEST_FAMILY
  k.push_back({"c1w8 selector", &__sorna__resize_nn_c1w8, 1});
  k.push_back({"c1w32 selector", &__sorna__resize_nn_c1w32, 4});
  k.push_back({"c1w32_dfl", &__sorna__resize_nn_c1w32_dfl, 4});
  k.push_back({"c2w32 selector", &__sorna__resize_nn_c2w32, 8});
  k.push_back({"c3w32 selector", &__sorna__resize_nn_c3w32, 12});
  k.push_back({"c4w32 selector", &__sorna__resize_nn_c4w32, 16});
  return k;
}

inline void fill_random(std::vector<uint8_t> &v, std::mt19937_64 &rng) {
  for (auto &b : v) b = (uint8_t)rng();
}

}  // namespace resize_test
