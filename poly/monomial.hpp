// Word-level operations on packed monomials, shared by every sort, merge,
// heap and overflow check.
//
// Each routine is a template on the words per monomial (Msize > 0 fixes the
// count at compile time; 0 reads it from the argument), so that the kernels
// dispatch once per call and the loops unroll.  All rely on the encoding's
// invariant: fields below 2^(shift - 1), guard bits clear, words below 2^31.
#pragma once

#include <cstddef>
#include <cstdint>

#include "poly/pack.hpp"

namespace vorn {

// Words after word 0 of a tdeg monomial hold the exponents reversed: there
// the smaller word is the larger monomial.  Exclusive-or'd with its compare
// mask, every word of every layout orders as a plain unsigned word (words are
// below 2^31, so the complement stays in 31 bits).  The comparison, the heap's
// integer keys and the sum's merge all order words through this mask.
inline constexpr word compare_mask(int i, bool tdeg) noexcept { return i > 0 && tdeg ? 0x7fffffffu : 0u; }

// Positive when a is greater in the layout's order, negative when smaller,
// 0 when equal.
template <int Msize>
inline std::int32_t compare_monomials(const word* a, const word* b, int msize, bool tdeg) noexcept {
  const int m = Msize > 0 ? Msize : msize;
  for (int i = 0; i < m; ++i) {
    if (a[i] != b[i]) {
      const word mask = compare_mask(i, tdeg);
      return (a[i] ^ mask) > (b[i] ^ mask) ? 1 : -1;
    }
  }
  return 0;
}

inline std::int32_t compare_monomials(const word* a, const word* b, const word* layout) noexcept {
  return compare_monomials<0>(a, b, layout_msize(layout), layout_is_tdeg(layout));
}

template <int Msize>
inline bool monomials_equal(const word* a, const word* b, int msize) noexcept {
  const int m = Msize > 0 ? Msize : msize;
  for (int i = 0; i < m; ++i)
    if (a[i] != b[i]) return false;
  return true;
}

// The product's monomial; no field carries while the sum stays below the guards.
template <int Msize>
inline void monomial_add(word* r, const word* a, const word* b, int msize) noexcept {
  const int m = Msize > 0 ? Msize : msize;
  for (int i = 0; i < m; ++i) r[i] = a[i] + b[i];
}

// True when some field of m reaches its guard bit (all mask words are equal).
template <int Msize>
inline bool has_guard_bit(const word* m, word guard, int msize) noexcept {
  const int count = Msize > 0 ? Msize : msize;
  word any = 0;
  for (int i = 0; i < count; ++i) any |= m[i];
  return (any & guard) != 0;
}

// Per-field maxima over count terms (stride msize + 1): maxima[i] holds, in
// each field, the largest value that field takes in any term.  Adding the
// maxima of two operands gives the largest field any product can have.
template <int Msize>
inline void field_maxima(word* maxima, const word* terms, std::int32_t count, int msize,
                         int shift) noexcept {
  const int m = Msize > 0 ? Msize : msize;
  const word mask = shift >= 32 ? ~word{0} : (word{1} << shift) - 1;
  for (int i = 0; i < m; ++i) maxima[i] = 0;
  for (std::int32_t t = 0; t < count; ++t) {
    const word* monomial = terms + static_cast<std::ptrdiff_t>(t) * (m + 1);
    for (int i = 0; i < m; ++i) {
      const word w = monomial[i];
      word& best = maxima[i];
      if ((w | best) == best) continue;  // no field can exceed one already held
      for (int position = 32 - shift; position >= 0; position -= shift) {
        const word field = (w >> position) & mask;
        if (field > ((best >> position) & mask)) best = (best & ~(mask << position)) | (field << position);
      }
    }
  }
}

}  // namespace vorn
