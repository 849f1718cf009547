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

#include "host/callbacks.hpp"

namespace vorn {

// The repackvorn entry: (container [, ring] [, pack = k] [, characteristic = p])
// -> the container itself when nothing changes, else a new unique container.
word repack_polynomial(const callback_table& cbt, word args);

}  // namespace vorn
