// The contract of the arithmetic kernels: product, division, sum and scaling.
//
// In: term runs, a term being msize monomial words and one coefficient word
// (a host immediate), back to back in decreasing monomial order; the shape of
// a monomial; the modulus p; and, for a kernel that needs scratch, the owner
// it goes on (a tracked list, or gateway arrays of the kernel's own), which
// releases it on every exit, an exception's included.
//
// Out: a sink, the kernel's only way out.  Result terms go, in decreasing
// order, into blocks the sink hands out; the sink also polls the host for an
// interrupt and prints the kernel's diagnostics.  Any call of a sink may throw
// vorn::error ("out of memory", "Interrupted").  Sinks are template
// parameters, so their calls inline; none is made per term.
//   word* next_block(std::int32_t capacity)
//     once for every block, in order: makes room for capacity terms
//     (capacity may be 0 for a merge's last block), links the block after
//     the previous one and returns its first word; prints "alloc %d terms"
//     above info level 3.
//   void poll()
//     after every block but the first, where the kernel says: raises
//     "Interrupted" when the host asks for it.
//   void note(int level, const char* format, int...)
//     prints a diagnostic line above info level `level`.
//   void finish(std::int32_t written)
//     once, when the result is complete: the count of the last block.  Every
//     earlier block is full (its count is its capacity).
#pragma once

#include <concepts>
#include <cstdint>
#include <type_traits>

#include "host/words.hpp"
#include "poly/monomial.hpp"
#include "poly/pack.hpp"

namespace vorn {

struct term_run {
  const word* terms;
  std::int32_t count;
};

inline term_run run_of(const term_block& view) noexcept { return {view.terms, view.count}; }

struct monomial_shape {
  int msize;      // monomial words per term
  bool tdeg;      // words after the first compare reversed
  int shift = 0;  // field width; 0 when unknown
  word guard = 0;  // the guard mask of every word; 0 when unknown
};

inline monomial_shape shape_of(const word* layout) noexcept {
  const int msize = layout_msize(layout);
  return {msize, layout_is_tdeg(layout), msize > 0 ? layout_shift(layout) : 0, layout_guard(layout)};
}

template <class S>
concept term_sink = requires(S& sink, std::int32_t n) {
  { sink.next_block(n) } -> std::same_as<word*>;
  sink.poll();
  sink.note(0, "", 0);
  sink.finish(n);
};

// A block after the first, the interrupt polled once it is linked.
template <term_sink Sink>
inline word* next_block_polled(Sink& out, std::int32_t capacity) {
  word* const w = out.next_block(capacity);
  out.poll();
  return w;
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

// True when no two neighbouring monomials of the run are equal.
template <int Msize>
bool strictly_decreasing(term_run R, monomial_shape shape) noexcept {
  const int m = Msize > 0 ? Msize : shape.msize;
  const std::ptrdiff_t stride = m + 1;
  for (std::int32_t t = 1; t < R.count; ++t)
    if (monomials_equal<Msize>(R.terms + (t - 1) * stride, R.terms + t * stride, m)) return false;
  return true;
}

// The signed value of a coefficient word.
inline std::int32_t coefficient_value(word w) noexcept { return immediate_value(w); }

}  // namespace vorn
