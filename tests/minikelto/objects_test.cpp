// Names, unique merging, integers and arrays of the minimal host, reached as
// the plug-in reaches them: through the callback table.
#include <gmp.h>

#include <algorithm>

#include "host/callbacks.hpp"
#include "minikelto/polynomial.hpp"
#include "support/host_fixture.hpp"

namespace {

using minikelto::word;

class Objects : public host_test {};

TEST_F(Objects, names_are_interned_per_kind) {
  const word x = vorn::host_make_name(cbt(), "x", 1);
  EXPECT_EQ(x, name("x"));
  EXPECT_EQ(vorn::fixed_name(cbt(), "x"), x);
  EXPECT_NE(name("y"), x);
  EXPECT_NE(minikelto::make_nameref("x"), x);
  EXPECT_EQ(minikelto::make_nameref("x"), minikelto::make_nameref("x"));
}

TEST_F(Objects, unique_merges_equal_expressions_children_first) {
  const word x = name("x");
  const word y = name("y");
  // 2*x^2*y + 3, built twice from fresh objects.
  auto build = [&] {
    return sum({{prod({{x, 2}, {y, 1}}), integer(2)}, {integer(3), integer(1)}});
  };
  const word a = build();
  const word b = build();
  ASSERT_NE(a, b);
  const word ua = unique(a);
  EXPECT_EQ(unique(b), ua);
  EXPECT_EQ(text(ua), "2*x^2*y + 3");
  // Children are canonical too: the product inside b is the one inside a.
  EXPECT_EQ(vorn::object_word(unique(b), 1), vorn::object_word(ua, 1));
  EXPECT_EQ(unique(ua), ua);

  // A fresh call through the callbacks, filled in place before unique.
  const word args = vorn::host_new_seq(cbt(), 2);
  vorn::object_words(args)[1] = x;
  vorn::object_words(args)[2] = y;
  const word f = vorn::host_new_function(cbt(), name("tdeg"), 1, args);
  EXPECT_NE(vorn::object_word(f, 2), args) << "the call must get a SEQ of its own";
  EXPECT_EQ(vorn::host_unique(cbt(), f), funcall("tdeg", {x, y}));
  EXPECT_NE(funcall("tdeg", {y, x}), funcall("tdeg", {x, y}));
  EXPECT_EQ(option("pack", 4), equation(name("pack"), integer(4)));
}

TEST_F(Objects, a_large_sum_of_fresh_products_merges_equal_and_shared_children) {
  // Children are looked up a chunk at a time: equal fresh products within a
  // chunk and across chunks, and one product object met twice, become one.
  const word x = name("x");
  const word shared = prod({{x, 5}});
  std::vector<std::pair<word, word>> terms;
  for (std::int32_t i = 0; i < 100; ++i) terms.emplace_back(prod({{x, i % 9 + 2}}), integer(i + 1));
  terms.emplace_back(shared, integer(1000));
  terms.emplace_back(shared, integer(1001));
  const word s = unique(minikelto::make_sum(terms));
  const word* w = minikelto::object_words(s);
  for (std::int32_t i = 0; i < 100; ++i) {
    ASSERT_EQ(w[2 * i + 1], unique(prod({{x, i % 9 + 2}}))) << i;
  }
  EXPECT_EQ(w[2 * 100 + 1], unique(prod({{x, 5}})));
  EXPECT_EQ(w[2 * 101 + 1], w[2 * 100 + 1]);
  EXPECT_EQ(w[2 * 3 + 1], w[2 * 100 + 1]);
}

TEST_F(Objects, unique_simplifies_empty_and_single_pairs_and_leaves_arrays_alone) {
  const word x = name("x");
  EXPECT_EQ(unique(prod({{x, 1}})), x);
  EXPECT_NE(unique(prod({{x, 2}})), x);
  EXPECT_EQ(unique(sum({{x, integer(1)}})), x);
  EXPECT_EQ(unique(sum({{integer(7), integer(1)}})), integer(7));
  EXPECT_EQ(text(unique(sum({{x, integer(5)}}))), "5*x");
  // Nested: a sum of one product of one power collapses to the name.
  EXPECT_EQ(unique(sum({{prod({{x, 1}}), integer(1)}})), x);
  // The empty product, as the export writes for a constant term that is not
  // its last, is 1: a pair (PROD(), c) is the constant c.
  EXPECT_EQ(unique(prod({})), integer(1));
  EXPECT_EQ(unique(sum({{prod({}), integer(9)}})), integer(9));
  const word two_constants = unique(sum({{integer(2), integer(1)}, {prod({}), integer(3)}}));
  EXPECT_EQ(text(two_constants), "2 + 3");
  EXPECT_EQ(minikelto::add(two_constants, integer(0)), integer(5));

  const vorn::host_array a = vorn::new_host_array(cbt(), 3);
  const vorn::host_array b = vorn::new_host_array(cbt(), 3);
  EXPECT_EQ(vorn::host_unique(cbt(), a.handle), a.handle);
  EXPECT_NE(vorn::host_unique(cbt(), b.handle), a.handle);
  // Containers holding equal-looking arrays stay apart.
  EXPECT_NE(unique(seq({a.handle})), unique(seq({b.handle})));
}

// Values whose limbs straddle the 32-bit limb boundaries, both signs.
TEST_F(Objects, big_integers_round_trip_through_32_bit_limb_records) {
  const char* values[] = {
      "1073741823", "1073741824", "-1073741825", "4294967295", "-4294967296", "18446744073709551616",
      "1606938044258990275541962092341162602522202993782792835301375",  // 2^200 - 1
  };
  mpz_t z, back;
  mpz_inits(z, back, nullptr);
  for (const char* v : values) {
    SCOPED_TRACE(v);
    mpz_set_str(z, v, 10);
    const word h = minikelto::make_integer(z);
    EXPECT_EQ(minikelto::integer_text(h), v);
    if (!minikelto::is_immediate(h)) {
      const word* record = vorn::integer_record(h);
      const auto size = static_cast<std::int32_t>(record[1]);
      EXPECT_EQ(size < 0, mpz_sgn(z) < 0);
      EXPECT_EQ(static_cast<std::size_t>(size < 0 ? -size : size), (mpz_sizeinbase(z, 2) + 31) / 32);
      EXPECT_EQ(vorn::word_to_pointer(record[2]), record + 3) << "limbs sit right behind the record";
      // A copy made from the record alone has the same value and unique handle.
      const word copy = vorn::host_copy_integer(cbt(), record);
      EXPECT_NE(copy, h);
      EXPECT_EQ(unique(copy), unique(h));
      minikelto::integer_value(copy, back);
      EXPECT_EQ(mpz_cmp(back, z), 0);
    }
  }
  mpz_clears(z, back, nullptr);
}

TEST_F(Objects, arrays_are_zero_filled_with_their_count_in_words_6_and_8) {
  // Dirty the window first, so that reused memory must be cleared.
  const word junk = minikelto::make_array(1000);
  std::fill_n(minikelto::array_data(junk), 1000, 0xdeadbeefu);
  minikelto::collect();

  const vorn::host_array a = vorn::new_host_array(cbt(), 1000);
  EXPECT_EQ(vorn::object_word(a.handle, 6), 1000u);
  EXPECT_EQ(vorn::object_word(a.handle, 8), 1000u);
  EXPECT_EQ(vorn::host_array_data(cbt(), a.handle), a.data);
  EXPECT_EQ(std::count(a.data, a.data + 1000, 0u), 1000);
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(a.data) % 8, 0u);
  EXPECT_EQ(vorn::new_host_array(cbt(), 0).handle != 0, true);
}

}  // namespace
