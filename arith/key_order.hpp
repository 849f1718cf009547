// Heap keys: how the term heap holds and orders the monomial of a product.
//
// Every order gives the kernels the same four things, so that none of them
// asks which kind of key it holds: the key of a product from its two factors
// (product_key), the key of a product one of whose factors moved on to the
// next term of its run, from the popped key and the step between the two
// terms, made once per run (next_key), the order of a term against a key
// (compare), and the monomial a key stands for (write_monomial).
//  - word_key_order: the one monomial word as a signed 32-bit integer (the
//    guard bit 31 is clear in every valid monomial).
//  - wide_key_order<M>: words 0 and 1 as one 64-bit integer, word 0 above
//    word 1, word 1 through its compare mask, so that one unsigned comparison
//    orders them as compare_monomials does.  With two words per monomial that
//    is the whole order and a key gives back its monomial.  With three (tdeg
//    only) the caller guarantees that words 0 and 1 decide (see
//    tdeg_decided_by_two_words); the monomial then comes from the factors.
//  - buffer_key_order<M>: the address of the stream's key buffer (msize
//    words), compared word by word; a product's key is formed anew in its
//    stream's buffer, so its steps carry nothing.  Buffers are rewritten as
//    streams move on, so a popped monomial must be copied out before.
// The heap relies on guard bits being clear; it does not check them.  Msize
// is the words per monomial fixed at compile time, or 0 for a count read
// from the layout.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "arith/kernel.hpp"
#include "host/words.hpp"
#include "poly/monomial.hpp"

namespace vorn {

// The step of orders whose keys are formed anew for every product.
struct no_step {};

struct word_key_order {
  using key_type = std::int32_t;
  using step_type = std::int32_t;
  static constexpr bool integer_keys = true;

  word_key_order(int, bool) noexcept {}

  static constexpr int words() noexcept { return 1; }
  static bool less(key_type a, key_type b) noexcept { return a < b; }
  static bool equal(key_type a, key_type b) noexcept { return a == b; }
  static word* buffer(word*, std::int32_t) noexcept { return nullptr; }

  static key_type product_key(const word* a, const word* b, word*) noexcept {
    return static_cast<key_type>(a[0] + b[0]);
  }
  // Wrapping arithmetic, exact because every key it makes is valid.
  static step_type step(const word* from, const word* to) noexcept { return static_cast<step_type>(to[0] - from[0]); }
  static key_type next_key(key_type key, step_type step, const word*, const word*, word*) noexcept {
    return static_cast<key_type>(static_cast<word>(key) + static_cast<word>(step));
  }
  static int compare(const word* term, key_type key) noexcept {
    const auto t = static_cast<key_type>(term[0]);
    return (t > key) - (t < key);
  }
  template <class Factors>
  static void write_monomial(word* dest, key_type key, Factors&&) noexcept {
    dest[0] = static_cast<word>(key);
  }
};

template <int Msize>
struct wide_key_order {
  static_assert(Msize == 2 || Msize == 3);
  using key_type = std::uint64_t;
  using step_type = std::uint64_t;
  static constexpr bool integer_keys = true;

  word flip;  // the compare mask of word 1

  wide_key_order(int, bool tdeg) noexcept : flip(compare_mask(1, tdeg)) {}

  static constexpr int words() noexcept { return Msize; }
  static bool less(key_type a, key_type b) noexcept { return a < b; }
  static bool equal(key_type a, key_type b) noexcept { return a == b; }
  static word* buffer(word*, std::int32_t) noexcept { return nullptr; }

  key_type key_of(word w0, word w1) const noexcept { return (static_cast<key_type>(w0) << 32) | (w1 ^ flip); }
  key_type key_of(const word* m) const noexcept { return key_of(m[0], m[1]); }

  // Sums of exponents stay below the guard bits, so the low half never
  // carries into the high one, and step arithmetic wraps exactly.
  key_type product_key(const word* a, const word* b, word*) const noexcept { return key_of(a[0] + b[0], a[1] + b[1]); }
  key_type step(const word* from, const word* to) const noexcept { return key_of(to) - key_of(from); }
  static key_type next_key(key_type key, step_type step, const word*, const word*, word*) noexcept {
    return key + step;
  }
  int compare(const word* term, key_type key) const noexcept {
    const key_type t = key_of(term);
    return (t > key) - (t < key);
  }
  // factors() gives the product's two factor terms (three words each).
  template <class Factors>
  void write_monomial(word* dest, key_type key, Factors&& factors) const noexcept {
    if constexpr (Msize == 2) {
      dest[0] = static_cast<word>(key >> 32);
      dest[1] = static_cast<word>(key) ^ flip;
    } else {
      const auto [a, b] = factors();
      monomial_add<3>(dest, a, b, 3);
    }
  }
};

template <int Msize>
struct buffer_key_order {
  using key_type = const word*;
  using step_type = no_step;
  static constexpr bool integer_keys = false;

  int msize;
  bool tdeg;

  buffer_key_order(int words_per_monomial, bool is_tdeg) noexcept : msize(words_per_monomial), tdeg(is_tdeg) {}

  int words() const noexcept { return Msize > 0 ? Msize : msize; }
  bool less(key_type a, key_type b) const noexcept { return compare_monomials<Msize>(a, b, msize, tdeg) < 0; }
  bool equal(key_type a, key_type b) const noexcept { return monomials_equal<Msize>(a, b, msize); }
  // Stream s's key buffer in an array of msize words per stream.
  word* buffer(word* buffers, std::int32_t s) const noexcept { return buffers + std::ptrdiff_t{s} * words(); }

  key_type product_key(const word* a, const word* b, word* buffer) const noexcept {
    monomial_add<Msize>(buffer, a, b, msize);
    return buffer;
  }
  static no_step step(const word*, const word*) noexcept { return {}; }
  key_type next_key(key_type, no_step, const word* a, const word* b, word* buffer) const noexcept {
    return product_key(a, b, buffer);
  }
  int compare(const word* term, key_type key) const noexcept {
    return compare_monomials<Msize>(term, key, msize, tdeg);
  }
  template <class Factors>
  void write_monomial(word* dest, key_type key, Factors&&) const noexcept {
    for (int i = 0; i < words(); ++i) dest[i] = key[i];
  }
};

// True when, for tdeg monomials of three words, words 0 and 1 decide the
// order of any two products of terms whose field maxima (over both
// operands) are maxima_a and maxima_b: word 0 starts with the total degree,
// word 1 holds the last exponents, and when at most one field of word 2 is
// non-zero anywhere, that field is the degree less the fields of word 1, so
// equal words 0 and 1 mean equal monomials.
inline bool tdeg_decided_by_two_words(word maxima_a2, word maxima_b2, int shift) noexcept {
  const word used = maxima_a2 | maxima_b2;
  const word mask = shift >= 32 ? ~word{0} : (word{1} << shift) - 1;
  int fields = 0;
  for (int position = 32 - shift; position >= 0; position -= shift)
    if (((used >> position) & mask) != 0) ++fields;
  return fields <= 1;
}

// True when tdeg monomials of three words are ordered by their first two
// words in every product of A and B (see tdeg_decided_by_two_words).
inline bool two_word_keys_decide(term_run A, term_run B, monomial_shape shape) noexcept {
  if (shape.msize != 3 || !shape.tdeg || shape.shift <= 0) return false;
  word used_a = 0;
  word used_b = 0;
  for (std::int32_t t = 0; t < A.count; ++t) used_a |= A.terms[static_cast<std::ptrdiff_t>(t) * 4 + 2];
  for (std::int32_t t = 0; t < B.count; ++t) used_b |= B.terms[static_cast<std::ptrdiff_t>(t) * 4 + 2];
  return tdeg_decided_by_two_words(used_a, used_b, shape.shift);
}

// The order the kernels use for Msize words per monomial (three-word tdeg
// takes wide keys instead where two words decide, which the kernels test).
template <int Msize>
struct kernel_key_order {
  using type = buffer_key_order<Msize>;
};
template <>
struct kernel_key_order<1> {
  using type = word_key_order;
};
template <>
struct kernel_key_order<2> {
  using type = wide_key_order<2>;
};
template <int Msize>
using kernel_key_order_t = typename kernel_key_order<Msize>::type;

// Calls f(std::integral_constant<int, M>{}, std::type_identity<Order>{})
// with the words per monomial (see with_msize) and the key order that the
// kernels use for the products of A and B.
template <class F>
inline decltype(auto) with_key_order(term_run A, term_run B, monomial_shape shape, F&& f) {
  if (two_word_keys_decide(A, B, shape))
    return f(std::integral_constant<int, 3>{}, std::type_identity<wide_key_order<3>>{});
  return with_msize(shape.msize, [&](auto M) {
    return f(M, std::type_identity<kernel_key_order_t<decltype(M)::value>>{});
  });
}

}  // namespace vorn
