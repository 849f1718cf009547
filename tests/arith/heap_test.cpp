// The term heap: chaining on insertion, equal keys joined across slots on
// extraction, and random stream merges against a sorted reference.
#include "arith/heap.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
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

// Streams of strictly decreasing monomials merged through the heap must give
// every monomial once, in decreasing order, with one stream per occurrence.
struct merge_stream : term_stream {
  std::vector<std::vector<word>> monomials;
  std::size_t at = 0;
  std::vector<word> key;
};

template <int Msize>
void merge_random_streams(int msize, bool tdeg, std::uint32_t seed) {
  SCOPED_TRACE(testing::Message() << "msize " << msize << " tdeg " << tdeg << " seed " << seed);
  std::mt19937 rng(seed);
  std::uniform_int_distribution<word> small(0, 3);
  auto cmp = [&](const std::vector<word>& a, const std::vector<word>& b) {
    return compare_monomials<0>(a.data(), b.data(), msize, tdeg) > 0;
  };
  const int count = 1 + static_cast<int>(rng() % 40);
  std::vector<merge_stream> streams(static_cast<std::size_t>(count));
  std::map<std::vector<word>, int, decltype(cmp)> expected(cmp);
  for (merge_stream& s : streams) {
    std::set<std::vector<word>, decltype(cmp)> distinct(cmp);
    const int length = 1 + static_cast<int>(rng() % 30);
    for (int i = 0; i < length; ++i) {
      std::vector<word> monomial(static_cast<std::size_t>(msize));
      for (word& w : monomial) w = small(rng);
      distinct.insert(monomial);
    }
    s.monomials.assign(distinct.begin(), distinct.end());
    for (const auto& monomial : s.monomials) ++expected[monomial];
    s.key.resize(static_cast<std::size_t>(msize));
  }

  std::vector<heap_entry<Msize>> entries(streams.size());
  term_heap<Msize> h{entries.data(), 0, {msize, tdeg}};
  auto insert = [&](merge_stream& s) {
    s.key = s.monomials[s.at];
    if constexpr (Msize == 1)
      heap_insert(h, static_cast<std::int32_t>(s.key[0]), &s);
    else
      heap_insert(h, static_cast<const word*>(s.key.data()), &s);
  };
  for (merge_stream& s : streams) insert(s);

  std::vector<word> m(static_cast<std::size_t>(msize));
  auto want = expected.begin();
  while (h.n > 0) {
    ASSERT_NE(want, expected.end());
    const auto taken = list_of(heap_pop_equal(h, m.data()));
    EXPECT_EQ(m, want->first);
    EXPECT_EQ(static_cast<int>(taken.size()), want->second);
    for (term_stream* t : taken) {
      auto& s = static_cast<merge_stream&>(*t);
      if (++s.at < s.monomials.size()) insert(s);
    }
    ++want;
  }
  EXPECT_EQ(want, expected.end());
}

TEST(TermHeap, RandomStreamsMergeInOrder) {
#if defined(__SANITIZE_ADDRESS__) || UINTPTR_MAX == 0xffffffffu
  constexpr std::uint32_t seeds = 20;
#else
  constexpr std::uint32_t seeds = 60;
#endif
  for (std::uint32_t seed = 1; seed <= seeds; ++seed) {
    merge_random_streams<1>(1, false, seed);
    merge_random_streams<2>(2, false, seed);
    merge_random_streams<2>(2, true, seed);
    merge_random_streams<3>(3, true, seed);
    merge_random_streams<0>(5, false, seed);
    merge_random_streams<0>(5, true, seed);
  }
}

}  // namespace
}  // namespace vorn
