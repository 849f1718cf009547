// The term heap: a max-heap of streams keyed by packed monomial, in which
// streams whose keys are equal share one slot through a chain.
//
// Slots are numbered from 1 (slot i at entries[i - 1]); every occupied slot
// i > 1 has a key not larger than the key of slot i / 2.  Equal keys can sit
// in different slots when neither lay on the other's insertion path;
// heap_pop_equal joins them.  The heap never allocates: the caller sizes the
// entry storage (heap_storage_entries for one slot per stream that can be in
// the heap at once) and prepares it with heap_storage_init.
//
// Streams are named by their index; a chain runs through the caller's link
// array (links[s] is the stream after s, no_stream ends it).  Walking a chain
// is a run of dependent loads, so the links are kept apart from everything
// else a stream holds: a link array of 4 bytes per stream stays in the first
// level cache where whole stream records would not.
//
// Keys, by the key order the heap is built on:
//  - key_order<1>: the one monomial word, compared as a signed 32-bit integer
//    (the guard bit 31 is clear in every valid monomial);
//  - wide_key_order: two monomial words held as one 64-bit integer, word 0
//    above word 1, word 1 complemented in its 31 bits for tdeg (where the
//    smaller word wins), so that one unsigned comparison gives the order of
//    compare_monomials;
//  - key_order<M> otherwise: the address of the stream's key buffer, compared
//    word by word like compare_monomials.
// The heap relies on guard bits being clear; it does not check them.
//
// Msize is the words per monomial fixed at compile time (1, 2, 3, ...), or 0
// for a count read from the layout.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>

#include "host/words.hpp"
#include "poly/monomial.hpp"

namespace vorn {

// The end of a chain.
inline constexpr std::int32_t no_stream = -1;

template <int Msize>
struct heap_key {
  using type = const word*;
};
template <>
struct heap_key<1> {
  using type = std::int32_t;
};
template <int Msize>
using heap_key_t = typename heap_key<Msize>::type;

template <class Key>
struct basic_heap_entry {
  Key key;
  std::int32_t chain;  // first stream with this key; the rest follow through the links
};

template <int Msize>
using heap_entry = basic_heap_entry<heap_key_t<Msize>>;

// The order of keys: the layout's words per monomial and whether words after
// the first compare reversed (tdeg).
template <int Msize>
struct key_order {
  using key_type = heap_key_t<Msize>;
  static constexpr bool integer_keys = Msize == 1;
  static constexpr bool copies_key = true;

  int msize;
  bool tdeg;

  bool less(key_type a, key_type b) const noexcept {
    if constexpr (Msize == 1)
      return a < b;
    else
      return compare_monomials<Msize>(a, b, msize, tdeg) < 0;
  }
  bool equal(key_type a, key_type b) const noexcept {
    if constexpr (Msize == 1)
      return a == b;
    else
      return monomials_equal<Msize>(a, b, msize);
  }
  // Writes the monomial of a key; key buffers are rewritten as streams
  // advance, so a popped monomial must be copied out.
  void copy(word* dest, key_type k) const noexcept {
    if constexpr (Msize == 1) {
      dest[0] = static_cast<word>(k);
    } else {
      const int m = Msize > 0 ? Msize : msize;
      for (int i = 0; i < m; ++i) dest[i] = k[i];
    }
  }
  // The key of the product of two monomials, formed in buffer (msize words)
  // when keys are buffer addresses.
  // With integer keys, the key of one term's monomial, and the key of a
  // product from its factors' keys.
  key_type term_key(const word* a) const noexcept
    requires(Msize == 1)
  {
    return static_cast<std::int32_t>(a[0]);
  }
  key_type product_of_keys(key_type a, key_type b) const noexcept
    requires(Msize == 1)
  {
    return static_cast<std::int32_t>(static_cast<word>(a) + static_cast<word>(b));
  }
  // The key of a product whose factor of key from is replaced by one of key
  // to, from the product's key and step(from, to): wrapping arithmetic that
  // is exact because the result is a valid key.
  key_type step(key_type from, key_type to) const noexcept
    requires(Msize == 1)
  {
    return static_cast<std::int32_t>(static_cast<word>(to) - static_cast<word>(from));
  }
  key_type stepped(key_type k, key_type step) const noexcept
    requires(Msize == 1)
  {
    return product_of_keys(k, step);
  }
  key_type product_key(const word* a, const word* b, word* buffer) const noexcept {
    if constexpr (Msize == 1) {
      (void)buffer;
      return static_cast<std::int32_t>(a[0] + b[0]);
    } else {
      monomial_add<Msize>(buffer, a, b, msize);
      return buffer;
    }
  }
};

// Monomials keyed by their first two words as one integer: the top 32 bits
// hold word 0, the low 32 bits word 1, exclusive-or'd with 2^31 - 1 for tdeg.
// Both words are below 2^31, so the complement stays in 31 bits and the
// integers order as compare_monomials orders the first two words.  With two
// words per monomial that is the whole order, and a key gives back its
// monomial.  With three (tdeg only), the caller guarantees that words 0 and 1
// decide (see tdeg_decided_by_two_words); the popped monomial is then written
// by the caller from a stream of the root, not from the key.
template <int Msize>
struct wide_key_order {
  using key_type = std::uint64_t;
  static constexpr bool integer_keys = true;
  static constexpr bool copies_key = Msize == 2;

  int msize;
  bool tdeg;
  word flip = tdeg ? 0x7fffffffu : 0u;

  bool less(key_type a, key_type b) const noexcept { return a < b; }
  bool equal(key_type a, key_type b) const noexcept { return a == b; }
  key_type key_of(word w0, word w1) const noexcept {
    return (static_cast<std::uint64_t>(w0) << 32) | (w1 ^ flip);
  }
  key_type key_of(const word* m) const noexcept { return key_of(m[0], m[1]); }
  void copy(word* dest, key_type k) const noexcept {
    if constexpr (copies_key) {
      dest[0] = static_cast<word>(k >> 32);
      dest[1] = static_cast<word>(k) ^ flip;
    }
  }
  key_type product_key(const word* a, const word* b, word*) const noexcept {
    return key_of(a[0] + b[0], a[1] + b[1]);
  }
  key_type term_key(const word* a) const noexcept { return key_of(a); }
  // For tdeg, w ^ flip is flip - w in 31 bits, so the complemented low
  // words add to the complement of their sum plus flip; sums of exponents
  // stay below the guard bits, so nothing carries out of the low half.
  key_type product_of_keys(key_type a, key_type b) const noexcept { return a + b - flip; }
  key_type step(key_type from, key_type to) const noexcept { return to - from; }
  key_type stepped(key_type k, key_type step) const noexcept { return k + step; }
};

// True when, for tdeg monomials of three words, words 0 and 1 decide the
// order of any two products of terms whose field maxima (over both
// operands) are maxima_a and maxima_b: word 0 starts with the total degree,
// word 1 holds the last exponents, and when at most one field of word 2 is
// non-zero anywhere, that field is the degree less the fields of word 1, so
// equal words 0 and 1 mean equal monomials.
inline bool tdeg_decided_by_two_words(word maxima_a2, word maxima_b2, int shift) noexcept {
  const word used = maxima_a2 | maxima_b2;
  const word mask = shift >= 32 ? ~word{0} : (word{1} << shift) - 1;
  int fields = 0;
  for (int position = 32 - shift; position >= 0; position -= shift)
    if (((used >> position) & mask) != 0) ++fields;
  return fields <= 1;
}

// The order the kernels use for Msize words per monomial.
template <int Msize>
struct kernel_key_order {
  using type = key_order<Msize>;
};
template <>
struct kernel_key_order<2> {
  using type = wide_key_order<2>;
};
template <int Msize>
using kernel_key_order_t = typename kernel_key_order<Msize>::type;

// Integer keys keep sentinels around the slots: the largest key in front of
// slot 1 and the smallest in every slot after n, so that the walk up from a
// new leaf and the sift-down stop on key comparisons alone (one exit each)
// instead of testing their index too.  No valid key equals either (bit 31 of
// a monomial word is clear), the insertion's equality test still checks its
// index, and a slot is the smallest key only until the heap writes it.  The
// sift-down reads the children of slots up to n - 1, so capacity slots need
// storage for twice as many.  Buffer keys take the plain array.
template <class Order>
inline constexpr std::size_t heap_storage_entries(std::size_t capacity) noexcept {
  return Order::integer_keys ? 2 * capacity + 1 : capacity;
}

// Writes the sentinels into storage of heap_storage_entries(capacity)
// entries and returns the address of slot 1.
template <class Order>
inline basic_heap_entry<typename Order::key_type>* heap_storage_init(
    basic_heap_entry<typename Order::key_type>* storage, std::size_t capacity) noexcept {
  if constexpr (Order::integer_keys) {
    using key_type = typename Order::key_type;
    storage[0] = {std::numeric_limits<key_type>::max(), no_stream};
    std::fill(storage + 1, storage + 2 * capacity + 1,
              basic_heap_entry<key_type>{std::numeric_limits<key_type>::min(), no_stream});
    return storage + 1;
  } else {
    (void)capacity;
    return storage;
  }
}

template <class Order>
struct basic_term_heap {
  basic_heap_entry<typename Order::key_type>* entries;  // caller's array
  std::int32_t n;                                        // occupied slots
  Order order;
  std::int32_t* links;  // caller's array, one per stream
  std::int32_t recent = 1;  // integer keys: the slot the last walking insertion ended at
};

template <int Msize>
using term_heap = basic_term_heap<key_order<Msize>>;

// Places stream s under key: on the slot of an equal key met at the root or
// on the way up from the new leaf, otherwise in a new slot with the path
// above it moved down one level.  The array needs room for n + 1 slots.
//
// Integer keys also try the slot the last walking insertion ended at before
// they walk: products of one monomial tend to arrive one after another, and
// every one caught there saves a walk now and a root removal later (equal
// keys in two slots cost a removal each).  Their walk moves the path down as
// it goes; the rare walk that ends on an equal key puts it back.
template <class Order>
inline void heap_insert(basic_term_heap<Order>& h, typename Order::key_type key, std::int32_t s) noexcept {
  auto* const e = h.entries;
  const Order& order = h.order;
  const std::int32_t leaf = h.n + 1;
  auto chain_at = [&](std::int32_t slot) {
    h.links[s] = e[slot - 1].chain;
    e[slot - 1].chain = s;
  };
  if (leaf == 1) {
    e[0] = {key, s};
    h.links[s] = no_stream;
    h.n = 1;
    return;
  }
  if (order.equal(key, e[0].key)) {
    chain_at(1);
    return;
  }
  if constexpr (Order::integer_keys) {
    const std::int32_t r = h.recent;
    if (r < leaf && order.equal(key, e[r - 1].key)) {
      chain_at(r);
      return;
    }
    std::int32_t hole = leaf;
    std::int32_t i = leaf >> 1;
    while (order.less(e[i - 1].key, key)) {  // stops at the sentinel before slot 1
      e[hole - 1] = e[i - 1];
      hole = i;
      i >>= 1;
    }
    if (i >= 1 && order.equal(e[i - 1].key, key)) {
      chain_at(i);
      h.recent = i;
      // Each slot from the hole down takes back its child on the path to the leaf.
      const int leaf_depth = std::bit_width(static_cast<std::uint32_t>(leaf));
      for (std::int32_t x = hole; x != leaf;) {
        const std::int32_t child = leaf >> (leaf_depth - std::bit_width(static_cast<std::uint32_t>(x)) - 1);
        e[x - 1] = e[child - 1];
        x = child;
      }
      e[leaf - 1] = {std::numeric_limits<typename Order::key_type>::min(), no_stream};
      return;
    }
    e[hole - 1] = {key, s};
    h.links[s] = no_stream;
    h.n = leaf;
    h.recent = hole;
  } else {
    std::int32_t t = leaf;  // highest slot whose key is smaller than key
    std::int32_t i = leaf / 2;
    while (i >= 1 && order.less(e[i - 1].key, key)) {
      t = i;
      i /= 2;
    }
    if (i >= 1 && order.equal(e[i - 1].key, key)) {
      chain_at(i);
      return;
    }
    for (std::int32_t hole = leaf; hole > t; hole /= 2) e[hole - 1] = e[hole / 2 - 1];
    e[t - 1] = {key, s};
    h.links[s] = no_stream;
    h.n = leaf;
  }
}

// Removes slot 1 (n >= 1).  Integer keys sift the last entry down and stop
// early, at a child not larger than it, the smallest-key sentinels after
// slot n included; buffer keys, whose comparisons cost more, walk the larger
// children to the bottom with one comparison per level and sift the last
// entry up, which is usually short.  The child comparison may read slot n,
// the entry being moved (or, with sentinels, the sentinel that replaced it).
template <class Order>
inline void heap_remove_root(basic_term_heap<Order>& h) noexcept {
  auto* const e = h.entries;
  const Order& order = h.order;
  const std::int32_t n = h.n;
  const auto last = e[n - 1];
  if constexpr (Order::integer_keys) {
    e[n - 1] = {std::numeric_limits<typename Order::key_type>::min(), no_stream};
    h.n = n - 1;
    if (n == 1) return;
    std::int32_t hole = 1;
    for (std::int32_t j = 2;; j = 2 * hole) {
      const std::int32_t c = j + static_cast<std::int32_t>(order.less(e[j - 1].key, e[j].key));
      if (!order.less(last.key, e[c - 1].key)) break;
      e[hole - 1] = e[c - 1];
      hole = c;
    }
    e[hole - 1] = last;
  } else {
    std::int32_t hole = 1;
    if (n > 2) {
      for (std::int32_t j = 2;; j = 2 * hole) {
        const std::int32_t c = j + static_cast<std::int32_t>(order.less(e[j - 1].key, e[j].key));
        e[hole - 1] = e[c - 1];
        hole = c;
        if (2 * c >= n) break;
      }
      while (hole > 1 && order.less(e[hole / 2 - 1].key, last.key)) {
        e[hole - 1] = e[hole / 2 - 1];
        hole /= 2;
      }
    }
    e[hole - 1] = last;
    h.n = n - 1;
  }
}

// True when the root holds the monomial whose key was root_key (copied into
// m): integer keys compare as they are, buffer keys through m, since the
// buffer root_key named may have been rewritten.
template <class Order>
inline bool root_holds(const basic_term_heap<Order>& h, typename Order::key_type root_key, const word* m) noexcept {
  if (h.n == 0) return false;
  if constexpr (Order::integer_keys)
    return h.entries[0].key == root_key;
  else
    return h.order.equal(h.entries[0].key, m);
}

// Copies the largest monomial into m (msize words; left to the caller when
// the order's keys do not hold whole monomials) and removes every stream
// whose key equals it and that successive root removals reach, returning them
// as one list through the links: slot by slot in the order of removal, each slot's
// chain in its own order.  visit(stream) is called for each, in that order,
// while the list is built.  Requires n >= 1.
template <class Order, class Visit>
inline std::int32_t heap_pop_equal(basic_term_heap<Order>& h, word* m, Visit&& visit) noexcept {
  std::int32_t* const links = h.links;
  const auto root_key = h.entries[0].key;
  h.order.copy(m, root_key);
  const std::int32_t first = h.entries[0].chain;
  std::int32_t s = first;
  for (;;) {
    std::int32_t last = s;
    for (; s != no_stream; s = links[s]) {
      visit(s);
      last = s;
    }
    heap_remove_root(h);
    if (!root_holds(h, root_key, m)) break;
    s = h.entries[0].chain;
    links[last] = s;
  }
  return first;
}

// Pops the same streams as heap_pop_equal, in the same order, and then hands
// each to take(stream) with its link already read, so that take may insert
// the stream again at once.  Every slot of the monomial has left the heap by
// then, so insertions equal to the next monomial chain at the root.  Only a
// chain that another slot's follows is walked to its end while popping.  For
// callers whose insertions are all smaller than the popped monomial.
template <class Order, class Take>
inline void heap_take_equal(basic_term_heap<Order>& h, word* m, Take&& take) noexcept {
  std::int32_t* const links = h.links;
  const auto root_key = h.entries[0].key;
  h.order.copy(m, root_key);
  const std::int32_t first = h.entries[0].chain;
  std::int32_t tail = first;  // the chain taken last
  for (;;) {
    heap_remove_root(h);
    if (!root_holds(h, root_key, m)) break;
    while (links[tail] != no_stream) tail = links[tail];
    links[tail] = h.entries[0].chain;
    tail = h.entries[0].chain;
  }
  for (std::int32_t s = first; s != no_stream;) {
    const std::int32_t next = links[s];
    take(s);
    s = next;
  }
}

template <class Order>
inline std::int32_t heap_pop_equal(basic_term_heap<Order>& h, word* m) noexcept {
  return heap_pop_equal(h, m, [](std::int32_t) noexcept {});
}

}  // namespace vorn
