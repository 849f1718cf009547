// The modular inverse, for scaling by a fraction and for dividing by a
// leading coefficient.
#pragma once

#include <cstdint>

namespace vorn {

// For 1 <= m < 2^31: the s in [0, m) with s * a = gcd(a, m) (mod m) found by
// the extended Euclidean algorithm; for a prime m the inverse of a, and 0 when
// m divides a.
std::int32_t mod_inverse(std::int32_t a, std::int32_t m) noexcept;

// The inverse of a mod p (1 <= p < 2^31); raises "division by zero" when a
// has none: a multiple of p, or sharing a factor with a composite p.
std::int32_t unit_inverse(std::int32_t a, std::int32_t p);

}  // namespace vorn
