// expand and the canonical arithmetic, checked against evaluation at random
// integer points mod a prime (an oracle that shares no code with them), known
// term counts and coefficients, and the uniqueness of canonical values.
#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>

#include "minikelto/expand.hpp"
#include "minikelto/host.hpp"
#include "minikelto/polynomial.hpp"
#include "support/test_seed.hpp"

namespace mk = minikelto;

namespace {

constexpr std::uint64_t prime = 1000000007;

mk::word var(const char* name) { return mk::unique(mk::make_name(name)); }
mk::word num(std::int64_t v) { return mk::unique(mk::make_integer(v)); }

// The value of a host expression at a point (names by their first letter) mod prime.
std::uint64_t value_at(mk::word e, const std::uint64_t point[26]) {
  if (mk::is_integer(e)) {
    mpz_t z;
    mpz_init(z);
    mk::integer_value(e, z);
    const std::uint64_t r = mpz_fdiv_ui(z, prime);
    mpz_clear(z);
    return r;
  }
  const mk::word* w = mk::object_words(e);
  const std::int32_t n = mk::length_of(e);
  switch (mk::type_of(e)) {
    case mk::sum: {
      std::uint64_t s = 0;
      for (std::int32_t i = 1; i + 1 < n; i += 2) s = (s + value_at(w[i], point) * value_at(w[i + 1], point)) % prime;
      return s;
    }
    case mk::prod: {
      std::uint64_t p = 1;
      for (std::int32_t i = 1; i + 1 < n; i += 2) {
        const std::uint64_t b = value_at(w[i], point);
        for (std::int32_t k = 0; k < mk::immediate_value(w[i + 1]); ++k) p = p * b % prime;
      }
      return p;
    }
    default:
      return point[mk::name_text(e)[0] - 'a'];
  }
}

class Expand : public ::testing::Test {
 protected:
  void SetUp() override { mk::reset(); }
};

// A random expression of sums, products and small powers over a few names.
mk::word random_expression(std::mt19937& rng, int depth) {
  const char* names[] = {"a", "b", "c", "x"};
  std::uniform_int_distribution<int> pick(0, depth > 0 ? 5 : 1);
  switch (pick(rng)) {
    case 0: return num(std::uniform_int_distribution<std::int64_t>(-(1ll << 40), 1ll << 40)(rng));
    case 1: return var(names[std::uniform_int_distribution<int>(0, 3)(rng)]);
    case 2:
    case 3: return mk::add(random_expression(rng, depth - 1), random_expression(rng, depth - 1));
    case 4: return mk::multiply(random_expression(rng, depth - 1), random_expression(rng, depth - 1));
    default: return mk::power(random_expression(rng, depth - 1), num(std::uniform_int_distribution<int>(0, 4)(rng)));
  }
}

}  // namespace

// Nested powers can ask for millions of terms: the interrupt countdown ends
// such a case (about a million term operations), which is then drawn anew.
TEST_F(Expand, agrees_with_evaluation_on_random_expressions) {
  const std::uint32_t seed = vorn::test::test_seed(4711);
  std::mt19937 rng(seed);
  int interrupted = 0;
  for (int iteration = 0; iteration < 300; ++iteration) {
    const mk::word e = random_expression(rng, 4);
    mk::word x = 0;
    mk::interrupt_from_poll(16);
    try {
      x = mk::expand(e);
    } catch (const mk::interrupted&) {
      ++interrupted;
      continue;
    }
    mk::clear_interrupt();
    std::uint64_t point[26];
    for (auto& p : point) p = std::uniform_int_distribution<std::uint64_t>(0, prime - 1)(rng);
    ASSERT_EQ(value_at(x, point), value_at(e, point)) << vorn::test::seed_note(seed) << " iteration " << iteration;
    // Expanding twice changes nothing, and equal values are one handle.
    ASSERT_EQ(mk::expand(x), x) << vorn::test::seed_note(seed) << " iteration " << iteration;
  }
  mk::clear_interrupt();
  EXPECT_LT(interrupted, 30) << vorn::test::seed_note(seed);
}

TEST_F(Expand, known_term_counts_and_coefficients) {
  const mk::word x = var("x"), y = var("y"), z = var("z"), t = var("t");
  const mk::word f = mk::add(mk::add(mk::add(mk::add(num(1), x), y), z), t);
  EXPECT_EQ(mk::length_of(mk::expand(mk::power(f, num(10)))), 2 * 1001 + 1);

  // (1 + x)^70: the middle binomial coefficient needs more than 64 bits.
  const mk::word b = mk::expand(mk::power(mk::add(num(1), x), num(70)));
  ASSERT_EQ(mk::length_of(b), 2 * 71 + 1);
  mpz_t want, got;
  mpz_inits(want, got, nullptr);
  mpz_bin_uiui(want, 70, 35);
  mk::integer_value(mk::object_words(b)[2 * 36], got);
  EXPECT_EQ(mpz_cmp(want, got), 0);
  mpz_clears(want, got, nullptr);
}

// Exponents of any size make values (x^(2^40) is a product with a big
// exponent, and exponents add exactly); expand refuses what it cannot hold.
TEST_F(Expand, big_exponents_are_values_that_expand_refuses) {
  const mk::word x = var("x");
  EXPECT_THROW(mk::power(x, num(-1)), std::invalid_argument);
  EXPECT_THROW(mk::power(x, x), std::invalid_argument);
  EXPECT_THROW(mk::power(num(3), num(1 << 20)), std::invalid_argument);
  const mk::word big = num(std::int64_t{1} << 40);
  const mk::word p = mk::power(x, big);
  EXPECT_EQ(mk::describe(p), "x^1099511627776");
  EXPECT_EQ(mk::multiply(p, p), mk::power(x, num(std::int64_t{1} << 41)));
  EXPECT_EQ(mk::power(num(-1), mk::add(big, num(1))), num(-1));
  EXPECT_THROW(mk::expand(p), std::invalid_argument);
  const mk::word q = mk::power(x, num(1 << 29));
  EXPECT_THROW(mk::expand(mk::multiply(q, mk::multiply(q, q))), std::invalid_argument);
  // A PROD with a negative exponent, as the plug-in could build, is refused by expand.
  const std::pair<mk::word, mk::word> pair{x, mk::make_immediate(-2)};
  EXPECT_THROW(mk::expand(mk::unique(mk::make_prod({&pair, 1}))), std::invalid_argument);
}

