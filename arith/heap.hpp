// The term heap: a max-heap of streams keyed by packed monomial, in which
// streams whose keys are equal share one slot through a chain.
//
// Slots are numbered from 1 (slot i at entries[i - 1]); every occupied slot
// i > 1 has a key not larger than the key of slot i / 2.  Equal keys can sit
// in different slots when neither lay on the other's insertion path;
// heap_pop_equal joins them.  The heap never allocates: the caller sizes the
// entry array (one slot per stream that can be in the heap at once).
//
// Keys: with one word per monomial, the word itself, compared as a signed
// 32-bit integer (the guard bit 31 is clear in every valid monomial).  With
// more words, the address of the stream's key buffer, compared word by word
// like compare_monomials.  The heap relies on guard bits being clear; it does
// not check them.
//
// Msize is the words per monomial fixed at compile time (1, 2, 3, ...), or 0
// for a count read from the layout.
#pragma once

#include <cstdint>

#include "host/words.hpp"
#include "poly/monomial.hpp"

namespace vorn {

// The part of a stream record the heap uses: the chain link, first field of
// every stream record (users derive from it and add their cursor,
// multiplier and key buffer).
struct term_stream {
  term_stream* next;
};

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

template <int Msize>
struct heap_entry {
  heap_key_t<Msize> key;
  term_stream* chain;  // first stream with this key; the rest follow through next
};

// The order of keys: the layout's words per monomial and whether words after
// the first compare reversed (tdeg).
template <int Msize>
struct key_order {
  int msize;
  bool tdeg;

  bool less(heap_key_t<Msize> a, heap_key_t<Msize> b) const noexcept {
    if constexpr (Msize == 1)
      return a < b;
    else
      return compare_monomials<Msize>(a, b, msize, tdeg) < 0;
  }
  bool equal(heap_key_t<Msize> a, heap_key_t<Msize> b) const noexcept {
    if constexpr (Msize == 1)
      return a == b;
    else
      return monomials_equal<Msize>(a, b, msize);
  }
  // Writes the monomial of a key; key buffers are rewritten as streams
  // advance, so a popped monomial must be copied out.
  void copy(word* dest, heap_key_t<Msize> k) const noexcept {
    if constexpr (Msize == 1) {
      dest[0] = static_cast<word>(k);
    } else {
      const int m = Msize > 0 ? Msize : msize;
      for (int i = 0; i < m; ++i) dest[i] = k[i];
    }
  }
};

template <int Msize>
struct term_heap {
  heap_entry<Msize>* entries;  // caller's array
  std::int32_t n;              // occupied slots
  key_order<Msize> order;
};

// Places stream s under key: on the slot of an equal key met at the root or
// on the way up from the new leaf, otherwise in a new slot with the path
// above it moved down one level.  The array needs room for n + 1 slots.
template <int Msize>
inline void heap_insert(term_heap<Msize>& h, heap_key_t<Msize> key, term_stream* s) noexcept {
  heap_entry<Msize>* e = h.entries;
  const key_order<Msize>& order = h.order;
  if (h.n == 0) {
    e[0] = {key, s};
    s->next = nullptr;
    h.n = 1;
    return;
  }
  if (order.equal(key, e[0].key)) {
    s->next = e[0].chain;
    e[0].chain = s;
    return;
  }
  const std::int32_t leaf = h.n + 1;
  std::int32_t t = leaf;  // highest slot whose key is smaller than key
  std::int32_t i = leaf / 2;
  while (i >= 1 && order.less(e[i - 1].key, key)) {
    t = i;
    i /= 2;
  }
  if (i >= 1 && order.equal(e[i - 1].key, key)) {
    s->next = e[i - 1].chain;
    e[i - 1].chain = s;
    return;
  }
  for (std::int32_t hole = leaf; hole > t; hole /= 2) e[hole - 1] = e[hole / 2 - 1];
  e[t - 1] = {key, s};
  s->next = nullptr;
  h.n = leaf;
}

// Removes slot 1 (n >= 1).  One-word keys sift the last entry down and stop
// early; longer keys, whose comparisons cost more, walk the larger children
// to the bottom with one comparison per level and sift the last entry up,
// which is usually short.  The child comparison may read slot n, the entry
// being moved, which is still in place.
template <int Msize>
inline void heap_remove_root(term_heap<Msize>& h) noexcept {
  heap_entry<Msize>* e = h.entries;
  const key_order<Msize>& order = h.order;
  const std::int32_t n = h.n;
  const heap_entry<Msize> last = e[n - 1];
  std::int32_t hole = 1;
  if (n > 2) {
    std::int32_t j = 2;
    if constexpr (Msize == 1) {
      for (;;) {
        const std::int32_t c = order.less(e[j - 1].key, e[j].key) ? j + 1 : j;
        if (!order.less(last.key, e[c - 1].key)) break;
        e[hole - 1] = e[c - 1];
        hole = c;
        if (2 * c >= n) break;
        j = 2 * c;
      }
    } else {
      for (;;) {
        const std::int32_t c = order.less(e[j - 1].key, e[j].key) ? j + 1 : j;
        e[hole - 1] = e[c - 1];
        hole = c;
        if (2 * c >= n) break;
        j = 2 * c;
      }
      while (hole > 1 && order.less(e[hole / 2 - 1].key, last.key)) {
        e[hole - 1] = e[hole / 2 - 1];
        hole /= 2;
      }
    }
  }
  e[hole - 1] = last;
  h.n = n - 1;
}

// Copies the largest monomial into m (msize words) and removes every stream
// whose key equals it and that successive root removals reach, returning them
// as one list through next: slot by slot in the order of removal, each slot's
// chain in its own order.  visit(stream) is called for each, in that order,
// while the list is built.  Requires n >= 1.
template <int Msize, class Visit>
inline term_stream* heap_pop_equal(term_heap<Msize>& h, word* m, Visit&& visit) noexcept {
  const heap_key_t<Msize> root_key = h.entries[0].key;
  h.order.copy(m, root_key);
  term_stream* const first = h.entries[0].chain;
  term_stream* s = first;
  for (;;) {
    term_stream* last = s;
    for (; s != nullptr; s = s->next) {
      visit(s);
      last = s;
    }
    heap_remove_root(h);
    if (h.n == 0) break;
    if constexpr (Msize == 1) {
      if (h.entries[0].key != static_cast<std::int32_t>(m[0])) break;
    } else {
      if (!monomials_equal<Msize>(h.entries[0].key, m, h.order.msize)) break;
    }
    s = h.entries[0].chain;
    last->next = s;
  }
  return first;
}

template <int Msize>
inline term_stream* heap_pop_equal(term_heap<Msize>& h, word* m) noexcept {
  return heap_pop_equal(h, m, [](term_stream*) noexcept {});
}

}  // namespace vorn
