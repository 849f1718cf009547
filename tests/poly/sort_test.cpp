// The term sorts: decreasing order, coefficients travelling with their
// monomials, nothing lost or duplicated, bounded recursion, and the Shell
// sort taking over when the budget runs out.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "support/packed_terms.hpp"
#include "poly/monomial.hpp"
#include "poly/sort.hpp"
#include "support/test_seed.hpp"

namespace vorn {
namespace {

// A coefficient that can only belong to its monomial.
word tag(const word* monomial, int msize) {
  std::uint64_t h = 0x9e3779b97f4a7c15u;
  for (int i = 0; i < msize; ++i) h = (h ^ monomial[i]) * 0xff51afd7ed558ccdu;
  return static_cast<word>(h >> 33) | 1u;
}

struct term_array {
  std::vector<word> layout;
  std::vector<word> words;
  int msize;
  std::int32_t count() const { return static_cast<std::int32_t>(words.size()) / (msize + 1); }
  word* term(std::int32_t i) { return words.data() + static_cast<std::size_t>(i) * static_cast<std::size_t>(msize + 1); }
};

enum class shape { random, sorted, reversed, all_equal, few_distinct };

// Words below 2^31, as in any stored monomial; `distinct` bounds the number
// of different monomials (0: unbounded).
term_array make_terms(int msize, bool tdeg, std::int32_t n, shape s, std::mt19937& rng) {
  term_array a;
  a.msize = msize;
  a.layout.assign(static_cast<std::size_t>(msize) + 2, 0x80000000u);
  a.layout[0] = static_cast<word>(msize);
  a.layout[1] = 32u | (tdeg ? tdeg_flag : 0u);
  std::uniform_int_distribution<word> any(0, 0x7fffffffu), few(0, 3);
  for (std::int32_t t = 0; t < n; ++t) {
    for (int i = 0; i < msize; ++i) {
      word w = any(rng);
      if (s == shape::all_equal) w = 5;
      if (s == shape::few_distinct) w = few(rng);
      a.words.push_back(w);
    }
    a.words.push_back(0);
  }
  for (std::int32_t t = 0; t < n; ++t) a.term(t)[msize] = tag(a.term(t), msize);
  if (s == shape::sorted || s == shape::reversed) {
    sort_terms(a.words.data(), a.layout.data(), 0, n - 1, n);
    if (s == shape::reversed)
      for (std::int32_t i = 0, j = n - 1; i < j; ++i, --j) std::swap_ranges(a.term(i), a.term(i) + msize + 1, a.term(j));
  }
  return a;
}

std::uint64_t fingerprint(term_array& a) {
  std::uint64_t sum = 0;
  for (std::int32_t t = 0; t < a.count(); ++t) {
    std::uint64_t h = 1469598103934665603u;
    for (int i = 0; i <= a.msize; ++i) h = (h ^ a.term(t)[i]) * 1099511628211u;
    sum += h;
  }
  return sum;
}

// Decreasing, every coefficient still with its monomial, same multiset.
void expect_sorted(term_array& a, std::uint64_t before, const char* what) {
  for (std::int32_t t = 0; t < a.count(); ++t)
    ASSERT_EQ(a.term(t)[a.msize], tag(a.term(t), a.msize)) << what << ": term " << t << " lost its coefficient";
  for (std::int32_t t = 0; t + 1 < a.count(); ++t)
    ASSERT_GE(compare_monomials(a.term(t), a.term(t + 1), a.layout.data()), 0) << what << ": terms " << t << ", " << t + 1;
  EXPECT_EQ(fingerprint(a), before) << what << ": terms lost or duplicated";
}

class SortTerms : public ::testing::TestWithParam<int> {};

TEST_P(SortTerms, EveryShapeAndSizeEndsDecreasing) {
  const int msize = GetParam();
  const std::int32_t largest = test::small_tests ? 20000 : 200000;
  const std::uint32_t seed = test::test_seed(static_cast<std::uint32_t>(msize));
  SCOPED_TRACE(test::seed_note(seed));
  std::mt19937 rng(seed);
  for (std::int32_t n : {0, 1, 2, 9, 10, 11, 17, 100, 257, 5000, largest}) {
    for (shape s : {shape::random, shape::sorted, shape::reversed, shape::all_equal, shape::few_distinct}) {
      for (bool tdeg : {false, true}) {
        term_array a = make_terms(msize, tdeg, n, s, rng);
        const std::uint64_t before = fingerprint(a);
        sort_trace trace;
        sort_terms(a.words.data(), a.layout.data(), 0, n - 1, n, &trace);
        SCOPED_TRACE(::testing::Message() << "n " << n << " shape " << static_cast<int>(s) << " tdeg " << tdeg);
        expect_sorted(a, before, "sort_terms");
        if (n > 1) {
          EXPECT_LE(trace.max_depth, std::log2(n) + 2);
        }
      }
    }
  }
}

TEST_P(SortTerms, ShellSortTakesOverWhenTheBudgetRunsOut) {
  const int msize = GetParam();
  const std::uint32_t seed = test::test_seed(100u + static_cast<std::uint32_t>(msize));
  SCOPED_TRACE(test::seed_note(seed));
  std::mt19937 rng(seed);
  const std::int32_t n = test::small_tests ? 3000 : 30000;
  for (std::int32_t budget : {1, 4, 40}) {
    term_array a = make_terms(msize, false, n, shape::random, rng);
    const std::uint64_t before = fingerprint(a);
    sort_trace trace;
    sort_terms(a.words.data(), a.layout.data(), 0, n - 1, budget, &trace);
    EXPECT_GT(trace.shell_sorts, 0) << "budget " << budget;
    if (budget == 1) {
      EXPECT_EQ(trace.partitions, 1);
    }
    expect_sorted(a, before, "budget-limited sort");
  }
}

// One, two, three (the fixed widths) and five words per monomial (any width).
INSTANTIATE_TEST_SUITE_P(WordsPerMonomial, SortTerms, ::testing::Values(1, 2, 3, 5));

}  // namespace
}  // namespace vorn
