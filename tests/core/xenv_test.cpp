// The execution environment: lazy stacks in the record's own room, stacks of
// the caller remembered by a mark, records living on their own stack, and
// the plain-code answer to the vector question.
#include <gtest/gtest.h>
#include <sorn.h>

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "testkit.h"

namespace {

SornXE zeroed() {
  SornXE xe;
  std::memset(&xe, 0, sizeof xe);
  return xe;
}

bool same_level(const KuMark &a, const KuMark &b) {
  return a.w[0] == b.w[0] && a.w[1] == b.w[1] && a.w[2] == b.w[2];
}

KuMark level_of(void *s) {
  KuMark m;
  KuSMEMSTGgetstate(&m, s, 0);
  return m;
}

bool all_zero(const void *p, size_t n) {
  const auto *b = static_cast<const uint8_t *>(p);
  for (size_t i = 0; i < n; ++i)
    if (b[i]) return false;
  return true;
}

uintptr_t addr(const void *p) { return reinterpret_cast<uintptr_t>(p); }

void *own_room(SornXE &xe) { return static_cast<void *>(xe.stackstore); }

}  // namespace

TEST(SornXE, RecordLayoutIsFixed) {
  EXPECT_EQ(offsetof(SornXE, mmstack), 0u);
  EXPECT_EQ(offsetof(SornXE, state), 8u);
  EXPECT_EQ(offsetof(SornXE, openarg), 16u);
  EXPECT_EQ(offsetof(SornXE, stackstore), 24u);
  EXPECT_EQ(offsetof(SornXE, mark), 72u);
  EXPECT_EQ(offsetof(SornXE, tail), 96u);
  EXPECT_EQ(sizeof(SornXE), 104u);
}

TEST(SornXE, InitOnZeroedRecordAttachesNothingYet) {
  SornXE xe = zeroed();
  EXPECT_EQ(SornXEinit(&xe, nullptr), &xe);
  EXPECT_EQ(xe.mmstack, nullptr);
  EXPECT_EQ(xe.state, 1u);
  EXPECT_EQ(xe.openarg, 0u);
  SornXEfini(&xe);
}

TEST(SornXE, AllocaWithNoStackOpensOneInTheRecordAndFiniDestroysIt) {
  SornXE xe = zeroed();
  SornXEinit(&xe, nullptr);
  void *b = SornXEalloca(&xe, 100, 0);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(xe.mmstack, own_room(xe));
  // Enough to need several chunks, all of which fini must give back.
  for (int i = 0; i < 50; ++i) ASSERT_NE(SornXEalloca(&xe, 20000, 8), nullptr);
  EXPECT_EQ(SornXEfini(&xe), &xe);
  EXPECT_EQ(xe.mmstack, nullptr);
  EXPECT_EQ(xe.state, 0u);
  EXPECT_EQ(xe.openarg, 0u);
}

TEST(SornXE, Init2OnAnInitialisedRecordChangesNothing) {
  SornXE xe = zeroed();
  SornXEinit2(&xe, nullptr, 4);
  ASSERT_NE(SornXEalloca(&xe, 10, 0), nullptr);
  SornXE before = xe;
  void *other = sorn_mmstack_open(nullptr, 0);
  EXPECT_EQ(SornXEinit2(&xe, other, 9), &xe);
  EXPECT_EQ(std::memcmp(&xe, &before, sizeof xe), 0);
  EXPECT_EQ(SornXEinit(&xe, other), &xe);
  EXPECT_EQ(std::memcmp(&xe, &before, sizeof xe), 0);
  SornXEfini(&xe);
  sorn_mmstack_close(other);
}

TEST(SornXE, Init2WithTheRecordsOwnRoomStoresNull) {
  SornXE xe = zeroed();
  EXPECT_EQ(SornXEinit2(&xe, own_room(xe), 7), &xe);
  EXPECT_EQ(xe.mmstack, nullptr);
  EXPECT_EQ(xe.openarg, 7u);
  EXPECT_EQ(xe.state, 1u);
  EXPECT_TRUE(all_zero(&xe.mark, sizeof xe.mark));
  SornXEfini(&xe);
}

TEST(SornXE, FreeaWithNoStackAttachedDoesNothing) {
  SornXE xe = zeroed();
  SornXEinit(&xe, nullptr);
  SornXE before = xe;
  int local = 0;
  SornXEfreea(&xe, &local);
  SornXEfreea(&xe, nullptr);
  EXPECT_EQ(std::memcmp(&xe, &before, sizeof xe), 0);
  EXPECT_EQ(xe.mmstack, nullptr);
}

TEST(SornXE, UseSimdIsFalseAndSettlesTheGlobalUnlessPlainIsForced) {
  SornXE xe = zeroed();
  SornXEinit(&xe, nullptr);
  _G_sorn_use_simd = -1;
  EXPECT_FALSE(SornXEuseSimd(&xe, SORN_F_PLAIN));
  EXPECT_EQ(_G_sorn_use_simd, -1);  // the forced answer asks nothing
  EXPECT_FALSE(SornXEuseSimd(&xe, SORN_F_PLAIN | 0xF0));
  EXPECT_EQ(_G_sorn_use_simd, -1);
  EXPECT_FALSE(SornXEuseSimd(&xe, 0));
  EXPECT_EQ(_G_sorn_use_simd, 0);
  EXPECT_FALSE(SornXEuseSimd(&xe, 0x100000));
  EXPECT_FALSE(SornXEuseSimd(&xe, SORN_F_PLAIN));
  EXPECT_EQ(_G_sorn_use_simd, 0);
  // The environment itself is not consulted.
  EXPECT_FALSE(SornXEuseSimd(nullptr, 0));
  SornXEfini(&xe);
}

TEST(SornXE, UseSimdReadsASettledGlobal) {
  // Nothing in the library ever stores a non-zero value; a settled word is
  // only read.
  _G_sorn_use_simd = 1;
  EXPECT_TRUE(SornXEuseSimd(nullptr, 0));
  EXPECT_FALSE(SornXEuseSimd(nullptr, SORN_F_PLAIN));
  EXPECT_EQ(_G_sorn_use_simd, 1);
  _G_sorn_use_simd = 0;
  EXPECT_FALSE(SornXEuseSimd(nullptr, 0));
}

TEST(SornXE, UseSimdQuestionAlwaysAnswersZero) {
  _G_sorn_use_simd = -1;
  EXPECT_EQ(__sorn_use_simd(), 0);
  EXPECT_EQ(_G_sorn_use_simd, 0);
  EXPECT_EQ(__sorn_use_simd(), 0);
  EXPECT_EQ(_G_sorn_use_simd, 0);
}

TEST(SornXE, CallersStackIsReturnedToItsMarkByFini) {
  void *s = sorn_mmstack_open(nullptr, 0);
  ASSERT_NE(s, nullptr);
  auto *keep = static_cast<uint8_t *>(sorn_mmstack_alloca(s, 3000, 0));
  ASSERT_NE(keep, nullptr);
  std::memset(keep, 0x3c, 3000);
  KuMark before = level_of(s);

  SornXE xe = zeroed();
  EXPECT_EQ(SornXEinit(&xe, s), &xe);
  EXPECT_EQ(xe.mmstack, s);
  EXPECT_TRUE(same_level(xe.mark, before));
  void *first = SornXEalloca(&xe, 500, 0);
  ASSERT_NE(first, nullptr);
  for (int i = 0; i < 40; ++i) ASSERT_NE(SornXEalloca(&xe, 30000, 64), nullptr);

  SornXEfini(&xe);
  EXPECT_TRUE(same_level(level_of(s), before));
  EXPECT_EQ(xe.state, 0u);
  EXPECT_EQ(xe.openarg, 0u);
  EXPECT_EQ(xe.mmstack, s);  // the caller's stack stays named, untouched
  for (int i = 0; i < 3000; ++i) ASSERT_EQ(keep[i], 0x3c);
  // The stack is the caller's: still open and usable.
  EXPECT_EQ(sorn_mmstack_alloca(s, 500, 0), first);
  sorn_mmstack_close(s);
}

TEST(SornXE, FiniOfAnUninitialisedRecordDoesNothing) {
  SornXE xe = zeroed();
  int local;
  xe.mmstack = &local;
  xe.openarg = 3;
  SornXE before = xe;
  EXPECT_EQ(SornXEfini(&xe), &xe);
  EXPECT_EQ(std::memcmp(&xe, &before, sizeof xe), 0);
}

TEST(SornXE, CloseOfNullDoesNothing) { SornXEclose(nullptr); }

TEST(SornXE, ClearDropsAllScratchSinceAttachment) {
  void *s = sorn_mmstack_open(nullptr, 0);
  ASSERT_NE(sorn_mmstack_alloca(s, 100, 0), nullptr);
  SornXE xe = zeroed();
  SornXEinit(&xe, s);
  for (int i = 0; i < 30; ++i) ASSERT_NE(SornXEalloca(&xe, 25000, 0), nullptr);
  EXPECT_EQ(SornXEclear(&xe), &xe);
  EXPECT_TRUE(same_level(level_of(s), xe.mark));
  EXPECT_EQ(xe.state, 1u);
  EXPECT_EQ(xe.mmstack, s);
  SornXEfini(&xe);
  sorn_mmstack_close(s);

  // With a stack of its own: back to the empty stack, which stays open.
  SornXE own = zeroed();
  SornXEinit(&own, nullptr);
  EXPECT_EQ(SornXEclear(&own), &own);  // no stack yet: nothing
  EXPECT_EQ(own.mmstack, nullptr);
  void *first = SornXEalloca(&own, 64, 0);
  for (int i = 0; i < 30; ++i) ASSERT_NE(SornXEalloca(&own, 25000, 0), nullptr);
  SornXEclear(&own);
  EXPECT_EQ(own.mmstack, own_room(own));
  EXPECT_TRUE(same_level(level_of(own.mmstack), own.mark));
  EXPECT_NE(SornXEalloca(&own, 64, 0), nullptr);
  (void)first;
  SornXEfini(&own);
}

TEST(SornXE, OpenWithNothingMakesARecordOnItsOwnHeapStack) {
  SornXE *xe = SornXEopen(nullptr, nullptr, 0);
  ASSERT_NE(xe, nullptr);
  EXPECT_EQ(addr(xe) % 8, 0u);
  EXPECT_EQ(xe->state, 17u);
  ASSERT_NE(xe->mmstack, nullptr);
  EXPECT_NE(xe->mmstack, own_room(*xe));
  EXPECT_EQ(xe->openarg, 0u);
  EXPECT_TRUE(all_zero(xe->stackstore, sizeof xe->stackstore));
  EXPECT_EQ(xe->tail, 0u);
  // The mark lies above the record, so that clearing keeps it alive.
  for (int i = 0; i < 30; ++i) {
    auto *b = static_cast<uint8_t *>(SornXEalloca(xe, 20000, 0));
    ASSERT_NE(b, nullptr);
    std::memset(b, 0xff, 20000);
  }
  SornXEclear(xe);
  EXPECT_EQ(xe->state, 17u);
  ASSERT_NE(SornXEalloca(xe, 100, 0), nullptr);
  SornXEclose(xe);  // the record and its stack go together
}

TEST(SornXE, OpenWithNothingPassesTheWordToTheNewStack) {
  void *parent = sorn_mmstack_open(nullptr, 0);
  SornXE *xe = SornXEopen(nullptr, nullptr, addr(parent));
  ASSERT_NE(xe, nullptr);
  EXPECT_EQ(xe->openarg, addr(parent));
  EXPECT_EQ(KuSMEMSTGparent(xe->mmstack), addr(parent));
  SornXEclose(xe);
  sorn_mmstack_close(parent);
}

TEST(SornXE, OpenOfAGivenRecordZeroesItFirst) {
  SornXE xe;
  std::memset(&xe, 0xab, sizeof xe);
  EXPECT_EQ(SornXEopen(&xe, nullptr, 9), &xe);
  EXPECT_EQ(xe.mmstack, nullptr);
  EXPECT_EQ(xe.state, 1u);  // not on a stack: no bit 16
  EXPECT_EQ(xe.openarg, 9u);
  EXPECT_TRUE(all_zero(xe.stackstore, sizeof xe.stackstore));
  EXPECT_TRUE(all_zero(&xe.mark, sizeof xe.mark));
  EXPECT_EQ(xe.tail, 0u);
  // The lazy stack gets the stored word.
  ASSERT_NE(SornXEalloca(&xe, 10, 0), nullptr);
  EXPECT_EQ(KuSMEMSTGparent(xe.mmstack), 9u);
  SornXEclose(&xe);  // a record of the caller: only finished
  EXPECT_EQ(xe.mmstack, nullptr);
  EXPECT_EQ(xe.state, 0u);
}

TEST(SornXE, OpenOfAGivenRecordOnACallersStackTakesAMark) {
  void *s = sorn_mmstack_open(nullptr, 0);
  ASSERT_NE(sorn_mmstack_alloca(s, 77, 0), nullptr);
  KuMark before = level_of(s);
  SornXE xe;
  std::memset(&xe, 0x5a, sizeof xe);
  SornXEopen(&xe, s, 0);
  EXPECT_EQ(xe.state, 1u);
  EXPECT_EQ(xe.mmstack, s);
  EXPECT_TRUE(same_level(xe.mark, before));
  ASSERT_NE(SornXEalloca(&xe, 100000, 0), nullptr);
  SornXEclose(&xe);
  EXPECT_TRUE(same_level(level_of(s), before));
  sorn_mmstack_close(s);
}

TEST(SornXE, RecordOpenedOnACallersStackTakesThatStackWithItOnClose) {
  // The caller hands its stack over: the record lies on it, and closing the
  // record closes the stack (the sanitizer build shows it was freed).
  void *s = sorn_mmstack_open(nullptr, 0);
  ASSERT_NE(s, nullptr);
  SornXE *xe = SornXEopen(nullptr, s, 0);
  ASSERT_NE(xe, nullptr);
  EXPECT_EQ(xe->mmstack, s);
  EXPECT_EQ(xe->state, 17u);
  ASSERT_NE(SornXEalloca(xe, 100, 0), nullptr);
  SornXEclose(xe);
}

TEST(SornXE, FiniOfARecordOnItsStackKeepsBit16AndCloseStillEndsIt) {
  SornXE *xe = SornXEopen(nullptr, nullptr, 0);
  ASSERT_NE(xe, nullptr);
  ASSERT_NE(SornXEalloca(xe, 50000, 0), nullptr);
  SornXEfini(xe);
  EXPECT_EQ(xe->state, 16u);
  EXPECT_NE(xe->mmstack, nullptr);
  SornXEclose(xe);
}

TEST(SornXE, InitMmstackOpensOnceWithTheStoredOrGivenWord) {
  SornXE xe = zeroed();
  SornXEinit2(&xe, nullptr, 5);
  EXPECT_EQ(SornXEinitMmstack(&xe, 0), &xe);
  EXPECT_EQ(xe.mmstack, own_room(xe));
  EXPECT_EQ(xe.openarg, 5u);
  EXPECT_EQ(KuSMEMSTGparent(xe.mmstack), 5u);
  EXPECT_TRUE(same_level(xe.mark, level_of(xe.mmstack)));
  // A stack is set: nothing changes, not even the word.
  SornXEinitMmstack(&xe, 8);
  EXPECT_EQ(xe.openarg, 5u);
  SornXEfini(&xe);

  SornXE other = zeroed();
  SornXEinit2(&other, nullptr, 5);
  SornXEinitMmstack(&other, 8);
  EXPECT_EQ(other.openarg, 8u);
  EXPECT_EQ(KuSMEMSTGparent(other.mmstack), 8u);
  SornXEfini(&other);
}

TEST(SornXE, MmstackOpensLazilyAndThenAnswersTheSameStack) {
  SornXE xe = zeroed();
  SornXEinit2(&xe, nullptr, 11);
  void *s = SornXEmmstack(&xe);
  EXPECT_EQ(s, own_room(xe));
  EXPECT_EQ(KuSMEMSTGparent(s), 11u);
  EXPECT_EQ(SornXEmmstack(&xe), s);
  SornXEfini(&xe);
}

TEST(SornXE, GetAndSetMmspReturnToALevel) {
  SornXE xe = zeroed();
  SornXEinit(&xe, nullptr);
  ASSERT_NE(SornXEalloca(&xe, 1000, 0), nullptr);
  KuMark m;
  EXPECT_EQ(SornXEgetmmsp(&xe, &m), &m);
  void *first = SornXEalloca(&xe, 128, 32);
  for (int i = 0; i < 20; ++i) ASSERT_NE(SornXEalloca(&xe, 40000, 0), nullptr);
  SornXEsetmmsp(&xe, &m);
  KuMark now;
  SornXEgetmmsp(&xe, &now);
  EXPECT_TRUE(same_level(now, m));
  EXPECT_EQ(SornXEalloca(&xe, 128, 32), first);
  SornXEfini(&xe);

  // On a record with no stack yet, asking for the level opens it.
  SornXE lazy = zeroed();
  SornXEinit(&lazy, nullptr);
  SornXEgetmmsp(&lazy, &m);
  EXPECT_EQ(lazy.mmstack, own_room(lazy));
  SornXEfini(&lazy);
}

TEST(SornXE, AllocaHonoursEveryAlignmentAndZeroMeansSixteen) {
  SornXE xe = zeroed();
  SornXEinit(&xe, nullptr);
  for (size_t align = 1; align <= 4096; align <<= 1) {
    ASSERT_NE(SornXEalloca(&xe, 1, 1), nullptr);
    void *b = SornXEalloca(&xe, 33, align);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(addr(b) % align, 0u) << "align " << align;
  }
  for (int i = 0; i < 20; ++i) {
    ASSERT_NE(SornXEalloca(&xe, 1, 1), nullptr);
    void *b = SornXEalloca(&xe, 3, 0);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(addr(b) % 16, 0u);
  }
  void *z = SornXEalloca(&xe, 0, 0);
  EXPECT_NE(z, nullptr);
  SornXEfini(&xe);
}

TEST(SornXE, AllocaThatCannotBeMetAnswersNull) {
  SornXE xe = zeroed();
  SornXEinit(&xe, nullptr);
  void *a = SornXEalloca(&xe, 10, 0);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(SornXEalloca(&xe, SIZE_MAX, 0), nullptr);
  EXPECT_EQ(SornXEalloca(&xe, SIZE_MAX - 100, 64), nullptr);
  EXPECT_NE(SornXEalloca(&xe, 10, 0), nullptr);
  SornXEfini(&xe);
}

TEST(SornXE, FreeaGivesBackInReverseOrder) {
  SornXE xe = zeroed();
  SornXEinit(&xe, nullptr);
  KuMark start;
  SornXEgetmmsp(&xe, &start);
  // An operation's pattern: tiles taken, given back newest first.
  void *t1 = SornXEalloca(&xe, 4096, 64);
  void *t2 = SornXEalloca(&xe, 70000, 64);
  void *t3 = SornXEalloca(&xe, 10, 0);
  ASSERT_TRUE(t1 && t2 && t3);
  SornXEfreea(&xe, t3);
  SornXEfreea(&xe, t2);
  SornXEfreea(&xe, t1);
  KuMark end;
  SornXEgetmmsp(&xe, &end);
  EXPECT_TRUE(same_level(start, end));
  // Freeing the first one alone takes the later ones with it.
  t1 = SornXEalloca(&xe, 4096, 64);
  t2 = SornXEalloca(&xe, 70000, 64);
  SornXEfreea(&xe, t1);
  SornXEgetmmsp(&xe, &end);
  EXPECT_TRUE(same_level(start, end));
  SornXEfini(&xe);
}

TEST(SornXE, ResetToACallersStackDestroysTheOwnOne) {
  void *s = sorn_mmstack_open(nullptr, 0);
  ASSERT_NE(sorn_mmstack_alloca(s, 10, 0), nullptr);
  SornXE xe = zeroed();
  SornXEinit(&xe, nullptr);
  for (int i = 0; i < 10; ++i) ASSERT_NE(SornXEalloca(&xe, 30000, 0), nullptr);
  ASSERT_EQ(xe.mmstack, own_room(xe));
  EXPECT_EQ(SornXEresetMmstack(&xe, s, 6), &xe);
  EXPECT_EQ(xe.mmstack, s);
  EXPECT_EQ(xe.state, 1u);
  EXPECT_EQ(xe.openarg, 6u);
  EXPECT_TRUE(same_level(xe.mark, level_of(s)));
  SornXEfini(&xe);
  sorn_mmstack_close(s);
}

TEST(SornXE, ResetToTheAttachedStackDoesNothing) {
  void *s = sorn_mmstack_open(nullptr, 0);
  SornXE xe = zeroed();
  SornXEinit(&xe, s);
  ASSERT_NE(SornXEalloca(&xe, 100, 0), nullptr);
  SornXE before = xe;
  KuMark level = level_of(s);
  EXPECT_EQ(SornXEresetMmstack(&xe, s, 99), &xe);
  EXPECT_EQ(std::memcmp(&xe, &before, sizeof xe), 0);
  EXPECT_TRUE(same_level(level_of(s), level));  // scratch not dropped
  SornXEfini(&xe);
  sorn_mmstack_close(s);

  // Likewise no stack at all, asked for none.
  SornXE none = zeroed();
  SornXEinit2(&none, nullptr, 3);
  before = none;
  EXPECT_EQ(SornXEresetMmstack(&none, nullptr, 4), &none);
  EXPECT_EQ(std::memcmp(&none, &before, sizeof none), 0);
}

TEST(SornXE, ResetFromOneCallersStackToAnother) {
  void *s1 = sorn_mmstack_open(nullptr, 0);
  void *s2 = sorn_mmstack_open(nullptr, 0);
  ASSERT_NE(sorn_mmstack_alloca(s1, 10, 0), nullptr);
  KuMark l1 = level_of(s1);
  SornXE xe = zeroed();
  SornXEinit(&xe, s1);
  ASSERT_NE(SornXEalloca(&xe, 100000, 0), nullptr);
  SornXEresetMmstack(&xe, s2, 0);
  EXPECT_TRUE(same_level(level_of(s1), l1));
  EXPECT_EQ(xe.mmstack, s2);
  // The own room, passed as a stack, means no stack.
  SornXEresetMmstack(&xe, own_room(xe), 0);
  EXPECT_EQ(xe.mmstack, nullptr);
  EXPECT_EQ(xe.state, 1u);
  SornXEfini(&xe);
  sorn_mmstack_close(s1);
  sorn_mmstack_close(s2);
}

TEST(SornXE, ResetOfARecordOnItsStackAnswersANewRecord) {
  SornXE *xe = SornXEopen(nullptr, nullptr, 0);
  ASSERT_NE(xe, nullptr);
  ASSERT_NE(SornXEalloca(xe, 50000, 0), nullptr);
  void *s = sorn_mmstack_open(nullptr, 0);
  SornXE *fresh = SornXEresetMmstack(xe, s, 3);  // xe is gone from here on
  ASSERT_NE(fresh, nullptr);
  EXPECT_EQ(fresh->mmstack, s);
  EXPECT_EQ(fresh->state, 17u);
  EXPECT_EQ(fresh->openarg, 3u);
  SornXEclose(fresh);  // and s with it

  SornXE *again = SornXEopen(nullptr, nullptr, 0);
  ASSERT_NE(again, nullptr);
  SornXE *other = SornXEdestroyMmstack(again);
  ASSERT_NE(other, nullptr);
  EXPECT_EQ(other->state, 17u);
  EXPECT_NE(other->mmstack, nullptr);
  SornXEclose(other);
}

TEST(SornXE, DestroyMmstackEndsTheOwnStackAndKeepsTheRecordUsable) {
  SornXE xe = zeroed();
  SornXEinit2(&xe, nullptr, 2);
  for (int i = 0; i < 10; ++i) ASSERT_NE(SornXEalloca(&xe, 30000, 0), nullptr);
  EXPECT_EQ(SornXEdestroyMmstack(&xe), &xe);
  EXPECT_EQ(xe.mmstack, nullptr);
  EXPECT_EQ(xe.state, 1u);
  EXPECT_EQ(xe.openarg, 0u);
  ASSERT_NE(SornXEalloca(&xe, 10, 0), nullptr);
  EXPECT_EQ(xe.mmstack, own_room(xe));
  SornXEfini(&xe);
}

TEST(SornXE, DestroyMmstackDetachesACallersStackAtItsMark) {
  void *s = sorn_mmstack_open(nullptr, 0);
  KuMark before = level_of(s);
  SornXE xe = zeroed();
  SornXEinit(&xe, s);
  ASSERT_NE(SornXEalloca(&xe, 1000, 0), nullptr);
  SornXEdestroyMmstack(&xe);
  EXPECT_EQ(xe.mmstack, nullptr);
  EXPECT_TRUE(same_level(level_of(s), before));
  SornXEfini(&xe);
  sorn_mmstack_close(s);
}

TEST(SornMmstack, WrappersServeADirectStack) {
  uint64_t room[6];
  void *s = sorn_mmstack_open(room, 0);
  EXPECT_EQ(s, static_cast<void *>(room));
  KuMark empty;
  EXPECT_EQ(sorn_mmstack_state(s, &empty, 0), &empty);
  void *a = sorn_mmstack_alloca(s, 5, 0);
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(addr(a) % 16, 0u);
  void *b = sorn_mmstack_alloca(s, 5, 256);
  EXPECT_EQ(addr(b) % 256, 0u);
  KuMark m;
  sorn_mmstack_state(s, &m, 0);
  for (int i = 0; i < 20; ++i) ASSERT_NE(sorn_mmstack_alloca(s, 20000, 0), nullptr);
  sorn_mmstack_setstate(s, &m);
  EXPECT_TRUE(same_level(level_of(s), m));
  sorn_mmstack_freea(s, b);
  EXPECT_EQ(sorn_mmstack_alloca(s, 5, 256), b);
  sorn_mmstack_reset(s);
  EXPECT_TRUE(same_level(level_of(s), empty));
  ASSERT_NE(sorn_mmstack_alloca(s, 100000, 0), nullptr);
  sorn_mmstack_destroy(s);

  void *h = sorn_mmstack_open(nullptr, 42);
  ASSERT_NE(h, nullptr);
  EXPECT_EQ(KuSMEMSTGparent(h), 42u);
  ASSERT_NE(sorn_mmstack_alloca(h, 100000, 0), nullptr);
  sorn_mmstack_close(h);
}

TEST(SornCpuinfo, CacheSizesAreFixedConstants) {
  EXPECT_EQ(sorn_level1_icache_size(), 32768);
  EXPECT_EQ(sorn_level1_dcache_size(), 32768);
  EXPECT_EQ(sorn_level2_cache_size(), 2097152);
}
