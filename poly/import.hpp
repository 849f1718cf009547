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

#include "host/kernel.hpp"
#include "poly/pack.hpp"

namespace vorn {

// What packing one term needs, fixed once per call.
struct term_packer {
  word variables;           // the ring's variable SEQ
  int n;                    // number of ring variables
  int shift;                // field width
  int msize;
  bool graded;              // grlex or tdeg: the total degree has a field too
  pack_routine pack;
  std::uint32_t* exponents;  // scratch for n exponents
};

// Packs the SUM's (length - 1) / 2 terms into `terms` (zeroed, room for all of
// them) and returns how many vanished mod p (always 0 when p = 0).  Raises
// "expecting an expanded polynomial" for a term, coefficient or ring-variable
// exponent of another kind, and "exponent overflow" for a surviving term that
// does not fit its fields; the first offending term decides.
std::int32_t import_sum_terms(word* terms, word sum, const term_packer& packer, std::int32_t length,
                              std::int32_t p);

// The kelto2vorn entry: (polynomial, order [, pack = k] [, characteristic = p])
// -> a unique container.
word import_polynomial(const callback_table& cbt, word args);

}  // namespace vorn
