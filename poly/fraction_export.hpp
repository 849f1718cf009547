// Fraction export: term blocks whose terms carry a numerator and a
// denominator (msize + 2 words) become a container of integer coefficients,
// numerator * (L / denominator), for a common multiple L of the denominators.
//
// The terms are rewritten in place (msize + 1 words each, the write position
// never passing the read position).  Along the terms each denominator is a
// multiple of the one before, so the multiplier M = L / D changes by one exact
// division whenever D does.  Values that do not fit an immediate go into a
// pool of GMP records on the caller's tracked chain, which must outlive the
// call only until the container has copied them.
#pragma once

#include <cstdint>

#include "host/callbacks.hpp"

namespace vorn {

// The export_vorn_frac entry.  `first` is the list's first block as passed
// (its count and terms are used again for the assembly); `scale` is L, a host
// integer word.  On an interrupt or a failed pool allocation the caller's
// blocks and chain are freed before "Interrupted" or "out of memory" is
// raised; after a normal return both stay the caller's.
word export_fractions(const callback_table& cbt, term_block first, word ring, word scale, void** chain);

// Bytes of the next pool chunk for a record of `need` bytes after a chunk of
// `last` bytes (0 at first): (16 need + last) (100 need + 50) / (100 need),
// rounded to the nearest integer, ties to even.
std::size_t pool_chunk_bytes(std::size_t need, std::size_t last) noexcept;

}  // namespace vorn
