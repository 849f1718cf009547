// Repacking: a container re-encoded in another ring, packing or
// characteristic without going through host expressions.
//
// Each term is unpacked once, its exponents mapped onto the new variables
// (by identity of the variable handles; a variable the old ring lacks gets
// exponent 0), and packed once.  A change of packing alone keeps the order of
// terms, so the terms are re-sorted only when the ring changed or terms
// vanished.
#pragma once

#include <cstdint>

#include "host/kernel.hpp"
#include "poly/pack.hpp"

namespace vorn {

// What convert_terms needs of one side of the conversion.
struct ring_side {
  word variables;  // the variable SEQ
  const word* layout;
};

// Re-encodes n terms from `source` into the zeroed `dest`; with p > 0 the
// coefficients become residues (truncating for immediates, floor for big
// integers) and terms whose residue is 0 are dropped, the survivors keeping
// their order.  Returns the number dropped.  Raises "exponent overflow" for a
// surviving term that does not fit the new fields, and "out of memory".
std::int32_t convert_terms(const word* source, word* dest, ring_side from, ring_side to,
                           unpack_routine unpack, pack_routine pack, bool graded, std::int32_t n,
                           std::int32_t p);

// The repackvorn entry: (container [, ring] [, pack = k] [, characteristic = p])
// -> the container itself when nothing changes, else a new unique container.
word repack_polynomial(const callback_table& cbt, word args);

}  // namespace vorn
