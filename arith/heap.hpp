// The term heap: a max-heap of streams keyed by packed monomial, in which
// streams whose keys are equal share one slot through a chain.
//
// Slots are numbered from 1 (slot i at entries[i - 1]); every occupied slot
// i > 1 has a key not larger than the key of slot i / 2.  Equal keys can sit
// in different slots when neither lay on the other's insertion path;
// heap_pop_equal joins them.  The heap never allocates: the caller gives it
// entry storage for one slot per stream that can be in the heap at once
// (grow_heap_storage).
//
// Streams are named by their index; a chain runs through the caller's link
// array (links[s] is the stream after s, no_stream ends it).  Walking a chain
// is a run of dependent loads, so the links are kept apart from everything
// else a stream holds: a link array of 4 bytes per stream stays in the first
// level cache where whole stream records would not.
//
// Streams that join the root's slot while a monomial is taken wait in an
// array beside the heap (root_batch) instead of on the root's chain.
//
// Keys, and how they order, are the key order's (key_order.hpp); the heap
// holds its order and asks it.
#pragma once

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <utility>

#include "arith/key_order.hpp"
#include "host/memory.hpp"
#include "host/words.hpp"

namespace vorn {

// The end of a chain.
inline constexpr std::int32_t no_stream = -1;

template <class Key>
struct basic_heap_entry {
  Key key;
  std::int32_t chain;  // first stream with this key; the rest follow through the links
};

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

// Entry storage for capacity slots from the gateway, its sentinels written
// and the n occupied slots at `entries` copied over; the old storage is
// released.  Returns the address of slot 1, the heap's new entries.  Raises
// "out of memory".  (The heap itself is not passed: a heap whose address
// reaches no call outside the kernel stays in registers.)
template <class Order>
basic_heap_entry<typename Order::key_type>* grow_heap_storage(
    gateway_array<basic_heap_entry<typename Order::key_type>>& storage, std::size_t capacity,
    const basic_heap_entry<typename Order::key_type>* entries, std::int32_t n) {
  using entry = basic_heap_entry<typename Order::key_type>;
  gateway_array<entry> larger;
  larger.data = static_cast<entry*>(gateway_take(heap_storage_entries<Order>(capacity), sizeof(entry)));
  entry* const slots = heap_storage_init<Order>(larger.data, capacity);
  if (n > 0) std::copy_n(entries, n, slots);
  std::swap(storage.data, larger.data);  // the old storage goes with the local
  return slots;
}

// Buffer keys follow their buffers when the buffer array moves from
// `before` to `after`; integer keys stay as they are.
template <class Order>
void heap_move_buffers(basic_term_heap<Order>& h, const word* before, const word* after) noexcept {
  if constexpr (!Order::integer_keys)
    for (std::int32_t i = 0; i < h.n; ++i) h.entries[i].key = after + (h.entries[i].key - before);
}

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

// True when the root holds a key equal to root_key.  Buffer keys can be
// compared too: no stream moves on while a monomial's slots leave the heap,
// so the buffer root_key names still holds that monomial.
template <class Order>
inline bool root_holds(const basic_term_heap<Order>& h, typename Order::key_type root_key) noexcept {
  return h.n > 0 && h.order.equal(h.entries[0].key, root_key);
}

// Removes every stream whose key equals the largest and that successive root
// removals reach, and returns them as one list through the links: slot by
// slot in the order of removal, each slot's chain in its own order.
// visit(stream) is called for each, in that order, while the list is built.
// The caller copies the monomial out first (write_monomial) where it needs
// it.  Requires n >= 1.
template <class Order, class Visit>
inline std::int32_t heap_pop_equal(basic_term_heap<Order>& h, Visit&& visit) noexcept {
  std::int32_t* const links = h.links;
  const auto root_key = h.entries[0].key;
  const std::int32_t first = h.entries[0].chain;
  std::int32_t s = first;
  for (;;) {
    std::int32_t last = s;
    for (; s != no_stream; s = links[s]) {
      visit(s);
      last = s;
    }
    heap_remove_root(h);
    if (!root_holds(h, root_key)) break;
    s = h.entries[0].chain;
    links[last] = s;
  }
  return first;
}

template <class Order>
inline std::int32_t heap_pop_equal(basic_term_heap<Order>& h) noexcept {
  return heap_pop_equal(h, [](std::int32_t) noexcept {});
}

// Streams that joined the root's slot since it last changed, held in an
// array instead of on the slot's chain.  A chain is walked link by link,
// each load waiting for the one before; a dense product puts hundreds of
// streams on one slot, and walking them that way bounded its speed.  An
// array's streams are known at once, so the work of many of them overlaps.
//
// Invariant: the batch belongs to the root (slot 1): every change of the
// heap that can move the root first puts the batch on the root's chain
// (heap_flush_batch).  Both arrays need room for every stream.
struct root_batch {
  std::int32_t* joined;  // oldest first
  std::int32_t* taking;  // the batch of the monomial being taken
  std::int32_t count = 0;
  std::int32_t shortest = 16;  // taken as an array from this many on (tests lower it)
};

// Puts the batch on the root's chain, as inserting its streams one by one
// would have.
template <class Order>
inline void heap_flush_batch(basic_term_heap<Order>& h, root_batch& batch) noexcept {
  if (batch.count == 0) return;
  std::int32_t head = h.entries[0].chain;
  for (std::int32_t i = 0; i < batch.count; ++i) {
    h.links[batch.joined[i]] = head;
    head = batch.joined[i];
  }
  h.entries[0].chain = head;
  batch.count = 0;
}

// heap_insert, but a stream under the root's key joins the batch.  Only a
// key above the root's moves the root, so only then does the batch go on
// the root's chain first.
template <class Order>
inline void heap_offer(basic_term_heap<Order>& h, root_batch& batch, typename Order::key_type key,
                       std::int32_t s) noexcept {
  if (h.n > 0) {
    const auto root = h.entries[0].key;
    if (h.order.equal(key, root)) {
      batch.joined[batch.count++] = s;
      return;
    }
    if (h.order.less(root, key)) heap_flush_batch(h, batch);
  }
  heap_insert(h, key, s);
}

namespace detail {

// Removes every slot of the root's monomial, as heap_pop_equal does, and
// returns the first stream of their joined chains.
template <class Order>
inline std::int32_t pop_slots(basic_term_heap<Order>& h) noexcept {
  std::int32_t* const links = h.links;
  const auto root_key = h.entries[0].key;
  const std::int32_t first = h.entries[0].chain;
  std::int32_t tail = first;  // the chain taken last
  for (;;) {
    heap_remove_root(h);
    if (!root_holds(h, root_key)) break;
    while (links[tail] != no_stream) tail = links[tail];
    links[tail] = h.entries[0].chain;
    tail = h.entries[0].chain;
  }
  return first;
}

}  // namespace detail

// Pops the same streams as heap_pop_equal, in the same order, and then hands
// each to take(stream) with its link already read, so that take may insert
// the stream again at once.  Every slot of the monomial has left the heap by
// then, so insertions equal to the next monomial chain at the root.  Only a
// chain that another slot's follows is walked to its end while popping.  For
// callers whose insertions are all smaller than the popped monomial.
template <class Order, class Take>
inline void heap_take_equal(basic_term_heap<Order>& h, Take&& take) noexcept {
  std::int32_t* const links = h.links;
  for (std::int32_t s = detail::pop_slots(h); s != no_stream;) {
    const std::int32_t next = links[s];
    take(s);
    s = next;
  }
}

// The same with a batch: the batch of the popped root is taken first,
// newest first as on a chain, and take offers its insertions to the batch
// (heap_offer).  A short batch goes on the chain instead: as a second loop,
// whose end is another branch on data, it cost more than a few links.
template <class Order, class Take>
inline void heap_take_equal(basic_term_heap<Order>& h, root_batch& batch, Take&& take) noexcept {
  if (batch.count < batch.shortest) heap_flush_batch(h, batch);
  std::int32_t* const links = h.links;
  const std::int32_t first = detail::pop_slots(h);
  std::swap(batch.joined, batch.taking);
  const std::int32_t batched = batch.count;
  batch.count = 0;
  for (std::int32_t i = batched; i-- > 0;) take(batch.taking[i]);
  for (std::int32_t s = first; s != no_stream;) {
    const std::int32_t next = links[s];
    take(s);
    s = next;
  }
}

}  // namespace vorn
