// The packed encoding: exact words, round trips, and word comparison against
// the orders computed from exponent vectors, for every pack and order.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "support/packed_terms.hpp"
#include "poly/monomial.hpp"
#include "poly/pack.hpp"
#include "support/test_seed.hpp"

namespace vorn {
namespace {

using exponents = std::vector<std::uint32_t>;

constexpr monomial_order all_orders[] = {monomial_order::plex, monomial_order::grlex, monomial_order::tdeg};

std::vector<word> packed(monomial_order order, const exponents& e, int pack) {
  const int n = static_cast<int>(e.size());
  std::vector<word> words(static_cast<std::size_t>(layout_msize(order, n, pack)) + 1, 0xdeadbeefu);
  std::fill(words.begin(), words.end() - 1, 0u);
  pack_routine_of(order)(words.data(), e.data(), n, pack_shift(pack));
  EXPECT_EQ(words.back(), 0xdeadbeefu) << "pack wrote past msize words";
  words.pop_back();
  return words;
}

TEST(PackedEncoding, WorkedExamplesGiveTheExactWords) {
  const exponents x2z5 = {2, 0, 5};
  EXPECT_EQ(packed(monomial_order::plex, x2z5, 4), (std::vector<word>{0x02000500u}));
  EXPECT_EQ(packed(monomial_order::grlex, x2z5, 4), (std::vector<word>{0x07020005u}));
  EXPECT_EQ(packed(monomial_order::tdeg, x2z5, 4), (std::vector<word>{0x07020200u, 0x05000200u}));

  const exponents five = {1, 2, 3, 4, 5};
  EXPECT_EQ(packed(monomial_order::plex, five, 2), (std::vector<word>{0x00010002u, 0x00030004u, 0x00050000u}));
  EXPECT_EQ(packed(monomial_order::grlex, five, 2), (std::vector<word>{0x000f0001u, 0x00020003u, 0x00040005u}));
  EXPECT_EQ(packed(monomial_order::tdeg, five, 2),
            (std::vector<word>{0x000f000au, 0x00050004u, 0x00030002u, 0x00010000u}));
}

TEST(PackedEncoding, GuardMaskForEveryPack) {
  // Masks by shift 32, 16, 10, 8, 6, 5, 4, 3, 2, 1.
  const word masks[] = {0x80000000u, 0x80008000u, 0x80200802u, 0x80808080u, 0x82082082u,
                        0x84210842u, 0x88888888u, 0x92492492u, 0xaaaaaaaau, 0xfffffffeu};
  const int first_pack[] = {1, 2, 3, 4, 5, 6, 7, 9, 11, 17, 33};
  for (int k = 0; k < 10; ++k)
    for (int pack = first_pack[k]; pack < first_pack[k + 1]; ++pack)
      EXPECT_EQ(guard_mask(pack_shift(pack)), masks[k]) << "pack " << pack;
}

// Random and boundary vectors whose fields (and degree, for graded orders)
// stay below the guard bits.
std::vector<exponents> sample_vectors(monomial_order order, int n, int shift, std::mt19937& rng, int random_count) {
  const std::uint64_t limit = (std::uint64_t{1} << (shift - 1)) - 1;  // largest field value
  const bool graded = order != monomial_order::plex;
  std::vector<exponents> out;
  out.push_back(exponents(static_cast<std::size_t>(n), 0));
  for (int i = 0; i < n; ++i) {  // all of the budget on one variable
    exponents e(static_cast<std::size_t>(n), 0);
    e[static_cast<std::size_t>(i)] = static_cast<std::uint32_t>(limit);
    out.push_back(e);
  }
  if (n > 0 && !graded) out.push_back(exponents(static_cast<std::size_t>(n), static_cast<std::uint32_t>(limit)));
  if (n > 1 && graded) {  // the degree at its limit, split over two variables
    exponents e(static_cast<std::size_t>(n), 0);
    e[0] = static_cast<std::uint32_t>(limit / 2);
    e[static_cast<std::size_t>(n - 1)] = static_cast<std::uint32_t>(limit - limit / 2);
    out.push_back(e);
  }
  for (int r = 0; r < random_count; ++r) {
    // Half the vectors draw from 0 ... 2 so that degrees and fields tie often.
    const std::uint64_t top = (r % 2 == 0) ? std::min<std::uint64_t>(limit, 2) : limit;
    std::uint64_t budget = graded ? std::uniform_int_distribution<std::uint64_t>(0, limit)(rng) : limit;
    exponents e(static_cast<std::size_t>(n));
    for (auto& x : e) {
      const std::uint64_t cap = std::min(top, budget);
      x = static_cast<std::uint32_t>(std::uniform_int_distribution<std::uint64_t>(0, cap)(rng));
      if (graded) budget -= x;
    }
    std::shuffle(e.begin(), e.end(), rng);
    out.push_back(e);
  }
  return out;
}

TEST(PackedEncoding, RoundTripAndOrderForEveryPackOrderAndWidth) {
  const int random_count = test::small_tests ? 10 : 24;
  for (monomial_order order : all_orders) {
    for (int pack = 1; pack <= 32; ++pack) {
      for (int n = 0; n <= 12; ++n) {
        const std::uint32_t seed = test::test_seed(static_cast<std::uint32_t>(pack * 1000 + n * 10 + static_cast<int>(order)));
        std::mt19937 rng(seed);
        const int shift = pack_shift(pack);
        const std::vector<word> layout = test::test_layout(order, n, pack);
        const int msize = layout_msize(layout.data());
        const auto vectors = sample_vectors(order, n, shift, rng, random_count);
        std::vector<std::vector<word>> words;
        for (const auto& e : vectors) {
          words.push_back(packed(order, e, pack));
          const auto& w = words.back();
          ASSERT_FALSE(has_guard_bit<0>(w.data(), layout_guard(layout.data()), msize))
              << test::seed_note(seed) << ": a fitting vector sets a guard bit";
          exponents back(e.size(), 0xffffffffu);
          unpack_routine_of(order)(w.data(), back.data(), n, shift);
          ASSERT_EQ(back, e) << test::seed_note(seed);
        }
        for (std::size_t i = 0; i < vectors.size(); ++i)
          for (std::size_t j = 0; j < vectors.size(); ++j)
            ASSERT_EQ(test::sign(compare_monomials(words[i].data(), words[j].data(), layout.data())),
                      test::reference_compare(order, vectors[i], vectors[j]))
                << test::seed_note(seed) << " pair " << i << ", " << j;
      }
    }
  }
}

}  // namespace
}  // namespace vorn
