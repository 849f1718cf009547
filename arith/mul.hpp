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

// A stream of the product: the term of A it multiplies and the term of B it
// stands at; with several words per monomial, also its own key buffer; with
// integer keys, the key of its term of A.  state = 2·(index in B of the next
// product to insert) + (1 when none of its products is in the heap); used by
// the delayed order only.
struct mul_stream : term_stream {
  const word* cursor;
  const word* multiplier;
  word* key;
  std::uint64_t factor_key;
  std::int32_t state;
};

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
template <int Msize, class Order, class Sink>
void mul_heap(term_run A, term_run B, monomial_shape shape, std::int32_t p, tracked_list& scratch,
              Sink& out) {
  const int m = Msize > 0 ? Msize : shape.msize;
  const std::ptrdiff_t stride = m + 1;
  const std::int32_t nA = A.count;
  const std::int32_t nB = B.count;
  const word* const b_first = B.terms;
  const word* const b_end = B.terms + nB * stride;

  using order_type = Order;
  using entry = basic_heap_entry<typename order_type::key_type>;
  gateway_array<entry> heap_array;
  heap_array.data = static_cast<entry*>(gateway_take(static_cast<std::size_t>(nA), sizeof(entry)));
  // Streams 0 ... nA - 1 between two sentinels whose states make the
  // delayed order's tests of the neighbours hold at the ends without a check:
  // the one before has passed every index, the one after waits for none.
  auto* const streams =
      static_cast<mul_stream*>(scratch.take(static_cast<std::size_t>(nA) + 2, sizeof(mul_stream))) + 1;
  streams[-1].state = INT32_MAX;
  streams[nA].state = 0;
  word* keys = nullptr;
  if constexpr (!order_type::integer_keys)
    keys = static_cast<word*>(
        scratch.take(static_cast<std::size_t>(nA) * static_cast<std::size_t>(m), sizeof(word)));
  const bool delayed = strictly_decreasing<Msize>(A, shape) && strictly_decreasing<Msize>(B, shape);
  struct popped {
    mul_stream* s;
    std::int32_t j;
  };
  popped* queue =
      delayed ? static_cast<popped*>(scratch.take(static_cast<std::size_t>(nA), sizeof(popped))) : nullptr;
  // Where the index in B of an inserted product is known (the first product,
  // and every one in the delayed order), integer keys are summed from keys of
  // the factors made once.
  using key_type = typename order_type::key_type;
  key_type* b_keys = nullptr;

  basic_term_heap<order_type> heap{heap_array.data, 0, {m, shape.tdeg}};
  if constexpr (order_type::integer_keys) {
    b_keys = static_cast<key_type*>(scratch.take(static_cast<std::size_t>(nB), sizeof(key_type)));
    for (std::int32_t j = 0; j < nB; ++j) b_keys[j] = heap.order.term_key(B.terms + j * stride);
  }

  std::int64_t remaining = static_cast<std::int64_t>(nA) * nB;
  std::int32_t capacity = first_block_terms(remaining);
  word* w = out.next_block(capacity);
  std::int32_t written = 0;

  for (std::int32_t i = 0; i < nA; ++i) {
    streams[i].next = nullptr;
    streams[i].multiplier = A.terms + i * stride;
    streams[i].key = keys != nullptr ? keys + static_cast<std::ptrdiff_t>(i) * m : nullptr;
    streams[i].state = 1;
    if constexpr (order_type::integer_keys)
      streams[i].factor_key = static_cast<std::uint64_t>(heap.order.term_key(streams[i].multiplier));
  }
  mul_stream* const last_stream = streams + (nA - 1);

  // The stream's product with the term at its cursor enters the heap.
  auto insert = [&](mul_stream* s) { heap_insert(heap, heap.order.product_key(s->multiplier, s->cursor, s->key), s); };
  auto insert_at = [&](mul_stream* s, std::int32_t j) {
    s->cursor = b_first + j * stride;
    s->state = 2 * (j + 1);
    if constexpr (order_type::integer_keys)
      heap_insert(heap, heap.order.product_of_keys(static_cast<key_type>(s->factor_key), b_keys[j]), s);
    else
      insert(s);
  };

  insert_at(streams, 0);

  acc96 acc;
  while (heap.n > 0) {
    acc_clear(acc);
    std::int32_t k = 0;
    term_stream* taken = heap_pop_equal(heap, w, [&](term_stream* t) {
      auto* s = static_cast<mul_stream*>(t);
      if constexpr (!order_type::copies_key)
        if (k == 0) monomial_add<Msize>(w, s->multiplier, s->cursor, m);
      acc_add_product(acc, coefficient_value(s->multiplier[m]), coefficient_value(s->cursor[m]));
      if (delayed) {
        queue[k] = {s, (s->state >> 1) - 1};
        s->state |= 1;
      }
      ++k;
    });

    if (delayed) {
      for (std::int32_t q = 0; q < k; ++q) {
        mul_stream* s = queue[q].s;
        const std::int32_t j = queue[q].j;
        // The next stream was waiting for this product.
        if (s[1].state == 2 * j + 1) insert_at(s + 1, j);
        // This stream moves on once the one before it has passed j + 1.
        if (j + 1 < nB && (s->state & 1) != 0 && s[-1].state >= 2 * (j + 2) + 1)
          insert_at(s, j + 1);
      }
    } else {
      while (taken != nullptr) {
        auto* s = static_cast<mul_stream*>(taken);
        taken = taken->next;  // read before s goes back into the heap
        if (s->cursor == b_first && s != last_stream) {
          mul_stream* successor = s + 1;
          successor->cursor = b_first;
          insert(successor);
        }
        s->cursor += stride;
        if (s->cursor != b_end) insert(s);
      }
    }

    const std::int32_t r = acc_reduce(acc, p);  // r in [0, p)
    if (r != 0) {
      w[m] = make_immediate(r);
      ++written;
      w += stride;
    }
    if (written == capacity && heap.n > 0) {
      remaining -= written;
      capacity = static_cast<std::int32_t>(std::min<std::int64_t>(grow_estimate(written, k), remaining));
      w = out.next_block(capacity);
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
template <class Sink>
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
