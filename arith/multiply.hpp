// The multiplication kernel: A·B mod p by merging one stream per term of A,
// each walking B, in the term heap.
//
// Stream i is started only once the product of stream i - 1 with B's first
// term has left the heap: A and B are decreasing, so nothing of stream i can
// be the largest before that, and the heap never holds more than one slot per
// started stream.  Every product of a monomial is in the heap when that
// monomial reaches the root, so one pass takes them all; their coefficient
// products are summed exactly and reduced once.  Result terms leave in
// decreasing order, straight into the sink's blocks.
#pragma once

#include <algorithm>
#include <cstdint>

#include "arith/acc96.hpp"
#include "arith/grow.hpp"
#include "arith/heap.hpp"
#include "arith/kernel.hpp"
#include "arith/streams.hpp"
#include "host/memory.hpp"
#include "poly/monomial.hpp"

namespace vorn {

// The first block of a product of count products, before any term is known.
inline std::int32_t first_block_terms(std::int64_t count) noexcept {
  return static_cast<std::int32_t>(std::min<std::int64_t>(count, 1024));
}

// The product's row of streams, stream i multiplying A[i] by B, with its
// storage on scratch: per stream, in arrays of their own, the chain link
// (returned through links), the state, A[i]'s value and the two arrays of
// the root's batch (returned through batch); then the steps of A
// and of B, the key buffers (buffer keys) and B's values in one block.
template <class Order>
stream_row<Order> product_row(const Order& order, term_run A, term_run B, std::int32_t p, tracked_list& scratch,
                              std::int32_t*& links, root_batch& batch) {
  const std::int32_t nA = A.count;
  const std::int32_t nB = B.count;
  const auto count_a = static_cast<std::size_t>(nA);
  const auto count_b = static_cast<std::size_t>(nB);
  auto* const per_stream = static_cast<std::int32_t*>(
      scratch.take(checked_bytes(count_a, 5 * sizeof(std::int32_t)) + 2 * sizeof(std::int32_t), 1));
  links = per_stream;
  std::int32_t* const states = per_stream + nA + 1;
  std::int32_t* const a_values = states + nA + 1;
  batch = {a_values + nA, a_values + 2 * nA};

  constexpr std::size_t step_bytes = stream_run<Order>::step_bytes;
  const std::size_t buffer_bytes = checked_bytes(count_a, key_buffer_words(order) * sizeof(word));
  auto* const a_steps = static_cast<unsigned char*>(
      scratch.take(checked_bytes(count_a + count_b, step_bytes) + buffer_bytes + count_b * sizeof(std::int32_t), 1));
  unsigned char* const b_steps = a_steps + count_a * step_bytes;
  auto* const buffers = reinterpret_cast<word*>(b_steps + count_b * step_bytes);
  auto* const b_values = reinterpret_cast<std::int32_t*>(reinterpret_cast<unsigned char*>(buffers) + buffer_bytes);
  prepare_run(order, A.terms, nA, p, a_values, a_steps);
  prepare_run(order, B.terms, nB, p, b_values, b_steps);

  using step_type = typename Order::step_type;
  const stream_row<Order> row{{A.terms, a_values, reinterpret_cast<const step_type*>(a_steps)},
                              {B.terms, b_values, reinterpret_cast<const step_type*>(b_steps)},
                              states,
                              0,
                              buffers};
  // Every stream waits for its product with B[0]; the state before stream 0
  // has taken B's last term, the one after stream nA - 1 waits for none.
  states[-1] = row.waiting(nB);
  states[nA] = 0;
  for (std::int32_t i = 0; i < nA; ++i) states[i] = row.waiting(0);
  return row;
}

// Writes the terms of A·B mod p (nA, nB >= 1, 1 <= p < 2^31) to the sink.
// The streams come from scratch, the heap from the gateway; all of it is
// released on every exit.  Sums of exponents are not checked here (see
// check_product_exponents).
//
// When neither operand repeats a monomial, the streams take the delayed
// order (streams.hpp).  Repeated monomials can make equal products wait into
// a later pass, so such operands take the plain order: a stream's product
// (i, j + 1) enters as soon as (i, j) is taken, stream i + 1 as soon as
// (i, 0) is, after the pass, since a successor can equal the popped
// monomial and must not join its pass.  The passes, their counts and so the
// blocks are the same in both orders.
template <int Msize, class Order, term_sink Sink>
void multiply_heap(term_run A, term_run B, monomial_shape shape, std::int32_t p, tracked_list& scratch,
                   Sink& out) {
  using key_type = typename Order::key_type;
  const Order order(shape.msize, shape.tdeg);
  const int m = order.words();
  const std::ptrdiff_t stride = m + 1;
  const std::int32_t nA = A.count;
  const std::int32_t nB = B.count;
  const modulus mod = make_modulus(p);

  gateway_array<basic_heap_entry<key_type>> heap_storage;
  auto* const entries = grow_heap_storage<Order>(heap_storage, static_cast<std::size_t>(nA), nullptr, 0);
  std::int32_t* links;
  root_batch batch{nullptr, nullptr};
  const stream_row<Order> row = product_row(order, A, B, p, scratch, links, batch);
  basic_term_heap<Order> heap{entries, 0, order, links};

  const bool delayed = strictly_decreasing<Msize>(A, shape) && strictly_decreasing<Msize>(B, shape);
  struct product {
    std::int32_t i;
    std::int32_t j;
  };
  auto* const queue =
      delayed ? nullptr : static_cast<product*>(scratch.take(static_cast<std::size_t>(nA), sizeof(product)));

  std::int64_t remaining = static_cast<std::int64_t>(nA) * nB;
  std::int32_t capacity = first_block_terms(remaining);
  word* w = out.next_block(capacity);
  std::int32_t written = 0;
  row.start(heap, 0, 0);

  acc96 acc;
  while (heap.n > 0) {
    acc_clear(acc);
    std::int32_t k = 0;
    auto add = [&](std::uint32_t x, std::uint32_t y) {
      acc_add_unsigned_product(acc, x, y);
      ++k;
    };
    const key_type popped = heap.entries[0].key;
    order.write_monomial(w, popped, [&] { return row.factors_of(order, heap.entries[0].chain); });
    if (delayed) {
      heap_take_equal(heap, batch, [&](std::int32_t i) { row.move_on(heap, i, row.take(i, add), popped, batch_insertion{batch}); });
    } else {
      std::int32_t taken = 0;
      heap_pop_equal(heap, [&](std::int32_t i) { queue[taken++] = {i, row.take(i, add)}; });
      for (std::int32_t q = 0; q < taken; ++q) {
        const auto [i, j] = queue[q];
        if (j == 0 && i + 1 < nA) row.enter_next_stream(heap, i, j, popped);
        if (j + 1 < nB) row.enter_next_term(heap, i, j, popped);
      }
    }

    const std::int32_t r = acc_reduce(acc, mod);  // r in [0, p)
    if (r != 0) {
      w[m] = make_immediate(r);
      ++written;
      w += stride;
    }
    if (written == capacity && heap.n > 0) {
      remaining -= written;
      capacity = static_cast<std::int32_t>(std::min<std::int64_t>(grow_estimate(written, k), remaining));
      w = next_block_polled(out, capacity);
      written = 0;
    }
  }
  out.finish(written);
}

// multiply_heap dispatched on the words per monomial and the key order.
template <term_sink Sink>
void multiply_terms(term_run A, term_run B, monomial_shape shape, std::int32_t p, tracked_list& scratch,
                    Sink& out) {
  with_key_order(A, B, shape, [&](auto M, auto key_order) {
    multiply_heap<decltype(M)::value, typename decltype(key_order)::type>(A, B, shape, p, scratch, out);
  });
}

// Raises "exponent overflow" when some field of a product of a term of A and
// a term of B could reach its guard bit: the per-field maxima of A and of B,
// added, are the largest fields any product has.
void check_product_exponents(term_run A, term_run B, const word* layout, tracked_list& scratch);

}  // namespace vorn
