// Exact division mod p: the quotient A / B, or the answer that B does not
// divide A, by merging the products of quotient and divisor terms in the term
// heap instead of ever forming A - Q·B.
//
// The quotient is a list of term blocks in decreasing order; every block but
// the last is full (count = capacity) and the last may be empty.  A list is
// handed back only when every monomial of A - Q·B cancelled.
#pragma once

#include <cstdint>

#include "host/callbacks.hpp"
#include "host/memory.hpp"

namespace vorn {

// Knobs for tests; the defaults are what the entry uses.
struct division_options {
  // Capacity of the first quotient block; 0 means min(#B, 1024).  Changes
  // where the quotient heap gives way to the divisor heap, never the result.
  std::int32_t first_block = 0;
};

// Divides A by B mod p (1 <= p < 2^30; A and B packed alike, decreasing, no
// big coefficients).  An operand that repeats a monomial is merged first
// (equal terms summed mod p, vanished sums dropped), and the blocks and the
// switch follow the merged operands.  True with the quotient on `quotient`
// (empty on entry) when B divides A; false with `quotient` empty otherwise,
// and when B has no terms.  Decoded and merged operands go on `scratch`, for
// the caller to free.  Raises "division by zero" when B's terms cancel mod p
// and, once the first block's line is out, when B's leading coefficient has
// no inverse mod p; "exponent overflow" before a quotient term whose products
// with B would reach a guard bit; "out of memory"; and "Interrupted" (polled
// once per new quotient block).  Every block the call holds is released by
// its owner.
bool heap_divide(const callback_table& cbt, tracked_list& scratch, std::int32_t p, term_block A,
                 term_block B, term_block_list& quotient, division_options options = {});

}  // namespace vorn
