// Exact division, through a vector sink: (Q·B)/B gives Q back in every order
// and width, wherever the quotient heap switches to the divisor heap, with
// one poll per new block; Q·B + R is refused; sums of thousands of products
// near p^2 stay exact.  On 64-bit builds FLINT answers the same divisions.
// The entry's messages are the entry checks'.
#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>

#include "arith/divide.hpp"
#include "arith/multiply.hpp"
#include "host/error.hpp"
#include "support/packed_terms.hpp"
#include "support/test_seed.hpp"

#ifdef VORN_HAVE_FLINT
#include "support/flint_oracle.hpp"
#endif

namespace vorn {
namespace {

using namespace vorn::test;

constexpr std::int32_t big_prime = 1073741789;

using term_map = std::map<exponents, std::int64_t>;

term_map as_map(const std::vector<test_term>& terms) {
  term_map out;
  for (const test_term& t : terms) out[t.e] = t.c;
  return out;
}

test_poly from_terms(const std::vector<test_term>& terms, const ring_case& rc) {
  test_poly f;
  f.terms = terms;
  std::sort(f.terms.begin(), f.terms.end(), [&](const test_term& a, const test_term& b) {
    return reference_compare(rc.order, a.e, b.e) > 0;
  });
  pack_terms(f, rc);
  return f;
}

// Q·B mod p; the terms are unpacked only when asked (large products stay packed).
test_poly times(const test_poly& Q, const test_poly& B, const ring_case& rc, std::int32_t p, bool unpack = true) {
  const std::vector<word> layout = make_test_layout(rc);
  vector_sink out{layout_msize(layout.data())};
  tracked_list scratch;
  multiply_terms(Q.run(), B.run(), shape_of(layout.data()), p, scratch, out);
  test_poly f;
  f.packed = out.terms();
  f.msize = out.msize;
  if (unpack) f.terms = unpack_terms(f.packed, rc);
  return f;
}

// f + g mod p, from the exponents.
test_poly plus(const test_poly& f, const test_poly& g, const ring_case& rc, std::int32_t p) {
  term_map sum = as_map(f.terms);
  for (const test_term& t : g.terms) sum[t.e] = (sum[t.e] + t.c) % p;
  std::vector<test_term> terms;
  for (const auto& [e, c] : sum)
    if (c != 0) terms.push_back({e, static_cast<std::int32_t>(c)});
  return from_terms(terms, rc);
}

// Terms that B cannot divide: none of them is divisible by B's leading
// monomial.  None when that monomial is 1.
test_poly remainder_for(std::mt19937& rng, const test_poly& B, const ring_case& rc, std::size_t count,
                        std::int32_t p) {
  const test_poly R = random_poly(rng, rc, count, 6, 1, p - 1);
  std::vector<test_term> kept;
  for (const test_term& t : R.terms)
    for (std::size_t i = 0; i < t.e.size(); ++i)
      if (t.e[i] < B.terms[0].e[i]) {
        kept.push_back(t);
        break;
      }
  return from_terms(kept, rc);
}

class Division : public ::testing::Test {
 protected:
  vector_sink last{0};  // the sink of the last division

  // The kernel's answer: the quotient's terms, or none.
  std::optional<std::vector<test_term>> divide(const test_poly& A, const test_poly& B, const ring_case& rc,
                                               std::int32_t p, std::int32_t first_block = 0, int level = 0) {
    const std::vector<word> layout = make_test_layout(rc);
    last = vector_sink{layout_msize(layout.data()), level};
    tracked_list scratch;
    if (!divide_terms(A.run(), B.run(), shape_of(layout.data()), p, scratch, last, {first_block}))
      return std::nullopt;
    EXPECT_EQ(last.polls, static_cast<int>(last.blocks.size()) - 1) << "one poll per block after the first";
    return unpack_terms(last.terms(), rc);
  }

  // The kernel's message for a division that must raise.
  std::string divide_error(const test_poly& A, const test_poly& B, const ring_case& rc, std::int32_t p) {
    try {
      divide(A, B, rc, p);
    } catch (const error& e) {
      return e.message;
    }
    return "";
  }

  void expect_quotient(const test_poly& A, const test_poly& B, const test_poly& Q, const ring_case& rc,
                       std::int32_t p, std::int32_t first_block = 0, int level = 0) {
    const auto q = divide(A, B, rc, p, first_block, level);
    ASSERT_TRUE(q.has_value()) << "first block " << first_block;
    ASSERT_EQ(q->size(), Q.terms.size()) << "first block " << first_block;
    for (std::size_t i = 0; i < q->size(); ++i) {
      ASSERT_EQ((*q)[i].e, Q.terms[i].e) << "term " << i << ", first block " << first_block;
      ASSERT_EQ((*q)[i].c, Q.terms[i].c) << "term " << i << ", first block " << first_block;
    }
  }
};

TEST_F(Division, SmallCases) {
  const ring_case rc{monomial_order::plex, 3, 4};
  const std::uint32_t seed = test::test_seed(7);
  SCOPED_TRACE(test::seed_note(seed));
  std::mt19937 rng(seed);
  const test_poly B = from_terms({{{1, 2, 0}, 3}}, rc);
  const test_poly Q = random_poly(rng, rc, 60, 20, 1, 100);
  // One-term divisor: no stream ever enters the heap.
  expect_quotient(times(Q, B, rc, 101), B, Q, rc, 101);
  EXPECT_FALSE(divide(plus(times(Q, B, rc, 101), from_terms({{{0, 0, 1}, 5}}, rc), rc, 101), B, rc, 101));
  // A = B: the one quotient stream cancels all the rest.
  const test_poly F = random_poly(rng, rc, 200, 20, 1, 100);
  expect_quotient(F, F, from_terms({{{0, 0, 0}, 1}}, rc), rc, 101);
  // A leading monomial that B's does not divide ends the first pass.
  EXPECT_FALSE(divide(from_terms({{{0, 5, 0}, 1}, {{0, 0, 0}, 1}}, rc), B, rc, 101));
  // Unreduced and negative coefficients; the leading one must be a unit.
  const test_poly N = from_terms({{{1, 0, 0}, -205}, {{0, 1, 0}, 1000}}, rc);
  EXPECT_TRUE(divide(times(Q, N, rc, 101), N, rc, 101));
  EXPECT_EQ(divide_error(F, from_terms({{{1, 0, 0}, 202}, {{0, 0, 0}, 1}}, rc), rc, 101), "division by zero");
  // A quotient term whose products would overflow a field.
  const ring_case narrow{monomial_order::plex, 2, 4};
  EXPECT_EQ(divide_error(from_terms({{{1, 30}, 1}}, narrow), from_terms({{{1, 0}, 1}, {{0, 100}, 1}}, narrow),
                         narrow, 101),
            "exponent overflow");
}

// Divisors longer and shorter than a first block, the switch early, late and
// never: one quotient.
TEST_F(Division, SwitchPlacementDoesNotChangeTheQuotient) {
  const ring_case rc{monomial_order::grlex, 4, 4};
  struct sizes {
    std::size_t b, q;
  };
  const sizes cases[] = {small_tests ? sizes{1030, 1100} : sizes{1500, 5000}, {300, small_tests ? 1500u : 3000u}};
  const std::uint32_t seed = test::test_seed(11);
  SCOPED_TRACE(test::seed_note(seed));
  std::mt19937 rng(seed);
  for (const sizes& s : cases) {
    const test_poly B = random_poly(rng, rc, s.b, 20, 1, 32002);
    const test_poly Q = random_poly(rng, rc, s.q, 25, 1, 32002);
    const test_poly A = times(Q, B, rc, 32003);
    expect_quotient(A, B, Q, rc, 32003, 0, 5);
    EXPECT_NE(last.lines.find("switch!"), std::string::npos);
    if (s.b <= 1024) {
      EXPECT_EQ(last.capacities[0], 300);
      EXPECT_EQ(last.lines, "switch! qn=" + std::to_string(last.capacities[1]) + " terms, dn=299 terms, heap=599\n");
    }
    const auto never = static_cast<std::int32_t>(Q.terms.size()) + 1;
    for (std::int32_t first : {1, 2, 37, 1024, never}) expect_quotient(A, B, Q, rc, 32003, first);
  }
}

TEST_F(Division, ExactSumsNearP) {
  const ring_case rc{monomial_order::plex, 1, 1};
  const std::uint32_t n = small_tests ? 1000 : 4000;
  std::vector<test_term> q, b;
  for (std::uint32_t i = 0; i < n; ++i) {
    q.push_back({{i}, big_prime - 1});
    b.push_back({{i}, i % 2 == 0 ? big_prime - 1 : -(big_prime - 1)});
  }
  const test_poly Q = from_terms(q, rc);
  const test_poly B = from_terms(b, rc);
  expect_quotient(times(Q, B, rc, big_prime), B, from_terms(q, rc), rc, big_prime);
}

#ifdef VORN_HAVE_FLINT
// FLINT's answer for A / B, as exponents and residues.
std::optional<term_map> flint_divides(const test_poly& A, const test_poly& B, const ring_case& rc, std::int32_t p) {
  std::vector<word> layout = make_test_layout(rc);
  flint_context ctx(rc.n, rc.order, p);
  flint_poly a(ctx), b(ctx), q(ctx);
  load(a, A.view(layout), rc.order, rc.n, p);
  load(b, B.view(layout), rc.order, rc.n, p);
  if (!nmod_mpoly_divides(q.a, a.a, b.a, ctx.ctx)) return std::nullopt;
  term_map out;
  std::vector<ulong> e(static_cast<std::size_t>(rc.n));
  for (slong i = 0; i < nmod_mpoly_length(q.a, ctx.ctx); ++i) {
    nmod_mpoly_get_term_exp_ui(e.data(), q.a, i, ctx.ctx);
    out[exponents(e.begin(), e.end())] = static_cast<std::int64_t>(nmod_mpoly_get_term_coeff_ui(q.a, i, ctx.ctx));
  }
  return out;
}
#endif

// Random Q and B in every order and width: (Q·B)/B = Q, (Q·B + R)/B refused.
TEST_F(Division, RandomProductsDivideBack) {
  const ring_case rings[] = {{monomial_order::plex, 4, 4}, {monomial_order::grlex, 3, 4},
                             {monomial_order::tdeg, 4, 4}, {monomial_order::tdeg, 5, 3},
                             {monomial_order::plex, 3, 1}, {monomial_order::grlex, 6, 2}};
  const std::int32_t primes[] = {2, 32003, big_prime};
  const std::size_t sizes[] = {1, 8, 120, small_tests ? 700u : 4000u};
  const std::uint32_t seed = test::test_seed(2024);
  SCOPED_TRACE(test::seed_note(seed));
  std::mt19937 rng(seed);
  std::uniform_int_distribution<std::int32_t> first_block(0, 40);
  int iteration = 0;
  for (const ring_case& rc : rings)
    for (std::int32_t p : primes)
      for (std::size_t nq : sizes) {
        ++iteration;
        const std::size_t nb = sizes[(static_cast<std::size_t>(iteration) * 7) % 4];
        const std::uint32_t degree = nq > 1000 || nb > 1000 ? 12 : 8;  // dense at the small end
        const test_poly Q = random_poly(rng, rc, nq, degree, 1, p - 1);
        const test_poly B = random_poly(rng, rc, nb, degree, 1, p - 1);
        const test_poly A = times(Q, B, rc, p);
        const test_poly R = remainder_for(rng, B, rc, 5, p);
        const test_poly AR = plus(A, R, rc, p);
        SCOPED_TRACE("iteration " + std::to_string(iteration) + ", p " + std::to_string(p));
        const std::int32_t first = first_block(rng);
        expect_quotient(A, B, Q, rc, p, first);
        if (!R.terms.empty()) {
          EXPECT_FALSE(divide(AR, B, rc, p, first));
        }
#ifdef VORN_HAVE_FLINT
        EXPECT_EQ(flint_divides(A, B, rc, p), as_map(Q.terms));
        if (!R.terms.empty()) {
          EXPECT_FALSE(flint_divides(AR, B, rc, p));
        }
#endif
      }
}

// The benchmark divisions, full size.
TEST_F(Division, BenchmarkQuotients) {
#ifndef NDEBUG
  GTEST_SKIP() << "native Release only";
#endif
  if (small_tests) GTEST_SKIP() << "native Release only";
  auto power = [&](const test_poly& f, int k, const ring_case& rc) {
    test_poly r = f;
    for (int i = 1; i < k; ++i) r = times(r, f, rc, big_prime);
    return r;
  };
  const ring_case dense{monomial_order::tdeg, 4, 4};
  const test_poly f = power(
      from_terms({{{0, 0, 0, 0}, 1}, {{1, 0, 0, 0}, 1}, {{0, 1, 0, 0}, 1}, {{0, 0, 1, 0}, 1}, {{0, 0, 0, 1}, 1}},
                 dense),
      20, dense);
  const test_poly g = plus(f, from_terms({{{0, 0, 0, 0}, 1}}, dense), dense, big_prime);
  expect_quotient(times(f, g, dense, big_prime, false), f, g, dense, big_prime);

  const ring_case sparse{monomial_order::tdeg, 5, 4};
  const test_poly u = power(from_terms({{{0, 0, 0, 0, 0}, 1}, {{1, 0, 0, 0, 0}, 1}, {{0, 1, 0, 0, 0}, 1},
                                        {{0, 0, 2, 0, 0}, 2}, {{0, 0, 0, 3, 0}, 3}, {{0, 0, 0, 0, 5}, 5}},
                                       sparse),
                            12, sparse);
  const test_poly v = power(from_terms({{{0, 0, 0, 0, 0}, 1}, {{0, 0, 0, 0, 1}, 1}, {{0, 0, 0, 1, 0}, 1},
                                        {{0, 0, 2, 0, 0}, 2}, {{0, 3, 0, 0, 0}, 3}, {{5, 0, 0, 0, 0}, 5}},
                                       sparse),
                            12, sparse);
  expect_quotient(times(u, v, sparse, big_prime, false), u, v, sparse, big_prime);
}

}  // namespace
}  // namespace vorn
