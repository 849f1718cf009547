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
// in the heap.  Streams wait for the stream before them: a quotient stream's
// product q_i·B[j] enters only once q_i·B[j - 1] and q_{i-1}·B[j] have left
// the heap, a divisor stream's B[j + 1]·q_k only once B[j + 1]·q_(k-1) and
// B[j]·q_k have.  Both are larger (B and the quotient strictly decrease), so
// the product enters below the monomial being processed and before its own
// monomial can reach the root, and the heap holds only products that could be
// next.  The passes, their counts and so the blocks and the switch are those
// of eager insertion.  A divisor with repeated monomials would make equal
// products wait into a later pass, so it takes the eager order: a quotient
// stream walks on by itself, and the divisor stream of B[j + 1] (re)starts
// whenever the stream of B[j] is popped.
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

// A stream's record; streams are named by index (see the stream table).
struct div_stream {
  const word* cursor;       // the walked term, while live
  const word* multiplier;   // the fixed term
  const term_block* block;  // what the cursor walks: B, or the quotient blocks from the switch on
  union {
    word* key;                // the current product's monomial, with buffer keys
    std::uint64_t factor_key;  // the fixed term's key, with integer keys
  };
  std::int32_t factor_value;  // the fixed term's coefficient value
  std::int32_t before;      // the stream whose pops this one waits for, or no_stream
  std::int32_t after;       // the stream waiting for this one's pops, or no_stream
  std::int32_t position;    // terms of block taken; the cursor is term position - 1
  std::int32_t taken;       // terms of the whole walk taken; the current product is term taken - 1
  std::int32_t passed;      // terms of the walk whose products have left the heap
  bool waiting;             // its next product waits for before to pass it
  bool live;                // holds a current product
};

// Moves s to its next term, past full and empty blocks; false (s not live,
// left on the last block tried) when the list has no further term yet.
inline bool advance(div_stream& s, std::ptrdiff_t stride) noexcept {
  while (s.position >= s.block->count) {
    const term_block* next = s.block->next;
    if (next == nullptr) {
      s.live = false;
      return false;
    }
    s.block = next;
    s.position = 0;
  }
  s.cursor = s.position == 0 ? s.block->terms : s.cursor + stride;
  ++s.position;
  ++s.taken;
  s.live = true;
  return true;
}

// Every stream made so far: records and chain links, each one array that is
// only ever replaced by a larger copy.  Nothing holds a stream's address
// across a growth: the heap, the neighbours and the loops name streams by
// index.
struct stream_table {
  gateway_array<div_stream> records;
  gateway_array<std::int32_t> links;
  std::int32_t count = 0;
};

// Makes room for count more streams, returns the index of the first.
std::int32_t add_streams(stream_table& t, std::int32_t count) {
  const auto total = static_cast<std::size_t>(t.count) + static_cast<std::size_t>(count);
  gateway_array<div_stream> records;
  records.data = static_cast<div_stream*>(gateway_take(total, sizeof(div_stream)));
  gateway_array<std::int32_t> links;
  links.data = static_cast<std::int32_t*>(gateway_take(total, sizeof(std::int32_t)));
  std::copy_n(t.records.data, t.count, records.data);
  std::copy_n(t.links.data, t.count, links.data);
  std::swap(t.records.data, records.data);  // the old arrays go with the locals
  std::swap(t.links.data, links.data);
  const std::int32_t first = t.count;
  t.count += count;
  return first;
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
  const bool delayed = strictly_decreasing<Msize>({B.terms, nB}, shape_of(B.layout));

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
  stream_table table;
  basic_term_heap<order_type> heap{heap_array.data, 0, {m, layout_is_tdeg(A.layout)}, nullptr};

  // The fixed term's value and key are read once, not with every product.
  auto set_factor = [&](div_stream& s) {
    s.factor_value = coefficient_value(s.multiplier[m]);
    if constexpr (order_type::integer_keys)
      s.factor_key = static_cast<std::uint64_t>(heap.order.term_key(s.multiplier));
  };

  // count more streams, each with its key buffer; returns the first index.
  auto make_streams = [&](std::int32_t count) {
    word* keys = nullptr;
    if constexpr (!order_type::integer_keys)
      keys = static_cast<word*>(scratch.take(checked_bytes(static_cast<std::size_t>(count), m_words), sizeof(word)));
    const std::int32_t first = add_streams(table, count);
    heap.links = table.links.data;
    if constexpr (!order_type::integer_keys)
      for (std::int32_t i = 0; i < count; ++i)
        table.records.data[first + i].key = keys + static_cast<std::ptrdiff_t>(i) * m;
    return first;
  };
  // Stream first + i multiplies slot i of the block by B[1 ...], once the
  // slot is written (its factor is read then); it waits for the stream of
  // the slot before (last is that stream, or no_stream for the quotient's
  // first slot).
  auto start_quotient_streams = [&](std::int32_t first, const term_block* block, std::int32_t count,
                                    std::int32_t last) {
    div_stream* const s = table.records.data + first;
    for (std::int32_t i = 0; i < count; ++i) {
      s[i].cursor = b0;
      s[i].multiplier = block->terms + static_cast<std::ptrdiff_t>(i) * stride;
      s[i].block = &divisor;
      s[i].before = delayed ? (i == 0 ? last : first + i - 1) : no_stream;
      s[i].after = delayed && i + 1 < count ? first + i + 1 : no_stream;
      s[i].position = 1;
      s[i].taken = 1;
      s[i].passed = 1;
      s[i].waiting = false;
      s[i].live = false;
    }
    if (last != no_stream && delayed) table.records.data[last].after = first;
  };

  std::int32_t batch = make_streams(cap0);  // the streams of the current block's slots
  if (info_level > 3) host_printf(cbt, "alloc %d terms\n", static_cast<int>(cap0));
  term_block* current = alloc_term_block(cap0, A.layout, 1);
  if (current == nullptr) fail("out of memory");
  quotient.first = current;
  current->count = 0;
  std::int32_t capacity = cap0;
  word* slot = current->terms;
  start_quotient_streams(batch, current, cap0, no_stream);
  bool switched = false;

  using key_type = typename order_type::key_type;
  auto insert = [&](std::int32_t i) {
    div_stream& s = table.records.data[i];
    if constexpr (order_type::integer_keys)
      heap_insert(heap, heap.order.product_of_keys(static_cast<key_type>(s.factor_key), heap.order.term_key(s.cursor)),
                  i);
    else
      heap_insert(heap, heap.order.product_key(s.multiplier, s.cursor, s.key), i);
  };
  // Inserts the stream's next product when the stream before it has passed
  // that term, and marks it waiting otherwise.
  // A quotient stream past B's last term is done and waits for nothing.
  auto move_on = [&](std::int32_t i) {
    div_stream& s = table.records.data[i];
    if (s.before != no_stream && table.records.data[s.before].passed <= s.taken) {
      s.waiting = s.block != &divisor || s.taken < nB;
      return;
    }
    if (advance(s, stride)) insert(i);
  };

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
      div_stream* const records = table.records.data;
      std::int32_t popped = heap_pop_equal(heap, current_monomial, [&](std::int32_t i) {
        div_stream& s = records[i];
        acc_sub_product(acc, s.factor_value, coefficient_value(s.cursor[m]));
        s.passed = s.taken;
        ++k;
      });
      if constexpr (!order_type::copies_key)
        monomial_add<Msize>(current_monomial, records[popped].multiplier, records[popped].cursor, m);
      monomial = current_monomial;
      // Every popped stream has its passed count before any moves on, so a
      // stream and the one before it popped together see each other's.
      const std::int32_t* const links = table.links.data;
      while (popped != no_stream) {
        const std::int32_t i = popped;
        popped = links[i];  // read before the stream goes back into the heap
        div_stream& s = records[i];
        s.live = false;
        const std::int32_t after = s.after;
        if (delayed) {
          if (after != no_stream) {
            div_stream& t = records[after];
            if (t.waiting && s.passed > t.taken) {
              t.waiting = false;
              if (advance(t, stride)) insert(after);
            }
          }
          move_on(i);
        } else {
          if (advance(s, stride)) insert(i);
          if (after != no_stream && !records[after].live && advance(records[after], stride)) insert(after);
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
        set_factor(table.records.data[batch + current->count - 1]);
        move_on(batch + current->count - 1);
      }
    } else {
      div_stream& s = table.records.data[batch];  // the stream of B[1]
      if (!s.live && advance(s, stride)) insert(batch);
    }

    if (current->count < capacity) {
      slot += stride;
      continue;
    }

    const std::int32_t full = capacity;
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
        const std::int32_t last = batch + (full - 1);
        batch = make_streams(newcap);
        start_quotient_streams(batch, current, newcap, last);
        H += newcap;
      } else {
        // Quotient slots from here on get no stream of their own: one stream
        // per non-leading term of B walks them all instead.
        H += nB - 1;
        if (info_level > 4)
          host_printf(cbt, "switch! qn=%d terms, dn=%d terms, heap=%d\n", static_cast<int>(newcap),
                      static_cast<int>(nB - 1), static_cast<int>(H));
        regrow_heap(heap_array, heap, H);
        batch = make_streams(nB - 1);
        div_stream* const s = table.records.data + batch;
        for (std::int32_t j = 0; j < nB - 1; ++j) {
          s[j].cursor = nullptr;
          s[j].multiplier = b0 + static_cast<std::ptrdiff_t>(j + 1) * stride;
          set_factor(s[j]);
          s[j].block = current;
          s[j].before = delayed && j > 0 ? batch + j - 1 : no_stream;
          s[j].after = j + 1 < nB - 1 ? batch + j + 1 : no_stream;
          s[j].position = 0;
          s[j].taken = 0;
          s[j].passed = 0;
          s[j].waiting = delayed && j > 0;
          s[j].live = false;
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
