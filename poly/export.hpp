// Export of containers back into host polynomials.
//
// The result is a SUM of (term, coefficient) pairs in increasing monomial
// order: the constant term, when there is one, first as the pair (c, 1); every
// other term a PROD of (variable, exponent) pairs over the variables whose
// exponent is not 0, in the ring's order of variables.  Each object is created
// once at its final length.
#pragma once

#include "host/callbacks.hpp"

namespace vorn {

// The vorn2kelto entry: (container) -> host polynomial, the integer 0 for a
// container without terms.  Raises "expecting a polynomial" for anything that
// is not a container and "monomial order not supported".
word export_polynomial(const callback_table& cbt, word args);

}  // namespace vorn
