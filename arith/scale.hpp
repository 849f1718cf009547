// Scaling a term run by a fraction num/den mod p.
//
// The fraction becomes one factor before any term is visited, so each term
// costs one product and one reduction; factors 0 and 1 need no arithmetic.
#pragma once

#include <cstdint>

#include "host/words.hpp"

namespace vorn {

// The factor of num/den mod p, where num is a coefficient value (an immediate
// numerator's, unreduced, or a big numerator's residue) and den in [1, p) is
// the denominator's residue: num itself when den = 1, else num·den⁻¹ in
// [0, p).
std::int32_t scale_factor(std::int32_t num, std::int32_t den, std::int32_t p) noexcept;

// Writes the count terms of f (msize monomial words and a coefficient each)
// multiplied by factor mod p into R, dropping terms that vanish, and returns
// the number written.  R has room for count terms and does not overlap f.
std::int32_t scale_terms(word* R, const word* f, std::int32_t count, int msize, std::int32_t factor,
                         std::int32_t p) noexcept;

}  // namespace vorn
