// The product and merge kernels on term arrays built without a host: the
// block sizes at their boundaries and the exponent check on field maxima.
// Random products, sums and scalings are checked through the entries against
// expand and FLINT, and on operands that repeat a monomial against a model of
// their passes (repeated_monomials_test.cpp).
#include <gtest/gtest.h>

#include "arith/add.hpp"
#include "arith/multiply.hpp"
#include "host/error.hpp"
#include "host/memory.hpp"
#include "support/packed_terms.hpp"

namespace vorn {
namespace {

using namespace vorn::test;

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
    vector_sink out{1};
    tracked_list scratch;
    multiply_terms(A.run(), B.run(), shape_of(layout.data()), p, scratch, out);
    EXPECT_EQ(out.polls, static_cast<int>(out.capacities.size()) - 1) << "a poll after every block but the first";
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

TEST(AddKernel, BlockSizesWhileMergingAndInTheTails) {
  const ring_case rc{monomial_order::plex, 1, 1};
  auto degrees = [&](std::uint32_t from, std::uint32_t count, std::uint32_t step, std::int32_t c) {
    test_poly f;
    for (std::uint32_t i = count; i-- > 0;) f.terms.push_back({{from + i * step}, c});
    pack_terms(f, rc);
    return f;
  };
  auto blocks = [&](const test_poly& A, const test_poly& B, std::int32_t p) {
    vector_sink out{1};
    add_terms(A.run(), B.run(), {1, false}, p, false, out);
    EXPECT_EQ(out.polls, static_cast<int>(out.capacities.size()) - 1) << "a poll after every block but the first";
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

}  // namespace
}  // namespace vorn
