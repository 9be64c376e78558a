// Tree nodes, walks, tree records and the tree builder.
#include <gtest/gtest.h>
#include <sorn.h>

#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "testkit.h"

namespace {

struct Log {
  std::vector<std::pair<SornAGTnode *, int32_t>> calls;
  std::function<int32_t(SornAGTnode *, int32_t)> answer;
};

int32_t logging_fn(SornAGTnode *node, void *arg, int32_t index) {
  Log *log = static_cast<Log *>(arg);
  log->calls.emplace_back(node, index);
  return log->answer ? log->answer(node, index) : 1;
}

// Nodes in a plain array, linked by hand.
struct Forest {
  std::vector<SornAGTnode> n;
  explicit Forest(size_t count) : n(count) { std::memset(n.data(), 0, count * sizeof(SornAGTnode)); }
  SornAGTnode *operator[](size_t i) { return &n[i]; }
  // Appends child at the end of parent's list, unlike SornAGTaddchild.
  void append(size_t p, size_t c) {
    n[c].parent = &n[p];
    SornAGTnode **slot = &n[p].child;
    while (*slot) slot = &(*slot)->next;
    *slot = &n[c];
  }
};

std::vector<SornAGTnode *> nodes_of(const Log &log) {
  std::vector<SornAGTnode *> v;
  for (auto &c : log.calls) v.push_back(c.first);
  return v;
}

// References written from the definitions of the orders.
void ref_pre(SornAGTnode *n, std::vector<SornAGTnode *> &out) {
  out.push_back(n);
  for (SornAGTnode *c = n->child; c; c = c->next) ref_pre(c, out);
}
void ref_post(SornAGTnode *n, std::vector<SornAGTnode *> &out) {
  for (SornAGTnode *c = n->child; c; c = c->next) ref_post(c, out);
  out.push_back(n);
}
void ref_in(SornAGTnode *n, std::vector<std::pair<SornAGTnode *, int32_t>> &out) {
  if (!n->child) {
    out.emplace_back(n, -1);
    return;
  }
  ref_in(n->child, out);
  if (!n->child->next) {
    out.emplace_back(n, 0);
    return;
  }
  int32_t i = 0;
  for (SornAGTnode *c = n->child->next; c; c = c->next) {
    out.emplace_back(n, i++);
    ref_in(c, out);
  }
}

}  // namespace

TEST(AGTree, AddChildPutsTheNewestFirst) {
  Forest f(4);
  SornAGTaddchild(f[0], f[1]);
  SornAGTaddchild(f[0], f[2]);
  EXPECT_EQ(SornAGTaddchild(f[0], f[3]), f[0]);
  EXPECT_EQ(f[0]->child, f[3]);
  EXPECT_EQ(f[3]->next, f[2]);
  EXPECT_EQ(f[2]->next, f[1]);
  EXPECT_EQ(f[1]->next, nullptr);
  for (int i = 1; i < 4; ++i) EXPECT_EQ(f[i]->parent, f[0]);
  Log log;
  EXPECT_EQ(SornAGTwalkFromNode(f[0], SORN_WALK_PREORDER, logging_fn, &log), 1);
  EXPECT_EQ(nodes_of(log), (std::vector<SornAGTnode *>{f[0], f[3], f[2], f[1]}));
}

TEST(AGTree, NodeDataLinksBothWays) {
  SornAGTnode node{};
  struct Payload {
    SornAGTnode *back;
    int x;
  } p{nullptr, 7};
  EXPECT_EQ(SornDGTnodeData(&node, &p), &node);
  EXPECT_EQ(node.data, &p);
  EXPECT_EQ(p.back, &node);
  EXPECT_EQ(p.x, 7);
}

TEST(AGTree, CountChildren) {
  Forest f(6);
  EXPECT_EQ(SornAGTcountChildren(f[0], 0), 0);
  EXPECT_EQ(SornAGTcountChildren(f[0], 1), 0);
  f.append(0, 1);
  f.append(0, 2);
  f.append(1, 3);
  f.append(3, 4);
  f.append(2, 5);
  EXPECT_EQ(SornAGTcountChildren(f[0], 0), 2);
  EXPECT_EQ(SornAGTcountChildren(f[0], 1), 5);
  EXPECT_EQ(SornAGTcountChildren(f[1], 1), 2);
  EXPECT_EQ(SornAGTcountChildren(f[4], 1), 0);
}

TEST(AGTree, NullNodeOrUnknownOrderDoesNothing) {
  Forest f(2);
  f.append(0, 1);
  Log log;
  EXPECT_EQ(SornAGTwalkFromNode(nullptr, 1, logging_fn, &log), 0);
  EXPECT_EQ(SornAGTwalkFromNode(f[0], 0, logging_fn, &log), 0);
  EXPECT_EQ(SornAGTwalkFromNode(f[0], 4, logging_fn, &log), 0);
  EXPECT_EQ(SornAGTwalk(nullptr, 1, logging_fn, &log), 0);
  SornSTree empty{};
  EXPECT_EQ(SornAGTwalk(&empty, 3, logging_fn, &log), 0);
  EXPECT_TRUE(log.calls.empty());
}

TEST(AGTree, PreorderMinusOneSkipsTheSubtreeAndGoesOn) {
  Forest f(6);
  f.append(0, 1);
  f.append(1, 2);
  f.append(1, 3);
  f.append(0, 4);
  f.append(4, 5);
  Log log;
  log.answer = [&](SornAGTnode *n, int32_t) { return n == f[1] ? -1 : 3; };
  int32_t r = SornAGTwalkFromNode(f[0], SORN_WALK_PREORDER, logging_fn, &log);
  EXPECT_GT(r, 0);
  EXPECT_EQ(nodes_of(log), (std::vector<SornAGTnode *>{f[0], f[1], f[4], f[5]}));
  for (auto &c : log.calls) EXPECT_EQ(c.second, 0);
}

TEST(AGTree, PreorderResultIsTheLastChildsMagnitude) {
  Forest f(3);
  f.append(0, 1);
  f.append(0, 2);
  Log log;
  log.answer = [&](SornAGTnode *n, int32_t) { return n == f[0] ? 5 : n == f[1] ? 9 : 4; };
  EXPECT_EQ(SornAGTwalkFromNode(f[0], 1, logging_fn, &log), 4);
  Forest g(1);
  log.calls.clear();
  log.answer = [](SornAGTnode *, int32_t) { return 6; };
  EXPECT_EQ(SornAGTwalkFromNode(g[0], 1, logging_fn, &log), 6);
}

TEST(AGTree, PreorderZeroStopsTheWholeWalk) {
  Forest f(6);
  f.append(0, 1);
  f.append(1, 2);
  f.append(1, 3);
  f.append(0, 4);
  f.append(4, 5);
  Log log;
  log.answer = [&](SornAGTnode *n, int32_t) { return n == f[2] ? 0 : 1; };
  EXPECT_EQ(SornAGTwalkFromNode(f[0], 1, logging_fn, &log), 0);
  EXPECT_EQ(nodes_of(log), (std::vector<SornAGTnode *>{f[0], f[1], f[2]}));
}

TEST(AGTree, PreorderBelowMinusOneLeavesOnlyOneLevelOfSiblings) {
  // 0 -> {1 -> {2, 3}, 4}; node 2 answers -2: its sibling 3 is left out,
  // but 1's level answers 1, so 4 is still walked.
  Forest f(5);
  f.append(0, 1);
  f.append(1, 2);
  f.append(1, 3);
  f.append(0, 4);
  Log log;
  log.answer = [&](SornAGTnode *n, int32_t) { return n == f[2] ? -2 : 1; };
  EXPECT_EQ(SornAGTwalkFromNode(f[0], 1, logging_fn, &log), 1);
  EXPECT_EQ(nodes_of(log), (std::vector<SornAGTnode *>{f[0], f[1], f[2], f[4]}));
  // At the node walked from, the answer itself comes back.
  log.calls.clear();
  log.answer = [](SornAGTnode *, int32_t) { return -5; };
  EXPECT_EQ(SornAGTwalkFromNode(f[0], 1, logging_fn, &log), -1);
  EXPECT_EQ(log.calls.size(), 1u);
}

TEST(AGTree, InorderWithOneChildCallsOnceAfterIt) {
  Forest f(2);
  f.append(0, 1);
  Log log;
  EXPECT_EQ(SornAGTwalkFromNode(f[0], SORN_WALK_INORDER, logging_fn, &log), 1);
  ASSERT_EQ(log.calls.size(), 2u);
  EXPECT_EQ(log.calls[0], std::make_pair(f[1], -1));
  EXPECT_EQ(log.calls[1], std::make_pair(f[0], 0));
}

TEST(AGTree, InorderWithThreeChildrenCallsBetweenThem) {
  Forest f(4);
  f.append(0, 1);
  f.append(0, 2);
  f.append(0, 3);
  Log log;
  log.answer = [](SornAGTnode *, int32_t) { return 7; };
  EXPECT_EQ(SornAGTwalkFromNode(f[0], SORN_WALK_INORDER, logging_fn, &log), 1);
  std::vector<std::pair<SornAGTnode *, int32_t>> want{
      {f[1], -1}, {f[0], 0}, {f[2], -1}, {f[0], 1}, {f[3], -1}};
  EXPECT_EQ(log.calls, want);
}

TEST(AGTree, InorderLeafAnswerIsTheResultAndZeroStops) {
  Forest f(4);
  Log log;
  log.answer = [](SornAGTnode *, int32_t) { return 42; };
  EXPECT_EQ(SornAGTwalkFromNode(f[0], 2, logging_fn, &log), 42);
  f.append(0, 1);
  f.append(0, 2);
  f.append(0, 3);
  log.calls.clear();
  log.answer = [&](SornAGTnode *n, int32_t i) { return (n == f[0] && i == 1) ? 0 : 1; };
  EXPECT_EQ(SornAGTwalkFromNode(f[0], 2, logging_fn, &log), 0);
  EXPECT_EQ(log.calls.size(), 4u);  // 1, (0,0), 2, (0,1)
}

TEST(AGTree, PostorderVisitsChildrenFirstAndStopsAtZero) {
  Forest f(5);
  f.append(0, 1);
  f.append(1, 2);
  f.append(0, 3);
  f.append(3, 4);
  Log log;
  log.answer = [](SornAGTnode *, int32_t) { return -3; };
  EXPECT_EQ(SornAGTwalkFromNode(f[0], SORN_WALK_POSTORDER, logging_fn, &log), 1);
  EXPECT_EQ(nodes_of(log), (std::vector<SornAGTnode *>{f[2], f[1], f[4], f[3], f[0]}));
  log.calls.clear();
  log.answer = [&](SornAGTnode *n, int32_t) { return n == f[1] ? 0 : 1; };
  EXPECT_EQ(SornAGTwalkFromNode(f[0], 3, logging_fn, &log), 0);
  EXPECT_EQ(nodes_of(log), (std::vector<SornAGTnode *>{f[2], f[1]}));
}

/* ---------------- A builder with a chain of its own ---------------- */

namespace {

struct Recorder {
  int attached = 0;
  int detached = 0;
  int getddtor = 0;
  std::vector<SornAGTnode *> destroyed;
  bool give_dtor = true;
  uint32_t last_tag = 0;
};
Recorder *g_rec = nullptr;

void rec_dtor(SornAGTnode *node, SornSTB *) { g_rec->destroyed.push_back(node); }
SornSTBnodeDtor rec_getddtor(SornSTB *, int32_t, uint32_t tag) {
  ++g_rec->getddtor;
  g_rec->last_tag = tag;
  return g_rec->give_dtor ? rec_dtor : nullptr;
}
void rec_attached(SornSTB *, SornSTree *, uint32_t) { ++g_rec->attached; }
void rec_detached(SornSTB *) { ++g_rec->detached; }

// An unrelated block in front of the stbl block, to prove the search steps
// by length.
struct TestChain {
  SornSTBops other;
  uint64_t otherbody[3];
  SornSTBstbl stbl;
  uint64_t end;
};
const TestChain kChain = {{SORN_FOURCC('x', 'x', 'x', 'x'), 32},
                          {1, 2, 3},
                          {{SORN_STB_TAG_STBL, 32}, rec_getddtor, rec_attached, rec_detached},
                          0};
const SornSTBops *chain() { return &kChain.other; }

class Builder : public ::testing::Test {
 protected:
  void SetUp() override { g_rec = &rec; }
  void TearDown() override { g_rec = nullptr; }
  Recorder rec;
};

// Builds a random tree from the builder's nodes and returns the nodes.
std::vector<SornAGTnode *> random_tree(SornSTB *b, std::mt19937_64 &rng, int n) {
  std::vector<SornAGTnode *> nodes;
  for (int i = 0; i < n; ++i) {
    SornAGTnode *node = SornSTBnewnode(b);
    if (i > 0) SornAGTaddchild(nodes[rng() % nodes.size()], node);
    nodes.push_back(node);
  }
  return nodes;
}

bool at_level(void *stack, const KuMark &mark) {
  KuMark now;
  KuSMEMSTGgetstate(&now, stack, 0);
  return std::memcmp(&now, &mark, sizeof mark) == 0;
}

int g_deleted = 0;
void counting_deleter(void *tree) {
  ++g_deleted;
  std::free(tree);
}
void forbidden_deleter(void *) { ADD_FAILURE() << "owntree given to a deleter"; }
int g_onclear = 0, g_onattach = 0;
void count_onclear(SornSTree *, SornSTB *) { ++g_onclear; }
void count_onattach(SornSTree *, SornSTB *) { ++g_onattach; }

}  // namespace

TEST_F(Builder, WalksOfAHandBuiltTreeMatchTheOrders) {
  auto rng = sorn_test::seeded_rng(81001);
  SornSTB b;
  std::memset(&b, 0, sizeof b);
  ASSERT_EQ(SornSTBopen(&b, chain(), 0, nullptr, nullptr, nullptr), &b);
  for (int round = 0; round < 20; ++round) {
    int n = 1 + static_cast<int>(rng() % 40);
    auto nodes = random_tree(&b, rng, n);
    SornSTree *tree = SornSTopen(nullptr, &b);  // the builder's own tree
    ASSERT_EQ(tree, &b.owntree);
    tree->root = nodes[0];
    std::vector<SornAGTnode *> want;
    ref_pre(nodes[0], want);
    Log log;
    EXPECT_EQ(SornAGTwalk(tree, 1, logging_fn, &log), 1);
    EXPECT_EQ(nodes_of(log), want);
    want.clear();
    ref_post(nodes[0], want);
    log.calls.clear();
    EXPECT_EQ(SornAGTwalk(tree, 3, logging_fn, &log), 1);
    EXPECT_EQ(nodes_of(log), want);
    std::vector<std::pair<SornAGTnode *, int32_t>> wantin;
    ref_in(nodes[0], wantin);
    log.calls.clear();
    SornAGTwalk(tree, 2, logging_fn, &log);
    EXPECT_EQ(log.calls, wantin);
    EXPECT_EQ(SornAGTcountChildren(nodes[0], 1), n - 1);
    // A clear gives every node to the destructor, children first.
    rec.destroyed.clear();
    SornSTBclear(&b, 1);
    want.clear();
    ref_post(nodes[0], want);
    EXPECT_EQ(rec.destroyed, want);
    EXPECT_EQ(tree->root, nullptr);
    EXPECT_EQ(b.tree, tree);  // kept attached
    EXPECT_TRUE(at_level(b.mmstack, b.mmbase));
  }
  SornSTBclose(&b, 0);
  EXPECT_EQ(b.flags & SORN_STB_INITED, 0);
  EXPECT_EQ(b.mmstack, nullptr);  // the stack in mmown is gone
}

TEST_F(Builder, NewNodeIsZeroedAlignedAndOpensTheStack) {
  SornSTB b;
  std::memset(&b, 0, sizeof b);
  SornSTBinit(&b, chain(), 0, nullptr, nullptr, nullptr);
  EXPECT_EQ(b.mmstack, nullptr);
  SornAGTnode *n = SornSTBnewnode(&b);
  ASSERT_NE(n, nullptr);
  EXPECT_EQ(b.mmstack, static_cast<void *>(b.mmown));
  EXPECT_EQ(reinterpret_cast<uintptr_t>(n) % 8, 0u);
  EXPECT_EQ(n->next, nullptr);
  EXPECT_EQ(n->child, nullptr);
  EXPECT_EQ(n->parent, nullptr);
  EXPECT_EQ(n->data, nullptr);
  SornSTBfini(&b, 0);
  EXPECT_EQ(b.mmstack, nullptr);
}

TEST_F(Builder, InitIsIdempotentAndFiniOfAnUninitialisedBuilderReturnsAtOnce) {
  SornSTB b;
  std::memset(&b, 0, sizeof b);
  EXPECT_EQ(SornSTBfini(&b, 0), &b);
  EXPECT_EQ(rec.getddtor, 0);
  SornSTBinit(&b, chain(), 8, nullptr, nullptr, nullptr);
  EXPECT_EQ(b.flags, SORN_STB_INITED);
  EXPECT_EQ(b.extsize, 8);
  SornSTB copy;
  std::memcpy(&copy, &b, sizeof b);
  SornSTBinit(&b, nullptr, 0, nullptr, nullptr, nullptr);
  EXPECT_EQ(std::memcmp(&copy, &b, sizeof b), 0);
  SornSTBfini(&b, 0);
  SornSTBfini(&b, 0);
  EXPECT_EQ(b.flags, 0);
}

TEST_F(Builder, XtrntreeOfTheOwnTreeGivesNull) {
  SornSTB b;
  std::memset(&b, 0, sizeof b);
  SornSTBinit(&b, chain(), 0, nullptr, nullptr, nullptr);
  EXPECT_EQ(SornSTBxtrntree(&b, &b.owntree), nullptr);
  EXPECT_EQ(b.tree, nullptr);
  SornSTBfini(&b, 0);
}

TEST_F(Builder, XtrntreeAttachesAndCallsTheHooks) {
  SornSTB b;
  std::memset(&b, 0, sizeof b);
  SornSTBinit(&b, chain(), 0, nullptr, nullptr, nullptr);
  SornSTree t{};
  t.onattach = count_onattach;
  g_onattach = 0;
  EXPECT_EQ(SornSTBxtrntree(&b, &t), &b);
  EXPECT_EQ(b.tree, &t);
  EXPECT_EQ(t.builder, &b);
  EXPECT_EQ(rec.attached, 1);
  EXPECT_EQ(g_onattach, 1);
  // Again: nothing changes.
  EXPECT_EQ(SornSTBxtrntree(&b, &t), &b);
  EXPECT_EQ(rec.attached, 1);
  EXPECT_EQ(g_onattach, 1);
  // Null: a clear that detaches.
  EXPECT_EQ(SornSTBxtrntree(&b, nullptr), &b);
  EXPECT_EQ(b.tree, nullptr);
  EXPECT_EQ(t.builder, nullptr);
  EXPECT_EQ(rec.detached, 1);
  SornSTBfini(&b, 0);
}

TEST_F(Builder, TakingAnotherBuildersTreeClearsThatBuilder) {
  SornSTB a, b;
  std::memset(&a, 0, sizeof a);
  std::memset(&b, 0, sizeof b);
  SornSTBinit(&a, chain(), 0, nullptr, nullptr, nullptr);
  SornSTBinit(&b, chain(), 0, nullptr, nullptr, nullptr);
  SornSTree t{};
  SornSTBxtrntree(&a, &t);
  t.root = SornSTBnewnode(&a);
  SornAGTnode *root = t.root;
  EXPECT_EQ(SornSTBxtrntree(&b, &t), &b);
  EXPECT_EQ(a.tree, nullptr);
  EXPECT_EQ(b.tree, &t);
  EXPECT_EQ(t.builder, &b);
  EXPECT_EQ(t.root, nullptr);
  EXPECT_EQ(rec.destroyed, std::vector<SornAGTnode *>{root});
  SornSTBfini(&a, 0);
  SornSTBfini(&b, 1);
}

TEST_F(Builder, ClearOfABuilderWhoseTreeWasTakenTouchesNeither) {
  SornSTB a, b;
  std::memset(&a, 0, sizeof a);
  std::memset(&b, 0, sizeof b);
  SornSTBinit(&a, chain(), 0, nullptr, nullptr, nullptr);
  SornSTBinit(&b, chain(), 0, nullptr, nullptr, nullptr);
  SornSTree t{};
  SornSTBxtrntree(&b, &t);
  t.root = SornSTBnewnode(&b);
  SornAGTnode *root = t.root;
  a.tree = &t;  // a stale link, as left by an outside hand
  rec.destroyed.clear();
  int att = rec.attached, det = rec.detached;
  SornSTBclear(&a, 0);
  EXPECT_EQ(a.tree, nullptr);
  EXPECT_EQ(t.root, root);
  EXPECT_EQ(t.builder, &b);
  EXPECT_EQ(b.tree, &t);
  EXPECT_TRUE(rec.destroyed.empty());
  EXPECT_EQ(rec.attached, att);
  EXPECT_EQ(rec.detached, det);
  SornSTBfini(&a, 0);
  SornSTBfini(&b, 1);
}

TEST_F(Builder, ClearCallsOnclearAndAsksForTheDestructorWithItsTag) {
  SornSTB b;
  std::memset(&b, 0, sizeof b);
  SornSTree t{};
  t.onclear = count_onclear;
  g_onclear = 0;
  SornSTBinit(&b, chain(), 0, &t, nullptr, nullptr);
  EXPECT_EQ(b.tree, &t);
  t.root = SornSTBnewnode(&b);
  rec.give_dtor = false;
  SornSTBclear(&b, 0);
  EXPECT_EQ(g_onclear, 1);
  EXPECT_EQ(rec.getddtor, 1);
  EXPECT_EQ(rec.last_tag, SORN_STB_TAG_STBL);
  EXPECT_TRUE(rec.destroyed.empty());
  EXPECT_EQ(t.root, nullptr);
  EXPECT_EQ(t.builder, nullptr);
  SornSTBfini(&b, 0);
}

TEST_F(Builder, InitWithATreeThatNamesItAlreadyAttachesAnew) {
  SornSTB b;
  std::memset(&b, 0, sizeof b);
  SornSTree t{};
  t.builder = &b;
  SornSTBinit(&b, chain(), 0, &t, nullptr, nullptr);
  EXPECT_EQ(b.tree, &t);
  EXPECT_EQ(t.builder, &b);
  EXPECT_EQ(rec.attached, 1);
  SornSTBfini(&b, 1);
  // With its own tree, init attaches nothing.
  SornSTBinit(&b, chain(), 0, &b.owntree, nullptr, nullptr);
  EXPECT_EQ(b.tree, nullptr);
  SornSTBfini(&b, 0);
}

TEST_F(Builder, OpenOnAGivenStackPutsTheRecordThereAndCloseGivesItBack) {
  void *stack = KuSMEMSTGopen(nullptr, 0, 0);
  KuMark before;
  KuSMEMSTGgetstate(&before, stack, 0);
  SornSTB *b = SornSTBopen(nullptr, chain(), 16, nullptr, stack, nullptr);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(b->flags, SORN_STB_INITED | SORN_STB_ONSTACK);
  EXPECT_EQ(b->mmstack, stack);
  EXPECT_EQ(b->extsize, 16);
  for (int i = 0; i < 100; ++i) SornSTBnewnode(b);
  SornSTBclose(b, 0);
  EXPECT_TRUE(at_level(stack, before));
  KuMEMSTGclose(stack);
}

TEST_F(Builder, OpenWithoutStackOpensOneThatDiesWithTheBuilder) {
  void *parent = KuSMEMSTGopen(nullptr, 0, 0);
  SornSTB *b = SornSTBopen(nullptr, chain(), 48, nullptr, nullptr, parent);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(b->flags, SORN_STB_INITED | SORN_STB_ONSTACK | SORN_STB_OWNSTACK);
  EXPECT_NE(b->mmstack, nullptr);
  EXPECT_EQ(b->mmparent, parent);
  const unsigned char *ext = static_cast<const unsigned char *>(SORN_STB_EXT(b));
  for (int i = 0; i < 48; ++i) EXPECT_EQ(ext[i], 0);
  for (int i = 0; i < 1000; ++i) SornSTBnewnode(b);
  SornSTBclose(b, 0);  // the sanitizer build proves the stack freed
  KuMEMSTGclose(parent);
  SornSTBclose(nullptr, 0);
}

TEST_F(Builder, OpenInCallerStorageSetsNoOwnership) {
  std::vector<uint64_t> store((sizeof(SornSTB) + 48) / 8, ~0ull);
  SornSTB *b = reinterpret_cast<SornSTB *>(store.data());
  EXPECT_EQ(SornSTBopen(b, chain(), 48, nullptr, nullptr, nullptr), b);
  EXPECT_EQ(b->flags, SORN_STB_INITED);
  EXPECT_EQ(b->tree, nullptr);
  EXPECT_EQ(b->userdata, nullptr);
  SornSTBnewnode(b);
  SornSTBclose(b, 0);
  EXPECT_EQ(b->mmstack, nullptr);
}

TEST_F(Builder, ClearRewindsAGivenStackAndFiniLeavesItAtItsBase) {
  void *stack = KuSMEMSTGopen(nullptr, 0, 0);
  void *below = KuSMEMSTGaalloc(stack, 100, 8, 0);
  ASSERT_NE(below, nullptr);
  SornSTB b;
  std::memset(&b, 0, sizeof b);
  SornSTBinit(&b, chain(), 0, nullptr, stack, nullptr);
  KuMark base = b.mmbase;
  for (int i = 0; i < 50; ++i) SornSTBnewnode(&b);
  SornSTBclear(&b, 0);
  EXPECT_TRUE(at_level(stack, base));
  for (int i = 0; i < 50; ++i) SornSTBnewnode(&b);
  SornSTBfini(&b, 0);
  EXPECT_TRUE(at_level(stack, base));
  EXPECT_EQ(b.mmstack, stack);  // a stack of the caller stays named
  KuMEMSTGclose(stack);
}

TEST_F(Builder, FiniClosesAnExternalTreeUnlessKept) {
  SornSTB b;
  std::memset(&b, 0, sizeof b);
  g_deleted = 0;
  SornSTree *t = SornSTopen(nullptr, nullptr);
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->deleter, &std::free);
  t->deleter = counting_deleter;
  SornSTBinit(&b, chain(), 0, t, nullptr, nullptr);
  t->root = SornSTBnewnode(&b);
  SornSTBfini(&b, 0);
  EXPECT_EQ(g_deleted, 1);

  SornSTree kept{};
  SornSTBinit(&b, chain(), 0, &kept, nullptr, nullptr);
  kept.root = SornSTBnewnode(&b);
  SornSTBfini(&b, 1);
  EXPECT_EQ(kept.root, nullptr);
  EXPECT_EQ(kept.builder, nullptr);
  EXPECT_EQ(b.tree, nullptr);
}

/* ---------------- The tree record ---------------- */

TEST_F(Builder, TreeOpenedWithBothNullIsFreedByClose) {
  SornSTree *t = SornSTopen(nullptr, nullptr);
  ASSERT_NE(t, nullptr);
  EXPECT_EQ(t->root, nullptr);
  EXPECT_EQ(t->builder, nullptr);
  EXPECT_EQ(t->onattach, nullptr);
  EXPECT_EQ(t->onclear, nullptr);
  SornSTclose(t, 0);  // free(): the sanitizer build sees no leak
  SornSTclose(nullptr, 0);
}

TEST_F(Builder, TreeOpenedWithABuilderIsItsOwnTreeAndNeverDeleted) {
  SornSTB b;
  std::memset(&b, 0, sizeof b);
  SornSTBinit(&b, chain(), 0, nullptr, nullptr, nullptr);
  SornSTree *t = SornSTopen(nullptr, &b);
  EXPECT_EQ(t, &b.owntree);
  EXPECT_EQ(b.tree, t);
  t->deleter = forbidden_deleter;
  t->root = SornSTBnewnode(&b);
  EXPECT_EQ(SornSTfini(t, 1), nullptr);
  EXPECT_EQ(b.flags & SORN_STB_INITED, SORN_STB_INITED);  // kept alive
  SornSTopen(nullptr, &b);
  SornSTclose(&b.owntree, 0);  // closes the builder, never the deleter
  EXPECT_EQ(b.flags & SORN_STB_INITED, 0);
}

TEST_F(Builder, TreeClearInvertsKeep) {
  SornSTB b;
  std::memset(&b, 0, sizeof b);
  SornSTBinit(&b, chain(), 0, nullptr, nullptr, nullptr);
  SornSTree t{};
  ASSERT_EQ(SornSTinit(&t, &b), &t);
  t.root = SornSTBnewnode(&b);
  EXPECT_EQ(SornSTclear(&t, 0), &t);
  EXPECT_EQ(t.root, nullptr);
  EXPECT_EQ(t.builder, &b);  // still attached
  EXPECT_EQ(SornSTclear(&t, 1), &t);
  EXPECT_EQ(t.builder, nullptr);  // detached
  EXPECT_EQ(b.tree, nullptr);
  // Without a builder, clear empties the root.
  SornAGTnode n{};
  t.root = &n;
  EXPECT_EQ(SornSTclear(&t, 0), &t);
  EXPECT_EQ(t.root, nullptr);
  SornSTBfini(&b, 0);
}

TEST_F(Builder, SetBuilderAttachesAndNullDetaches) {
  SornSTB b;
  std::memset(&b, 0, sizeof b);
  SornSTBinit(&b, chain(), 0, nullptr, nullptr, nullptr);
  SornSTree t{};
  SornSTinit(&t, nullptr);
  EXPECT_EQ(SornSTsetbuilder(&t, &b), &t);
  EXPECT_EQ(t.builder, &b);
  EXPECT_EQ(b.tree, &t);
  EXPECT_EQ(SornSTsetbuilder(&t, nullptr), &t);
  EXPECT_EQ(t.builder, nullptr);
  EXPECT_EQ(b.tree, nullptr);
  EXPECT_EQ(SornSTsetbuilder(&t, nullptr), &t);  // no builder: nothing
  // The builder's own tree can't be handed over.
  EXPECT_EQ(SornSTsetbuilder(&b.owntree, &b), nullptr);
  SornSTBfini(&b, 0);
}

TEST_F(Builder, TreeFiniWithABuilder) {
  SornSTB b;
  std::memset(&b, 0, sizeof b);
  SornSTBinit(&b, chain(), 0, nullptr, nullptr, nullptr);
  SornSTree t{};
  SornSTinit(&t, &b);
  t.root = SornSTBnewnode(&b);
  EXPECT_EQ(SornSTfini(&t, 1), &t);  // the builder lives on
  EXPECT_EQ(t.builder, nullptr);
  EXPECT_EQ(b.flags & SORN_STB_INITED, SORN_STB_INITED);
  SornSTinit(&t, &b);
  EXPECT_EQ(SornSTfini(&t, 0), &t);  // the builder is finished
  EXPECT_EQ(b.flags & SORN_STB_INITED, 0);
  EXPECT_EQ(t.builder, nullptr);
  SornAGTnode n{};
  t.root = &n;
  EXPECT_EQ(SornSTfini(&t, 0), &t);
  EXPECT_EQ(t.root, nullptr);
}
