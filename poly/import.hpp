// Import of expanded host polynomials into containers.
//
// A host polynomial is an integer, a name, a PROD of (base, exponent) pairs or
// a SUM of (term, coefficient) pairs of these.  Each term becomes one packed
// monomial and one coefficient word: an immediate, or (characteristic 0) the
// address of the host integer's own record until the big-integer block copies
// it.  With a characteristic p the coefficients are residues (immediates keep
// their sign, big integers give 0 ... p - 1) and terms whose residue is 0 are
// dropped, the survivors compacted in input order.
#pragma once

#include <cstdint>

#include "host/callbacks.hpp"
#include "host/frame.hpp"
#include "poly/pack.hpp"

namespace vorn {

// The kelto2vorn entry: (polynomial, order [, pack = k] [, characteristic = p])
// -> a unique container.
word import_polynomial(const callback_table& cbt, word args);

// The end of a conversion into `container` (view: its terms): the terms
// sorted when `sort` (the time line's sort phase), the big-integer block, the
// layout released (the container holds its own copy), the time line, and the
// container made unique.
word finish_conversion(const callback_table& cbt, timing& t, word container, const term_block& view, bool sort,
                       layout_owner& layout);

}  // namespace vorn
