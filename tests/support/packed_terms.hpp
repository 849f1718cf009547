// Packed terms built in test memory, without a host: layout records, the
// orders computed from exponent vectors alone (the reference every packed
// comparison must agree with), random polynomials packed with the library's
// routines, and a sink that keeps the blocks a kernel writes.
#pragma once

#include <algorithm>
#include <cstdio>
#include <cstdint>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "arith/kernel.hpp"
#include "poly/pack.hpp"

namespace vorn::test {

#if defined(__SANITIZE_ADDRESS__) || UINTPTR_MAX == 0xffffffffu || defined(VORN_SMALL_TESTS)
inline constexpr bool small_tests = true;
#else
inline constexpr bool small_tests = false;
#endif

using exponents = std::vector<std::uint32_t>;

struct ring_case {
  monomial_order order;
  int n;
  int pack;
};

inline std::vector<word> test_layout(monomial_order order, int n, int pack) {
  const int shift = pack_shift(pack);
  const int msize = layout_msize(order, n, pack);
  std::vector<word> layout(static_cast<std::size_t>(layout_words(msize)), guard_mask(shift));
  layout[0] = static_cast<word>(msize);
  layout[1] = static_cast<word>(shift) | (order == monomial_order::tdeg ? tdeg_flag : 0u);
  return layout;
}
inline std::vector<word> make_test_layout(const ring_case& rc) { return test_layout(rc.order, rc.n, rc.pack); }

// Positive when a is greater than b in the order, from the exponents alone.
inline int reference_compare(monomial_order order, const exponents& a, const exponents& b) {
  if (order != monomial_order::plex) {
    std::uint64_t da = 0, db = 0;
    for (std::size_t i = 0; i < a.size(); ++i) da += a[i], db += b[i];
    if (da != db) return da > db ? 1 : -1;
  }
  if (order == monomial_order::tdeg) {
    for (std::size_t i = a.size(); i-- > 0;)
      if (a[i] != b[i]) return a[i] < b[i] ? 1 : -1;
    return 0;
  }
  for (std::size_t i = 0; i < a.size(); ++i)
    if (a[i] != b[i]) return a[i] > b[i] ? 1 : -1;
  return 0;
}

inline int sign(std::int64_t v) { return (v > 0) - (v < 0); }

struct decreasing {
  monomial_order order;
  bool operator()(const exponents& a, const exponents& b) const { return reference_compare(order, a, b) > 0; }
};

struct test_term {
  exponents e;
  std::int32_t c;  // coefficient value
};

struct test_poly {
  std::vector<test_term> terms;  // decreasing, distinct monomials; may be left empty for a large product
  std::vector<word> packed;      // msize + 1 words per term
  int msize = 0;

  std::int32_t count() const { return static_cast<std::int32_t>(packed.size() / static_cast<std::size_t>(msize + 1)); }
  term_run run() const { return {packed.data(), count()}; }
  // As a term block of that layout.
  term_block view(std::vector<word>& layout) const {
    return {const_cast<word*>(packed.data()), layout.data(), count(), nullptr};
  }
};

inline void pack_terms(test_poly& f, const ring_case& rc) {
  const int msize = layout_msize(rc.order, rc.n, rc.pack);
  const auto stride = static_cast<std::size_t>(msize + 1);
  f.msize = msize;
  f.packed.assign(f.terms.size() * stride, 0);
  for (std::size_t t = 0; t < f.terms.size(); ++t) {
    pack_routine_of(rc.order)(f.packed.data() + t * stride, f.terms[t].e.data(), rc.n, pack_shift(rc.pack));
    f.packed[t * stride + static_cast<std::size_t>(msize)] = make_immediate(f.terms[t].c);
  }
}

// count distinct monomials of total degree <= degree, coefficients drawn from
// [lo, hi], in decreasing order.
inline test_poly random_poly(std::mt19937& rng, const ring_case& rc, std::size_t count, std::uint32_t degree,
                             std::int32_t lo, std::int32_t hi) {
  std::set<exponents, decreasing> monomials{decreasing{rc.order}};
  std::uniform_int_distribution<std::uint32_t> var(0, static_cast<std::uint32_t>(rc.n - 1));
  std::uniform_int_distribution<std::uint32_t> deg(0, degree);
  for (std::size_t tries = 0; monomials.size() < count && tries < 20 * count; ++tries) {
    exponents e(static_cast<std::size_t>(rc.n), 0);
    for (std::uint32_t d = deg(rng); d > 0; --d) ++e[var(rng)];
    monomials.insert(e);
  }
  std::uniform_int_distribution<std::int32_t> coef(lo, hi);
  test_poly f;
  for (const exponents& e : monomials) f.terms.push_back({e, coef(rng)});
  pack_terms(f, rc);
  return f;
}

// Keeps the blocks a kernel writes, their capacities in order, the polls,
// and the diagnostic lines of the levels below `level` as they would print.
struct vector_sink {
  int msize;
  int level = 0;
  std::vector<std::vector<word>> blocks{};
  std::vector<std::int32_t> capacities{};
  std::int32_t last_count = -1;
  int polls = 0;
  std::string lines{};

  word* next_block(std::int32_t capacity) {
    capacities.push_back(capacity);
    blocks.emplace_back(static_cast<std::size_t>(capacity) * static_cast<std::size_t>(msize + 1) + 1);
    return blocks.back().data();
  }
  void poll() { ++polls; }
  template <class... Args>
  void note(int at, const char* format, Args... args) {
    char line[200];
    if (level > at) lines += (std::snprintf(line, sizeof line, format, args...), line);
  }
  void finish(std::int32_t written) { last_count = written; }

  // Every term written, block after block.
  std::vector<word> terms() const {
    std::vector<word> all;
    const auto stride = static_cast<std::size_t>(msize + 1);
    for (std::size_t b = 0; b < blocks.size(); ++b) {
      const std::size_t count = b + 1 == blocks.size() ? static_cast<std::size_t>(last_count)
                                                       : static_cast<std::size_t>(capacities[b]);
      all.insert(all.end(), blocks[b].begin(),
                 blocks[b].begin() + static_cast<std::ptrdiff_t>(count * stride));
    }
    return all;
  }
};

// The terms of a packed array read back as exponents and coefficient values.
inline std::vector<test_term> unpack_terms(const std::vector<word>& packed, const ring_case& rc) {
  const int msize = layout_msize(rc.order, rc.n, rc.pack);
  const auto stride = static_cast<std::size_t>(msize + 1);
  std::vector<test_term> out;
  for (std::size_t t = 0; t < packed.size() / stride; ++t) {
    exponents e(static_cast<std::size_t>(rc.n));
    unpack_routine_of(rc.order)(packed.data() + t * stride, e.data(), rc.n, pack_shift(rc.pack));
    out.push_back({e, immediate_value(packed[t * stride + static_cast<std::size_t>(msize)])});
  }
  return out;
}

}  // namespace vorn::test
