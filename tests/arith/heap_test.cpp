// The term heap: chaining on insertion and equal keys joined across slots on
// extraction.  Merges of many streams are checked through the products and
// divisions against expand and FLINT.
#include "arith/heap.hpp"

#include <gtest/gtest.h>

#include <vector>

namespace vorn {
namespace {

std::vector<term_stream*> list_of(term_stream* s) {
  std::vector<term_stream*> out;
  for (; s != nullptr; s = s->next) out.push_back(s);
  return out;
}

struct small_heap {
  std::vector<heap_entry<1>> entries = std::vector<heap_entry<1>>(16);
  std::vector<term_stream> streams = std::vector<term_stream>(16);
  term_heap<1> h{entries.data(), 0, {1, false}};

  void insert(std::int32_t key, int stream) {
    heap_insert(h, key, &streams[static_cast<std::size_t>(stream)]);
  }
  std::vector<term_stream*> pop(word& m) { return list_of(heap_pop_equal(h, &m)); }
  term_stream* at(int i) { return &streams[static_cast<std::size_t>(i)]; }
};

TEST(TermHeap, EqualKeysChainAtTheRootAndAtAnAncestor) {
  small_heap t;
  t.insert(10, 0);
  t.insert(7, 1);
  t.insert(5, 2);
  t.insert(10, 3);  // the root's key: chained, no new slot
  EXPECT_EQ(t.h.n, 3);
  t.insert(7, 4);  // new leaf 4 under slot 2, whose key is equal
  EXPECT_EQ(t.h.n, 3);
  word m = 0;
  EXPECT_EQ(t.pop(m), (std::vector<term_stream*>{t.at(3), t.at(0)}));
  EXPECT_EQ(m, 10u);
  EXPECT_EQ(t.pop(m), (std::vector<term_stream*>{t.at(4), t.at(1)}));
  EXPECT_EQ(m, 7u);
}

TEST(TermHeap, EqualKeysInSeparateSlotsComeOutAsOneList) {
  small_heap t;
  t.insert(10, 0);
  t.insert(7, 1);
  t.insert(5, 2);
  t.insert(5, 3);  // leaf 4 under slot 2 (7): a slot of its own
  t.insert(5, 5);  // leaf 5 under slot 2 as well
  ASSERT_EQ(t.h.n, 5);
  word m = 0;
  t.pop(m);
  t.pop(m);
  const auto fives = t.pop(m);
  EXPECT_EQ(m, 5u);
  EXPECT_EQ(fives.size(), 3u);
  EXPECT_EQ(t.h.n, 0);
}

TEST(TermHeap, PopsWithOneAndTwoSlots) {
  small_heap t;
  t.insert(3, 0);
  word m = 0;
  EXPECT_EQ(t.pop(m), std::vector<term_stream*>{t.at(0)});
  EXPECT_EQ(t.h.n, 0);
  t.insert(3, 0);
  t.insert(1, 1);
  EXPECT_EQ(t.pop(m), std::vector<term_stream*>{t.at(0)});
  ASSERT_EQ(t.h.n, 1);
  EXPECT_EQ(t.h.entries[0].key, 1);
  EXPECT_EQ(t.h.entries[0].chain, t.at(1));
}

}  // namespace
}  // namespace vorn
