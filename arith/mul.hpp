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
#include "host/memory.hpp"
#include "poly/monomial.hpp"

namespace vorn {

// The first block of a product of count products, before any term is known.
inline std::int32_t first_block_terms(std::int64_t count) noexcept {
  return static_cast<std::int32_t>(std::min<std::int64_t>(count, 1024));
}

// True when no two neighbouring monomials of the run are equal.
template <int Msize>
bool strictly_decreasing(term_run R, monomial_shape shape) noexcept {
  const int m = Msize > 0 ? Msize : shape.msize;
  const std::ptrdiff_t stride = m + 1;
  for (std::int32_t t = 1; t < R.count; ++t)
    if (monomials_equal<Msize>(R.terms + (t - 1) * stride, R.terms + t * stride, m)) return false;
  return true;
}

// Writes the terms of A·B mod p (nA, nB >= 1, 1 <= p < 2^31) to the sink.
// The stream array and key buffers come from scratch, the heap from the
// gateway; all of it is released on every exit.  Sums of exponents are not
// checked here (see check_product_exponents).
//
// When neither operand repeats a monomial, a stream's next product (i, j + 1)
// waits until (i - 1, j + 1) has left the heap too, which keeps the heap to
// the products that can be next.  Every product of a monomial M is then still
// in the heap when M reaches the root (both products it waits for are larger),
// so the passes, their counts and the blocks are those of the plain order.
// Repeated monomials can make equal products wait into a later pass, so such
// operands take the plain order.
template <int Msize, class Order, term_sink Sink>
void mul_heap(term_run A, term_run B, monomial_shape shape, std::int32_t p, tracked_list& scratch,
              Sink& out) {
  const int m = Msize > 0 ? Msize : shape.msize;
  const std::ptrdiff_t stride = m + 1;
  const std::int32_t nA = A.count;
  const std::int32_t nB = B.count;
  const modulus mod = make_modulus(p);
  const auto count_a = static_cast<std::size_t>(nA);
  const auto count_b = static_cast<std::size_t>(nB);

  using order_type = Order;
  using key_type = typename order_type::key_type;
  using entry = basic_heap_entry<key_type>;
  gateway_array<entry> heap_array;
  heap_array.data = static_cast<entry*>(gateway_take(heap_storage_entries<order_type>(count_a), sizeof(entry)));

  // Stream i multiplies A[i] by B.  Per stream, in arrays of their own: the
  // chain link; the state, 2·(index in B of the next product to insert) +
  // (1 when none of its products is in the heap), so that the current
  // product is (state >> 1) - 1; and the value of A[i]'s coefficient.  The
  // states have a sentinel on each side that makes the delayed order's tests
  // of the neighbours hold at the ends without a check: the one before has
  // taken B's last product (so no stream moves on past B's end, none's state
  // exceeding that), the one after waits for none.
  auto* const links = static_cast<std::int32_t*>(
      scratch.take(checked_bytes(count_a, 3 * sizeof(std::int32_t)) + 2 * sizeof(std::int32_t), 1));
  std::int32_t* const states = links + nA + 1;
  std::int32_t* const a_values = states + nA + 1;
  states[-1] = 2 * nB + 1;
  states[nA] = 0;
  basic_term_heap<order_type> heap{heap_storage_init<order_type>(heap_array.data, count_a), 0, {m, shape.tdeg},
                                   links};

  // Coefficient values, decoded and reduced once: a product reads two of
  // them instead of two terms, and adds their product without a sign.  With integer keys, a product's successors (i + 1, j) and
  // (i, j + 1) take their keys from the popped key and one step, the change
  // of key from A[i] to A[i + 1] or from B[j] to B[j + 1], made once; buffer
  // keys are formed in one buffer per stream.  The values of B sit in one
  // block behind the steps, or behind the buffers.
  key_type* a_steps = nullptr;
  key_type* b_steps = nullptr;
  word* buffers = nullptr;
  std::int32_t* b_values = nullptr;
  if constexpr (order_type::integer_keys) {
    a_steps = static_cast<key_type*>(
        scratch.take(checked_bytes(count_a + count_b, sizeof(key_type)) + count_b * sizeof(std::int32_t), 1));
    b_steps = a_steps + nA;
    b_values = reinterpret_cast<std::int32_t*>(b_steps + nB);
    const auto& o = heap.order;
    for (std::int32_t i = 0; i + 1 < nA; ++i)
      a_steps[i] = o.step(o.term_key(A.terms + i * stride), o.term_key(A.terms + (i + 1) * stride));
    for (std::int32_t j = 0; j + 1 < nB; ++j)
      b_steps[j] = o.step(o.term_key(B.terms + j * stride), o.term_key(B.terms + (j + 1) * stride));
    a_steps[nA - 1] = {};  // read for the sentinel stream, never used
    b_steps[nB - 1] = {};
  } else {
    buffers = static_cast<word*>(
        scratch.take(checked_bytes(count_a, static_cast<std::size_t>(m)) + count_b, sizeof(word)));
    b_values = reinterpret_cast<std::int32_t*>(buffers + count_a * static_cast<std::size_t>(m));
  }
  for (std::int32_t i = 0; i < nA; ++i) {
    states[i] = 1;
    a_values[i] = residue(coefficient_value(A.terms[i * stride + m]), p);
  }
  for (std::int32_t j = 0; j < nB; ++j) b_values[j] = residue(coefficient_value(B.terms[j * stride + m]), p);

  const bool delayed = strictly_decreasing<Msize>(A, shape) && strictly_decreasing<Msize>(B, shape);
  // In the plain order the products of a pass, as (stream, index in B) taken
  // when popped, move on after the pass: a successor can equal the popped
  // monomial, and must not join its pass.
  struct product {
    std::int32_t i;
    std::int32_t j;
  };
  auto* const queue = delayed ? nullptr : static_cast<product*>(scratch.take(count_a, sizeof(product)));

  std::int64_t remaining = static_cast<std::int64_t>(nA) * nB;
  std::int32_t capacity = first_block_terms(remaining);
  word* w = out.next_block(capacity);
  std::int32_t written = 0;

  // Product (i, j) enters the heap under key (integer keys) or in stream i's
  // buffer.
  auto insert = [&](std::int32_t i, std::int32_t j, key_type key) {
    if constexpr (order_type::integer_keys)
      heap_insert(heap, key, i);
    else
      heap_insert(heap,
                  heap.order.product_key(A.terms + i * stride, B.terms + j * stride, buffers + std::ptrdiff_t{i} * m),
                  i);
  };

  states[0] = 2;
  if constexpr (order_type::integer_keys)
    insert(0, 0, heap.order.product_of_keys(heap.order.term_key(A.terms), heap.order.term_key(B.terms)));
  else
    insert(0, 0, key_type{});

  acc96 acc;
  while (heap.n > 0) {
    acc_clear(acc);
    std::int32_t k = 0;
    const key_type popped_key = heap.entries[0].key;
    // Keys that are not whole monomials: the monomial is the product at the
    // root's first stream, formed once before any stream moves on.
    if constexpr (!order_type::copies_key) {
      const std::int32_t i = heap.entries[0].chain;
      const std::int32_t j = (states[i] >> 1) - 1;
      monomial_add<Msize>(w, A.terms + i * stride, B.terms + j * stride, m);
    }
    // The keys of (i + 1, j) and (i, j + 1) from the popped (i, j).
    auto next_key = [&](std::int32_t i) {
      if constexpr (order_type::integer_keys)
        return heap.order.stepped(popped_key, a_steps[i]);
      else
        return key_type{};
    };
    auto right_key = [&](std::int32_t j) {
      if constexpr (order_type::integer_keys)
        return heap.order.stepped(popped_key, b_steps[j]);
      else
        return key_type{};
    };
    // Adds the popped product of stream i to the sum and marks the stream as
    // having none in the heap; returns its index in B.
    auto take = [&](std::int32_t i) {
      const std::int32_t j = (states[i] >> 1) - 1;
      acc_add_unsigned_product(acc, static_cast<std::uint32_t>(a_values[i]),
                               static_cast<std::uint32_t>(b_values[j]));
      states[i] |= 1;
      ++k;
      return j;
    };

    if (delayed) {
      // Each product moves on as it is taken: its successors are smaller
      // than the popped monomial.  Whichever of a successor's two
      // predecessors is taken second inserts it, as it finds the other's
      // stream marked.
      heap_take_equal(heap, w, [&](std::int32_t i) {
        const std::int32_t j = take(i);
        // The next stream was waiting for this product.
        if (states[i + 1] == 2 * j + 1) {
          states[i + 1] = 2 * (j + 1);
          insert(i + 1, j, next_key(i));
        }
        // This stream moves on once the one before it has passed j + 1.
        if (states[i - 1] >= 2 * (j + 2) + 1) {
          states[i] = 2 * (j + 2);
          insert(i, j + 1, right_key(j));
        }
      });
    } else {
      std::int32_t popped = 0;
      heap_pop_equal(heap, w, [&](std::int32_t i) {
        const std::int32_t j = take(i);
        queue[popped++] = {i, j};
      });
      for (std::int32_t q = 0; q < popped; ++q) {
        const auto [i, j] = queue[q];
        if (j == 0 && i + 1 < nA) {
          states[i + 1] = 2;
          insert(i + 1, 0, next_key(i));
        }
        if (j + 1 < nB) {
          states[i] = 2 * (j + 2);
          insert(i, j + 1, right_key(j));
        }
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

// True when tdeg monomials of three words are ordered by their first two
// words in every product of A and B (see tdeg_decided_by_two_words).
inline bool two_word_keys_decide(term_run A, term_run B, monomial_shape shape) noexcept {
  if (shape.msize != 3 || !shape.tdeg || shape.shift <= 0) return false;
  word used_a = 0;
  word used_b = 0;
  for (std::int32_t t = 0; t < A.count; ++t) used_a |= A.terms[static_cast<std::ptrdiff_t>(t) * 4 + 2];
  for (std::int32_t t = 0; t < B.count; ++t) used_b |= B.terms[static_cast<std::ptrdiff_t>(t) * 4 + 2];
  return tdeg_decided_by_two_words(used_a, used_b, shape.shift);
}

// mul_heap dispatched on the words per monomial, with keys of one integer
// where the words allow it.
template <term_sink Sink>
void multiply_terms(term_run A, term_run B, monomial_shape shape, std::int32_t p, tracked_list& scratch,
                    Sink& out) {
  if (two_word_keys_decide(A, B, shape)) return mul_heap<3, wide_key_order<3>>(A, B, shape, p, scratch, out);
  with_msize(shape.msize, [&](auto M) {
    constexpr int msize = decltype(M)::value;
    mul_heap<msize, kernel_key_order_t<msize>>(A, B, shape, p, scratch, out);
  });
}

// Raises "exponent overflow" when some field of a product of a term of A and
// a term of B could reach its guard bit: the per-field maxima of A and of B,
// added, are the largest fields any product has.
void check_product_exponents(term_run A, term_run B, const word* layout, tracked_list& scratch);

}  // namespace vorn
