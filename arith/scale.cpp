// The scaling loop and its factor.
#include "arith/scale.hpp"

#include <cstring>

#include "arith/acc96.hpp"
#include "arith/mod_inverse.hpp"

namespace vorn {

std::int32_t scale_factor(std::int32_t num, std::int32_t den, std::int32_t p) {
  if (den == 1) return num;
  const std::int32_t inverse = unit_inverse(den, p);
  if (num == 0) return 0;
  if (num == 1) return inverse;
  acc96 acc;
  acc_clear(acc);
  acc_add_product(acc, inverse, num);
  return acc_reduce(acc, make_modulus(p));
}

namespace {

// The loop for Msize monomial words (0: msize of them).  The factor, reduced
// once, makes each product's sign that of the term's coefficient, which is
// almost always the same for a whole run.
template <int Msize>
std::int32_t scale_loop(word* R, term_run f, int msize, std::int32_t factor, std::int32_t p) noexcept {
  const int m = Msize > 0 ? Msize : msize;
  const std::ptrdiff_t stride = m + 1;
  const modulus mod = make_modulus(p);
  const auto by = static_cast<std::uint64_t>(residue(factor, p));
  word* w = R;
  const word* t = f.terms;
  for (std::int32_t k = 0; k < f.count; ++k, t += stride) {
    for (int q = 0; q < m; ++q) w[q] = t[q];
    const std::int32_t v = coefficient_value(t[m]);
    std::uint32_t r;
    if (v >= 0) {
      r = reduce64(static_cast<std::uint64_t>(v) * by, mod);
    } else {
      r = reduce64(static_cast<std::uint64_t>(-static_cast<std::int64_t>(v)) * by, mod);
      if (r != 0) r = mod.p - r;
    }
    if (r != 0) {
      w[m] = make_immediate(static_cast<std::int32_t>(r));
      w += stride;
    }
  }
  return static_cast<std::int32_t>((w - R) / stride);
}

}  // namespace

std::int32_t scale_into(word* R, term_run f, int msize, std::int32_t factor, std::int32_t p) noexcept {
  if (factor == 0) return 0;
  if (factor == 1) {
    const auto stride = static_cast<std::size_t>(msize + 1);
    std::memcpy(R, f.terms, static_cast<std::size_t>(f.count) * stride * sizeof(word));
    return f.count;
  }
  return with_msize(msize, [&](auto M) { return scale_loop<decltype(M)::value>(R, f, msize, factor, p); });
}

}  // namespace vorn
