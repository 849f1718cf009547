// The term heap under every key order: chaining on insertion, equal keys
// joined across slots on extraction, the walk that puts its path back, and
// streams taken and inserted again at once.  Merges of many streams are
// checked through the products and divisions against expand and FLINT.
#include "arith/heap.hpp"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

namespace vorn {
namespace {

using chain = std::vector<std::int32_t>;

template <class Order, int Words, bool Tdeg>
struct key_case {
  using order_type = Order;
  static constexpr int words = Words;
  static constexpr bool tdeg = Tdeg;
};

// Streams 0 to 15, each at a monomial of a given rank: a larger rank is a
// larger monomial, the words after the first reversed for tdeg, so that
// every order's comparison of its words is exercised.
template <class Case>
class TermHeap : public ::testing::Test {
 protected:
  using order_type = typename Case::order_type;
  static constexpr int m = Case::words;

  order_type order{m, Case::tdeg};
  chain links = chain(16, 99);
  std::vector<word> buffers = std::vector<word>(16 * m);
  std::vector<std::vector<word>> monomials = std::vector<std::vector<word>>(16, std::vector<word>(m));
  const std::vector<word> one = std::vector<word>(m);
  gateway_array<basic_heap_entry<typename order_type::key_type>> storage;
  basic_term_heap<order_type> h{nullptr, 0, order, links.data()};

  TermHeap() { grow(16); }
  void grow(std::size_t capacity) { h.entries = grow_heap_storage<order_type>(storage, capacity, h.entries, h.n); }

  typename order_type::key_type key(int rank, std::int32_t stream) {
    std::vector<word>& w = monomials[static_cast<std::size_t>(stream)];
    w[0] = static_cast<word>(m == 1 ? rank : rank / 7);
    if (m > 1) w[1] = static_cast<word>(Case::tdeg ? 6 - rank % 7 : rank % 7);
    return order.product_key(w.data(), one.data(), order.buffer(buffers.data(), stream));
  }
  void insert(int rank, std::int32_t stream) { heap_insert(h, key(rank, stream), stream); }

  // The rank of the largest monomial, as the kernels write it out.
  int root_rank() {
    std::vector<word> w(m);
    const std::int32_t s = h.entries[0].chain;
    order.write_monomial(w.data(), h.entries[0].key, [&] {
      return std::pair{monomials[static_cast<std::size_t>(s)].data(), one.data()};
    });
    return m == 1 ? static_cast<int>(w[0]) : static_cast<int>(7 * w[0] + (Case::tdeg ? 6 - w[1] : w[1]));
  }
  chain pop(int& rank) {
    rank = root_rank();
    chain out;
    for (std::int32_t s = heap_pop_equal(h); s != no_stream; s = links[static_cast<std::size_t>(s)]) out.push_back(s);
    return out;
  }
};

using key_cases = ::testing::Types<key_case<word_key_order, 1, false>, key_case<wide_key_order<2>, 2, false>,
                                   key_case<wide_key_order<2>, 2, true>, key_case<wide_key_order<3>, 3, true>,
                                   key_case<buffer_key_order<2>, 2, true>, key_case<buffer_key_order<0>, 4, false>>;
TYPED_TEST_SUITE(TermHeap, key_cases);

TYPED_TEST(TermHeap, EqualKeysChainAtTheRootAndAtAnAncestor) {
  this->insert(10, 0);
  this->insert(7, 1);
  this->insert(5, 2);
  this->insert(10, 3);  // the root's key: chained, no new slot
  EXPECT_EQ(this->h.n, 3);
  this->insert(7, 4);  // new leaf 4 under slot 2, whose key is equal
  EXPECT_EQ(this->h.n, 3);
  int rank = 0;
  EXPECT_EQ(this->pop(rank), (chain{3, 0}));
  EXPECT_EQ(rank, 10);
  EXPECT_EQ(this->pop(rank), (chain{4, 1}));
  EXPECT_EQ(rank, 7);
}

// A walk that has moved part of its path down before it meets an equal key
// chains there and leaves the path as it was.
TYPED_TEST(TermHeap, AWalkThatEndsOnAnEqualKeyPutsItsPathBack) {
  // Slots 1 to 15, slot k holding stream k - 1.
  const std::vector<int> ranks{100, 50, 90, 40, 45, 80, 85, 30, 35, 44, 43, 70, 75, 84, 83};
  for (std::int32_t k = 0; k < 15; ++k) {
    this->h.entries[k] = {this->key(ranks[static_cast<std::size_t>(k)], k), k};
    this->links[static_cast<std::size_t>(k)] = no_stream;
  }
  this->h.n = 15;
  this->insert(50, 15);  // leaf 16: slots 8 (30) and 4 (40) move down, then slot 2 (50) is equal
  EXPECT_EQ(this->h.n, 15);
  std::vector<int> sorted = ranks;
  std::sort(sorted.rbegin(), sorted.rend());
  for (const int expected : sorted) {
    int rank = 0;
    const chain streams = this->pop(rank);
    EXPECT_EQ(rank, expected);
    if (expected == 50) {
      EXPECT_EQ(streams, (chain{15, 1}));
    } else {
      ASSERT_EQ(streams.size(), 1u);
      EXPECT_EQ(ranks[static_cast<std::size_t>(streams[0])], expected);
    }
  }
  EXPECT_EQ(this->h.n, 0);
}

TYPED_TEST(TermHeap, EqualKeysInSeparateSlotsComeOutAsOneList) {
  this->insert(10, 0);
  this->insert(7, 1);
  this->insert(5, 2);  // slot 3
  this->insert(5, 3);  // integer keys chain at slot 3, where the last walk ended; buffer keys take leaf 4
  this->insert(6, 4);
  this->insert(5, 5);  // under slot 2 (7): a slot apart from slot 3
  int rank = 0;
  for (const int expected : {10, 7, 6}) {
    this->pop(rank);
    EXPECT_EQ(rank, expected);
  }
  EXPECT_EQ(this->pop(rank).size(), 3u);
  EXPECT_EQ(rank, 5);
  EXPECT_EQ(this->h.n, 0);
}

// Taking the equal streams one by one, each may go back in at once under a
// smaller key: it neither joins the taken monomial nor breaks the chain walk.
// Streams offered under the root's key wait in the batch, off the chain, and
// come out of the next take in the order the chain would give them; any
// other change of the heap puts the batch on the chain first.
TYPED_TEST(TermHeap, TakenStreamsCanBeOfferedAgainAtOnce) {
  std::vector<std::int32_t> arrays(32);
  root_batch batch{arrays.data(), arrays.data() + 16};
  batch.shortest = 2;  // batches of two and more are taken as arrays
  this->insert(10, 0);
  this->insert(7, 1);
  this->insert(5, 2);
  this->insert(5, 3);
  this->insert(5, 5);
  this->insert(10, 4);  // chained at the root
  int rank = this->root_rank();
  chain taken;
  auto offer = [&](int to_rank, std::int32_t s) { heap_offer(this->h, batch, this->key(to_rank, s), s); };
  heap_take_equal(this->h, batch, [&](std::int32_t s) {
    taken.push_back(s);
    offer(6, s);  // between 7 and the fives: a new slot, then a chain on it
  });
  EXPECT_EQ(rank, 10);
  EXPECT_EQ(taken, (chain{4, 0}));
  taken.clear();
  heap_take_equal(this->h, batch, [&](std::int32_t s) {
    taken.push_back(s);
    offer(6, s);  // the root's key now: into the batch
  });
  EXPECT_EQ(taken, chain{1});
  EXPECT_EQ(batch.count, 1);
  offer(6, 6);
  offer(6, 7);
  rank = this->root_rank();
  taken.clear();
  heap_take_equal(this->h, batch, [&](std::int32_t s) { taken.push_back(s); });
  EXPECT_EQ(rank, 6);
  ASSERT_EQ(taken.size(), 5u);  // the batch newest first, as on a chain, then the chain
  EXPECT_EQ(chain(taken.begin(), taken.begin() + 3), (chain{7, 6, 1}));
  EXPECT_EQ(std::max(taken[3], taken[4]), 4);
  offer(5, 9);   // the root's key: batched
  offer(4, 10);  // below the root, which stays: the batch waits on
  EXPECT_EQ(batch.count, 1);
  offer(9, 8);  // above the root: the batch goes on the fives' chain first
  EXPECT_EQ(batch.count, 0);
  int rank5 = 0;
  EXPECT_EQ(this->pop(rank5), chain{8});
  EXPECT_EQ(rank5, 9);
  chain fives = this->pop(rank5);
  EXPECT_EQ(rank5, 5);
  std::sort(fives.begin(), fives.end());
  EXPECT_EQ(fives, (chain{2, 3, 5, 9}));
  EXPECT_EQ(this->pop(rank5), chain{10});
  EXPECT_EQ(this->h.n, 0);
}

TYPED_TEST(TermHeap, PopsWithOneAndTwoSlotsAndGrows) {
  this->insert(3, 0);
  int rank = 0;
  EXPECT_EQ(this->pop(rank), chain{0});
  EXPECT_EQ(this->h.n, 0);
  this->insert(3, 0);
  this->insert(1, 1);
  this->grow(32);  // the occupied slots move along
  EXPECT_EQ(this->pop(rank), chain{0});
  ASSERT_EQ(this->h.n, 1);
  EXPECT_EQ(this->root_rank(), 1);
  EXPECT_EQ(this->h.entries[0].chain, 1);
}

}  // namespace
}  // namespace vorn
