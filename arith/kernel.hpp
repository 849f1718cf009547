// What the arithmetic kernels share: the term runs they read, the shape of a
// monomial, the dispatch on words per monomial, and the contract of the sink
// they write result terms into.
//
// A term is msize monomial words and one coefficient word, a host immediate;
// a run holds its terms back to back in decreasing monomial order.
//
// Block sink: a kernel that writes term blocks calls, on its sink,
//   word* next_block(std::int32_t capacity)
//     once for every block, the first included, in order; the sink makes room
//     for capacity terms (capacity may be 0 for a merge's last block), links
//     the block after the previous one and returns its first word.  For every
//     block but the first it then polls for an interrupt.  It may throw
//     vorn::error ("out of memory", "Interrupted"); the kernel's own scratch
//     is released by its owners as the exception passes.
//   void finish(std::int32_t written)
//     once, when the result is complete: the count of the last block.  Every
//     earlier block is full (its count is its capacity).
// Sinks are template parameters, so the per-block calls inline; nothing is
// called per term.
#pragma once

#include <cstdint>
#include <type_traits>

#include "host/words.hpp"
#include "poly/pack.hpp"

namespace vorn {

struct term_run {
  const word* terms;
  std::int32_t count;
};

struct monomial_shape {
  int msize;      // monomial words per term
  bool tdeg;      // words after the first compare reversed
  int shift = 0;  // field width; 0 when unknown
};

inline monomial_shape shape_of(const word* layout) noexcept {
  return {layout_msize(layout), layout_is_tdeg(layout), layout_msize(layout) > 0 ? layout_shift(layout) : 0};
}

// Calls f(std::integral_constant<int, M>{}) with M = msize for 1, 2 and 3,
// and M = 0 (words read at run time) otherwise.
template <class F>
inline decltype(auto) with_msize(int msize, F&& f) {
  switch (msize) {
    case 1:
      return f(std::integral_constant<int, 1>{});
    case 2:
      return f(std::integral_constant<int, 2>{});
    case 3:
      return f(std::integral_constant<int, 3>{});
    default:
      return f(std::integral_constant<int, 0>{});
  }
}

// The signed value of a coefficient word.
inline std::int32_t coefficient_value(word w) noexcept { return immediate_value(w); }

}  // namespace vorn
