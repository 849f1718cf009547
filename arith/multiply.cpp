// The exponent test that guards the product kernel.
#include "arith/multiply.hpp"

#include "host/error.hpp"

namespace vorn {

void check_product_exponents(term_run A, term_run B, const word* layout, tracked_list& scratch) {
  const int msize = layout_msize(layout);
  if (msize == 0) return;
  const int shift = layout_shift(layout);
  auto* maxima = static_cast<word*>(scratch.take(2 * static_cast<std::size_t>(msize), sizeof(word)));
  word* maxima_b = maxima + msize;
  field_maxima<0>(maxima, A.terms, A.count, msize, shift);
  field_maxima<0>(maxima_b, B.terms, B.count, msize, shift);
  monomial_add<0>(maxima, maxima, maxima_b, msize);
  if (has_guard_bit<0>(maxima, layout_guard(layout), msize)) fail("exponent overflow");
}

}  // namespace vorn
