// The addition kernel: A + B or A − B mod p as one merge of two decreasing
// term runs.
//
// Each result term costs one comparison and one signed 32-bit remainder: two
// immediates (|v| <= 2^30) add without overflow.  While both runs last, a
// full block is followed by one 1.25 times as large (grow_estimate with two
// contributions), capped by the input terms left; once one run is exhausted
// the rest is copied into blocks of exactly the terms left.
#pragma once

#include <algorithm>
#include <cstdint>

#include "arith/acc96.hpp"
#include "arith/grow.hpp"
#include "arith/kernel.hpp"
#include "poly/monomial.hpp"

namespace vorn {

// Writes the terms of A + B (or A − B when Subtract) mod p, p >= 1, to the
// sink; either run may be empty.  The merge walks both runs by pointer
// against their ends, so that every position stays in a register.
template <int Msize, bool Subtract, term_sink Sink>
void add_merge(term_run A, term_run B, monomial_shape shape, std::int32_t p, Sink& out) {
  const int m = Msize > 0 ? Msize : shape.msize;
  const std::ptrdiff_t stride = m + 1;
  const word* a = A.terms;
  const word* b = B.terms;
  const word* const a_end = a + A.count * stride;
  const word* const b_end = b + B.count * stride;
  auto terms_left = [&] { return static_cast<std::int64_t>((a_end - a) / stride + (b_end - b) / stride); };
  auto b_value = [](word c) {
    const std::int32_t v = coefficient_value(c);
    return Subtract ? -v : v;
  };

  std::int32_t capacity = static_cast<std::int32_t>(std::min<std::int64_t>(terms_left(), 1024));
  word* w = out.next_block(capacity);
  word* w_end = w + capacity * stride;

  auto put = [&](const word* monomial, std::int32_t r) {
    for (int q = 0; q < m; ++q) w[q] = monomial[q];
    w[m] = make_immediate(r);
    w += stride;
  };

  while (a != a_end && b != b_end) {
    int q = 0;
    while (q < m && a[q] == b[q]) ++q;
    std::int32_t v;
    const word* consumed;
    if (q == m) {
      v = coefficient_value(a[m]) + b_value(b[m]);
      consumed = b;
      a += stride;
      b += stride;
    } else if ((a[q] ^ compare_mask(q, shape.tdeg)) > (b[q] ^ compare_mask(q, shape.tdeg))) {
      v = coefficient_value(a[m]);
      consumed = a;
      a += stride;
    } else {
      v = b_value(b[m]);
      consumed = b;
      b += stride;
    }
    const std::int32_t r = residue(v, p);
    if (r == 0) continue;
    put(consumed, r);
    if (w == w_end) {
      capacity = static_cast<std::int32_t>(std::min<std::int64_t>(grow_estimate(capacity, 2), terms_left()));
      w = next_block_polled(out, capacity);
      w_end = w + capacity * stride;
    }
  }

  for (;;) {
    for (; a != a_end && w != w_end; a += stride) {
      const std::int32_t r = residue(coefficient_value(a[m]), p);
      if (r != 0) put(a, r);
    }
    for (; b != b_end && w != w_end; b += stride) {
      const std::int32_t r = residue(b_value(b[m]), p);
      if (r != 0) put(b, r);
    }
    const std::int64_t left = terms_left();
    if (left <= 0) break;
    capacity = static_cast<std::int32_t>(left);
    w = next_block_polled(out, capacity);
    w_end = w + capacity * stride;
  }
  out.finish(capacity - static_cast<std::int32_t>((w_end - w) / stride));
}

// add_merge dispatched on the words per monomial.
template <term_sink Sink>
void add_terms(term_run A, term_run B, monomial_shape shape, std::int32_t p, bool subtract, Sink& out) {
  with_msize(shape.msize, [&](auto M) {
    if (subtract)
      add_merge<decltype(M)::value, true>(A, B, shape, p, out);
    else
      add_merge<decltype(M)::value, false>(A, B, shape, p, out);
  });
}

}  // namespace vorn
