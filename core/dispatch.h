// What every dispatcher (layer 3) shares: the channel-format nibble, the
// channel words that have kernels, the last three cells, and the kernel
// tables with their one lookup.
//
// A family writes its type table once, in sorn.h (SORN_ADD_TRIPLES,
// SORN_SUM_TYPES, ...). Beside its dispatcher, each line of that table
// becomes a row {key, kernel} through SORN_KERNEL_ROW, and the exported
// lookup is one call of sorn::lookup:
//
//   #define ADD_ROW(d, a, b) SORN_KERNEL_ROW(sorna__add_c1_##d##a##b,
//                                            SORN_TYPECODE(d), SORN_TYPECODE(a), SORN_TYPECODE(b))
//   constexpr sorn::KernelRow<SornArith2Kernel> kAdd[] = {SORN_ADD_TRIPLES(ADD_ROW)};
//
//   SornArith2Kernel sorna__aaddfun_imp(uint32_t d, uint32_t a, uint32_t b, SornStatus *status) {
//     return sorn::lookup(kAdd, sorn::kernel_key(d, a, b), sorn::refusal_for(d, a, b), status);
//   }
//
// Tables keyed by a type triple say the same with SORN_TRIPLE_ROW and
// SORN_TRIPLE_LOOKUP. A family whose refusals differ (a channel word that
// has no kernel is invalid whatever the type) answers those before its
// lookup, with sorn::refusal.
#pragma once

#include <sorn.h>

#include <cstddef>
#include <cstdint>

#include "core/elem_types.h"

namespace sorn {

/* ---------------- before the lookup ---------------- */

// The channel-format nibble of the flags comes from the channels word when
// the caller gave none.
inline SornFlags with_channel_format(SornFlags flags, uint32_t w) {
  if ((flags & SORN_F_CHFORMAT) == 0 && (w & 0xf0u) != 0) flags |= (SornFlags)(w & 0xf0u);
  return flags;
}

// The channel words that families keyed by channels have kernels for: 1, 3,
// and 4 or 11 for four channels. 0 for any other word.
constexpr int32_t kernel_channels(uint32_t w) {
  switch (w) {
    case 1: return 1;
    case 3: return 3;
    case 4:
    case 11: return 4;
    default: return 0;
  }
}

// Layers 3 and 4 look at the last three cells only: an outer dimension that
// the frame could not merge leaves the first plane to be worked. A second
// vector of strides (a mask's) is cut the same way; null stays null.
struct Inner {
  int32_t n;
  const int32_t *dims;
  const int32_t *strides;
  const int32_t *mstrides;
};
inline Inner inner3(SornDimPack pack, const int32_t *dims, const int32_t *strides,
                    const int32_t *mstrides = nullptr) {
  int32_t n = (int32_t)(pack & 15u);
  if (n > 3) {
    dims += n - 3;
    if (strides) strides += n - 3;
    if (mstrides) mstrides += n - 3;
    n = 3;
  }
  return {n, dims, strides, mstrides};
}

/* ---------------- kernel tables ---------------- */

// A key of one nibble per code, the first code highest: kernel_key(d, a, b)
// is d << 8 | a << 4 | b, the key that the type triples are known by, and
// kernel_key(c, t) that of a channel count and a type. A code of 16 or more
// fits no nibble: its key is one that no table holds.
constexpr uint32_t kNoKey = 0xffffffffu;
template <class... C> constexpr uint32_t kernel_key(C... codes) {
  uint32_t key = 0;
  bool fits = true;
  ((fits = fits && (uint32_t)codes < 16u, key = key << 4 | ((uint32_t)codes & 15u)), ...);
  return fits ? key : kNoKey;
}

// One row of a kernel table.
template <class K> struct KernelRow {
  uint32_t key;
  K kernel;
};
#define SORN_KERNEL_ROW(kernel, ...) {::sorn::kernel_key(__VA_ARGS__), &kernel},
// The row of a type-table line (d, a, b) whose kernel is named
// <prefix><d><a><b>, as sorna__add_c1_s32f32u8.
#define SORN_TRIPLE_ROW(prefix, d, a, b) \
  SORN_KERNEL_ROW(prefix##d##a##b, SORN_TYPECODE(d), SORN_TYPECODE(a), SORN_TYPECODE(b))

// The row of a pair line (d, a) whose kernel is named <prefix><d><a>, as
// sorna__neg_c1_u8s16.
#define SORN_PAIR_ROW(prefix, d, a) \
  SORN_KERNEL_ROW(prefix##d##a, SORN_TYPECODE(d), SORN_TYPECODE(a))
// The row of a line (c, d, a) of a table keyed by a channel count and two
// types, whose kernel is named <prefix><c>_<d><a>, as sorna__divC_c3_u8u8.
#define SORN_COUNT_ROW(c, prefix, d, a) \
  SORN_KERNEL_ROW(prefix##c##_##d##a, c, SORN_TYPECODE(d), SORN_TYPECODE(a))

// What a key without a kernel answers: known codes are not supported, any
// unknown code is invalid.
template <class... C> constexpr SornStatus refusal_for(C... codes) {
  return known_types(codes...) ? SORN_ENOTSUP : SORN_EINVAL;
}

// The status stub of a refusal, as a kernel of type K, with the status in
// *status when status is not null.
//
// A lookup always hands back something callable, so that a caller holding
// only the pointer can call it: the stubs read none of their arguments, and
// under the 64-bit Linux calling convention the caller owns its argument
// registers and stack, so a call with more arguments than the stub declares
// leaves nothing behind. The library's own dispatchers do not lean on that:
// the language leaves a call through another function type undefined, so
// they ask for the status and return it without calling the stub.
template <class K> K refusal(SornStatus why, SornStatus *status) {
  if (status) *status = why;
  SornStatus (*stub)(void) = why == SORN_ENOTSUP   ? &sorna_proc_enotsup
                             : why == SORN_ENOTIMP ? &sorna_proc_enotimp
                                                   : &sorna_proc_einval;
  // void (*)(void) is the language's generic function pointer type.
  return reinterpret_cast<K>(reinterpret_cast<void (*)(void)>(stub));
}

// The kernel of a key, or the stub of `missing` when the table has no row
// for it. Tables are short and asked once per call.
template <class K, size_t N>
K lookup(const KernelRow<K> (&table)[N], uint32_t key, SornStatus missing, SornStatus *status) {
  for (const KernelRow<K> &row : table) {
    if (row.key == key) {
      if (status) *status = SORN_OK;
      return row.kernel;
    }
  }
  return refusal<K>(missing, status);
}

// The lookup of a family keyed by a type triple: destination, first source,
// second source (or the constant's type), the key d << 8 | a << 4 | b.
template <class K, size_t N>
K lookup_triple(const KernelRow<K> (&table)[N], uint32_t d, uint32_t a, uint32_t b,
                SornStatus *status) {
  return lookup(table, kernel_key(d, a, b), refusal_for(d, a, b), status);
}

// The lookup of a family keyed by a type pair, destination and source, the
// key d << 4 | a.
template <class K, size_t N>
K lookup_pair(const KernelRow<K> (&table)[N], uint32_t d, uint32_t a, SornStatus *status) {
  return lookup(table, kernel_key(d, a), refusal_for(d, a), status);
}

// The lookup of a family that keeps one constant per channel, keyed by the
// channel count (1, 3 or 4) and two types, the key c << 8 | d << 4 | a: any
// other count is invalid whatever the types.
template <class K, size_t N>
K lookup_count(const KernelRow<K> (&table)[N], uint32_t d, uint32_t a, int32_t count,
               SornStatus *status) {
  if (count != 1 && count != 3 && count != 4) return refusal<K>(SORN_EINVAL, status);
  return lookup(table, kernel_key((uint32_t)count, d, a), refusal_for(d, a), status);
}

// The lookup of a family keyed by channel word and element type, the key
// kernel_key(channels, type): a channel word without kernels is invalid
// whatever the type; `missing` answers a type without a kernel.
template <class K, size_t N>
K lookup_channels(const KernelRow<K> (&table)[N], uint32_t chword, uint32_t type,
                  SornStatus missing, SornStatus *status) {
  const int32_t c = kernel_channels(chword);
  if (c == 0) return refusal<K>(SORN_EINVAL, status);
  return lookup(table, kernel_key((uint32_t)c, type), missing, status);
}

}  // namespace sorn

// An exported lookup over a triple table, K name(d, a, b, status).
#define SORN_TRIPLE_LOOKUP(name, K, table)                         \
  K name(uint32_t d, uint32_t a, uint32_t b, SornStatus *status) { \
    return ::sorn::lookup_triple(table, d, a, b, status);          \
  }
// An exported lookup over a pair table, K name(d, a, status).
#define SORN_PAIR_LOOKUP(name, K, table)               \
  K name(uint32_t d, uint32_t a, SornStatus *status) { \
    return ::sorn::lookup_pair(table, d, a, status);   \
  }
// An exported lookup over a table keyed by channel count and two types,
// K name(d, a, channels, status).
#define SORN_COUNT_LOOKUP(name, K, table)                                \
  K name(uint32_t d, uint32_t a, int32_t channels, SornStatus *status) { \
    return ::sorn::lookup_count(table, d, a, channels, status);          \
  }
