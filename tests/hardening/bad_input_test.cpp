// The bad-input table: for each entry, one call per kind of bad argument and
// the message the user gets (docs/BAD_INPUT.md lists the same rows).  Each
// row runs on a fresh call, and nothing may stay held after any of them.
#include <initializer_list>
#include <string>
#include <vector>

#include "support/host_fixture.hpp"

namespace {

using word = minikelto::word;

class BadInput : public host_test {};

TEST_F(BadInput, EveryKindOfBadArgumentGetsItsMessage) {
  const word x = name("x"), y = name("y");
  const word ring = funcall("plex", {x, y});
  const word other = funcall("plex", {y, x});
  const word p = integer(101);
  const word f = minikelto::unique(sum({{x, integer(3)}, {y, integer(5)}, {integer(1), integer(1)}}));
  const word A = call_ok("kelto2vorn", {f, ring, option("characteristic", 101)});
  const word A_other_ring = call_ok("kelto2vorn", {f, other, option("characteristic", 101)});
  const word A_pack2 = call_ok("kelto2vorn", {f, ring, option("pack", 2), option("characteristic", 101)});
  const word A_big = call_ok("kelto2vorn", {unique(sum({{x, integer("100000000000000000000")}})), ring});
  const word A_unreduced = call_ok("kelto2vorn", {unique(sum({{x, integer(-3)}})), ring, option("characteristic", 101)});
  const word zero = call_ok("kelto2vorn", {integer(0), ring});
  const word big = integer("100000000000000000000");
  const word fake = funcall("VORN", {integer(1)});

  struct row {
    const char* entry;
    std::vector<word> arguments;
    const char* message;
  };
  const std::vector<row> rows = {
      {"num_cpus", {x}, "first argument must be an immediate integer"},
      {"kelto2vorn", {f}, "expecting a polynomial and a monomial order"},
      {"kelto2vorn", {f, x}, "expecting a polynomial and a monomial order"},
      {"kelto2vorn", {f, ring, option("pack", 0)}, "invalid argument"},
      {"kelto2vorn", {f, ring, option("pack", 33)}, "invalid argument"},
      {"kelto2vorn", {f, ring, equation(name("pack"), x)}, "invalid argument"},
      {"kelto2vorn", {f, ring, equation(name("characteristic"), big)}, "invalid argument"},
      {"kelto2vorn", {f, ring, integer(4)}, "invalid argument"},
      {"kelto2vorn", {f, ring, option("characteristic", -5)}, "negative modulus"},
      {"kelto2vorn", {f, funcall("lex", {x, y})}, "monomial order not supported"},
      {"kelto2vorn", {ring, ring}, "expecting an expanded polynomial"},
      {"kelto2vorn", {unique(sum({{x, name("c")}})), ring}, "expecting an expanded polynomial"},
      {"kelto2vorn", {prod({{x, -1}}), ring}, "expecting an expanded polynomial"},
      {"kelto2vorn", {minikelto::make_prod(std::vector<std::pair<word, word>>{{x, big}}), ring}, "expecting an expanded polynomial"},
      {"kelto2vorn", {prod({{x, 1 << 29}}), ring, option("pack", 2)}, "exponent overflow"},
      {"kelto2vorn", {prod({{x, 200}}), ring, option("pack", 4)}, "exponent overflow"},
      {"vorn2kelto", {f}, "expecting a polynomial"},
      {"vorn2kelto", {fake}, "expecting a polynomial"},
      {"repackvorn", {}, "expecting a polynomial"},
      {"repackvorn", {f, option("pack", 2)}, "invalid argument"},
      {"repackvorn", {A, option("pack", 40)}, "invalid argument"},
      {"repackvorn", {A, ring, ring}, "invalid argument"},
      {"repackvorn", {A, option("characteristic", -1)}, "negative modulus"},
      {"repackvorn", {A, funcall("deglex", {x, y})}, "monomial order not supported"},
      {"repackvorn", {call_ok("kelto2vorn", {prod({{x, 200}}), ring}), option("pack", 4)}, "exponent overflow"},
      {"mul_vorn", {p, A}, "expecting a modulus and two polynomials"},
      {"mul_vorn", {big, A, A}, "first argument should be an immediate integer modulus"},
      {"mul_vorn", {p, A, f}, "expecting a polynomial"},
      {"mul_vorn", {p, A, A_other_ring}, "the polynomials are not in the same ring"},
      {"mul_vorn", {p, A, A_pack2}, "the polynomials are packed differently"},
      {"mul_vorn", {integer(-7), A, A}, "negative modulus"},
      {"mul_vorn", {p, A_big, A}, "inputs must be reduced mod p"},
      {"mul_vorn", {integer(0), A, A}, "only mod p computations are supported"},
      {"ads_vorn", {p, integer(0), A}, "expecting a modulus, flag, and two polynomials"},
      {"ads_vorn", {x, integer(0), A, A}, "first argument should be an immediate integer modulus"},
      {"ads_vorn", {p, x, A, A}, "second argument should be an immediate integer, 0=add, 1=subtract"},
      {"ads_vorn", {p, integer(1), A, A_other_ring}, "the polynomials are not in the same ring"},
      {"ads_vorn", {p, integer(0), A_pack2, A}, "the polynomials are packed differently"},
      {"ads_vorn", {p, integer(0), A_big, A}, "inputs must be reduced mod p"},
      {"scl_vorn", {p, integer(1), integer(1)}, "expecting a modulus, multiplier, denominator, and a polynomial"},
      {"scl_vorn", {big, integer(1), integer(1), A}, "first argument should be an immediate integer modulus"},
      {"scl_vorn", {p, x, integer(1), A}, "second argument should be an integer numerator"},
      {"scl_vorn", {p, integer(1), x, A}, "third argument should be an integer denominator"},
      {"scl_vorn", {p, integer(1), integer(202), A}, "division by zero"},
      {"scl_vorn", {integer(6), integer(1), integer(4), A}, "division by zero"},
      {"scl_vorn", {p, integer(1), integer(1), A_big}, "inputs must be reduced mod p"},
      {"scl_vorn", {integer(0), integer(1), integer(1), A}, "only mod p computations are supported"},
      {"div_vorn", {p, A}, "expecting a modulus and at least two polynomials"},
      {"div_vorn", {integer(1) , A, x}, "expecting a polynomial"},
      {"div_vorn", {big, A, A}, "first argument should be an immediate integer modulus"},
      {"div_vorn", {p, A, A_other_ring}, "the polynomials are not in the same ring"},
      {"div_vorn", {p, A, A_pack2}, "the polynomials are packed differently"},
      {"div_vorn", {p, A, zero}, "division by zero"},
      {"div_vorn", {p, A_big, A}, "inputs must be reduced mod p"},
      {"div_vorn", {integer(0), A, A}, "only mod p computations are supported"},
  };
  for (const row& r : rows) {
    const minikelto::call_result result = minikelto::call_entry(linked_plugin(), r.entry, r.arguments);
    EXPECT_FALSE(result.ok) << r.entry << " accepted " << result.value;
    EXPECT_EQ(result.error, r.message) << r.entry << " (row " << (&r - rows.data()) << ")";
  }
  // Immediate coefficients outside 0 ... p - 1 (the import keeps the sign of
  // negative ones; a container made for another p) are not refused: the
  // arithmetic reduces them like any other.
  const auto mod_p = [&](const char* entry, std::initializer_list<word> arguments) {
    return text(call_ok("vorn2kelto", {call_ok(entry, arguments)}));
  };
  EXPECT_EQ(mod_p("mul_vorn", {p, A_unreduced, A}), "98*x + 86*x*y + 92*x^2");
  EXPECT_EQ(mod_p("ads_vorn", {p, integer(0), A_unreduced, A}), "1 + 5*y");
  EXPECT_EQ(mod_p("ads_vorn", {integer(3), integer(0), A, A}), "2 + y");
  // Any flag other than 0 subtracts.
  EXPECT_EQ(mod_p("ads_vorn", {p, integer(2), A, A_unreduced}), "1 + 5*y + 6*x");
  // Still usable: the sum of A with itself.
  EXPECT_EQ(text(call_ok("vorn2kelto", {call_ok("ads_vorn", {p, integer(0), A, A})})), "2 + 10*y + 6*x");
}

}  // namespace
