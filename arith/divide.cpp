// The merge of repeated monomials that the division makes of its operands.
#include "arith/divide.hpp"

namespace vorn {

term_run merged(term_run F, monomial_shape shape, std::int32_t p, tracked_list& scratch) {
  if (with_msize(shape.msize, [&](auto M) { return strictly_decreasing<decltype(M)::value>(F, shape); })) return F;
  const int m = shape.msize;
  const std::ptrdiff_t stride = m + 1;
  auto* const out = static_cast<word*>(
      scratch.take(checked_bytes(static_cast<std::size_t>(F.count), static_cast<std::size_t>(stride)), sizeof(word)));
  std::int32_t n = 0;
  for (std::int32_t t = 0; t < F.count;) {
    const word* const first = F.terms + t * stride;
    std::int64_t sum = 0;
    do {
      sum += coefficient_value(F.terms[t * stride + m]);
      ++t;
    } while (t < F.count && monomials_equal<0>(first, F.terms + t * stride, m));
    const std::int32_t r = residue(static_cast<std::int32_t>(sum % p), p);
    if (r == 0) continue;
    std::copy_n(first, m, out + n * stride);
    out[n * stride + m] = make_immediate(r);
    ++n;
  }
  return {out, n};
}

}  // namespace vorn
