// Exact division mod p: the quotient A / B, or the answer that B does not
// divide A.
//
// The classical loop (take the largest monomial of A - Q·B, divide it by B's
// leading monomial, append the quotient term) with A - Q·B never formed: the
// products Q·B come lazily from two rows of streams (streams.hpp) merged in
// the term heap, and the coefficient of each monomial is summed exactly in an
// acc96 and reduced once.
//
// A quotient stream belongs to one quotient term and walks B from B[1]; a
// divisor stream belongs to one B[j], j >= 1, and walks the quotient from the
// first term written after the switch.  The heap starts with quotient
// streams and, once the quotient terms would outnumber B's non-leading terms,
// switches for good to divisor streams: it then never holds more than one
// entry per quotient term made before the switch plus one per non-leading
// term of B.  Both rows take the delayed order, so the passes, their counts
// and so the blocks and the switch are those of eager insertion.
//
// Both operands are merged first when they repeat a monomial (import leaves
// equal monomials side by side when terms differ only outside the ring).  A
// repeated monomial of A makes two passes, and may write two equal quotient
// terms, which one divisor stream can meet only one per pass; a repeated one
// of B splits its products the same way.  Either can turn an exact quotient
// into a false answer, and the answer must be true exactly when B divides A.
#pragma once

#include <algorithm>
#include <climits>
#include <cstdint>
#include <utility>

#include "arith/acc96.hpp"
#include "arith/grow.hpp"
#include "arith/heap.hpp"
#include "arith/kernel.hpp"
#include "arith/key_order.hpp"
#include "arith/mod_inverse.hpp"
#include "arith/streams.hpp"
#include "host/error.hpp"
#include "host/memory.hpp"
#include "poly/monomial.hpp"

namespace vorn {

// Knobs for tests; the defaults are what the entry uses.
struct division_options {
  // Capacity of the first quotient block; 0 means min(#B, 1024).  Changes
  // where the quotient heap gives way to the divisor heap, never the result.
  std::int32_t first_block = 0;
};

// F itself when no two neighbouring terms share a monomial; otherwise a copy
// on scratch with the terms of each repeated monomial summed mod p into one
// (least non-negative residue) and the sums that vanish dropped.
term_run merged(term_run F, monomial_shape shape, std::int32_t p, tracked_list& scratch);

// The quotient written so far, as the streams read it: each term's words, its
// coefficient value, and the step of key to the next term.  Room is made a
// block at a time; the arrays move then, and the rows read them afresh.
template <class Order>
struct quotient_store {
  using step_type = typename Order::step_type;

  gateway_array<std::int32_t> values;
  gateway_array<word> terms;
  gateway_array<step_type> steps;
  std::int32_t count = 0;

  void reserve(std::int32_t more, int words) {
    const auto kept = static_cast<std::size_t>(count);
    const std::size_t total = kept + static_cast<std::size_t>(more);
    const auto stride = static_cast<std::size_t>(words + 1);
    values.grow(kept, total);
    terms.grow(kept * stride, checked_bytes(total, stride));
    if constexpr (stream_run<Order>::step_bytes > 0) steps.grow(kept, total);
  }
  stream_run<Order> run() const noexcept { return {terms.data, values.data, steps.data}; }

  // Records a term (its coefficient value q in [1, p)) and returns its index.
  std::int32_t append(const Order& order, const word* term, std::int32_t q) noexcept {
    const int m = order.words();
    word* const at = terms.data + std::ptrdiff_t{count} * (m + 1);
    std::copy_n(term, m + 1, at);
    values.data[count] = q;
    if constexpr (stream_run<Order>::step_bytes > 0)
      if (count > 0) steps.data[count - 1] = order.step(at - (m + 1), at);
    return count++;
  }
};

template <int Msize, class Order, term_sink Sink>
class heap_division {
 public:
  // A and B merged (no repeated monomial), nB >= 1, 1 <= p < 2^30.
  heap_division(term_run A, term_run B, monomial_shape shape, std::int32_t p, tracked_list& scratch, Sink& out,
                std::int32_t first_block)
      : order_(shape.msize, shape.tdeg), m_(order_.words()), stride_(m_ + 1), A_(A), B_(B), p_(p),
        mod_(make_modulus(p)), guard_(shape.guard), out_(out), a_(A.terms), a_end_(A.terms + A.count * stride_),
        first_capacity_(first_block > 0 ? first_block : std::min<std::int32_t>(B.count, 1024)) {
    const auto m_words = static_cast<std::size_t>(std::max(m_, 1));
    b_maxima_ = static_cast<word*>(scratch.take(m_words, sizeof(word)));
    field_maxima<Msize>(b_maxima_, B.terms, B.count, m_, shape.shift);
    monomial_ = static_cast<word*>(scratch.take(m_words, sizeof(word)));
    auto* const b_values =
        static_cast<std::int32_t*>(scratch.take(static_cast<std::size_t>(B.count), sizeof(std::int32_t)));
    void* const b_steps = stream_run<Order>::step_bytes == 0
                              ? nullptr
                              : scratch.take(static_cast<std::size_t>(B.count), stream_run<Order>::step_bytes);
    prepare_run(order_, B.terms, B.count, p, b_values, b_steps);
    b_run_ = {B.terms, b_values, static_cast<const typename Order::step_type*>(b_steps)};
    grow_heap(first_capacity_);
  }

  // True with the quotient written to the sink when B divides A; false, the
  // sink's blocks holding no result, when it does not.
  bool run() {
    start();
    while (a_ != a_end_ || heap_.n > 0) {
      acc_clear(acc_);
      k_ = 0;
      const word* const monomial = next_monomial();
      const std::int32_t r = acc_reduce(acc_, mod_);  // r in [0, p)
      if (r == 0) continue;
      if (!write_quotient_monomial(monomial)) return false;
      append_quotient_term(r);
      if (written_ == capacity_) next_block();
    }
    out_.finish(written_);
    return true;
  }

 private:
  using key_type = typename Order::key_type;
  using row_type = stream_row<Order>;

  // The first block, with a quotient stream for each of its terms; then B's
  // leading coefficient is inverted ("division by zero" when it has no
  // inverse mod p), once the block's line is out as it is for every divisor.
  void start() {
    quotient_.reserve(first_capacity_, m_);
    add_quotient_streams(first_capacity_);
    slot_ = out_.next_block(first_capacity_);
    capacity_ = first_capacity_;
    // Coefficients may be unreduced or negative immediates.
    inverse_ = unit_inverse(residue(coefficient_value(B_.terms[m_]), p_), p_);
  }

  // Sums the coefficient of the largest monomial left of A - Q·B: A's next
  // term when it is that monomial, less every product of it in the heap.
  const word* next_monomial() {
    const word* const a = a_;
    const int order_of_a = heap_.n == 0 ? 1 : a == a_end_ ? -1 : order_.compare(a, heap_.entries[0].key);
    if (order_of_a >= 0) {
      acc_add(acc_, coefficient_value(a[m_]));
      a_ += stride_;
      k_ = 1;
    }
    if (order_of_a > 0) return a;
    take_products();
    return monomial_;
  }

  // Takes every product of the largest monomial in the heap, each stream
  // moving on as it is taken (its successors are smaller).
  void take_products() {
    const key_type popped = heap_.entries[0].key;
    order_.write_monomial(monomial_, popped, [&] { return factors_of(heap_.entries[0].chain); });
    auto subtract = [&](std::uint32_t x, std::uint32_t y) {
      acc_sub_unsigned_product(acc_, x, y);
      ++k_;
    };
    heap_take_equal(heap_, [&](std::int32_t s) {
      if (s < divisors_.first) {
        quotients_.move_on(heap_, s, quotients_.take(s, subtract), popped);
      } else {
        const std::int32_t d = s - divisors_.first;
        divisors_.move_on(heap_, d, divisors_.take(d, subtract), popped);
      }
    });
  }

  std::pair<const word*, const word*> factors_of(std::int32_t s) const noexcept {
    return s < divisors_.first ? quotients_.factors_of(order_, s)
                               : divisors_.factors_of(order_, s - divisors_.first);
  }

  // Writes the monomial divided by B's leading one into the write slot; false
  // when that does not divide it (a field borrowed: its guard bit is set).
  // Raises "exponent overflow" when the quotient term's products with B could
  // reach a guard bit and so corrupt the heap's order.
  bool write_quotient_monomial(const word* monomial) {
    word borrows = 0;
    word reach = 0;
    for (int w = 0; w < m_; ++w) {
      slot_[w] = monomial[w] - B_.terms[w];
      borrows |= slot_[w];
      reach |= slot_[w] + b_maxima_[w];
    }
    if ((borrows & guard_) != 0) return false;
    if ((reach & guard_) != 0) fail("exponent overflow");
    return true;
  }

  // Completes the quotient term at the write slot with coefficient r / lc(B),
  // records it and starts its first product: its own stream's with B[1]
  // before the switch, the stream of B[1]'s with it after.
  void append_quotient_term(std::int32_t r) {
    // r and the inverse in [0, p): the product fits 64 bits; q is not 0.
    const auto q = static_cast<std::int32_t>(
        reduce64(static_cast<std::uint64_t>(r) * static_cast<std::uint32_t>(inverse_), mod_));
    slot_[m_] = make_immediate(q);
    const std::int32_t index = quotient_.append(order_, slot_, q);  // of the term in the quotient
    slot_ += stride_;
    ++written_;
    if (switched_)
      divisors_.walked_grew(heap_, index);
    else if (B_.count >= 2)
      quotients_.start(heap_, index, 1);
  }

  // The block is full: the next one, sized from the term that filled it, room
  // in the quotient store, and before the switch either a quotient stream for
  // each of its terms or the switch; then the poll.
  void next_block() {
    const std::int32_t capacity = grow_estimate(capacity_, k_);
    slot_ = out_.next_block(capacity);
    capacity_ = capacity;
    written_ = 0;
    quotient_.reserve(capacity, m_);
    quotients_.factors = quotient_.run();
    divisors_.walked = quotient_.run();
    if (!switched_ && B_.count >= 2) {
      if (B_.count - 1 > heap_capacity_ + capacity) {
        grow_heap(heap_capacity_ + capacity);
        add_quotient_streams(capacity);
      } else {
        switch_to_divisor_streams(capacity);
      }
    }
    out_.poll();
  }

  void grow_heap(std::int32_t capacity) {
    heap_.entries = grow_heap_storage<Order>(heap_storage_, static_cast<std::size_t>(capacity), heap_.entries, heap_.n);
    heap_capacity_ = capacity;
  }

  // Stream names for count more streams: their chain links and key buffers.
  void add_streams(std::int32_t count) {
    const auto old = static_cast<std::size_t>(streams_);
    streams_ += count;
    links_.grow(old, static_cast<std::size_t>(streams_));
    heap_.links = links_.data;
    const std::size_t words = key_buffer_words(order_);
    if (words > 0) {
      const word* const before = buffers_.data;
      buffers_.grow(old * words, checked_bytes(static_cast<std::size_t>(streams_), words));
      heap_move_buffers(heap_, before, buffers_.data);
    }
    quotients_.buffers = buffers_.data;
  }

  // A quotient stream for each of the next count quotient terms, walking B
  // from B[1]; the state before the first has taken B's last term, and a
  // term not yet written waits for nothing.
  void add_quotient_streams(std::int32_t count) {
    const std::int32_t old = quotient_count_;
    add_streams(count);
    quotient_count_ += count;
    quotient_states_.grow(static_cast<std::size_t>(old) + 1, static_cast<std::size_t>(quotient_count_) + 2);
    std::int32_t* const states = quotient_states_.data + 1;
    states[-1] = row_type::waiting(B_.count);
    std::fill(states + old, states + quotient_count_ + 1, 0);
    quotients_ = {quotient_.run(), b_run_, states, 0, buffers_.data};
  }

  // Quotient terms from here on get no stream of their own: one stream per
  // non-leading term of B walks them all instead, from the next one.  The
  // state before the first has taken the last term written so far.
  void switch_to_divisor_streams(std::int32_t capacity) {
    heap_capacity_ += B_.count - 1;
    out_.note(4, "switch! qn=%d terms, dn=%d terms, heap=%d\n", static_cast<int>(capacity),
              static_cast<int>(B_.count - 1), static_cast<int>(heap_capacity_));
    grow_heap(heap_capacity_);
    const std::int32_t first = streams_;
    add_streams(B_.count - 1);
    divisor_states_.grow(0, static_cast<std::size_t>(B_.count) + 1);
    std::int32_t* const states = divisor_states_.data + 1;
    std::fill(states - 1, states + (B_.count - 1), row_type::waiting(quotient_.count));
    states[B_.count - 1] = 0;
    divisors_ = {b_run_.from(1, m_), quotient_.run(), states, first, order_.buffer(buffers_.data, first)};
    switched_ = true;
  }

  const Order order_;
  const int m_;
  const std::ptrdiff_t stride_;
  const term_run A_;
  const term_run B_;
  const std::int32_t p_;
  const modulus mod_;
  const word guard_;
  Sink& out_;
  const word* a_;  // A's next term
  const word* const a_end_;
  const std::int32_t first_capacity_;

  word* b_maxima_ = nullptr;  // per field, the largest in any term of B
  word* monomial_ = nullptr;  // the monomial of the products taken
  stream_run<Order> b_run_{};
  std::int32_t inverse_ = 0;  // of B's leading coefficient

  quotient_store<Order> quotient_;
  gateway_array<basic_heap_entry<key_type>> heap_storage_;
  basic_term_heap<Order> heap_{nullptr, 0, order_, nullptr};
  std::int32_t heap_capacity_ = 0;

  // Streams by name: the quotient streams first, then the divisor streams.
  gateway_array<std::int32_t> links_;
  gateway_array<word> buffers_;
  gateway_array<std::int32_t> quotient_states_;
  gateway_array<std::int32_t> divisor_states_;
  std::int32_t streams_ = 0;
  std::int32_t quotient_count_ = 0;
  row_type quotients_{};
  row_type divisors_{{}, {}, nullptr, INT32_MAX, nullptr};  // no stream's name before the switch
  bool switched_ = false;

  word* slot_ = nullptr;  // the write slot
  std::int32_t capacity_ = 0;
  std::int32_t written_ = 0;  // terms in the current block
  acc96 acc_{};               // the sum of the current monomial's coefficient
  std::int32_t k_ = 0;        // and its contributions
};

// Divides A by B mod p (1 <= p < 2^30; A and B packed alike, decreasing, no
// big coefficients), operands that repeat a monomial merged first (the blocks
// and the switch follow the merged operands).  True with the quotient written
// to the sink when B divides A; false when it does not, the sink's blocks
// then holding no result, and when B has no terms.  Merged operands and
// other scratch go on `scratch`.  Raises "division by zero" when B's terms
// cancel mod p and, once the first block's line is out, when B's leading
// coefficient has no inverse mod p; "exponent overflow" before a quotient
// term whose products with B would reach a guard bit; and what the sink
// raises.  The sink polls once per new quotient block.
template <term_sink Sink>
bool divide_terms(term_run A, term_run B, monomial_shape shape, std::int32_t p, tracked_list& scratch, Sink& out,
                  division_options options = {}) {
  if (B.count == 0) return false;
  B = merged(B, shape, p, scratch);
  if (B.count == 0) fail("division by zero");  // its terms cancel mod p
  A = merged(A, shape, p, scratch);
  return with_key_order(A, B, shape, [&](auto M, auto key_order) {
    using division = heap_division<decltype(M)::value, typename decltype(key_order)::type, Sink>;
    return division(A, B, shape, p, scratch, out, options.first_block).run();
  });
}

}  // namespace vorn
