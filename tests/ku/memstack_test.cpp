// Memory stacks of the base library: bump allocation at any alignment,
// release in reverse order, levels, and every way of ending a stack.
#include <gtest/gtest.h>
#include <sorn.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "testkit.h"

// Requests that the heap cannot meet must answer null, also under the
// address sanitizer, whose allocator would otherwise stop the program.
extern "C" const char *__asan_default_options() { return "allocator_may_return_null=1"; }

namespace {

bool same_level(const KuMark &a, const KuMark &b) {
  return a.w[0] == b.w[0] && a.w[1] == b.w[1] && a.w[2] == b.w[2];
}

KuMark level_of(void *s) {
  KuMark m;
  std::memset(&m, 0xEE, sizeof m);
  EXPECT_EQ(KuSMEMSTGgetstate(&m, s, 0), &m);
  return m;
}

uintptr_t addr(const void *p) { return reinterpret_cast<uintptr_t>(p); }

// A block written with a pattern derived from its serial number, so that
// any overlap between two live blocks shows up as a wrong byte.
struct Block {
  uint8_t *p;
  size_t size;
  uint32_t serial;
};

uint8_t pattern_byte(uint32_t serial, size_t i) {
  return static_cast<uint8_t>((serial * 131u) ^ (i * 7u) ^ (i >> 8));
}

void fill(const Block &b) {
  for (size_t i = 0; i < b.size; ++i) b.p[i] = pattern_byte(b.serial, i);
}

bool intact(const Block &b) {
  for (size_t i = 0; i < b.size; ++i)
    if (b.p[i] != pattern_byte(b.serial, i)) return false;
  return true;
}

// A stack in caller's room, destroyed at the end of the scope.
struct RoomStack {
  uint64_t room[6];
  void *s;
  explicit RoomStack(uint64_t arg = 0) { s = KuSMEMSTGopen(room, arg, 0); }
  ~RoomStack() { KuMEMSTGdestroy(s); }
};

}  // namespace

TEST(KuMemStack, OpenInCallersRoomAnswersThatRoom) {
  uint64_t room[6];
  void *s = KuSMEMSTGopen(room, 0, 0);
  EXPECT_EQ(s, static_cast<void *>(room));
  KuMEMSTGdestroy(s);
}

TEST(KuMemStack, ObjectFitsTheEnvironmentsRoom) {
  // The environment record keeps six words for a stack of its own.
  SornXE xe;
  EXPECT_EQ(sizeof xe.stackstore, 48u);
  EXPECT_EQ(sizeof(KuMark), 24u);
}

TEST(KuMemStack, OpenWithoutRoomTakesTheObjectFromTheHeap) {
  void *s = KuSMEMSTGopen(nullptr, 0, 0);
  ASSERT_NE(s, nullptr);
  void *b = KuSMEMSTGaalloc(s, 100, 8, 0);
  EXPECT_NE(b, nullptr);
  KuMEMSTGclose(s);  // the sanitizer build proves the object and chunk are freed
}

TEST(KuMemStack, EveryPowerOfTwoAlignmentUpTo4096IsHonoured) {
  RoomStack st;
  for (size_t align = 1; align <= 4096; align <<= 1) {
    for (size_t size : {size_t{0}, size_t{1}, size_t{3}, size_t{17}, size_t{1000}}) {
      void *b = KuSMEMSTGaalloc(st.s, size, align, 0);
      ASSERT_NE(b, nullptr) << "align " << align << " size " << size;
      EXPECT_EQ(addr(b) % align, 0u) << "align " << align << " size " << size;
      // Throw in a one-byte block so the next request starts misaligned.
      ASSERT_NE(KuSMEMSTGaalloc(st.s, 1, 1, 0), nullptr);
    }
  }
}

TEST(KuMemStack, LargeAlignmentsHoldAlsoInAFreshChunk) {
  for (size_t align = 8192; align <= (size_t{1} << 20); align <<= 1) {
    RoomStack st;
    void *b = KuSMEMSTGaalloc(st.s, 10, align, 0);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(addr(b) % align, 0u) << "align " << align;
    std::memset(b, 1, 10);
  }
}

TEST(KuMemStack, AlignmentZeroMeansSixteen) {
  RoomStack st;
  for (int i = 0; i < 64; ++i) {
    ASSERT_NE(KuSMEMSTGaalloc(st.s, 1, 1, 0), nullptr);
    void *b = KuSMEMSTGaalloc(st.s, 5, 0, 0);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(addr(b) % 16, 0u);
  }
}

TEST(KuMemStack, AlignmentThatIsNoPowerOfTwoGivesAMultiple) {
  RoomStack st;
  for (size_t align : {size_t{3}, size_t{12}, size_t{24}, size_t{48}, size_t{100}, size_t{1000}}) {
    ASSERT_NE(KuSMEMSTGaalloc(st.s, 1, 1, 0), nullptr);
    void *b = KuSMEMSTGaalloc(st.s, 7, align, 0);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(addr(b) % align, 0u) << "align " << align;
  }
}

TEST(KuMemStack, ThousandsOfBlocksAcrossManyChunksNeverOverlap) {
  auto rng = sorn_test::seeded_rng(0x6b750001);
  RoomStack st;
  std::vector<Block> blocks;
  std::uniform_int_distribution<size_t> small(0, 700);
  std::uniform_int_distribution<int> logalign(0, 12);
  std::uniform_int_distribution<int> pick(0, 99);
  size_t total = 0;
  for (uint32_t i = 0; i < 6000; ++i) {
    size_t size = pick(rng) < 2 ? size_t{40000} + small(rng) * 100 : small(rng);
    size_t align = size_t{1} << logalign(rng);
    Block b{static_cast<uint8_t *>(KuSMEMSTGaalloc(st.s, size, align, 0)), size, i};
    ASSERT_NE(b.p, nullptr);
    ASSERT_EQ(addr(b.p) % align, 0u);
    fill(b);
    blocks.push_back(b);
    total += size;
  }
  // Several megabytes: far more than one chunk.
  EXPECT_GT(total, size_t{4} << 20);
  for (const Block &b : blocks) ASSERT_TRUE(intact(b)) << "block " << b.serial;
  // And no two blocks share a byte: sorted by address, each ends before the
  // next begins (an empty block still takes its one address).
  std::vector<std::pair<uintptr_t, uintptr_t>> spans;
  for (const Block &b : blocks) spans.push_back({addr(b.p), addr(b.p) + std::max<size_t>(b.size, 1)});
  std::sort(spans.begin(), spans.end());
  for (size_t i = 1; i < spans.size(); ++i) ASSERT_LE(spans[i - 1].second, spans[i].first);
}

TEST(KuMemStack, FreeingABlockReleasesItAndAllLaterBlocks) {
  RoomStack st;
  void *a = KuSMEMSTGaalloc(st.s, 64, 16, 0);
  KuMark before_b = level_of(st.s);
  void *b = KuSMEMSTGaalloc(st.s, 64, 16, 0);
  void *c = KuSMEMSTGaalloc(st.s, 64, 16, 0);
  ASSERT_TRUE(a && b && c);
  KuSMEMSTGfree(st.s, b);
  EXPECT_TRUE(same_level(level_of(st.s), before_b));
  // The room of b and c is handed out again.
  EXPECT_EQ(KuSMEMSTGaalloc(st.s, 64, 16, 0), b);
  EXPECT_EQ(KuSMEMSTGaalloc(st.s, 64, 16, 0), c);
}

TEST(KuMemStack, FreeingAcrossChunkBoundariesRestoresTheLevelBeforeTheBlock) {
  auto rng = sorn_test::seeded_rng(0x6b750002);
  RoomStack st;
  std::vector<Block> blocks;
  std::vector<KuMark> before;  // the level before each block was taken
  uint32_t serial = 0;
  auto take = [&](size_t align) {
    before.push_back(level_of(st.s));
    Block b{static_cast<uint8_t *>(KuSMEMSTGaalloc(st.s, 30000, align, 0)), 30000, serial++};
    ASSERT_NE(b.p, nullptr);
    fill(b);
    blocks.push_back(b);
  };
  for (int i = 0; i < 100; ++i) take(i % 3 ? 8 : 1024);
  // Give back from anywhere, check what stays, take the room again.
  for (int round = 0; round < 30; ++round) {
    size_t k = std::uniform_int_distribution<size_t>(0, blocks.size() - 1)(rng);
    KuSMEMSTGfree(st.s, blocks[k].p);
    EXPECT_TRUE(same_level(level_of(st.s), before[k])) << "round " << round << " block " << k;
    blocks.resize(k);
    before.resize(k);
    for (const Block &b : blocks) ASSERT_TRUE(intact(b));
    while (blocks.size() < 100) take(blocks.size() % 3 ? 8 : 1024);
  }
  for (const Block &b : blocks) ASSERT_TRUE(intact(b));
}

TEST(KuMemStack, FreeingTheFirstBlockEmptiesTheStack) {
  RoomStack st;
  KuMark empty = level_of(st.s);
  void *first = KuSMEMSTGaalloc(st.s, 10, 1, 0);
  for (int i = 0; i < 50; ++i) ASSERT_NE(KuSMEMSTGaalloc(st.s, 10000, 16, 0), nullptr);
  KuSMEMSTGfree(st.s, first);
  EXPECT_TRUE(same_level(level_of(st.s), empty));
  EXPECT_NE(KuSMEMSTGaalloc(st.s, 10, 1, 0), nullptr);
}

TEST(KuMemStack, TakingAndGivingBackRestoresTheMarkedLevel) {
  // What every operation relies on: after its scratch is given back, the
  // stack is at the very level it had before, whatever the padding.
  RoomStack st;
  ASSERT_NE(KuSMEMSTGaalloc(st.s, 3, 1, 0), nullptr);
  for (size_t align = 1; align <= 4096; align <<= 1) {
    for (size_t size : {size_t{0}, size_t{5}, size_t{70000}, size_t{300000}}) {
      KuMark m = level_of(st.s);
      void *b = KuSMEMSTGaalloc(st.s, size, align, 0);
      ASSERT_NE(b, nullptr);
      void *c = KuSMEMSTGaalloc(st.s, 100, 64, 0);
      ASSERT_NE(c, nullptr);
      KuSMEMSTGfree(st.s, c);
      KuSMEMSTGfree(st.s, b);
      ASSERT_TRUE(same_level(level_of(st.s), m)) << "align " << align << " size " << size;
    }
  }
}

TEST(KuMemStack, FreeingNullOrAForeignPointerChangesNothing) {
  RoomStack st;
  void *a = KuSMEMSTGaalloc(st.s, 100, 8, 0);
  ASSERT_NE(a, nullptr);
  KuMark m = level_of(st.s);
  int local = 0;
  KuSMEMSTGfree(st.s, nullptr);
  KuSMEMSTGfree(st.s, &local);
  EXPECT_TRUE(same_level(level_of(st.s), m));
  // A block that was already given back is no longer live.
  void *b = KuSMEMSTGaalloc(st.s, 100, 64, 0);
  KuSMEMSTGfree(st.s, b);
  KuSMEMSTGfree(st.s, b);
  EXPECT_TRUE(same_level(level_of(st.s), m));
}

TEST(KuMemStack, MarkAcrossChunksAndSetStateBack) {
  RoomStack st;
  ASSERT_NE(KuSMEMSTGaalloc(st.s, 1000, 8, 0), nullptr);
  Block keep{static_cast<uint8_t *>(KuSMEMSTGaalloc(st.s, 5000, 8, 0)), 5000, 7};
  ASSERT_NE(keep.p, nullptr);
  fill(keep);
  KuMark m = level_of(st.s);
  void *first_after = KuSMEMSTGaalloc(st.s, 256, 64, 0);
  ASSERT_NE(first_after, nullptr);
  // Many chunks' worth, including one request bigger than any chunk.
  for (int i = 0; i < 200; ++i) ASSERT_NE(KuSMEMSTGaalloc(st.s, 20000, 32, 0), nullptr);
  ASSERT_NE(KuSMEMSTGaalloc(st.s, size_t{20} << 20, 4096, 0), nullptr);
  KuSMEMSTGsetstate(st.s, &m);
  EXPECT_TRUE(same_level(level_of(st.s), m));
  EXPECT_TRUE(intact(keep));
  EXPECT_EQ(KuSMEMSTGaalloc(st.s, 256, 64, 0), first_after);
}

TEST(KuMemStack, NestedMarksUnwindInOrder) {
  RoomStack st;
  std::vector<KuMark> marks;
  std::vector<void *> next;
  for (int depth = 0; depth < 12; ++depth) {
    marks.push_back(level_of(st.s));
    next.push_back(KuSMEMSTGaalloc(st.s, 15000 + depth * 1000, 8, 0));
    for (int i = 0; i < 10; ++i) ASSERT_NE(KuSMEMSTGaalloc(st.s, 3000, 8, 0), nullptr);
  }
  for (int depth = 11; depth >= 1; --depth) {
    KuSMEMSTGsetstate(st.s, &marks[depth]);
    EXPECT_TRUE(same_level(level_of(st.s), marks[depth]));
  }
  EXPECT_EQ(KuSMEMSTGaalloc(st.s, 16000, 8, 0), next[1]);
  KuSMEMSTGsetstate(st.s, &marks[0]);
  EXPECT_TRUE(same_level(level_of(st.s), marks[0]));
}

TEST(KuMemStack, MarkOfAnEmptyStackReleasesEverything) {
  RoomStack st;
  KuMark empty = level_of(st.s);
  void *first = KuSMEMSTGaalloc(st.s, 100, 16, 0);
  for (int i = 0; i < 100; ++i) ASSERT_NE(KuSMEMSTGaalloc(st.s, 10000, 16, 0), nullptr);
  KuSMEMSTGsetstate(st.s, &empty);
  EXPECT_TRUE(same_level(level_of(st.s), empty));
  void *again = KuSMEMSTGaalloc(st.s, 100, 16, 0);
  EXPECT_NE(again, nullptr);
  (void)first;
}

TEST(KuMemStack, AReleasedLevelCannotRaiseTheStack) {
  RoomStack st;
  ASSERT_NE(KuSMEMSTGaalloc(st.s, 100, 8, 0), nullptr);
  KuMark low = level_of(st.s);
  ASSERT_NE(KuSMEMSTGaalloc(st.s, 100, 8, 0), nullptr);
  KuMark high = level_of(st.s);
  KuSMEMSTGsetstate(st.s, &low);
  KuSMEMSTGsetstate(st.s, &high);
  EXPECT_TRUE(same_level(level_of(st.s), low));
}

TEST(KuMemStack, ZeroSizeRequestsGiveDistinctAlignedBlocksThatCanBeFreed) {
  RoomStack st;
  std::vector<void *> blocks;
  for (size_t align : {size_t{0}, size_t{1}, size_t{8}, size_t{64}, size_t{4096}}) {
    void *b = KuSMEMSTGaalloc(st.s, 0, align, 0);
    ASSERT_NE(b, nullptr);
    EXPECT_EQ(addr(b) % (align ? align : 16), 0u);
    EXPECT_EQ(std::count(blocks.begin(), blocks.end(), b), 0);
    blocks.push_back(b);
  }
  // Giving back an empty block takes the stack to its level.
  KuMark before = level_of(st.s);
  void *z = KuSMEMSTGaalloc(st.s, 0, 1, 0);
  ASSERT_NE(KuSMEMSTGaalloc(st.s, 50, 1, 0), nullptr);
  KuSMEMSTGfree(st.s, z);
  EXPECT_TRUE(same_level(level_of(st.s), before));
  // Also on a stack that holds no chunk yet.
  RoomStack fresh;
  void *f = KuSMEMSTGaalloc(fresh.s, 0, 0, 0);
  ASSERT_NE(f, nullptr);
  KuSMEMSTGfree(fresh.s, f);
}

TEST(KuMemStack, AbsurdRequestsAnswerNullAndLeaveTheStackUsable) {
  RoomStack st;
  Block keep{static_cast<uint8_t *>(KuSMEMSTGaalloc(st.s, 300, 8, 0)), 300, 3};
  ASSERT_NE(keep.p, nullptr);
  fill(keep);
  KuMark m = level_of(st.s);
  EXPECT_EQ(KuSMEMSTGaalloc(st.s, SIZE_MAX, 8, 0), nullptr);
  EXPECT_EQ(KuSMEMSTGaalloc(st.s, SIZE_MAX - 20, 16, 0), nullptr);
  EXPECT_EQ(KuSMEMSTGaalloc(st.s, SIZE_MAX / 2, 4096, 0), nullptr);
  EXPECT_EQ(KuSMEMSTGaalloc(st.s, size_t{1} << 62, 16, 0), nullptr);
  EXPECT_EQ(KuSMEMSTGaalloc(st.s, 10, size_t{1} << 63, 0), nullptr);
  EXPECT_TRUE(same_level(level_of(st.s), m));
  EXPECT_TRUE(intact(keep));
  EXPECT_NE(KuSMEMSTGaalloc(st.s, 300, 8, 0), nullptr);
}

TEST(KuMemStack, ClearReleasesAllBlocksAndKeepsTheStackOpen) {
  RoomStack st;
  KuMark empty = level_of(st.s);
  for (int i = 0; i < 300; ++i) ASSERT_NE(KuSMEMSTGaalloc(st.s, 7000, 8, 0), nullptr);
  KuSMEMSTGclear(st.s);
  EXPECT_TRUE(same_level(level_of(st.s), empty));
  for (int i = 0; i < 30; ++i) ASSERT_NE(KuSMEMSTGaalloc(st.s, 7000, 8, 0), nullptr);
}

TEST(KuMemStack, DestroyFreesTheChunksButNotTheRoom) {
  uint64_t room[8];
  room[6] = room[7] = 0x1234;  // past the six words: must stay untouched
  void *s = KuSMEMSTGopen(room, 0, 0);
  for (int i = 0; i < 100; ++i) ASSERT_NE(KuSMEMSTGaalloc(s, 9000, 8, 0), nullptr);
  // Leave a spare chunk behind too.
  KuMark m = level_of(s);
  ASSERT_NE(KuSMEMSTGaalloc(s, 200000, 8, 0), nullptr);
  KuSMEMSTGsetstate(s, &m);
  KuMEMSTGdestroy(s);
  EXPECT_EQ(room[6], 0x1234u);
  EXPECT_EQ(room[7], 0x1234u);
}

TEST(KuMemStack, CloseOfAHeapStackFreesEverything) {
  void *s = KuSMEMSTGopen(nullptr, 0, 0);
  ASSERT_NE(s, nullptr);
  for (int i = 0; i < 100; ++i) ASSERT_NE(KuSMEMSTGaalloc(s, 9000, 8, 0), nullptr);
  KuMark m = level_of(s);
  ASSERT_NE(KuSMEMSTGaalloc(s, 100000, 8, 0), nullptr);
  KuSMEMSTGsetstate(s, &m);
  KuMEMSTGclose(s);
}

TEST(KuMemStack, CloseOfAStackInCallersRoomEndsItLikeDestroy) {
  uint64_t room[6];
  void *s = KuSMEMSTGopen(room, 0, 0);
  for (int i = 0; i < 20; ++i) ASSERT_NE(KuSMEMSTGaalloc(s, 9000, 8, 0), nullptr);
  KuMEMSTGclose(s);
}

TEST(KuMemStack, NullStackIsHarmlessEverywhere) {
  KuMark m;
  EXPECT_EQ(KuSMEMSTGaalloc(nullptr, 10, 8, 0), nullptr);
  KuSMEMSTGfree(nullptr, &m);
  EXPECT_EQ(KuSMEMSTGgetstate(&m, nullptr, 0), &m);
  KuSMEMSTGsetstate(nullptr, &m);
  KuSMEMSTGclear(nullptr);
  KuMEMSTGdestroy(nullptr);
  KuMEMSTGclose(nullptr);
  EXPECT_EQ(KuSMEMSTGparent(nullptr), 0u);
}

TEST(KuMemStack, ADestroyedStackCanBeUsedAgain) {
  RoomStack st;
  ASSERT_NE(KuSMEMSTGaalloc(st.s, 100000, 8, 0), nullptr);
  KuMEMSTGdestroy(st.s);
  ASSERT_NE(KuSMEMSTGaalloc(st.s, 100, 8, 0), nullptr);
}

TEST(KuMemStack, ChildStackKeepsItsParentAndLivesApart) {
  void *parent = KuSMEMSTGopen(nullptr, 0, 0);
  ASSERT_NE(parent, nullptr);
  Block p1{static_cast<uint8_t *>(KuSMEMSTGaalloc(parent, 4000, 8, 0)), 4000, 1};
  ASSERT_NE(p1.p, nullptr);
  fill(p1);
  KuMark parent_level = level_of(parent);

  uint64_t room[6];
  void *child = KuSMEMSTGopen(room, reinterpret_cast<uintptr_t>(parent), 0);
  EXPECT_EQ(KuSMEMSTGparent(child), reinterpret_cast<uintptr_t>(parent));
  // Opening the child takes nothing from the parent.
  EXPECT_TRUE(same_level(level_of(parent), parent_level));

  std::vector<Block> kids;
  for (uint32_t i = 0; i < 40; ++i) {
    Block c{static_cast<uint8_t *>(KuSMEMSTGaalloc(child, 9000, 16, 0)), 9000, 100 + i};
    ASSERT_NE(c.p, nullptr);
    fill(c);
    kids.push_back(c);
    // The parent moves up and down meanwhile.
    Block p{static_cast<uint8_t *>(KuSMEMSTGaalloc(parent, 7000, 8, 0)), 7000, 500 + i};
    ASSERT_NE(p.p, nullptr);
    fill(p);
    KuSMEMSTGfree(parent, p.p);
  }
  for (const Block &c : kids) ASSERT_TRUE(intact(c));
  EXPECT_TRUE(same_level(level_of(parent), parent_level));

  // Marks and release on the child leave the parent alone.
  KuSMEMSTGfree(child, kids[10].p);
  kids.resize(10);
  for (const Block &c : kids) ASSERT_TRUE(intact(c));
  KuMEMSTGdestroy(child);
  EXPECT_TRUE(intact(p1));
  EXPECT_TRUE(same_level(level_of(parent), parent_level));

  // A heap child of a heap parent, closed before it.
  void *child2 = KuSMEMSTGopen(nullptr, reinterpret_cast<uintptr_t>(parent), 0);
  ASSERT_NE(child2, nullptr);
  EXPECT_EQ(KuSMEMSTGparent(child2), reinterpret_cast<uintptr_t>(parent));
  ASSERT_NE(KuSMEMSTGaalloc(child2, 100000, 8, 0), nullptr);
  KuMEMSTGclose(child2);
  EXPECT_TRUE(intact(p1));
  KuMEMSTGclose(parent);
}

TEST(KuMemStack, OpenersWordIsKeptAsGiven) {
  RoomStack st(0xfeedbeefcafe);
  EXPECT_EQ(KuSMEMSTGparent(st.s), 0xfeedbeefcafeu);
  // Getting a level does not depend on the word passed along.
  ASSERT_NE(KuSMEMSTGaalloc(st.s, 10, 8, 0), nullptr);
  KuMark a, b;
  KuSMEMSTGgetstate(&a, st.s, 0);
  KuSMEMSTGgetstate(&b, st.s, 12345);
  EXPECT_TRUE(same_level(a, b));
}

// A random walk of allocations, frees, marks and returns to marks, checked
// against a model that knows which blocks are live: every live block keeps
// its bytes, every return to a mark lands exactly on it.
TEST(KuMemStack, RandomSequenceAgreesWithModel) {
  for (uint64_t seed : {0x6b750010ull, 0x6b750011ull, 0x6b750012ull}) {
    auto rng = sorn_test::seeded_rng(seed);
    RoomStack st;
    std::vector<Block> live;
    std::vector<KuMark> before;  // level before each live block
    struct ModelMark {
      KuMark mark;
      size_t count;
    };
    std::vector<ModelMark> marks;
    std::uniform_int_distribution<int> op(0, 99);
    std::uniform_int_distribution<int> logalign(0, 12);
    uint32_t serial = 0;
    for (int step = 0; step < 4000; ++step) {
      int o = op(rng);
      if (o < 60) {
        int kind = op(rng);
        size_t size = kind < 5    ? std::uniform_int_distribution<size_t>(40000, 300000)(rng)
                      : kind < 10 ? 0
                                  : std::uniform_int_distribution<size_t>(1, 3000)(rng);
        size_t align = op(rng) < 10 ? 0 : size_t{1} << logalign(rng);
        before.push_back(level_of(st.s));
        Block b{static_cast<uint8_t *>(KuSMEMSTGaalloc(st.s, size, align, 0)), size, serial++};
        ASSERT_NE(b.p, nullptr) << "step " << step;
        ASSERT_EQ(addr(b.p) % (align ? align : 16), 0u);
        fill(b);
        live.push_back(b);
      } else if (o < 75) {
        if (live.empty()) continue;
        size_t k = std::uniform_int_distribution<size_t>(0, live.size() - 1)(rng);
        // Mostly the last few blocks, sometimes deep down.
        if (op(rng) < 70) k = live.size() - 1 - std::min<size_t>(live.size() - 1, op(rng) % 4);
        KuSMEMSTGfree(st.s, live[k].p);
        ASSERT_TRUE(same_level(level_of(st.s), before[k])) << "step " << step;
        live.resize(k);
        before.resize(k);
      } else if (o < 87) {
        marks.push_back({level_of(st.s), live.size()});
      } else {
        if (marks.empty()) continue;
        size_t k = std::uniform_int_distribution<size_t>(0, marks.size() - 1)(rng);
        ModelMark m = marks[k];
        KuSMEMSTGsetstate(st.s, &m.mark);
        ASSERT_TRUE(same_level(level_of(st.s), m.mark)) << "step " << step;
        live.resize(m.count);
        before.resize(m.count);
        marks.resize(k + 1);
      }
      // Marks above the present level are no longer levels of this stack.
      while (!marks.empty() && marks.back().count > live.size()) marks.pop_back();
      if (step % 200 == 0) {
        for (const Block &b : live) ASSERT_TRUE(intact(b)) << "step " << step << " block " << b.serial;
      }
    }
    for (const Block &b : live) ASSERT_TRUE(intact(b)) << "block " << b.serial;
  }
}

// A chunk for a request beyond the growth limit (8 MB) has a mapping of its
// own (on the heap under the address sanitizer); nothing about a block may
// tell the difference.
TEST(KuMemStack, LargeChunksHoldTheirBlocksAndGoBackLikeAnyOther) {
  RoomStack st;
  KuMark empty = level_of(st.s);
  void *small = KuSMEMSTGaalloc(st.s, 100, 16, 0);
  ASSERT_NE(small, nullptr);
  KuMark before = level_of(st.s);
  uint32_t serial = 1;
  std::vector<Block> blocks;
  // Sizes on both sides of the growth limit, which is where mappings
  // begin, each bigger than what the chunk below has left.
  for (size_t size : {size_t{3} << 20, (size_t{8} << 20) - 100, size_t{8} << 20,
                      (size_t{8} << 20) + 17, size_t{9} << 20, size_t{33} << 20}) {
    for (size_t align : {size_t{8}, size_t{4096}, size_t{1} << 21}) {
      Block b{static_cast<uint8_t *>(KuSMEMSTGaalloc(st.s, size, align, 0)), size, serial++};
      ASSERT_NE(b.p, nullptr) << size << " at " << align;
      EXPECT_EQ(addr(b.p) % align, 0u);
      fill(b);
      blocks.push_back(b);
    }
  }
  for (const Block &b : blocks) ASSERT_TRUE(intact(b));
  // Back to the level before them, then again: the spare, the largest of
  // them, serves the next growth.
  KuSMEMSTGfree(st.s, blocks.front().p);
  EXPECT_TRUE(same_level(level_of(st.s), before));
  for (int round = 0; round < 3; ++round) {
    Block b{static_cast<uint8_t *>(KuSMEMSTGaalloc(st.s, size_t{6} << 20, 64, 0)),
            size_t{6} << 20, serial++};
    ASSERT_NE(b.p, nullptr);
    fill(b);
    EXPECT_TRUE(intact(b));
    KuSMEMSTGfree(st.s, b.p);
    EXPECT_TRUE(same_level(level_of(st.s), before));
  }
  KuSMEMSTGfree(st.s, small);
  EXPECT_TRUE(same_level(level_of(st.s), empty));
}

TEST(KuMemStack, MarksWorkAcrossLargeChunks) {
  RoomStack st;
  KuMark m0 = level_of(st.s);
  void *a = KuSMEMSTGaalloc(st.s, size_t{8} << 20, 16, 0);
  KuMark m1 = level_of(st.s);
  void *b = KuSMEMSTGaalloc(st.s, size_t{12} << 20, 16, 0);
  ASSERT_TRUE(a && b);
  std::memset(b, 0x5A, size_t{12} << 20);
  KuSMEMSTGsetstate(st.s, &m1);
  EXPECT_TRUE(same_level(level_of(st.s), m1));
  std::memset(a, 0xA5, size_t{8} << 20);
  KuSMEMSTGsetstate(st.s, &m0);
  EXPECT_TRUE(same_level(level_of(st.s), m0));
  // Clearing gives every chunk back, a large spare included.
  ASSERT_NE(KuSMEMSTGaalloc(st.s, size_t{5} << 20, 16, 0), nullptr);
  KuSMEMSTGclear(st.s);
  EXPECT_TRUE(same_level(level_of(st.s), m0));
}

// The largest chunk given back is kept for the next growth whatever its
// size, so that the same large working block taken on every call comes
// from the same memory each time: what one call left at the end of the
// block is still there for the next (memory fresh from the system would be
// cleared, and cleared page by page on first touch).
constexpr uint64_t kLeftBehind = 0x5350415245215350ull;

void leave_mark(void *block, size_t size, uint64_t value) {
  std::memcpy(static_cast<uint8_t *>(block) + size - sizeof value, &value, sizeof value);
}
uint64_t mark_left(const void *block, size_t size) {
  uint64_t v;
  std::memcpy(&v, static_cast<const uint8_t *>(block) + size - sizeof v, sizeof v);
  return v;
}

TEST(KuMemStack, TheSameLargeBlockOnEveryCallReusesItsChunk) {
  RoomStack st;
  const size_t size = size_t{20} << 20;
  for (int call = 0; call < 4; ++call) {
    void *b = KuSMEMSTGaalloc(st.s, size, 64, 0);
    ASSERT_NE(b, nullptr);
    if (call > 0) {
      EXPECT_EQ(mark_left(b, size), kLeftBehind + call - 1) << "call " << call;
    }
    leave_mark(b, size, kLeftBehind + call);
    KuSMEMSTGfree(st.s, b);
  }
}

// A call that takes a small block and then a large one: the small one must
// not use up the large spare, or the large one would need fresh memory on
// every call.
TEST(KuMemStack, ASmallGrowthLeavesALargeSpareForTheLargeBlock) {
  RoomStack st;
  const size_t small = size_t{1} << 20, large = size_t{24} << 20;
  for (int call = 0; call < 4; ++call) {
    SCOPED_TRACE(call);
    void *s = KuSMEMSTGaalloc(st.s, small, 16, 0);
    void *l = KuSMEMSTGaalloc(st.s, large, 16, 0);
    ASSERT_TRUE(s && l);
    if (call > 0) {
      EXPECT_EQ(mark_left(l, large), kLeftBehind + call - 1);
    }
    leave_mark(s, small, 0);
    leave_mark(l, large, kLeftBehind + call);
    KuSMEMSTGfree(st.s, s);
  }
}
