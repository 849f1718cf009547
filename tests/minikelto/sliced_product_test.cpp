// Large products in expand: summed slice by slice, they must equal the same
// product summed in pieces too small to slice, term for term and in order.
#include <utility>
#include <vector>

#include "minikelto/expand.hpp"
#include "minikelto/polynomial.hpp"
#include "support/host_fixture.hpp"

namespace {

using minikelto::word;

class SlicedProduct : public host_test {};

TEST_F(SlicedProduct, equals_the_sum_of_unsliced_pieces) {
  // 1140 * 1140 term pairs go slice by slice and come out in order without a
  // sort; each half of g alone is below the slicing size, and the sum of the
  // two products is sorted as a whole.  f * g = ((1 + y)^2 - (x + z)^2)^17,
  // so most sums of products cancel.
  const word x = name("x"), y = name("y"), z = name("z");
  auto power_of_sum = [&](std::initializer_list<word> terms) {
    word s = integer(1);
    for (word term : terms) s = minikelto::add(s, term);
    return minikelto::expand(minikelto::power(s, integer(17)));
  };
  const word f = power_of_sum({x, y, z});
  const word g = power_of_sum({minikelto::negate(x), y, minikelto::negate(z)});
  const std::int32_t terms = (minikelto::length_of(g) - 1) / 2;
  ASSERT_EQ(terms, 1140);
  std::vector<std::pair<word, word>> halves[2];
  for (std::int32_t i = 0; i < terms; ++i) {
    const word* w = minikelto::object_words(g);
    halves[i < terms / 2].emplace_back(w[2 * i + 1], w[2 * i + 2]);
  }
  const word g0 = unique(minikelto::make_sum(halves[0]));
  const word g1 = unique(minikelto::make_sum(halves[1]));
  const word pieces = minikelto::add(minikelto::expand(minikelto::multiply(f, g0)),
                                     minikelto::expand(minikelto::multiply(f, g1)));
  const word product = minikelto::expand(minikelto::multiply(f, g));
  EXPECT_EQ(product, minikelto::expand(pieces));
}

}  // namespace
