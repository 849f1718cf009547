// The host's own exact expansion: sums, products and non-negative integer
// powers of names and integers, multiplied out into the canonical form of
// polynomial.hpp.  It does not use the plug-in, so tests take it as their
// oracle.
#pragma once

#include "minikelto/host.hpp"

namespace minikelto {

// The expanded form of `expression`, made unique.  Operands that are neither
// integers, sums, products nor powers (names, calls, equations) are treated
// as variables.  Throws std::invalid_argument for a negative exponent or one
// whose result it cannot hold (a degree above 2^30 - 1), and `interrupted`
// when an interrupt poll (one per 65536 term operations) answers non-zero.
word expand(word expression);

}  // namespace minikelto
