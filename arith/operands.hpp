// What the arithmetic entries check about their operands before any work:
// containers of one ring, packed alike, holding only immediates when p is not
// 0; and a modulus they can compute with.
#pragma once

#include <cstdint>

#include "host/kernel.hpp"

namespace vorn {

// Two containers and their views.
struct operand_pair {
  word a_handle;
  word b_handle;
  term_block A;
  term_block B;
};

// Reads one container operand; raises "expecting a polynomial" for anything
// else (the terms of a real container are trusted as the library built them).
term_block read_operand(const callback_table& cbt, word h);

// Reads A and B, then raises, in this order, "the polynomials are not in the
// same ring", "the polynomials are packed differently" and (p != 0) "inputs
// must be reduced mod p".
operand_pair read_operand_pair(const callback_table& cbt, word a, word b, std::int32_t p);

// Raises "only mod p computations are supported" for p = 0, then "negative
// modulus" for p < 0.  Composite moduli are computed with.
void check_modulus(std::int32_t p);

}  // namespace vorn
