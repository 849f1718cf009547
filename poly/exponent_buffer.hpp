// Scratch exponent vectors for the conversions: one per call, never per term.
//
// Rings of up to inline_words variables use the stack; larger rings take one
// gateway block for the whole call, released on every exit.
#pragma once

#include <cstddef>
#include <cstdint>

#include "host/memory.hpp"

namespace vorn {

struct exponent_buffer {
  static constexpr std::size_t inline_words = 64;

  std::uint32_t local[inline_words];
  gateway_array<std::uint32_t> spill;
  std::uint32_t* data;

  // Room for `words` exponents; raises "out of memory".
  explicit exponent_buffer(std::size_t words) : local{}, data(local) {
    if (words > inline_words) {
      spill.data = static_cast<std::uint32_t*>(gateway_take(words, sizeof(std::uint32_t)));
      data = spill.data;
    }
  }
  exponent_buffer(const exponent_buffer&) = delete;
  exponent_buffer& operator=(const exponent_buffer&) = delete;
};

// The limit no field may reach: 2^(shift - 1).  For grlex and tdeg the total
// degree (summed in 64 bits) must stay below it too.
inline bool exponents_fit(const std::uint32_t* exponents, int n, int shift, bool graded) noexcept {
  const std::uint64_t limit = std::uint64_t{1} << (shift - 1);
  std::uint64_t degree = 0;
  for (int i = 0; i < n; ++i) {
    if (exponents[i] >= limit) return false;
    degree += exponents[i];
  }
  return !graded || degree < limit;
}

}  // namespace vorn
