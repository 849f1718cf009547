// The accumulator's carries and reductions, the block growth values and the inverse.
#include "arith/acc96.hpp"

#include <gmp.h>
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "arith/grow.hpp"
#include "arith/mod_inverse.hpp"
#include "host/words.hpp"
#include "support/test_seed.hpp"

namespace vorn {
namespace {

constexpr std::int32_t primes[] = {2, 3, 32003, 1073741789, 2147483647};

std::int32_t reduce_sum(std::int32_t p,
                        std::initializer_list<std::pair<std::int32_t, std::int32_t>> products) {
  acc96 a;
  acc_clear(a);
  for (auto [x, y] : products) acc_add_product(a, x, y);
  return acc_reduce(a, make_modulus(p));
}

TEST(Acc96, SignAndCarryBoundaries) {
  for (std::int32_t p : primes) {
    SCOPED_TRACE(p);
    acc96 a;
    acc_clear(a);
    acc_add(a, -1);
    EXPECT_EQ(acc_reduce(a, make_modulus(p)), p - 1);

    // 2^64 = 4 * (-2^31)^2: the low 64 bits wrap to 0, the top word is 1.
    constexpr std::int32_t low = INT32_MIN;
    mpz_t expected;
    mpz_init_set_ui(expected, 1);
    mpz_mul_2exp(expected, expected, 64);
    EXPECT_EQ(reduce_sum(p, {{low, low}, {low, low}, {low, low}, {low, low}}),
              static_cast<std::int32_t>(mpz_fdiv_ui(expected, static_cast<unsigned long>(p))));
    mpz_clear(expected);

    // Negative multiples of p, also across the 64-bit boundary, reduce to 0.
    acc_clear(a);
    for (int i = 0; i < 40; ++i) acc_sub_product(a, p, max_immediate);
    EXPECT_EQ(acc_reduce(a, make_modulus(p)), 0);
    acc_clear(a);
    acc_sub_product(a, p, 1);
    EXPECT_EQ(acc_reduce(a, make_modulus(p)), 0);
  }
}

// Unsigned products carry into the top word and borrow below zero exactly
// as the signed ones do.
TEST(Acc96, UnsignedProductsAcrossTheWordBoundaries) {
  constexpr std::uint32_t x = 0x7fffffffu;
  // x·x in GMP by 32-bit halves: unsigned long has 32 bits on i386.
  mpz_t product, expected;
  mpz_init_set_ui(product, x);
  mpz_mul_ui(product, product, x);
  mpz_init(expected);
  for (std::int32_t p : primes) {
    SCOPED_TRACE(p);
    const auto residue_of = [&] {
      return static_cast<std::int32_t>(mpz_fdiv_ui(expected, static_cast<unsigned long>(p)));
    };
    acc96 a;
    acc_clear(a);
    mpz_set_ui(expected, 0);
    for (int i = 0; i < 9; ++i) {  // 9·(2^31 − 1)^2 > 2^64
      acc_add_unsigned_product(a, x, x);
      mpz_add(expected, expected, product);
    }
    EXPECT_EQ(acc_reduce(a, make_modulus(p)), residue_of());
    for (int i = 0; i < 12; ++i) {  // below zero
      acc_sub_unsigned_product(a, x, x);
      mpz_sub(expected, expected, product);
    }
    EXPECT_EQ(acc_reduce(a, make_modulus(p)), residue_of());
  }
  mpz_clear(expected);
  mpz_clear(product);
}

// The division-free reductions against the remainder they replace, at the
// edges of their ranges and at random.
TEST(Acc96, ReductionsWithoutDivision) {
  const std::uint32_t seed = test::test_seed(11);
  SCOPED_TRACE(test::seed_note(seed));
  std::mt19937_64 rng(seed);
  for (std::int32_t p : primes) {
    SCOPED_TRACE(p);
    const modulus m = make_modulus(p);
    const auto up = static_cast<std::uint64_t>(p);
    std::vector<std::uint64_t> xs = {0, 1, up - 1, up, up + 1, 2 * up - 1, 2 * up, UINT64_MAX, UINT64_MAX - 1,
                                     UINT64_MAX / up * up, UINT64_MAX / up * up - 1, std::uint64_t{1} << 63};
    for (int i = 0; i < 20000; ++i) xs.push_back(rng() >> (i % 64));
    for (std::uint64_t x : xs) ASSERT_EQ(reduce64(x, m), x % up) << x;

    if (p >= (1 << 30)) continue;  // sums of immediates need p < 2^30
    std::vector<std::int32_t> vs = {0, 1, -1, p - 1, p, p + 1, -p, -p + 1, -p - 1, 2 * p - 1, 2 * p, -2 * p,
                                    max_immediate, -max_immediate};
    std::uniform_int_distribution<std::int32_t> immediate(-max_immediate, max_immediate);
    for (int i = 0; i < 20000; ++i) vs.push_back(immediate(rng));
    for (std::int32_t v : vs) ASSERT_EQ(residue(v, p), (v % p + p) % p) << v;
  }
}

TEST(GrowEstimate, SizesOfTheNextBlock) {
  EXPECT_EQ(grow_estimate(1, 1), 2);  // 1.5, ties to even
  EXPECT_EQ(grow_estimate(1, 2), 1);  // 1.25
  EXPECT_EQ(grow_estimate(3, 1), 4);  // 4.5, ties to even
  EXPECT_EQ(grow_estimate(1024, 1), 1536);
  EXPECT_EQ(grow_estimate(1024, 2), 1280);
  EXPECT_EQ(grow_estimate(1024, 4), 1152);
  EXPECT_EQ(grow_estimate(1024, 1000000), 1024);
  EXPECT_EQ(grow_estimate(400000, 1), 524288);
  EXPECT_EQ(grow_estimate(524288, 3), 524288);
}

TEST(ModInverse, InversesAndMultiples) {
  const std::uint32_t seed = test::test_seed(7);
  SCOPED_TRACE(test::seed_note(seed));
  std::mt19937 rng(seed);
  std::uniform_int_distribution<std::int32_t> any(INT32_MIN + 1, INT32_MAX);
  for (std::int32_t p : primes) {
    SCOPED_TRACE(p);
    for (int i = 0; i < 2000; ++i) {
      const std::int32_t a = any(rng);
      const std::int64_t r = (std::int64_t{a} % p + p) % p;
      const std::int32_t inv = mod_inverse(a, p);
      if (r == 0) {
        EXPECT_EQ(inv, 0);
        continue;
      }
      ASSERT_GE(inv, 1);
      ASSERT_LT(inv, p);
      EXPECT_EQ(r * inv % p, 1) << "a " << a;
    }
    EXPECT_EQ(mod_inverse(0, p), 0);
    EXPECT_EQ(mod_inverse(p, p), 0);
    EXPECT_EQ(mod_inverse(-p, p), 0);
    EXPECT_EQ(mod_inverse(-1, p), p - 1);
  }
}

}  // namespace
}  // namespace vorn
