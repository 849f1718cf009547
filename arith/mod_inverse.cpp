// The extended Euclidean algorithm in signed 32-bit arithmetic.
#include "arith/mod_inverse.hpp"

#include "host/error.hpp"

namespace vorn {

std::int32_t mod_inverse(std::int32_t a, std::int32_t m) noexcept {
  std::int32_t r = a % m;
  if (r < 0) r += m;
  if (r == 0) return 0;
  // x = sx * r and y = sy * r (mod m) throughout.  The coefficient of the
  // zero remainder (up to m in magnitude) is never formed, so every product
  // and difference below stays within 32 bits even for m near 2^31.
  std::int32_t x = m;
  std::int32_t sx = 0;
  std::int32_t y = r;
  std::int32_t sy = 1;
  for (;;) {
    const std::int32_t q = x / y;
    const std::int32_t t = x - q * y;
    if (t == 0) break;
    const std::int32_t st = sx - q * sy;
    x = y;
    sx = sy;
    y = t;
    sy = st;
  }
  return sy >= 0 ? sy : sy + m;
}

std::int32_t unit_inverse(std::int32_t a, std::int32_t p) {
  const std::int32_t inverse = mod_inverse(a, p);
  if (static_cast<std::int64_t>(inverse) * a % p != 1) fail("division by zero");
  return inverse;
}

}  // namespace vorn
