// The term heap: chaining on insertion and equal keys joined across slots on
// extraction.  Merges of many streams are checked through the products and
// divisions against expand and FLINT.
#include "arith/heap.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace vorn {
namespace {

using chain = std::vector<std::int32_t>;

struct small_heap {
  std::vector<heap_entry<1>> storage =
      std::vector<heap_entry<1>>(heap_storage_entries<key_order<1>>(16));
  chain links = chain(16, 99);
  term_heap<1> h{heap_storage_init<key_order<1>>(storage.data(), 16), 0, {1, false}, links.data()};

  void insert(std::int32_t key, std::int32_t stream) { heap_insert(h, key, stream); }
  chain pop(word& m) {
    chain out;
    for (std::int32_t s = heap_pop_equal(h, &m); s != no_stream; s = links[static_cast<std::size_t>(s)])
      out.push_back(s);
    return out;
  }
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
  EXPECT_EQ(t.pop(m), (chain{3, 0}));
  EXPECT_EQ(m, 10u);
  EXPECT_EQ(t.pop(m), (chain{4, 1}));
  EXPECT_EQ(m, 7u);
}

// A walk that has moved part of its path down before it meets an equal key
// chains there and leaves the path as it was.
TEST(TermHeap, AWalkThatEndsOnAnEqualKeyPutsItsPathBack) {
  small_heap t;
  // Slots 1 to 15, slot k holding stream k - 1.
  const std::vector<std::int32_t> keys{100, 50, 90, 40, 45, 80, 85, 30, 35, 44, 43, 70, 75, 84, 83};
  for (std::int32_t k = 0; k < 15; ++k) {
    t.h.entries[k] = {keys[static_cast<std::size_t>(k)], k};
    t.links[static_cast<std::size_t>(k)] = no_stream;
  }
  t.h.n = 15;
  t.insert(50, 15);  // leaf 16: slots 8 (30) and 4 (40) move down, then slot 2 (50) is equal
  EXPECT_EQ(t.h.n, 15);
  std::vector<std::int32_t> sorted = keys;
  std::sort(sorted.rbegin(), sorted.rend());
  word m = 0;
  for (const std::int32_t key : sorted) {
    const chain streams = t.pop(m);
    EXPECT_EQ(m, static_cast<word>(key));
    if (key == 50) {
      EXPECT_EQ(streams, (chain{15, 1}));
    } else {
      ASSERT_EQ(streams.size(), 1u);
      EXPECT_EQ(keys[static_cast<std::size_t>(streams[0])], key);
    }
  }
  EXPECT_EQ(t.h.n, 0);
}

TEST(TermHeap, EqualKeysInSeparateSlotsComeOutAsOneList) {
  small_heap t;
  t.insert(10, 0);
  t.insert(7, 1);
  t.insert(5, 2);  // slot 3
  t.insert(5, 3);  // leaf 4 lies under slot 2, but slot 3 took the last new key: chained there
  ASSERT_EQ(t.h.n, 3);
  t.insert(6, 4);  // leaf 4 under slot 2 (7)
  t.insert(5, 5);  // leaf 5 under slot 2: a slot of its own, apart from slot 3
  ASSERT_EQ(t.h.n, 5);
  word m = 0;
  t.pop(m);
  t.pop(m);
  t.pop(m);
  const auto fives = t.pop(m);
  EXPECT_EQ(m, 5u);
  EXPECT_EQ(fives.size(), 3u);
  EXPECT_EQ(t.h.n, 0);
}

// Taking the equal streams one by one, each may go back in at once under a
// smaller key: it neither joins the taken monomial nor breaks the chain walk.
TEST(TermHeap, TakenStreamsCanBeInsertedAgainAtOnce) {
  small_heap t;
  t.insert(10, 0);
  t.insert(7, 1);
  t.insert(5, 2);
  t.insert(5, 3);
  t.insert(5, 5);
  t.insert(10, 4);  // chained at the root
  word m = 0;
  chain taken;
  heap_take_equal(t.h, &m, [&](std::int32_t s) {
    taken.push_back(s);
    t.insert(6, s);  // between 7 and the fives
  });
  EXPECT_EQ(m, 10u);
  EXPECT_EQ(taken, (chain{4, 0}));
  EXPECT_EQ(t.pop(m), chain{1});
  EXPECT_EQ(t.pop(m).size(), 2u);  // streams 4 and 0, now under 6
  EXPECT_EQ(m, 6u);
  taken.clear();
  heap_take_equal(t.h, &m, [&](std::int32_t s) { taken.push_back(s); });
  EXPECT_EQ(m, 5u);
  EXPECT_EQ(taken.size(), 3u);
  EXPECT_EQ(t.h.n, 0);
}

TEST(TermHeap, PopsWithOneAndTwoSlots) {
  small_heap t;
  t.insert(3, 0);
  word m = 0;
  EXPECT_EQ(t.pop(m), chain{0});
  EXPECT_EQ(t.h.n, 0);
  t.insert(3, 0);
  t.insert(1, 1);
  EXPECT_EQ(t.pop(m), chain{0});
  ASSERT_EQ(t.h.n, 1);
  EXPECT_EQ(t.h.entries[0].key, 1);
  EXPECT_EQ(t.h.entries[0].chain, 1);
}

}  // namespace
}  // namespace vorn
