// Multiply-accumulate at its entries: the operand checks in their order,
// and the operations themselves, which this build does not have: every call
// that passes the checks answers SORN_ENOTSUP and writes nothing.
#include <gtest/gtest.h>

#include <vector>

#include "testkit.h"

using sorn_test::Image;
using sorn_test::make_roi;

namespace {

using Arrays = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                              const SornArray *, const SornArray *, const SornVolume *,
                              const SornVolume *, const SornVolume *, const SornVolume *, int32_t,
                              uint32_t);
using Constant = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                const SornArray *, const double *, const SornVolume *,
                                const SornVolume *, const SornVolume *, int32_t, uint32_t);
using Constants = SornStatus (*)(SornXE *, SornFlags, const SornArray *, const SornArray *,
                                 const double *, const double *, const SornVolume *,
                                 const SornVolume *, int32_t, uint32_t);
struct Family {
  const char *name;
  Arrays arrays;
  Constant constant;
  Constants constants;
};
const Family kFamilies[] = {{"MulAdd", &SornMulAdd, &SornMulAddC, &SornMulAddCC},
                            {"MulSub", &SornMulSub, &SornMulSubC, &SornMulSubCC},
                            {"MulRSub", &SornMulRSub, &SornMulRSubC, &SornMulRSubCC}};

TEST(MacPending, EveryFormDeclinesAfterItsChecksAndWritesNothing) {
  sorn_test::ScratchEnv env;
  const double c[4] = {2, 2, 2, 2}, k[4] = {1, 1, 1, 1};
  for (const Family &f : kFamilies)
    for (uint32_t t : {SORN_U8, SORN_S16, SORN_S32, SORN_F32}) {
      Image d(4, 5, 3, t, 4, 0x5c), a(4, 5, 3, t), b(4, 5, 3, t), cc(4, 5, 3, t);
      const std::vector<uint8_t> before = d.bytes_copy();
      SornArray rd = d.record(), ra = a.record(), rb = b.record(), rc = cc.record();
      const SornVolume roi = make_roi(1, 1, 2, 3, 3);
      EXPECT_EQ(f.arrays(env.xe(), 0, &rd, &ra, &rb, &rc, &roi, nullptr, nullptr, nullptr, 0, 0),
                SORN_ENOTSUP)
          << f.name;
      // A null first source is the destination.
      EXPECT_EQ(f.arrays(env.xe(), 0, &rd, nullptr, &rb, &rc, nullptr, nullptr, nullptr, nullptr,
                         0, 0),
                SORN_ENOTSUP)
          << f.name;
      EXPECT_EQ(f.constant(env.xe(), 0, &rd, &ra, &rb, c, nullptr, nullptr, nullptr, 0, 0),
                SORN_ENOTSUP)
          << f.name;
      EXPECT_EQ(f.constants(env.xe(), 0, &rd, &ra, c, k, nullptr, nullptr, 0, 0), SORN_ENOTSUP)
          << f.name;
      EXPECT_EQ(d.bytes_copy(), before) << f.name;
      EXPECT_TRUE(d.guards_intact());
      EXPECT_TRUE(env.at_mark());
    }
}

TEST(MacEntries, FailuresInTheirOrder) {
  sorn_test::ScratchEnv env;
  Image d(4, 5, 1, SORN_U8, 0, 0x31), a(4, 5, 1, SORN_U8), b(4, 5, 1, SORN_U8),
      c3(4, 5, 3, SORN_U8);
  const std::vector<uint8_t> before = d.bytes_copy();
  SornArray rd = d.record(), ra = a.record(), rb = b.record(), rc3 = c3.record();
  const double c[4] = {2, 2, 2, 2};
  for (const Family &f : kFamilies) {
    // Records: no destination, a source of other channels, no constants.
    EXPECT_EQ(f.arrays(env.xe(), 0, nullptr, &ra, &rb, &rb, nullptr, nullptr, nullptr, nullptr, 0,
                       0),
              SORN_EINVAL);
    EXPECT_EQ(f.arrays(env.xe(), 0, &rd, &ra, &rb, &rc3, nullptr, nullptr, nullptr, nullptr, 0, 0),
              SORN_EINVAL);
    EXPECT_EQ(f.constant(env.xe(), 0, &rd, &ra, &rb, nullptr, nullptr, nullptr, nullptr, 0, 0),
              SORN_EINVAL);
    EXPECT_EQ(f.constants(env.xe(), 0, &rd, &ra, c, nullptr, nullptr, nullptr, 0, 0), SORN_EINVAL);
    EXPECT_EQ(f.constants(env.xe(), 0, &rd, &ra, nullptr, c, nullptr, nullptr, 0, 0), SORN_EINVAL);
    // Then an empty region, before the operation is asked for.
    const SornVolume empty = make_roi(0, 0, 0, 5, 1);
    EXPECT_EQ(f.arrays(env.xe(), 0, &rd, &ra, &rb, &rb, &empty, nullptr, nullptr, nullptr, 0, 0),
              SORN_ENOSPC);
    EXPECT_EQ(f.constant(env.xe(), 0, &rd, &ra, &rb, c, &empty, nullptr, nullptr, 0, 0),
              SORN_ENOSPC);
    EXPECT_EQ(f.constants(env.xe(), 0, &rd, &ra, c, c, &empty, nullptr, 0, 0), SORN_ENOSPC);
  }
  EXPECT_EQ(_T_SornArith3(SORN_FOURCC('m', 'u', 'l', ' '), env.xe(), 0, &rd, &ra, &rb, &rb,
                          nullptr, nullptr, nullptr, nullptr, 0, 0),
            SORN_EINVAL)
      << "an unknown selector";
  EXPECT_EQ(d.bytes_copy(), before);
}

}  // namespace
