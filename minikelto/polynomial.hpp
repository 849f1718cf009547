// Host polynomials in the host's canonical form, and the arithmetic that
// keeps values in it.
//
// Canonical form: a polynomial is a SUM of (term, coefficient) pairs whose
// coefficients are non-zero integers (immediate when they fit, else
// INTPOS/INTNEG) and whose terms are distinct; a constant c is the pair
// (c, 1); a term is a NAME (a variable to the first power) or a PROD of
// (base, exponent) pairs with distinct bases and positive integer exponents
// (immediate when they fit, of any size otherwise).  Degenerate cases collapse: no terms is the integer 0, a lone
// constant is that integer, a lone term with coefficient 1 is the term.
// Every result is made unique, so equal values are one handle.
#pragma once

#include <cstdint>
#include <span>
#include <utility>

#include "minikelto/host.hpp"

namespace minikelto {

struct expanded_term {
  word monomial;     // from make_monomial; the integer 1 for a constant
  word coefficient;  // a non-zero integer
};

// The monomial of (variable, exponent) pairs, exponents positive, variables
// distinct and in the order wanted: 1, the variable itself, or a fresh PROD
// that make_polynomial makes unique.
word make_monomial(std::span<const std::pair<word, std::int32_t>> powers);

// The polynomial of distinct terms in the order given, made unique.
word make_polynomial(std::span<const expanded_term> terms);

// Arithmetic on canonical values.  Equal terms and bases are merged (by
// handle, which uniqueness makes exact); sums are not multiplied out (that is
// expand's job), so (x+1)*(x+1) is the power (x+1)^2.  The operands may be any
// unique host values; what is neither an integer, a SUM nor a PROD is an
// opaque term.  Throws std::invalid_argument when an integer power grows
// too large, and `interrupted` when a poll (count_work) answers.
word add(word a, word b);
word subtract(word a, word b);
word negate(word a);
word multiply(word a, word b);
// n must be a non-negative integer (else std::invalid_argument).
word power(word a, word n);

}  // namespace minikelto
