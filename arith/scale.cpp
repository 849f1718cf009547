// The scaling loop and its factor.
#include "arith/scale.hpp"

#include <cstring>

#include "arith/acc96.hpp"
#include "arith/mod_inverse.hpp"

namespace vorn {

std::int32_t scale_factor(std::int32_t num, std::int32_t den, std::int32_t p) noexcept {
  if (den == 1) return num;
  if (num == 0) return 0;
  const std::int32_t inverse = mod_inverse(den, p);
  if (num == 1) return inverse;
  acc96 acc;
  acc_clear(acc);
  acc_add_product(acc, inverse, num);
  return acc_reduce(acc, p);
}

std::int32_t scale_terms(word* R, const word* f, std::int32_t count, int msize, std::int32_t factor,
                         std::int32_t p) noexcept {
  const std::ptrdiff_t stride = msize + 1;
  if (factor == 0) return 0;
  if (factor == 1) {
    std::memcpy(R, f, static_cast<std::size_t>(count) * static_cast<std::size_t>(stride) * sizeof(word));
    return count;
  }
  std::int32_t written = 0;
  word* w = R;
  for (std::int32_t t = 0; t < count; ++t, f += stride) {
    for (int q = 0; q < msize; ++q) w[q] = f[q];
    acc96 acc;
    acc_clear(acc);
    acc_add_product(acc, immediate_value(f[msize]), factor);
    const std::int32_t r = acc_reduce(acc, p);  // r in [0, p)
    if (r != 0) {
      w[msize] = make_immediate(r);
      w += stride;
      ++written;
    }
  }
  return written;
}

}  // namespace vorn
