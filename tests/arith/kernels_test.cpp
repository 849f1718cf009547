// The product, merge and scaling kernels on term arrays built without a host,
// against naive sums over exponent vectors; block sizes and the release of
// every allocation when a sink raises.
#include <gtest/gtest.h>

#include <map>

#include "arith/add.hpp"
#include "arith/arith_util.hpp"
#include "arith/mod_inverse.hpp"
#include "arith/mul.hpp"
#include "arith/scale.hpp"
#include "host/error.hpp"
#include "host/memory.hpp"

namespace vorn {
namespace {

using namespace vorn::test;

constexpr std::int32_t primes[] = {2, 3, 32003, 1073741789};

// One result monomial of the naive product: its residue and how many
// products met there.
struct naive_term {
  std::int64_t residue = 0;
  std::int32_t products = 0;
};
using naive_result = std::map<exponents, naive_term, decreasing>;

naive_result naive_product(const test_poly& A, const test_poly& B, const ring_case& rc, std::int32_t p) {
  naive_result out{decreasing{rc.order}};
  for (const test_term& a : A.terms)
    for (const test_term& b : B.terms) {
      exponents e = a.e;
      for (std::size_t i = 0; i < e.size(); ++i) e[i] += b.e[i];
      naive_term& t = out[e];
      t.residue = ((t.residue + static_cast<std::int64_t>(a.c) * b.c % p) % p + p) % p;
      ++t.products;
    }
  return out;
}

// The blocks the product must use: the first of min(nA·nB, 1024) terms, then
// after each filled block the growth for the count of the term that filled it,
// capped by the products not yet covered by filled blocks.
std::vector<std::int32_t> expected_blocks(const naive_result& r, std::int64_t products) {
  std::int64_t remaining = products;
  std::vector<std::int32_t> caps{first_block_terms(products)};
  std::int32_t written = 0;
  std::size_t left = r.size();
  for (const auto& [e, t] : r) {
    --left;
    if (t.residue != 0) ++written;
    if (written == caps.back() && left > 0) {
      remaining -= written;
      caps.push_back(
          static_cast<std::int32_t>(std::min<std::int64_t>(grow_estimate(written, t.products), remaining)));
      written = 0;
    }
  }
  return caps;
}

void check_product(const test_poly& A, const test_poly& B, const ring_case& rc, std::int32_t p) {
  const std::vector<word> layout = make_test_layout(rc);
  vector_sink out{layout_msize(layout.data()), {}, {}};
  tracked_list scratch;
  multiply_terms(A.run(), B.run(), shape_of(layout.data()), p, scratch, out);

  const naive_result want = naive_product(A, B, rc, p);
  std::vector<test_term> expected;
  for (const auto& [e, t] : want)
    if (t.residue != 0) expected.push_back({e, static_cast<std::int32_t>(t.residue)});
  const std::vector<test_term> got = unpack_terms(out.terms(), rc);
  ASSERT_EQ(got.size(), expected.size());
  for (std::size_t i = 0; i < got.size(); ++i) {
    ASSERT_EQ(got[i].e, expected[i].e) << "term " << i;
    ASSERT_EQ(got[i].c, expected[i].c) << "term " << i;
  }
  EXPECT_EQ(out.capacities,
            expected_blocks(want, static_cast<std::int64_t>(A.terms.size()) * B.terms.size()));
}

const ring_case rings[] = {
    {monomial_order::plex, 3, 4},   // msize 1
    {monomial_order::grlex, 3, 4},  // msize 1
    {monomial_order::tdeg, 3, 4},   // msize 2
    {monomial_order::plex, 6, 3},   // msize 2, fields not filling the word
    {monomial_order::grlex, 5, 2},  // msize 3
    {monomial_order::tdeg, 4, 2},   // msize 3
    {monomial_order::tdeg, 8, 2},   // msize 5
    {monomial_order::plex, 5, 1},   // msize 5
};

TEST(MulKernel, RandomProductsMatchTheNaiveSum) {
  std::mt19937 rng(2024);
  const std::size_t most = small_tests ? 60 : 200;
  for (const ring_case& rc : rings) {
    for (std::int32_t p : primes) {
      for (int round = 0; round < 3; ++round) {
        SCOPED_TRACE(testing::Message() << "order " << static_cast<int>(rc.order) << " n " << rc.n << " pack "
                                        << rc.pack << " p " << p << " round " << round);
        const std::uint32_t degree = rc.pack >= 4 ? 12 : 20;
        // Unreduced and negative coefficients on one side, residues on the other.
        const test_poly A = random_poly(rng, rc, 1 + rng() % most, degree, min_immediate, max_immediate);
        const test_poly B = random_poly(rng, rc, 1 + rng() % most, degree, 0, p - 1);
        check_product(A, B, rc, p);
      }
    }
  }
}

TEST(MulKernel, DenseProductSpansSeveralGrowingBlocks) {
  // Many products per monomial: blocks grow slowly and the count k matters.
  std::mt19937 rng(99);
  const ring_case rc{monomial_order::tdeg, 3, 4};
  const std::size_t size = small_tests ? 300 : 1000;
  const test_poly A = random_poly(rng, rc, size, 14, 1, 32002);
  const test_poly B = random_poly(rng, rc, size, 14, -5, 5);
  check_product(A, B, rc, 32003);
}

TEST(MulKernel, BlockBoundaries) {
  const ring_case rc{monomial_order::plex, 2, 2};
  auto powers = [&](std::size_t var, std::uint32_t count, std::int32_t c) {
    test_poly f;
    for (std::uint32_t d = count; d-- > 0;) {
      exponents e(2, 0);
      e[var] = d;
      f.terms.push_back({e, c});
    }
    pack_terms(f, rc);
    return f;
  };
  const std::vector<word> layout = make_test_layout(rc);
  auto blocks = [&](const test_poly& A, const test_poly& B, std::int32_t p) {
    vector_sink out{1, {}, {}};
    tracked_list scratch;
    multiply_terms(A.run(), B.run(), shape_of(layout.data()), p, scratch, out);
    return std::make_pair(out.capacities, out.last_count);
  };
  // 32·32 distinct products: one block, filled by the very last term.
  EXPECT_EQ(blocks(powers(0, 32, 1), powers(1, 32, 1), 7),
            std::make_pair(std::vector<std::int32_t>{1024}, 1024));
  // 40·40: 1024, then 1536 capped at the 576 products left, filled exactly.
  EXPECT_EQ(blocks(powers(0, 40, 1), powers(1, 40, 1), 7),
            std::make_pair(std::vector<std::int32_t>{1024, 576}, 576));
  // Every sum a multiple of p: nothing written, no second block.
  EXPECT_EQ(blocks(powers(0, 40, 7), powers(1, 40, 3), 7),
            std::make_pair(std::vector<std::int32_t>{1024}, 0));
}

TEST(MulKernel, RepeatedMonomialsMeetOnlyWhenTheirStreamsAreStarted) {
  // A = x + 2x (import can leave equal monomials), B = x + 1.  The stream of
  // A's second term starts when x·x has left the heap, so x^2 comes out twice;
  // the two products of x meet in one pass.
  const word A[] = {1, make_immediate(1), 1, make_immediate(2)};
  const word B[] = {1, make_immediate(1), 0, make_immediate(1)};
  vector_sink out{1, {}, {}};
  tracked_list scratch;
  multiply_terms({A, 2}, {B, 2}, {1, false}, 7, scratch, out);
  EXPECT_EQ(out.terms(),
            (std::vector<word>{2, make_immediate(1), 2, make_immediate(2), 1, make_immediate(3)}));
}

// A sink that raises on its n-th block, as an interrupt does.
struct raising_sink : vector_sink {
  int raise_at;
  word* next_block(std::int32_t capacity) {
    if (static_cast<int>(capacities.size()) + 1 == raise_at) fail("Interrupted");
    return vector_sink::next_block(capacity);
  }
};

TEST(MulKernel, ReleasesEverythingWhenTheSinkOrTheGatewayFails) {
  std::mt19937 rng(5);
  const ring_case rc{monomial_order::tdeg, 4, 2};
  const test_poly A = random_poly(rng, rc, 200, 20, 1, 100);
  const test_poly B = random_poly(rng, rc, 200, 20, 1, 100);
  const std::vector<word> layout = make_test_layout(rc);
  const std::int64_t before = gateway_state().live_blocks;
  for (int raise_at : {1, 2, 4}) {
    raising_sink out{{layout_msize(layout.data()), {}, {}}, raise_at};
    {
      tracked_list scratch;
      EXPECT_THROW(multiply_terms(A.run(), B.run(), shape_of(layout.data()), 101, scratch, out), error);
    }
    EXPECT_EQ(gateway_state().live_blocks, before) << "raise at block " << raise_at;
  }
  for (int fail_at : {1, 2, 3}) {
    vector_sink out{layout_msize(layout.data()), {}, {}};
    {
      tracked_list scratch;
      gateway_fail_at(fail_at);
      EXPECT_THROW(multiply_terms(A.run(), B.run(), shape_of(layout.data()), 101, scratch, out), error);
      gateway_fail_at(0);
    }
    EXPECT_EQ(gateway_state().live_blocks, before) << "allocation " << fail_at << " fails";
  }
}

TEST(MulKernel, ProductOverflowIsCaughtOnFieldMaxima) {
  const ring_case rc{monomial_order::plex, 2, 4};  // 8-bit fields: sums must stay below 128
  test_poly A, B;
  A.terms = {{{64, 0}, 1}, {{0, 63}, 1}};
  B.terms = {{{63, 0}, 1}, {{0, 64}, 1}};
  pack_terms(A, rc);
  pack_terms(B, rc);
  const std::vector<word> layout = make_test_layout(rc);
  tracked_list scratch;
  // 64 + 63 in each field, though no single product reaches 127 + 1.
  EXPECT_NO_THROW(check_product_exponents(A.run(), B.run(), layout.data(), scratch));
  B.terms[0].e[0] = 64;
  pack_terms(B, rc);
  EXPECT_THROW(check_product_exponents(A.run(), B.run(), layout.data(), scratch), error);
}

std::vector<test_term> naive_sum(const test_poly& A, const test_poly& B, const ring_case& rc, std::int32_t p,
                                 bool subtract) {
  std::map<exponents, std::int64_t, decreasing> sum{decreasing{rc.order}};
  for (const test_term& a : A.terms) sum[a.e] += a.c;
  for (const test_term& b : B.terms) sum[b.e] += subtract ? -std::int64_t{b.c} : b.c;
  std::vector<test_term> out;
  for (const auto& [e, v] : sum)
    if (const std::int64_t r = (v % p + p) % p; r != 0) out.push_back({e, static_cast<std::int32_t>(r)});
  return out;
}

TEST(AddKernel, RandomSumsAndDifferencesMatchTheNaiveSum) {
  std::mt19937 rng(31);
  for (const ring_case& rc : rings) {
    for (std::int32_t p : primes) {
      for (int round = 0; round < 6; ++round) {
        SCOPED_TRACE(testing::Message()
                     << "n " << rc.n << " pack " << rc.pack << " p " << p << " round " << round);
        const std::size_t most = round < 2 ? 5 : small_tests ? 200 : 600;
        const test_poly A = random_poly(rng, rc, rng() % most, 12, min_immediate, max_immediate);
        test_poly B = random_poly(rng, rc, rng() % most, 12, -3, 3);
        const bool subtract = round % 2 == 1;
        const std::vector<word> layout = make_test_layout(rc);
        vector_sink out{layout_msize(layout.data()), {}, {}};
        add_terms(A.run(), B.run(), shape_of(layout.data()), p, subtract, out);
        const std::vector<test_term> got = unpack_terms(out.terms(), rc);
        const std::vector<test_term> want = naive_sum(A, B, rc, p, subtract);
        ASSERT_EQ(got.size(), want.size());
        for (std::size_t i = 0; i < got.size(); ++i) {
          ASSERT_EQ(got[i].e, want[i].e);
          ASSERT_EQ(got[i].c, want[i].c);
        }
        EXPECT_EQ(out.capacities[0],
                  std::min<std::int64_t>(std::int64_t(A.terms.size() + B.terms.size()), 1024));
      }
    }
  }
}

TEST(AddKernel, BlockSizesWhileMergingAndInTheTails) {
  const ring_case rc{monomial_order::plex, 1, 1};
  auto degrees = [&](std::uint32_t from, std::uint32_t count, std::uint32_t step, std::int32_t c) {
    test_poly f;
    for (std::uint32_t i = count; i-- > 0;) f.terms.push_back({{from + i * step}, c});
    pack_terms(f, rc);
    return f;
  };
  auto blocks = [&](const test_poly& A, const test_poly& B, std::int32_t p) {
    vector_sink out{1, {}, {}};
    add_terms(A.run(), B.run(), {1, false}, p, false, out);
    return std::make_pair(out.capacities, out.last_count);
  };
  // Interleaved, nothing cancels: 1024, then 1280, then the 696 terms left.
  EXPECT_EQ(blocks(degrees(1, 1500, 2, 1), degrees(0, 1500, 2, 1), 7),
            std::make_pair(std::vector<std::int32_t>{1024, 1280, 696}, 696));
  // Equal monomials, a block filled on the last pair: the next block has room for none.
  EXPECT_EQ(blocks(degrees(0, 1024, 1, 1), degrees(0, 1024, 1, 1), 7),
            std::make_pair(std::vector<std::int32_t>{1024, 0}, 0));
  // A + A mod 2 vanishes entirely.
  EXPECT_EQ(blocks(degrees(0, 10, 1, 1), degrees(0, 10, 1, 1), 2),
            std::make_pair(std::vector<std::int32_t>{20}, 0));
  // A long tail after a short merge: the last block takes all that is left.
  EXPECT_EQ(blocks(degrees(1000000, 1, 1, 1), degrees(0, 600000, 1, 1), 7),
            std::make_pair(std::vector<std::int32_t>{1024, 598977}, 598977));
}

TEST(ScaleKernel, FactorsAndVanishingTerms) {
  constexpr std::int32_t p = 1073741789;
  EXPECT_EQ(scale_factor(5, 1, p), 5);
  EXPECT_EQ(scale_factor(0, 3, p), 0);
  EXPECT_EQ(scale_factor(1, 3, p), mod_inverse(3, p));
  EXPECT_EQ(scale_factor(3, 3, 7), 1);
  EXPECT_EQ(scale_factor(-2, 3, 7), 4);  // -2/3 = -2·5 = 4 (mod 7)
  EXPECT_EQ(scale_factor(14, 3, 7), 0);

  const word f[] = {9, make_immediate(3), 5, make_immediate(-4), 2, make_immediate(7), 1, make_immediate(1)};
  word R[8] = {};
  ASSERT_EQ(scale_terms(R, f, 4, 1, -1, 7), 3);  // 7 vanishes
  EXPECT_EQ(std::vector<word>(R, R + 6),
            (std::vector<word>{9, make_immediate(4), 5, make_immediate(4), 1, make_immediate(6)}));
  EXPECT_EQ(scale_terms(R, f, 4, 1, 0, 7), 0);
  ASSERT_EQ(scale_terms(R, f, 4, 1, 1, 7), 4);  // a plain copy, coefficients as they were
  EXPECT_EQ(std::vector<word>(R, R + 8), std::vector<word>(f, f + 8));
}

}  // namespace
}  // namespace vorn
