// The heap division kernel.
//
// The classical loop (take the largest monomial of A - Q·B, divide it by B's
// leading monomial, append the quotient term) with A - Q·B never formed: the
// products Q·B come lazily from streams merged in the term heap, and the
// coefficient of each monomial is summed exactly in an acc96 and reduced once.
//
// A quotient stream belongs to one quotient slot and walks B[1 ...]; a divisor
// stream belongs to one B[j], j >= 1, and walks the quotient from the first
// term written after the switch.  Both walk by index: the quotient's terms
// are recorded (key, term, coefficient value) as their slots are written, so
// a product reads two small records and a stream's progress is one integer.
// The heap starts with
// quotient streams and, once the quotient slots would outnumber B's
// non-leading terms, switches for good to divisor streams: the heap then never
// holds more than one entry per quotient slot made before the switch plus one
// per non-leading term of B.
//
// Invariant: when a monomial reaches the root, every product equal to it is
// in the heap.  Streams wait for the stream before them: a quotient stream's
// product q_i·B[j] enters only once q_i·B[j - 1] and q_{i-1}·B[j] have left
// the heap, a divisor stream's B[j + 1]·q_k only once B[j + 1]·q_(k-1) and
// B[j]·q_k have.  Both are larger (B and the quotient strictly decrease), so
// the product enters below the monomial being processed and before its own
// monomial can reach the root, and the heap holds only products that could be
// next.  The passes, their counts and so the blocks and the switch are those
// of eager insertion.
//
// Both operands are merged first when they repeat a monomial (import leaves
// equal monomials side by side when terms differ only outside the ring).  A
// repeated monomial of A makes two passes, and may write two equal quotient
// terms, which one divisor stream can meet only one per pass; a repeated one
// of B splits its products the same way.  Either can turn an exact quotient
// into a false answer, and the answer must be true exactly when B divides A.
#include "arith/heap_divide.hpp"

#include <algorithm>
#include <utility>

#include "arith/acc96.hpp"
#include "arith/grow.hpp"
#include "arith/heap.hpp"
#include "arith/kernel.hpp"
#include "arith/mod_inverse.hpp"
#include "arith/mul.hpp"
#include "host/error.hpp"
#include "host/frame.hpp"
#include "poly/monomial.hpp"
#include "poly/term_block.hpp"

namespace vorn {
namespace {

// Replaces the array by a larger one of count elements that starts with its
// first kept ones.
template <class T>
void regrow(gateway_array<T>& a, std::size_t kept, std::size_t count) {
  gateway_array<T> larger;
  larger.data = static_cast<T*>(gateway_take(count, sizeof(T)));
  if (a.data != nullptr) std::copy_n(a.data, kept, larger.data);
  std::swap(a.data, larger.data);  // the old array goes with the local
}

template <int Msize, class Order>
bool divide_heap(const callback_table& cbt, tracked_list& scratch, std::int32_t p, const term_block& A,
                 const term_block& B, term_block_list& quotient, std::int32_t first_block) {
  const int m = Msize > 0 ? Msize : layout_msize(A.layout);
  const auto m_words = static_cast<std::size_t>(std::max(m, 1));
  const std::ptrdiff_t stride = m + 1;
  const std::int32_t nA = A.count;
  const std::int32_t nB = B.count;
  const word guard = layout_guard(A.layout);
  const word* const b0 = B.terms;

  const modulus mod = make_modulus(p);

  // Every field of a quotient term plus the largest of that field in B must
  // stay below its guard bit, or a product key would wrap into its neighbour.
  auto* const b_maxima = static_cast<word*>(scratch.take(m_words, sizeof(word)));
  field_maxima<Msize>(b_maxima, B.terms, nB, m, layout_shift(A.layout));
  auto* const current_monomial = static_cast<word*>(scratch.take(m_words, sizeof(word)));

  using order_type = Order;
  using key_type = typename order_type::key_type;
  using entry = basic_heap_entry<key_type>;
  constexpr bool integer_keys = order_type::integer_keys;

  // Per term of B and of the quotient, in arrays of their own: the
  // coefficient value reduced mod p (products are then subtracted without a
  // sign), and with integer keys the step, the change of key to the next
  // term.  A popped product's successors take their keys from the popped
  // key and one step; only a slot's first product, with B[1], is formed
  // from two keys.  The quotient's arrays are filled as its slots are
  // written (a slot's step once the next one is), and its terms are kept for
  // buffer keys and popped monomials.
  const order_type order{m, layout_is_tdeg(A.layout)};
  auto* const b_values = static_cast<std::int32_t*>(scratch.take(static_cast<std::size_t>(nB), sizeof(std::int32_t)));
  key_type* b_steps = nullptr;
  key_type b1_key{};
  for (std::int32_t j = 0; j < nB; ++j) b_values[j] = residue(coefficient_value(b0[j * stride + m]), p);
  if constexpr (integer_keys) {
    b_steps = static_cast<key_type*>(scratch.take(static_cast<std::size_t>(nB), sizeof(key_type)));
    for (std::int32_t j = 0; j + 1 < nB; ++j)
      b_steps[j] = order.step(order.term_key(b0 + j * stride), order.term_key(b0 + (j + 1) * stride));
    b_steps[nB - 1] = {};
    if (nB >= 2) b1_key = order.term_key(b0 + stride);
  }
  gateway_array<std::int32_t> q_values;  // one per quotient slot allocated
  gateway_array<key_type> q_steps;
  gateway_array<const word*> q_terms;
  key_type last_q_key{};
  std::int32_t nq = 0;  // quotient terms written

  const std::int32_t cap0 = first_block > 0 ? first_block : std::min<std::int32_t>(nB, 1024);
  gateway_array<entry> heap_array;
  heap_array.data =
      static_cast<entry*>(gateway_take(heap_storage_entries<order_type>(static_cast<std::size_t>(cap0)), sizeof(entry)));
  std::int32_t H = cap0;
  basic_term_heap<order_type> heap{heap_storage_init<order_type>(heap_array.data, static_cast<std::size_t>(cap0)), 0,
                                   order, nullptr};
  // A larger entry array for capacity slots, the occupied ones kept.
  auto regrow_heap = [&](std::int32_t capacity) {
    gateway_array<entry> larger;
    const auto slots = static_cast<std::size_t>(capacity);
    larger.data = static_cast<entry*>(gateway_take(heap_storage_entries<order_type>(slots), sizeof(entry)));
    entry* const entries = heap_storage_init<order_type>(larger.data, slots);
    std::copy_n(heap.entries, heap.n, entries);
    std::swap(heap_array.data, larger.data);  // the old array goes with the local
    heap.entries = entries;
  };

  // Streams, named by index: first the quotient streams, stream i for slot i
  // of the quotient walking B[1 ...], made one per slot until the switch;
  // then the divisor streams, stream divisor_base + d for B[d + 1] walking
  // the quotient from the slot after the last quotient stream's.  Per stream
  // in arrays of their own: the chain link, its key buffer (buffer keys) and
  // its state, 2·(index of the next product to insert) + (1 when none of its
  // products is in the heap), so that the current product is (state >> 1) - 1.
  // Each state array has a sentinel on either side: the one before has passed
  // every index (for the quotient streams, B's last one, past which none
  // moves on), the one after waits for none.  A slot not yet written has
  // state 0 and so waits for nothing either.
  gateway_array<std::int32_t> links;
  gateway_array<word> buffers;
  gateway_array<std::int32_t> q_state_array;
  gateway_array<std::int32_t> d_state_array;
  std::int32_t streams = 0;
  std::int32_t quotient_streams = 0;
  std::int32_t divisor_base = 0;
  std::int32_t* q_state = nullptr;
  std::int32_t* d_state = nullptr;

  auto add_streams = [&](std::int32_t count) {
    const std::int32_t old = streams;
    streams += count;
    const auto total = static_cast<std::size_t>(streams);
    regrow(links, static_cast<std::size_t>(old), total);
    heap.links = links.data;
    if constexpr (!integer_keys) {
      // Keys in the heap are buffer addresses: they follow the buffers.
      const word* const before = buffers.data;
      gateway_array<word> larger;
      larger.data = static_cast<word*>(gateway_take(checked_bytes(total, m_words), sizeof(word)));
      std::copy_n(buffers.data, static_cast<std::size_t>(old) * m_words, larger.data);
      for (std::int32_t h = 0; h < heap.n; ++h) heap.entries[h].key = larger.data + (heap.entries[h].key - before);
      std::swap(buffers.data, larger.data);
    }
  };
  auto add_quotient_streams = [&](std::int32_t count) {
    const std::int32_t old = quotient_streams;
    add_streams(count);
    quotient_streams += count;
    regrow(q_state_array, static_cast<std::size_t>(old) + 1, static_cast<std::size_t>(quotient_streams) + 2);
    q_state = q_state_array.data + 1;
    q_state[-1] = 2 * nB + 1;  // has taken B's last product: no stream moves on past it
    std::fill(q_state + old, q_state + quotient_streams + 1, 0);
  };
  auto grow_quotient = [&](std::int32_t capacity) {
    const auto kept = static_cast<std::size_t>(nq);
    const std::size_t total = kept + static_cast<std::size_t>(capacity);
    regrow(q_values, kept, total);
    regrow(q_terms, kept, total);
    if constexpr (integer_keys) regrow(q_steps, kept, total);
  };

  // q_i·B[j], and B[d + 1]·q_k, under key (integer keys) or in the stream's buffer.
  auto insert_quotient = [&](std::int32_t i, std::int32_t j, key_type key) {
    if constexpr (integer_keys)
      heap_insert(heap, key, i);
    else
      heap_insert(heap, order.product_key(q_terms.data[i], b0 + j * stride, buffers.data + std::ptrdiff_t{i} * m), i);
  };
  auto insert_divisor = [&](std::int32_t d, std::int32_t k, key_type key) {
    const std::int32_t s = divisor_base + d;
    if constexpr (integer_keys)
      heap_insert(heap, key, s);
    else
      heap_insert(heap, order.product_key(b0 + (d + 1) * stride, q_terms.data[k], buffers.data + std::ptrdiff_t{s} * m),
                  s);
  };
  // The key of a popped product with one factor moved on by step.
  auto stepped = [&](key_type popped, const key_type* steps, std::int32_t at) {
    if constexpr (integer_keys)
      return order.stepped(popped, steps[at]);
    else
      return key_type{};
  };

  grow_quotient(cap0);
  add_quotient_streams(cap0);
  if (info_level > 3) host_printf(cbt, "alloc %d terms\n", static_cast<int>(cap0));
  term_block* current = alloc_term_block(cap0, A.layout, 1);
  if (current == nullptr) fail("out of memory");
  quotient.first = current;
  current->count = 0;
  std::int32_t capacity = cap0;
  word* slot = current->terms;
  bool switched = false;
  // Coefficients may be unreduced or negative immediates.  The first block's
  // line is out by now, as it is for every divisor.
  const std::int32_t lead = residue(coefficient_value(b0[m]), p);
  const std::int32_t inv = mod_inverse(lead, p);
  if (static_cast<std::int64_t>(inv) * lead % p != 1) fail("division by zero");

  acc96 acc;
  const word* a = A.terms;  // A[iA]
  std::int32_t iA = 0;
  while (iA < nA || heap.n > 0) {
    acc_clear(acc);
    std::int32_t k = 0;  // contributions to this monomial

    std::int32_t order_of_a;  // of A[iA] against the largest product
    if (heap.n == 0)
      order_of_a = 1;
    else if (iA == nA)
      order_of_a = -1;
    else if constexpr (Msize == 1)
      order_of_a = static_cast<std::int32_t>(a[0]) > heap.entries[0].key    ? 1
                   : static_cast<std::int32_t>(a[0]) == heap.entries[0].key ? 0
                                                                             : -1;
    else if constexpr (integer_keys) {
      const auto ka = order.key_of(a);
      order_of_a = ka > heap.entries[0].key ? 1 : ka == heap.entries[0].key ? 0 : -1;
    } else
      order_of_a = compare_monomials<Msize>(a, heap.entries[0].key, m, order.tdeg);

    const word* monomial = a;
    if (order_of_a >= 0) {
      acc_add(acc, coefficient_value(a[m]));
      a += stride;
      ++iA;
      k = 1;
    }
    if (order_of_a <= 0) {
      // Each product moves on as it is taken (its successors are smaller
      // than the popped monomial); whichever of a successor's two
      // predecessors is taken second inserts it, as it finds the other's
      // stream marked.
      const std::int32_t* const qv = q_values.data;
      const key_type* const qs = q_steps.data;
      const key_type key = heap.entries[0].key;
      // Keys that are not whole monomials: the monomial is the product at
      // the root's first stream, formed once before any stream moves on.
      if constexpr (!order_type::copies_key) {
        const std::int32_t s = heap.entries[0].chain;
        if (s < quotient_streams) {
          const std::int32_t j = (q_state[s] >> 1) - 1;
          monomial_add<Msize>(current_monomial, q_terms.data[s], b0 + j * stride, m);
        } else {
          const std::int32_t d = s - divisor_base;
          const std::int32_t kq = (d_state[d] >> 1) - 1;
          monomial_add<Msize>(current_monomial, b0 + (d + 1) * stride, q_terms.data[kq], m);
        }
      }
      heap_take_equal(heap, current_monomial, [&](std::int32_t s) {
        if (s < quotient_streams) {
          const std::int32_t i = s;
          const std::int32_t j = (q_state[i] >> 1) - 1;
          q_state[i] |= 1;
          acc_sub_unsigned_product(acc, static_cast<std::uint32_t>(qv[i]), static_cast<std::uint32_t>(b_values[j]));
          // The next stream was waiting for this product.
          if (q_state[i + 1] == 2 * j + 1) {
            q_state[i + 1] = 2 * (j + 1);
            insert_quotient(i + 1, j, stepped(key, qs, i));
          }
          // This stream moves on once the one before it has passed j + 1.
          if (q_state[i - 1] >= 2 * (j + 2) + 1) {
            q_state[i] = 2 * (j + 2);
            insert_quotient(i, j + 1, stepped(key, b_steps, j));
          }
        } else {
          const std::int32_t d = s - divisor_base;
          const std::int32_t kq = (d_state[d] >> 1) - 1;
          d_state[d] |= 1;
          acc_sub_unsigned_product(acc, static_cast<std::uint32_t>(b_values[d + 1]),
                                   static_cast<std::uint32_t>(qv[kq]));
          if (d_state[d + 1] == 2 * kq + 1) {
            d_state[d + 1] = 2 * (kq + 1);
            insert_divisor(d + 1, kq, stepped(key, b_steps, d + 1));
          }
          // Past the quotient written so far, the stream of B[1] waits for
          // the next slot to be written, the others for the one before.
          if (kq + 1 < nq && d_state[d - 1] >= 2 * (kq + 2) + 1) {
            d_state[d] = 2 * (kq + 2);
            insert_divisor(d, kq + 1, stepped(key, qs, kq));
          }
        }
        ++k;
      });
      monomial = current_monomial;
    }

    const std::int32_t r = acc_reduce(acc, mod);  // r in [0, p)
    if (r == 0) continue;

    // The quotient monomial goes straight into the write slot; a borrow out
    // of a field (an exponent of the monomial below B's) sets its guard bit.
    word borrows = 0;
    word reach = 0;
    for (int w = 0; w < m; ++w) {
      slot[w] = monomial[w] - b0[w];
      borrows |= slot[w];
      reach |= slot[w] + b_maxima[w];
    }
    if ((borrows & guard) != 0) {
      free_term_blocks(quotient.first);
      quotient.first = nullptr;
      return false;
    }
    if ((reach & guard) != 0) fail("exponent overflow");
    // r and inv in [0, p): the product fits 64 bits; q is non-zero since inv is a unit.
    const auto q =
        static_cast<std::int32_t>(reduce64(static_cast<std::uint64_t>(r) * static_cast<std::uint32_t>(inv), mod));
    slot[m] = make_immediate(q);
    ++current->count;
    const std::int32_t g = nq++;
    q_values.data[g] = q;
    q_terms.data[g] = slot;
    // The key of this slot's product with B[1], and the step to it from the slot before.
    key_type first_key{};
    if constexpr (integer_keys) {
      const key_type k_slot = order.term_key(slot);
      if (g > 0) q_steps.data[g - 1] = order.step(last_q_key, k_slot);
      last_q_key = k_slot;
      first_key = order.product_of_keys(k_slot, b1_key);
    }

    if (!switched) {
      // The slot's stream starts at B[1] once the stream before has passed it.
      if (nB >= 2) {
        if (q_state[g - 1] >= 2 * 2 + 1) {
          q_state[g] = 2 * 2;
          insert_quotient(g, 1, first_key);
        } else {
          q_state[g] = 2 * 1 + 1;
        }
      }
    } else if (d_state[0] == 2 * g + 1) {
      // The stream of B[1] was waiting for this slot.
      d_state[0] = 2 * (g + 1);
      insert_divisor(0, g, first_key);
    }

    if (current->count < capacity) {
      slot += stride;
      continue;
    }

    const std::int32_t newcap = grow_estimate(capacity, k);
    if (info_level > 3) host_printf(cbt, "alloc %d terms\n", static_cast<int>(newcap));
    term_block* next = alloc_term_block(newcap, A.layout, 1);
    if (next == nullptr) fail("out of memory");
    current->next = next;
    current = next;
    current->count = 0;
    capacity = newcap;
    slot = current->terms;
    grow_quotient(newcap);

    if (!switched && nB >= 2) {
      if (nB - 1 > H + newcap) {
        regrow_heap(H + newcap);
        add_quotient_streams(newcap);
        H += newcap;
      } else {
        // Quotient slots from here on get no stream of their own: one stream
        // per non-leading term of B walks them all instead, from this slot.
        H += nB - 1;
        if (info_level > 4)
          host_printf(cbt, "switch! qn=%d terms, dn=%d terms, heap=%d\n", static_cast<int>(newcap),
                      static_cast<int>(nB - 1), static_cast<int>(H));
        regrow_heap(H);
        divisor_base = streams;
        add_streams(nB - 1);
        regrow(d_state_array, 0, static_cast<std::size_t>(nB) + 1);
        d_state = d_state_array.data + 1;
        d_state[-1] = INT32_MAX;
        std::fill(d_state, d_state + (nB - 1), 2 * nq + 1);
        d_state[nB - 1] = 0;
        switched = true;
      }
    }
    if (host_check_interrupt(cbt)) fail("Interrupted");
  }
  return true;
}

// F itself when no two neighbouring terms share a monomial; otherwise a copy
// on scratch with the terms of each repeated monomial summed mod p into one
// (least non-negative residue) and the sums that vanish dropped.
term_block merged(term_block F, std::int32_t p, tracked_list& scratch) {
  if (strictly_decreasing<0>({F.terms, F.count}, shape_of(F.layout))) return F;
  const int m = layout_msize(F.layout);
  const std::ptrdiff_t stride = m + 1;
  auto* const out = static_cast<word*>(
      scratch.take(checked_bytes(static_cast<std::size_t>(F.count), static_cast<std::size_t>(stride)), sizeof(word)));
  std::int32_t n = 0;
  for (std::int32_t t = 0; t < F.count;) {
    const word* const first = F.terms + t * stride;
    std::int64_t sum = 0;
    do {
      sum += coefficient_value(F.terms[t * stride + m]);
      ++t;
    } while (t < F.count && monomials_equal<0>(first, F.terms + t * stride, m));
    auto r = static_cast<std::int32_t>(sum % p);
    if (r < 0) r += p;
    if (r == 0) continue;
    std::copy_n(first, m, out + n * stride);
    out[n * stride + m] = make_immediate(r);
    ++n;
  }
  return {out, F.layout, n, nullptr};
}

}  // namespace

bool heap_divide(const callback_table& cbt, tracked_list& scratch, std::int32_t p, term_block A, term_block B,
                 term_block_list& quotient, division_options options) {
  if (B.count == 0) return false;
  B = merged(B, p, scratch);
  if (B.count == 0) fail("division by zero");  // its terms cancel mod p
  A = merged(A, p, scratch);
  if (two_word_keys_decide({A.terms, A.count}, {B.terms, B.count}, shape_of(A.layout)))
    return divide_heap<3, wide_key_order<3>>(cbt, scratch, p, A, B, quotient, options.first_block);
  return with_msize(layout_msize(A.layout), [&](auto M) {
    constexpr int msize = decltype(M)::value;
    return divide_heap<msize, kernel_key_order_t<msize>>(cbt, scratch, p, A, B, quotient, options.first_block);
  });
}

}  // namespace vorn
