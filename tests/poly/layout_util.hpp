// Layout records built in test memory, for the tests that need no host, and
// the reference orders computed from exponent vectors.
#pragma once

#include <cstdint>
#include <vector>

#include "poly/pack.hpp"

namespace vorn::test {

inline std::vector<word> local_layout(monomial_order order, int n, int pack) {
  const int shift = pack_shift(pack);
  const int msize = layout_msize(order, n, pack);
  std::vector<word> layout(static_cast<std::size_t>(layout_words(msize)), guard_mask(shift));
  layout[0] = static_cast<word>(msize);
  layout[1] = static_cast<word>(shift) | (order == monomial_order::tdeg ? tdeg_flag : 0);
  return layout;
}

// Positive, zero or negative as a is greater, equal or smaller than b.
inline int reference_compare(monomial_order order, const std::vector<std::uint32_t>& a,
                             const std::vector<std::uint32_t>& b) {
  const std::size_t n = a.size();
  if (order != monomial_order::plex) {
    std::uint64_t da = 0, db = 0;
    for (std::size_t i = 0; i < n; ++i) da += a[i], db += b[i];
    if (da != db) return da > db ? 1 : -1;
  }
  if (order == monomial_order::tdeg) {
    for (std::size_t i = n; i-- > 0;)
      if (a[i] != b[i]) return a[i] < b[i] ? 1 : -1;
    return 0;
  }
  for (std::size_t i = 0; i < n; ++i)
    if (a[i] != b[i]) return a[i] > b[i] ? 1 : -1;
  return 0;
}

inline int sign(std::int64_t v) { return (v > 0) - (v < 0); }

#if defined(__SANITIZE_ADDRESS__) || UINTPTR_MAX == 0xffffffffu
inline constexpr bool small_tests = true;
#else
inline constexpr bool small_tests = false;
#endif

}  // namespace vorn::test
