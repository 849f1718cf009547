// Streams of term products for the heap kernels, the product and the
// division.
//
// A row of streams multiplies each term of one run, its factors, by the
// terms of another, the walked run: stream s's product j is factor s times
// walked term j.  A run is read through its terms, its coefficient values
// reduced mod p (products are then summed without a sign) and its steps,
// the change of key from each term to the next (key_order.hpp): a product's
// successors take their keys from the popped key and one step.
//
// A stream's progress is one state word, 2·(index of its next product) + 1
// while none of its products is in the heap, so that its current product is
// (state >> 1) - 1.  Waiting for product j is having taken j - 1.
//
// The delayed order: product (s, j + 1) enters the heap only once (s, j) and
// (s - 1, j + 1) have left it.  Both are larger (both runs strictly
// decrease), so it enters below the monomial being processed and before its
// own monomial can reach the root: every product of a monomial is in the
// heap when the monomial is, and the heap holds only products that could be
// next.  Whichever of a product's two predecessors is taken second inserts
// it, as it finds the other's stream marked.  A state on each side of the
// row makes both tests hold at its ends without a check: the one before has
// taken the walked run's last term (no stream moves on past it), the one
// after waits for none.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>
#include <utility>

#include "arith/acc96.hpp"
#include "arith/heap.hpp"
#include "arith/kernel.hpp"

namespace vorn {

template <class Order>
struct stream_run {
  using step_type = typename Order::step_type;
  // Bytes of one step; none for orders whose steps carry nothing.
  static constexpr std::size_t step_bytes = std::is_empty_v<step_type> ? 0 : sizeof(step_type);

  const word* terms;  // msize + 1 words per term
  const std::int32_t* values;
  const step_type* steps;  // steps[j]: from term j to term j + 1

  step_type step(std::int32_t j) const noexcept {
    if constexpr (step_bytes == 0)
      return {};
    else
      return steps[j];
  }
  // The run from its term j on (words: monomial words per term).
  stream_run from(std::int32_t j, int words) const noexcept {
    if constexpr (step_bytes == 0)
      return {terms + std::ptrdiff_t{j} * (words + 1), values + j, steps};
    else
      return {terms + std::ptrdiff_t{j} * (words + 1), values + j, steps + j};
  }
};

// Words of key buffer per stream: none for integer keys.
template <class Order>
std::size_t key_buffer_words(const Order& order) noexcept {
  return Order::integer_keys ? 0 : static_cast<std::size_t>(order.words());
}

// Writes the coefficient values (reduced mod p) and the steps of count terms
// (steps: step_bytes each, the last one unused).
template <class Order>
void prepare_run(const Order& order, const word* terms, std::int32_t count, std::int32_t p, std::int32_t* values,
                 void* steps) noexcept {
  const int m = order.words();
  const std::ptrdiff_t stride = m + 1;
  for (std::int32_t j = 0; j < count; ++j) values[j] = residue(coefficient_value(terms[j * stride + m]), p);
  if constexpr (stream_run<Order>::step_bytes > 0) {
    auto* const out = static_cast<typename Order::step_type*>(steps);
    for (std::int32_t j = 0; j + 1 < count; ++j) out[j] = order.step(terms + j * stride, terms + (j + 1) * stride);
    out[count - 1] = {};
  }
}

// How a stream's product enters the heap: heap_insert, or an offer to the
// root's batch (heap_offer).
struct plain_insertion {
  template <class Order>
  void operator()(basic_term_heap<Order>& heap, typename Order::key_type key, std::int32_t s) const noexcept {
    heap_insert(heap, key, s);
  }
};
struct batch_insertion {
  root_batch& batch;
  template <class Order>
  void operator()(basic_term_heap<Order>& heap, typename Order::key_type key, std::int32_t s) const noexcept {
    heap_offer(heap, batch, key, s);
  }
};

template <class Order>
struct stream_row {
  using key_type = typename Order::key_type;
  using heap_type = basic_term_heap<Order>;

  // The row is fixed while streams move: every call changes only the states.
  stream_run<Order> factors;
  stream_run<Order> walked;
  std::int32_t* states;  // states[-1] and states[count] are the sentinels
  std::int32_t first;    // the heap's name of stream 0
  word* buffers;         // buffer keys: stream 0's key buffer

  static constexpr std::int32_t waiting(std::int32_t j) noexcept { return 2 * j + 1; }
  static constexpr std::int32_t entered(std::int32_t j) noexcept { return 2 * (j + 1); }

  std::int32_t current(std::int32_t s) const noexcept { return (states[s] >> 1) - 1; }

  static const word* term(const Order& order, const stream_run<Order>& run, std::int32_t j) noexcept {
    return run.terms + std::ptrdiff_t{j} * (order.words() + 1);
  }
  // The two factors of stream s's current product.
  std::pair<const word*, const word*> factors_of(const Order& order, std::int32_t s) const noexcept {
    return {term(order, factors, s), term(order, walked, current(s))};
  }

  // Product j of stream s enters the heap under key, or under the key made
  // from its factors; insert(heap, key, stream) places it (heap_insert, or
  // an offer to a batch).
  template <class Insert = plain_insertion>
  void enter(heap_type& heap, std::int32_t s, std::int32_t j, key_type key, Insert insert = {}) const noexcept {
    states[s] = entered(j);
    insert(heap, key, first + s);
  }
  void enter(heap_type& heap, std::int32_t s, std::int32_t j) const noexcept {
    const Order& o = heap.order;
    enter(heap, s, j, o.product_key(term(o, factors, s), term(o, walked, j), o.buffer(buffers, s)));
  }

  // Stream s starts at walked term j: at once when the stream before it has
  // taken its product with that term, else it waits for that.
  void start(heap_type& heap, std::int32_t s, std::int32_t j) const noexcept {
    if (states[s - 1] >= waiting(j + 1))
      enter(heap, s, j);
    else
      states[s] = waiting(j);
  }

  // The walked run gained term j: the state before the first stream has
  // taken it, and the first stream enters it if it was waiting for it.
  void walked_grew(heap_type& heap, std::int32_t j) const noexcept {
    states[-1] = waiting(j + 1);
    if (states[0] == waiting(j)) enter(heap, 0, j);
  }

  // Marks stream s's product as out of the heap and hands its two
  // coefficient values to sum; returns its index in the walked run.
  template <class Sum>
  std::int32_t take(std::int32_t s, Sum&& sum) const noexcept {
    const std::int32_t j = current(s);
    states[s] |= 1;
    sum(static_cast<std::uint32_t>(factors.values[s]), static_cast<std::uint32_t>(walked.values[j]));
    return j;
  }

  // The successors of product (s, j), popped under key: the next stream's
  // product j, and this stream's product j + 1.
  template <class Insert = plain_insertion>
  void enter_next_stream(heap_type& heap, std::int32_t s, std::int32_t j, key_type popped,
                         Insert insert = {}) const noexcept {
    const Order& o = heap.order;
    enter(heap, s + 1, j,
          o.next_key(popped, factors.step(s), term(o, factors, s + 1), term(o, walked, j), o.buffer(buffers, s + 1)),
          insert);
  }
  template <class Insert = plain_insertion>
  void enter_next_term(heap_type& heap, std::int32_t s, std::int32_t j, key_type popped,
                       Insert insert = {}) const noexcept {
    const Order& o = heap.order;
    enter(heap, s, j + 1,
          o.next_key(popped, walked.step(j), term(o, factors, s), term(o, walked, j + 1), o.buffer(buffers, s)),
          insert);
  }

  // In the delayed order, after product (s, j) is taken: the next stream's
  // product j enters if that stream was waiting for it, and this stream
  // moves on once the one before it has taken its product j + 1.
  template <class Insert = plain_insertion>
  void move_on(heap_type& heap, std::int32_t s, std::int32_t j, key_type popped, Insert insert = {}) const noexcept {
    if (states[s + 1] == waiting(j)) enter_next_stream(heap, s, j, popped, insert);
    if (states[s - 1] >= waiting(j + 2)) enter_next_term(heap, s, j, popped, insert);
  }
};

}  // namespace vorn
