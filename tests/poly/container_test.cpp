// Layouts from order arguments, containers, term blocks and result assembly,
// against the minimal host.
#include <gmp.h>

#include <functional>
#include <string>
#include <vector>

#include "host/error.hpp"
#include "host/frame.hpp"
#include "host/gmp_record.hpp"
#include "host/memory.hpp"
#include "poly/container.hpp"
#include "poly/container_check.hpp"
#include "poly/pack.hpp"
#include "poly/term_block.hpp"
#include "support/host_fixture.hpp"

namespace {

using vorn::word;

std::string raised(const std::function<void()>& work) {
  try {
    work();
  } catch (const vorn::error& e) {
    return e.message;
  }
  return "";
}

class PolyHost : public host_test {
 protected:
  word ring(std::string_view order, std::initializer_list<word> variables) { return funcall(order, variables); }
  word xyz(std::string_view order) { return ring(order, {name("x"), name("y"), name("z")}); }

  // Writes count terms (packed exponents, coefficient word) at `terms`.
  void write_terms(const vorn::packing& p, word* terms, const std::vector<std::vector<std::uint32_t>>& exps,
                   const std::vector<word>& coefficients) {
    const int msize = vorn::layout_msize(p.layout.get());
    const int n = vorn::seq_count(p.variables);
    for (std::size_t t = 0; t < exps.size(); ++t) {
      word* at = terms + t * static_cast<std::size_t>(msize + 1);
      std::fill(at, at + msize, 0u);
      p.pack(at, exps[t].data(), n, vorn::layout_shift(p.layout.get()));
      at[msize] = coefficients[t];
    }
  }

  void expect_sound(word container, std::int32_t modulus) {
    const vorn::container_fault f = vorn::check_container(cbt(), container, {modulus, true});
    EXPECT_TRUE(f.ok()) << f.problem << " (term " << f.term << ")";
  }
};

TEST_F(PolyHost, LayoutOfAnOrderArgument) {
  const word tdeg = xyz("tdeg");
  const vorn::packing p = vorn::make_layout(cbt(), tdeg, 4);
  EXPECT_EQ(std::vector<word>(p.layout.get(), p.layout.get() + 4),
            (std::vector<word>{2, 0x80000008u, 0x80808080u, 0x80808080u}));
  EXPECT_EQ(p.variables, vorn::object_word(tdeg, 2));
  EXPECT_EQ(p.pack, &vorn::pack_tdeg);

  const vorn::packing plex = vorn::make_layout(cbt(), ring("plex", {name("x")}), 1);
  EXPECT_EQ(std::vector<word>(plex.layout.get(), plex.layout.get() + 3), (std::vector<word>{1, 32, 0x80000000u}));
  EXPECT_EQ(vorn::order_unpacker(cbt(), xyz("grlex")).unpack, &vorn::unpack_grlex);

  EXPECT_EQ(raised([&] { vorn::make_layout(cbt(), xyz("lex"), 4); }), "monomial order not supported");
  EXPECT_EQ(raised([&] { vorn::order_unpacker(cbt(), integer(3)); }), "monomial order not supported");
  vorn::gateway_fail_at(1);
  EXPECT_EQ(raised([&] { vorn::make_layout(cbt(), tdeg, 4); }), "out of memory");
}

TEST_F(PolyHost, AssembleBlockListsModP) {
  const word r = xyz("tdeg");
  const vorn::packing p = vorn::make_layout(cbt(), r, 4);
  // Ten terms of decreasing degree, over two full blocks and an empty last one.
  std::vector<std::vector<std::uint32_t>> exps;
  std::vector<word> coefficients;
  for (std::uint32_t d = 10; d-- > 0;) {
    exps.push_back({d, 0, 1});
    coefficients.push_back(vorn::make_immediate(static_cast<std::int32_t>(d) + 1));
  }
  vorn::term_block_list list;
  list.first = vorn::alloc_term_block(6, p.layout.get(), 1);
  list.first->next = vorn::alloc_term_block(4, p.layout.get(), 1);
  list.first->next->next = vorn::alloc_term_block(5, p.layout.get(), 1);
  list.first->next->next->count = 0;
  write_terms(p, list.first->terms, {exps.begin(), exps.begin() + 6}, {coefficients.begin(), coefficients.begin() + 6});
  write_terms(p, list.first->next->terms, {exps.begin() + 6, exps.end()}, {coefficients.begin() + 6, coefficients.end()});

  const word c = vorn::assemble_container(cbt(), *list.first, r, 13);
  expect_sound(c, 13);
  const vorn::term_block view = vorn::read_container(cbt(), c);
  ASSERT_EQ(view.count, 10);
  std::vector<word> expected(30);
  write_terms(p, expected.data(), exps, coefficients);
  EXPECT_EQ(std::vector<word>(view.terms, view.terms + 30), expected);
  EXPECT_EQ(vorn::container_ring(c), r);

  // A list of empty blocks gives the empty container, also with characteristic 0.
  list.first->count = 0;
  list.first->next->count = 0;
  for (std::int32_t characteristic : {13, 0}) {
    const word empty = vorn::assemble_container(cbt(), *list.first, r, characteristic);
    EXPECT_EQ(vorn::read_container(cbt(), empty).count, 0);
    EXPECT_EQ(vorn::container_big_block(empty), vorn::immediate_zero);
    expect_sound(empty, 0);
  }
}

TEST_F(PolyHost, BigCoefficientsAreCopiedIntoTheContainer) {
  const word r = ring("plex", {name("x")});
  const vorn::packing p = vorn::make_layout(cbt(), r, 1);
  const word two_limbs = integer("18446744073709551615");              // 2^64 - 1
  const word three_limbs = integer("-39614081257132168796771975168");  // -2^95
  vorn::term_block_list list;
  list.first = vorn::alloc_term_block(4, p.layout.get(), 1);
  write_terms(p, list.first->terms, {{9}, {7}, {5}, {2}},
              {vorn::make_immediate(4), vorn::pointer_to_word(vorn::integer_record(two_limbs)),
               vorn::make_immediate(-6), vorn::pointer_to_word(vorn::integer_record(three_limbs))});

  set_info_level(5);
  vorn::read_info_level(cbt());
  const word c = vorn::assemble_container(cbt(), *list.first, r, 0);
  EXPECT_EQ(output(), "2 GMP coefficients, size (limbs): 5\n");
  vorn::info_level = 0;
  expect_sound(c, 0);

  const word block = vorn::container_big_block(c);
  ASSERT_FALSE(vorn::is_immediate(block));
  EXPECT_EQ(vorn::object_words(block)[6], 11u);  // 3 * 2 + 2 + 3
  const word* data = vorn::host_array_data(cbt(), block);
  EXPECT_EQ(static_cast<std::int32_t>(data[6]), -3);  // the second record starts at word 6
  const vorn::term_block view = vorn::read_container(cbt(), c);
  EXPECT_EQ(view.terms[3], vorn::pointer_to_word(data));
  EXPECT_EQ(view.terms[5], vorn::make_immediate(-6));
  EXPECT_EQ(view.terms[7], vorn::pointer_to_word(data + 5));

  // Overwriting the sources changes nothing in the container.
  for (word h : {two_limbs, three_limbs}) {
    word* record = vorn::integer_record(h);
    word* limbs = vorn::word_to_pointer(record[2]);
    for (std::int32_t i = 0; i < vorn::record_limb_count(record); ++i) limbs[i] = 0x5a5a5a5au;
    record[1] = 1;
  }
  EXPECT_EQ(text(call_ok("vorn2kelto", {c})),
            "-39614081257132168796771975168*x^2 + -6*x^5 + 18446744073709551615*x^7 + 4*x^9");

  // Mod p a big coefficient word is left alone and slot 5 stays 0.
  const word modp = vorn::assemble_container(cbt(), *list.first, r, 7);
  EXPECT_EQ(vorn::container_big_block(modp), vorn::immediate_zero);
}

TEST_F(PolyHost, CheckerFindsBrokenContainers) {
  const word r = xyz("plex");
  const vorn::packing p = vorn::make_layout(cbt(), r, 4);
  auto make = [&](std::vector<std::vector<std::uint32_t>> exps, std::vector<word> coefficients) {
    const word c = vorn::new_container(cbt(), r, static_cast<std::int32_t>(exps.size()), p.layout.get());
    write_terms(p, vorn::read_container(cbt(), c).terms, exps, coefficients);
    return vorn::check_container(cbt(), c, {7, true});
  };
  const word one = vorn::make_immediate(1);
  EXPECT_TRUE(make({{3, 0, 0}, {1, 2, 0}}, {one, one}).ok());
  EXPECT_EQ(make({{1, 2, 0}, {3, 0, 0}}, {one, one}).term, 0);                       // increasing
  EXPECT_FALSE(make({{1, 2, 0}, {1, 2, 0}}, {one, one}).ok());                        // equal
  EXPECT_EQ(make({{3, 0, 0}, {1, 200, 0}}, {one, one}).term, 1);                      // guard bit
  EXPECT_FALSE(make({{3, 0, 0}}, {vorn::make_immediate(7)}).ok());                     // not below p
  EXPECT_FALSE(make({{3, 0, 0}}, {vorn::immediate_zero}).ok());                        // zero

  const word c = vorn::new_container(cbt(), r, 2, p.layout.get());
  write_terms(p, vorn::read_container(cbt(), c).terms, {{3, 0, 0}, {1, 2, 0}}, {one, one});
  vorn::object_words(vorn::container_slot(c, 4))[8] = 3;
  EXPECT_FALSE(vorn::check_container(cbt(), c, {7, true}).ok());
}

}  // namespace
