// The addition kernel: A + B or A − B mod p as one merge of two decreasing
// term runs.
//
// Each result term costs one comparison and one signed 32-bit remainder: two
// immediates (|v| <= 2^30) add without overflow.  While both runs last, a
// full block is followed by one 1.25 times as large (ties to even), capped at
// max_block_terms and by the input terms left; once one run is exhausted the
// rest is copied into blocks of exactly the terms left.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "arith/acc96.hpp"
#include "arith/grow.hpp"
#include "arith/kernel.hpp"
#include "poly/monomial.hpp"

namespace vorn {

// Writes the terms of A + B (or A − B when subtract) mod p, p >= 1, to the
// sink; either run may be empty.
template <int Msize, class Sink>
void add_merge(term_run A, term_run B, monomial_shape shape, std::int32_t p, bool subtract, Sink& out) {
  const int m = Msize > 0 ? Msize : shape.msize;
  const std::ptrdiff_t stride = m + 1;
  const std::int32_t nA = A.count;
  const std::int32_t nB = B.count;
  const word* a = A.terms;
  const word* b = B.terms;
  std::int32_t i = 0;
  std::int32_t j = 0;

  std::int32_t capacity = static_cast<std::int32_t>(std::min<std::int64_t>(std::int64_t{nA} + nB, 1024));
  word* w = out.next_block(capacity);
  std::int32_t written = 0;

  auto put = [&](const word* monomial, std::int32_t r) {
    for (int q = 0; q < m; ++q) w[q] = monomial[q];
    w[m] = make_immediate(r);
    w += stride;
    ++written;
  };

  while (i < nA && j < nB) {
    const std::int32_t d = compare_monomials<Msize>(a, b, m, shape.tdeg);
    std::int32_t v = 0;
    const word* consumed;
    if (d >= 0) {
      v = coefficient_value(a[m]);
      consumed = a;
      a += stride;
      ++i;
    }
    if (d <= 0) {
      v = subtract ? v - coefficient_value(b[m]) : v + coefficient_value(b[m]);
      consumed = b;
      b += stride;
      ++j;
    }
    const std::int32_t r = residue(v, p);
    if (r != 0) put(consumed, r);
    if (written == capacity) {
      const auto grown =
          static_cast<std::int64_t>(std::nearbyint(static_cast<double>(written) * 250.0 / 200.0));
      capacity = static_cast<std::int32_t>(
          std::min({grown, std::int64_t{max_block_terms}, std::int64_t{nA - i} + (nB - j)}));
      w = out.next_block(capacity);
      written = 0;
    }
  }

  for (;;) {
    for (; i < nA && written < capacity; ++i, a += stride) {
      const std::int32_t r = residue(coefficient_value(a[m]), p);
      if (r != 0) put(a, r);
    }
    for (; j < nB && written < capacity; ++j, b += stride) {
      const std::int32_t v = coefficient_value(b[m]);
      const std::int32_t r = residue(subtract ? -v : v, p);
      if (r != 0) put(b, r);
    }
    const std::int32_t left = (nA - i) + (nB - j);
    if (left <= 0) break;
    capacity = left;
    w = out.next_block(capacity);
    written = 0;
  }
  out.finish(written);
}

// add_merge dispatched on the words per monomial.
template <class Sink>
void add_terms(term_run A, term_run B, monomial_shape shape, std::int32_t p, bool subtract, Sink& out) {
  with_msize(shape.msize, [&](auto M) { add_merge<decltype(M)::value>(A, B, shape, p, subtract, out); });
}

}  // namespace vorn
