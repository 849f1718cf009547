// Block growth of the heap computations.
#include "arith/grow.hpp"

#include <cmath>

namespace vorn {

std::int32_t grow_estimate(std::int32_t cap, std::int32_t k) noexcept {
  const std::int64_t hundred_k = std::int64_t{100} * k;
  const long double next =
      std::nearbyintl(static_cast<long double>(hundred_k + 50) * cap / static_cast<long double>(hundred_k));
  if (next >= static_cast<long double>(max_block_terms)) return max_block_terms;
  return static_cast<std::int32_t>(next);
}

}  // namespace vorn
