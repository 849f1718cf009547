// mul_vorn, ads_vorn and scl_vorn against the host's exact expand reduced mod
// p (every build) and FLINT's nmod_mpoly (native builds): random sparse and
// dense polynomials over 1 to 10 variables in every order, one and several
// words per monomial, small, large and composite moduli, negative, unreduced
// and big input coefficients; and the known term counts of two benchmark
// products.
#include <gmp.h>

#include <random>
#include <string>
#include <vector>

#include "entry_test_util.hpp"
#include "support/test_seed.hpp"

namespace {

using vorn::monomial_order;
using vorn::read_container;
using vorn::test::entry_test;

struct ring_spec {
  const char* name;
  monomial_order order;
};
constexpr ring_spec orders[] = {
    {"plex", monomial_order::plex}, {"grlex", monomial_order::grlex}, {"tdeg", monomial_order::tdeg}};

class EntryDifferential : public entry_test {
 protected:
  std::mt19937 rng;

  // A host polynomial of up to `count` distinct monomials of total degree at
  // most `degree`, coefficients of every kind the import reduces.
  word random_polynomial(const std::vector<word>& vars, std::size_t count, std::int32_t degree, std::int32_t p) {
    std::set<exponents> seen;
    std::vector<std::pair<exponents, word>> terms;
    std::uniform_int_distribution<std::size_t> var(0, vars.size() - 1);
    std::uniform_int_distribution<std::int32_t> deg(0, degree);
    std::uniform_int_distribution<std::int32_t> kind(0, 9);
    std::uniform_int_distribution<std::int32_t> small(-5, 5);
    std::uniform_int_distribution<std::int32_t> any(vorn::min_immediate, vorn::max_immediate);
    for (std::size_t tries = 0; terms.size() < count && tries < 20 * count; ++tries) {
      exponents e(vars.size(), 0);
      for (std::int32_t d = deg(rng); d > 0; --d) ++e[var(rng)];
      if (!seen.insert(e).second) continue;
      std::int64_t c = 0;
      switch (kind(rng)) {
        case 0: c = p; break;                                       // vanishes on import
        case 1: c = std::int64_t{p} * small(rng) + 1; break;        // unreduced
        case 2: c = (std::int64_t{1} << 40) + small(rng); break;    // big
        case 3: c = -(std::int64_t{3} << 50) - small(rng); break;   // big and negative
        case 4: case 5: c = any(rng); break;
        default: c = small(rng); break;
      }
      if (c == 0) c = 1;
      terms.push_back({e, integer(c)});
    }
    return polynomial(vars, terms);
  }

  // c = num / den mod p, from GMP.
  static std::int32_t fraction_mod(std::int32_t num, std::int32_t den, std::int32_t p) {
    mpz_t a, m;
    mpz_init_set_si(a, den);
    mpz_init_set_si(m, p);
    mpz_invert(a, a, m);
    mpz_mul_si(a, a, num);
    mpz_fdiv_r(a, a, m);
    const auto c = static_cast<std::int32_t>(mpz_get_si(a));
    mpz_clear(a);
    mpz_clear(m);
    return c;
  }

  void check_case(const ring_spec& rs, int n, std::int32_t p, word f, word g) {
    const std::vector<word> vars = variables(n);
    const word r = ring(rs.name, vars);
    const word A = import(f, r, 4, p);
    const word B = import(g, r, 4, p);
    const word P = call_ok("mul_vorn", {integer(p), A, B});
    const word S = call_ok("ads_vorn", {integer(p), integer(0), A, B});
    const word D = call_ok("ads_vorn", {integer(p), integer(1), A, B});
    const word C = call_ok("scl_vorn", {integer(p), integer(3), integer(7), A});
    const std::int32_t c = fraction_mod(3, 7, p);
    expect_same_terms(P, import(minikelto::expand(minikelto::multiply(f, g)), r, 4, p), p);
    expect_same_terms(S, import(minikelto::expand(minikelto::add(f, g)), r, 4, p), p);
    expect_same_terms(D, import(minikelto::expand(minikelto::subtract(f, g)), r, 4, p), p);
    expect_same_terms(C, import(minikelto::expand(minikelto::multiply(integer(c), f)), r, 4, p), p);

    // One word per field (several per monomial) gives the same product.
    const word wide = call_ok("mul_vorn", {integer(p), import(f, r, 1, p), import(g, r, 1, p)});
    EXPECT_EQ(call_ok("vorn2kelto", {wide}), call_ok("vorn2kelto", {P}));

#if defined(VORN_HAVE_FLINT)
    expect_flint(P, A, B, rs.order, n, p, nmod_mpoly_mul_johnson, "the product");
    expect_flint(S, A, B, rs.order, n, p, nmod_mpoly_add, "the sum");
    expect_flint(D, A, B, rs.order, n, p, nmod_mpoly_sub, "the difference");
    expect_flint(C, A, A, rs.order, n, p,
                 [c](nmod_mpoly_t out, const nmod_mpoly_t a, const nmod_mpoly_t, const nmod_mpoly_ctx_t x) {
                   nmod_mpoly_scalar_mul_ui(out, a, static_cast<ulong>(c), x);
                 },
                 "the scaled polynomial");
#endif
  }
};

TEST_F(EntryDifferential, RandomPolynomialsAgreeWithExpandAndFlint) {
  constexpr std::int32_t moduli[] = {2, 3, 32003, 1073741789, 1000000};
  const std::size_t terms = vorn::test::small_tests ? 40 : 200;
  for (std::uint32_t round = 1; round <= 30; ++round) {
    const std::uint32_t seed = vorn::test::test_seed(round);
    rng.seed(seed);
    const ring_spec& rs = orders[round % 3];
    const int n = 1 + static_cast<int>(round % 10);
    const std::int32_t p = moduli[round % 5];
    SCOPED_TRACE("round " + std::to_string(round) + ", " + vorn::test::seed_note(seed) + ": " + rs.name + " in " + std::to_string(n) + " variables mod " +
                 std::to_string(p));
    const std::vector<word> vars = variables(n);
    const std::int32_t degree = n == 1 ? 60 : 12;
    check_case(rs, n, p, random_polynomial(vars, terms, degree, p), random_polynomial(vars, terms / 2 + 1, degree, p));
    if (HasFailure()) return;
  }
}

TEST_F(EntryDifferential, DensePolynomialsAgreeWithExpandAndFlint) {
  // Many products per monomial: long chains in the heap and large sums.
  const std::int32_t d = vorn::test::small_tests ? 6 : 12;
  for (std::uint32_t round = 1; round <= 3; ++round) {
    const std::uint32_t seed = vorn::test::test_seed(round);
    rng.seed(seed);
    const ring_spec& rs = orders[round - 1];
    const int n = 2 + static_cast<int>(round);
    SCOPED_TRACE(std::string(rs.name) + " in " + std::to_string(n) + " variables, " + vorn::test::seed_note(seed));
    const std::vector<word> vars = variables(n);
    const word f = minikelto::subtract(dense_power(vars, d), integer(1073741789));
    check_case(rs, n, 1073741789, f, random_polynomial(vars, vorn::test::small_tests ? 30 : 300, d, 1073741789));
  }
}

// f·(f + 1), f = (1 + x + y + z + t)^20: 10626 terms squared.
TEST_F(EntryDifferential, DenseFourVariableProductHasItsKnownTermCount) {
#if defined(__SANITIZE_ADDRESS__) || defined(VORN_SMALL_TESTS)
  GTEST_SKIP() << "a large product: Release builds only";
#endif
  const std::vector<word> vars = variables(4);
  const word r = ring("tdeg", vars);
  const word f = dense_power(vars, 20);
  const word A = import(f, r, 4, 32003);
  const word B = import(minikelto::add(f, integer(1)), r, 4, 32003);
  const word P = call_ok("mul_vorn", {integer(32003), A, B});
  EXPECT_EQ(term_count(P), 135751);
  const vorn::container_fault fault = vorn::check_container(cbt(), P, {32003, true});
  EXPECT_TRUE(fault.ok()) << fault.problem;
#if defined(VORN_HAVE_FLINT)
  expect_flint(P, A, B, monomial_order::tdeg, 4, 32003, nmod_mpoly_mul_johnson, "the product");
#endif
}

// (1+x+y+2z^2+3t^3+5u^5)^12 · (1+u+t+2z^2+3y^3+5x^5)^12: 6188 terms each.
TEST_F(EntryDifferential, SparseFiveVariableProductHasItsKnownTermCounts) {
#if defined(__SANITIZE_ADDRESS__) || !defined(NDEBUG) || UINTPTR_MAX == 0xffffffffu
  GTEST_SKIP() << "38 million products: the native Release build only";
#endif
  const std::vector<word> v = variables(5);  // x, y, z, t, u
  const auto factor = [&](word a, word b, word c, word d, word e) {
    word s = minikelto::add(integer(1), minikelto::add(a, b));
    s = minikelto::add(s, minikelto::multiply(integer(2), minikelto::power(c, integer(2))));
    s = minikelto::add(s, minikelto::multiply(integer(3), minikelto::power(d, integer(3))));
    s = minikelto::add(s, minikelto::multiply(integer(5), minikelto::power(e, integer(5))));
    return minikelto::expand(minikelto::power(s, integer(12)));
  };
  const word f = factor(v[0], v[1], v[2], v[3], v[4]);
  const word g = factor(v[4], v[3], v[2], v[1], v[0]);
  const word r = ring("plex", v);
  for (const auto& [p, count] : {std::pair{1073741789, 5821335}, std::pair{32003, 5821301}}) {
    SCOPED_TRACE("mod " + std::to_string(p));
    const word A = import(f, r, 4, p);
    const word B = import(g, r, 4, p);
    const word P = call_ok("mul_vorn", {integer(p), A, B});
    EXPECT_EQ(term_count(P), count);
#if defined(VORN_HAVE_FLINT)
    expect_flint(P, A, B, monomial_order::plex, 5, p, nmod_mpoly_mul_johnson, "the product");
#endif
  }
}

}  // namespace
