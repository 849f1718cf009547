// Scaling a term run by a fraction num/den mod p.
//
// The fraction becomes one factor before any term is visited, so each term
// costs one product and one reduction; factors 0 and 1 need no arithmetic.
#pragma once

#include <cstdint>

#include "arith/kernel.hpp"

namespace vorn {

// The factor of num/den mod p, where num is a coefficient value (an immediate
// numerator's, unreduced, or a big numerator's residue) and den in [0, p) is
// the denominator's residue: num itself when den = 1, else num·den⁻¹ in
// [0, p).  Raises "division by zero" when den has no inverse mod p.
std::int32_t scale_factor(std::int32_t num, std::int32_t den, std::int32_t p);

// Writes the count terms of f multiplied by factor mod p into R, dropping
// terms that vanish, and returns the number written.  R has room for count
// terms and does not overlap f.  Factor 1 copies the terms as they are.
std::int32_t scale_into(word* R, term_run f, int msize, std::int32_t factor, std::int32_t p) noexcept;

// Writes f·factor mod p (p >= 1) to the sink, in one block of f.count terms.
template <term_sink Sink>
void scale_terms(term_run f, monomial_shape shape, std::int32_t factor, std::int32_t p, Sink& out) {
  out.finish(scale_into(out.next_block(f.count), f, shape.msize, factor, p));
}

}  // namespace vorn
