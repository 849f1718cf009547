// mul_vorn, ads_vorn, scl_vorn and div_vorn at their edges: every message in
// the order of checks, the short cuts that return an operand itself, the
// by-level lines and the time line's phases.  Faults of every allocation and poll are the
// fault sweep's (tests/hardening).
#include <string>
#include <vector>

#include "entry_test_util.hpp"
#include "host/frame.hpp"

namespace {

using vorn::test::entry_test;

class EntryChecks : public entry_test {
 protected:
  std::vector<word> xy;
  word tdeg_xy = 0;
  word A = 0;  // (1 + x + y)^3 mod 101
  word B = 0;  // (1 - x + 2y)^2 mod 101
  word empty = 0;

  void SetUp() override {
    entry_test::SetUp();
    xy = variables(2);
    tdeg_xy = ring("tdeg", xy);
    A = import(dense_power(xy, 3), tdeg_xy, 4, 101);
    B = import(minikelto::expand(minikelto::power(
                   minikelto::add(minikelto::add(integer(1), minikelto::negate(xy[0])),
                                  minikelto::multiply(integer(2), xy[1])),
                   integer(2))),
               tdeg_xy, 4, 101);
    empty = import(integer(0), tdeg_xy, 4, 101);
  }

  // A container with a big coefficient (characteristic 0).
  word with_big_block() {
    return call_ok("kelto2vorn", {minikelto::add(xy[0], integer("1208925819614629174706176")), tdeg_xy,
                                  option("pack", 4)});
  }

  word p(std::int32_t v) { return integer(v); }

  // Every clock read advances 1 ms, so the phases of a time line show which
  // reads bound them.
  static std::int32_t ticking_cpu() {
    static std::int32_t now = 0;
    return now += 1000;
  }
  static vorn::wall_time still_wall() { return {0, 0}; }
};

TEST_F(EntryChecks, ProductMessagesInTheirOrder) {
  const word other_ring = import(dense_power(xy, 2), ring("plex", xy), 4, 101);
  const word other_pack = import(dense_power(xy, 2), tdeg_xy, 2, 101);
  EXPECT_EQ(call_error("mul_vorn", {p(101), A}), "expecting a modulus and two polynomials");
  EXPECT_EQ(call_error("mul_vorn", {xy[0], A, B}), "first argument should be an immediate integer modulus");
  EXPECT_EQ(call_error("mul_vorn", {p(101), A, xy[0]}), "expecting a polynomial");
  EXPECT_EQ(call_error("mul_vorn", {p(101), A, other_ring}), "the polynomials are not in the same ring");
  EXPECT_EQ(call_error("mul_vorn", {p(101), A, other_pack}), "the polynomials are packed differently");
  const word big = with_big_block();
  EXPECT_EQ(call_error("mul_vorn", {p(101), A, big}), "inputs must be reduced mod p");
  EXPECT_EQ(call_error("mul_vorn", {p(0), A, big}), "only mod p computations are supported");
  EXPECT_EQ(call_error("mul_vorn", {p(-101), A, B}), "negative modulus");
  const word high = import(minikelto::expand(minikelto::power(xy[0], integer(100))), tdeg_xy, 4, 101);
  EXPECT_EQ(call_error("mul_vorn", {p(101), high, high}), "exponent overflow");
  // An operand without terms is the result, whatever p is, checks first.
  EXPECT_EQ(call_ok("mul_vorn", {p(0), empty, big}), empty);
  EXPECT_EQ(call_ok("mul_vorn", {p(-3), A, empty}), empty);
  EXPECT_EQ(call_error("mul_vorn", {p(7), empty, big}), "inputs must be reduced mod p");
}

TEST_F(EntryChecks, SumMessagesAndShortCuts) {
  const word other_ring = import(dense_power(xy, 2), ring("plex", xy), 4, 101);
  EXPECT_EQ(call_error("ads_vorn", {p(101), integer(0), A}), "expecting a modulus, flag, and two polynomials");
  EXPECT_EQ(call_error("ads_vorn", {integer("99999999999"), integer(0), A, B}),
            "first argument should be an immediate integer modulus");
  EXPECT_EQ(call_error("ads_vorn", {p(101), xy[0], A, B}),
            "second argument should be an immediate integer, 0=add, 1=subtract");
  EXPECT_EQ(call_error("ads_vorn", {p(101), integer(0), integer(3), B}), "expecting a polynomial");
  EXPECT_EQ(call_error("ads_vorn", {p(101), integer(0), A, other_ring}), "the polynomials are not in the same ring");
  EXPECT_EQ(call_error("ads_vorn", {p(101), integer(0), A, import(integer(1), tdeg_xy, 8, 101)}),
            "the polynomials are packed differently");
  const word big = with_big_block();
  EXPECT_EQ(call_error("ads_vorn", {p(101), integer(1), big, A}), "inputs must be reduced mod p");
  EXPECT_EQ(call_error("ads_vorn", {p(0), integer(1), big, A}), "only mod p computations are supported");
  EXPECT_EQ(call_error("ads_vorn", {p(-101), integer(1), A, B}), "negative modulus");

  EXPECT_EQ(call_ok("ads_vorn", {p(0), integer(0), empty, big}), big);
  EXPECT_EQ(call_ok("ads_vorn", {p(0), integer(5), big, empty}), big);
  // 0 − B is no short cut: it is −B, reduced, in a new container.
  const word minus_B = call_ok("ads_vorn", {p(101), integer(-2), empty, B});
  EXPECT_NE(minus_B, B);
  expect_same_terms(minus_B, call_ok("scl_vorn", {p(101), integer(-1), integer(1), B}), 101);
  EXPECT_EQ(term_count(call_ok("ads_vorn", {p(101), integer(0), minus_B, B})), 0);
  EXPECT_EQ(term_count(call_ok("ads_vorn", {p(101), integer(7), A, A})), 0);
  EXPECT_EQ(term_count(call_ok("ads_vorn", {p(2), integer(0), A, A})), 0);
  // One block holds a short merge: nothing to poll.
  interrupt_from_poll(1);
  EXPECT_TRUE(call("ads_vorn", {p(101), integer(1), A, B}).ok);
  interrupt_from_poll(0);
}

TEST_F(EntryChecks, ScalingMessagesAndFactors) {
  const word big = with_big_block();
  const word f = A;
  EXPECT_EQ(call_error("scl_vorn", {p(101), integer(1), f}),
            "expecting a modulus, multiplier, denominator, and a polynomial");
  EXPECT_EQ(call_error("scl_vorn", {xy[0], integer(1), integer(1), f}),
            "first argument should be an immediate integer modulus");
  EXPECT_EQ(call_error("scl_vorn", {p(101), xy[0], integer(1), f}), "second argument should be an integer numerator");
  EXPECT_EQ(call_error("scl_vorn", {p(101), integer(1), empty, f}), "third argument should be an integer denominator");
  // The immediate 0 is refused before f is looked at.
  EXPECT_EQ(call_error("scl_vorn", {p(101), integer(1), integer(0), xy[0]}), "division by zero");
  EXPECT_EQ(call_error("scl_vorn", {p(101), integer(1), integer(1), xy[0]}), "expecting a polynomial");
  EXPECT_EQ(call_error("scl_vorn", {p(101), integer(1), integer(2), big}), "inputs must be reduced mod p");
  EXPECT_EQ(call_error("scl_vorn", {p(0), integer(1), integer(2), big}), "only mod p computations are supported");
  EXPECT_EQ(call_error("scl_vorn", {p(-101), integer(1), integer(2), f}), "negative modulus");
  EXPECT_EQ(call_error("scl_vorn", {p(101), integer(1), integer(202), f}), "division by zero");
  EXPECT_EQ(call_error("scl_vorn", {p(101), integer(1), integer("-10100000000000000000000"), f}), "division by zero");
  // Over a composite modulus only a denominator prime to it has an inverse.
  const word f15 = import(dense_power(xy, 3), tdeg_xy, 4, 15);
  EXPECT_EQ(call_error("scl_vorn", {p(15), integer(1), integer(6), f15}), "division by zero");
  EXPECT_TRUE(call("scl_vorn", {p(15), integer(1), integer(7), f15}).ok);
  // f without terms is f, even for p = 0.
  EXPECT_EQ(call_ok("scl_vorn", {p(0), integer("123456789012345678901"), integer(3), empty}), empty);

  // Big numerators and denominators act as their residues (factors of
  // immediates are the model's, in repeated_monomials_test.cpp).
  // 10^20 = 1 mod 101.
  const word by_residues = call_ok("scl_vorn", {p(101), integer(-1), integer(3), f});
  const word by_big = call_ok("scl_vorn", {p(101), integer("-100000000000000000000"), integer("300000000000000000000"), f});
  expect_same_terms(by_big, by_residues, 101);
}

TEST_F(EntryChecks, DivisionMessagesInTheirOrder) {
  const word other_ring = import(dense_power(xy, 2), ring("plex", xy), 4, 101);
  const word big = with_big_block();
  EXPECT_EQ(call_error("div_vorn", {p(101), A}), "expecting a modulus and at least two polynomials");
  EXPECT_EQ(call_error("div_vorn", {xy[0], A, empty}), "first argument should be an immediate integer modulus");
  EXPECT_EQ(call_error("div_vorn", {p(101), A, xy[0]}), "expecting a polynomial");
  EXPECT_EQ(call_error("div_vorn", {p(101), other_ring, empty}), "the polynomials are not in the same ring");
  EXPECT_EQ(call_error("div_vorn", {p(101), import(dense_power(xy, 2), tdeg_xy, 2, 101), empty}),
            "the polynomials are packed differently");
  EXPECT_EQ(call_error("div_vorn", {p(0), A, empty}), "division by zero");
  EXPECT_EQ(call_error("div_vorn", {p(101), big, A}), "inputs must be reduced mod p");
  EXPECT_EQ(call_error("div_vorn", {p(0), A, A}), "only mod p computations are supported");
  EXPECT_EQ(call_error("div_vorn", {p(-101), A, A}), "negative modulus");
  // A leading coefficient with no inverse is found once the first block is out.
  const word fourteen_x = import(minikelto::multiply(integer(14), xy[0]), tdeg_xy, 4, 101);
  set_info_level(4);
  EXPECT_EQ(call_error("div_vorn", {p(7), A, fourteen_x}), "division by zero");
  EXPECT_EQ(output(), "alloc 1 terms\n");
  unset_info_level();
  // A zero dividend answers true before p is looked at.
  EXPECT_EQ(call_ok("div_vorn", {p(0), empty, big}), minikelto::true_value());
  EXPECT_EQ(call_ok("div_vorn", {p(-101), empty, A}), minikelto::true_value());
}

TEST_F(EntryChecks, DiagnosticsByLevel) {
  vorn::set_clock_source({ticking_cpu, still_wall});
  set_info_level(1);
  call_ok("mul_vorn", {p(101), A, B});
  call_ok("ads_vorn", {p(101), integer(0), A, B});
  EXPECT_EQ(output(), "");
  // Four clock reads: start, before the modulus test, after the kernel, end.
  set_info_level(2);
  call_ok("mul_vorn", {p(101), A, B});
  call_ok("scl_vorn", {p(101), integer(2), integer(3), A});
  const std::string line = "time: 0.003 sec   alg: 0.001 sec   io: 0.002 sec   real: 0.000 sec   ";
  const std::string got = output();
  EXPECT_EQ(got.substr(0, line.size()), line) << got;
  EXPECT_EQ(got.substr(got.find('\n') + 1, line.size()), line) << got;
  // Short cuts print nothing.
  call_ok("mul_vorn", {p(101), empty, B});
  call_ok("ads_vorn", {p(101), integer(0), A, empty});
  call_ok("scl_vorn", {p(101), integer(2), integer(3), empty});
  EXPECT_EQ(output(), "");
  vorn::set_clock_source({});
}

}  // namespace
