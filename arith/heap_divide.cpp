// The heap division kernel.
//
// The classical loop (take the largest monomial of A - Q·B, divide it by B's
// leading monomial, append the quotient term) with A - Q·B never formed: the
// products Q·B come lazily from streams merged in the term heap, and the
// coefficient of each monomial is summed exactly in an acc96 and reduced once.
//
// A quotient stream belongs to one quotient slot and walks B[1 ...]; a divisor
// stream belongs to one B[j], j >= 1, and walks the quotient from the first
// term written after the switch, block by block.  The heap starts with
// quotient streams and, once the quotient slots would outnumber B's
// non-leading terms, switches for good to divisor streams: the heap then never
// holds more than one entry per quotient slot made before the switch plus one
// per non-leading term of B.
//
// Invariant: when a monomial reaches the root, every product equal to it is
// in the heap.  A quotient stream starts when its quotient term is written,
// below every monomial still to come; the divisor stream of B[j + 1] starts
// (or restarts after running out of quotient terms) only when the stream of
// B[j] is popped, and its product then lies below the monomial being
// processed.
#include "arith/heap_divide.hpp"

#include <algorithm>

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

struct div_stream : term_stream {
  const word* cursor;       // the walked term, while live
  const word* multiplier;   // the fixed term
  const term_block* block;  // what the cursor walks: B, or the quotient blocks from the switch on
  word* key;                // the current product's monomial, with several words per monomial
  std::int32_t position;    // terms of block taken; the cursor is term position - 1
  bool successor;           // the next record of the array waits for this stream's pops
  bool live;                // holds a current product
};

// Moves s to its next term, past full and empty blocks; false (s not live,
// left on the last block tried) when the list has no further term yet.
inline bool advance(div_stream* s, std::ptrdiff_t stride) noexcept {
  while (s->position >= s->block->count) {
    const term_block* next = s->block->next;
    if (next == nullptr) {
      s->live = false;
      return false;
    }
    s->block = next;
    s->position = 0;
  }
  s->cursor = s->position == 0 ? s->block->terms : s->cursor + stride;
  ++s->position;
  s->live = true;
  return true;
}

// The heap array is only ever replaced by a larger one, n entries copied.
template <class Order>
void regrow_heap(gateway_array<basic_heap_entry<typename Order::key_type>>& array, basic_term_heap<Order>& heap,
                 std::int32_t capacity) {
  using entry = basic_heap_entry<typename Order::key_type>;
  auto* larger = static_cast<entry*>(gateway_take(static_cast<std::size_t>(capacity), sizeof(entry)));
  std::copy_n(array.data, heap.n, larger);
  gateway_free(array.data);
  array.data = larger;
  heap.entries = larger;
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
  const term_block divisor{B.terms, B.layout, nB, nullptr};

  // Coefficients may be unreduced or negative immediates.
  std::int32_t lead = coefficient_value(b0[m]) % p;
  if (lead < 0) lead += p;
  const std::int32_t inv = mod_inverse(lead, p);
  if (static_cast<std::int64_t>(inv) * lead % p != 1) fail("division by zero");

  // Every field of a quotient term plus the largest of that field in B must
  // stay below its guard bit, or a product key would wrap into its neighbour.
  auto* const b_maxima = static_cast<word*>(scratch.take(m_words, sizeof(word)));
  field_maxima<Msize>(b_maxima, B.terms, nB, m, layout_shift(A.layout));
  auto* const current_monomial = static_cast<word*>(scratch.take(m_words, sizeof(word)));

  const std::int32_t cap0 = first_block > 0 ? first_block : std::min<std::int32_t>(nB, 1024);
  using order_type = Order;
  using entry = basic_heap_entry<typename order_type::key_type>;
  gateway_array<entry> heap_array;
  heap_array.data = static_cast<entry*>(gateway_take(static_cast<std::size_t>(cap0), sizeof(entry)));
  std::int32_t H = cap0;
  basic_term_heap<order_type> heap{heap_array.data, 0, {m, layout_is_tdeg(A.layout)}};

  auto make_streams = [&](std::int32_t count) {
    word* keys = nullptr;
    if constexpr (!order_type::integer_keys)
      keys = static_cast<word*>(scratch.take(checked_bytes(static_cast<std::size_t>(count), m_words), sizeof(word)));
    auto* s = static_cast<div_stream*>(scratch.take(static_cast<std::size_t>(count), sizeof(div_stream)));
    for (std::int32_t i = 0; i < count; ++i) s[i].key = keys != nullptr ? keys + static_cast<std::ptrdiff_t>(i) * m : nullptr;
    return s;
  };
  // Stream i multiplies slot i of the block by B[1 ...], once the slot is written.
  auto start_quotient_streams = [&](div_stream* s, const term_block* block, std::int32_t count) {
    for (std::int32_t i = 0; i < count; ++i) {
      s[i].next = nullptr;
      s[i].cursor = b0;
      s[i].multiplier = block->terms + static_cast<std::ptrdiff_t>(i) * stride;
      s[i].block = &divisor;
      s[i].position = 1;
      s[i].successor = false;
      s[i].live = false;
    }
  };

  div_stream* streams = make_streams(cap0);
  if (info_level > 3) host_printf(cbt, "alloc %d terms\n", static_cast<int>(cap0));
  term_block* current = alloc_term_block(cap0, A.layout, 1);
  if (current == nullptr) fail("out of memory");
  quotient.first = current;
  current->count = 0;
  std::int32_t capacity = cap0;
  word* slot = current->terms;
  start_quotient_streams(streams, current, cap0);
  bool switched = false;

  auto insert = [&](div_stream* s) { heap_insert(heap, heap.order.product_key(s->multiplier, s->cursor, s->key), s); };

  acc96 acc;
  const word* a = A.terms;  // A[iA]
  std::int32_t iA = 0;
  while (iA < nA || heap.n > 0) {
    acc_clear(acc);
    std::int32_t k = 0;  // contributions to this monomial

    std::int32_t order;  // of A[iA] against the largest product
    if (heap.n == 0)
      order = 1;
    else if (iA == nA)
      order = -1;
    else if constexpr (Msize == 1)
      order = static_cast<std::int32_t>(a[0]) > heap.entries[0].key    ? 1
              : static_cast<std::int32_t>(a[0]) == heap.entries[0].key ? 0
                                                                        : -1;
    else if constexpr (order_type::integer_keys) {
      const auto ka = heap.order.key_of(a);
      order = ka > heap.entries[0].key ? 1 : ka == heap.entries[0].key ? 0 : -1;
    } else
      order = compare_monomials<Msize>(a, heap.entries[0].key, m, heap.order.tdeg);

    const word* monomial = a;
    if (order >= 0) {
      monomial = a;
      acc_add(acc, coefficient_value(a[m]));
      a += stride;
      ++iA;
      k = 1;
    }
    if (order <= 0) {
      term_stream* popped = heap_pop_equal(heap, current_monomial, [&](term_stream* t) {
        const auto* s = static_cast<const div_stream*>(t);
        acc_sub_product(acc, coefficient_value(s->multiplier[m]), coefficient_value(s->cursor[m]));
        ++k;
      });
      if constexpr (!order_type::copies_key) {
        const auto* first = static_cast<const div_stream*>(popped);
        monomial_add<Msize>(current_monomial, first->multiplier, first->cursor, m);
      }
      monomial = current_monomial;
      while (popped != nullptr) {
        auto* s = static_cast<div_stream*>(popped);
        popped = popped->next;  // read before s goes back into the heap
        if (advance(s, stride)) insert(s);
        if (s->successor) {
          div_stream* t = s + 1;
          if (!t->live && advance(t, stride)) insert(t);
        }
      }
    }

    const std::int32_t r = acc_reduce(acc, p);  // r in [0, p)
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
    const auto q = static_cast<std::int32_t>(static_cast<std::uint64_t>(r) * static_cast<std::uint32_t>(inv) %
                                             static_cast<std::uint32_t>(p));
    slot[m] = make_immediate(q);
    ++current->count;

    if (!switched) {
      if (nB >= 2) {
        div_stream* s = streams + (current->count - 1);
        advance(s, stride);
        insert(s);
      }
    } else {
      div_stream* s = streams;  // the stream of B[1]
      if (!s->live && advance(s, stride)) insert(s);
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

    if (!switched && nB >= 2) {
      if (nB - 1 > H + newcap) {
        regrow_heap(heap_array, heap, H + newcap);
        streams = make_streams(newcap);
        start_quotient_streams(streams, current, newcap);
        H += newcap;
      } else {
        // Quotient slots from here on get no stream of their own: one stream
        // per non-leading term of B walks them all instead.
        H += nB - 1;
        if (info_level > 4)
          host_printf(cbt, "switch! qn=%d terms, dn=%d terms, heap=%d\n", static_cast<int>(newcap),
                      static_cast<int>(nB - 1), static_cast<int>(H));
        regrow_heap(heap_array, heap, H);
        streams = make_streams(nB - 1);
        for (std::int32_t j = 0; j < nB - 1; ++j) {
          streams[j].next = nullptr;
          streams[j].cursor = nullptr;
          streams[j].multiplier = b0 + static_cast<std::ptrdiff_t>(j + 1) * stride;
          streams[j].block = current;
          streams[j].position = 0;
          streams[j].successor = j + 1 < nB - 1;
          streams[j].live = false;
        }
        switched = true;
      }
    }
    if (host_check_interrupt(cbt)) fail("Interrupted");
  }
  return true;
}

}  // namespace

bool heap_divide(const callback_table& cbt, tracked_list& scratch, std::int32_t p, term_block A, term_block B,
                 term_block_list& quotient, division_options options) {
  if (B.count == 0) return false;
  if (two_word_keys_decide({A.terms, A.count}, {B.terms, B.count}, shape_of(A.layout)))
    return divide_heap<3, wide_key_order<3>>(cbt, scratch, p, A, B, quotient, options.first_block);
  return with_msize(layout_msize(A.layout), [&](auto M) {
    constexpr int msize = decltype(M)::value;
    return divide_heap<msize, kernel_key_order_t<msize>>(cbt, scratch, p, A, B, quotient, options.first_block);
  });
}

}  // namespace vorn
