// Sizes of the output term blocks that the heap computations fill.
//
// A block is never reallocated: when one fills, the next one is sized from how
// many products the term that filled it summed.  Few products per term mean
// the result is about as large as the product count, so the blocks grow fast;
// many mean heavy cancellation of monomials, so they grow slowly.
#pragma once

#include <cstdint>

namespace vorn {

// The largest block any kernel asks for while more output may follow.
inline constexpr std::int32_t max_block_terms = 524288;

// The capacity of the block that follows one of capacity cap filled by a term
// summed from k >= 1 products: (100k + 50) * cap / (100k) in extended
// precision, ties to even, at most max_block_terms; never below cap.
std::int32_t grow_estimate(std::int32_t cap, std::int32_t k) noexcept;

}  // namespace vorn
