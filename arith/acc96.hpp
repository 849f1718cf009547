// The coefficient accumulator: a signed 96-bit sum of coefficient values and
// of products of two of them, reduced mod p once per output monomial.
//
// Invariant: the sum is exact.  Values are host immediates (|v| <= 2^30), so a
// product stays below 2^60 in magnitude and fewer than 2^35 of them cannot
// leave 96 bits.  The sum lives in a 64-bit low part and a 32-bit high part
// on every ABI: GCC keeps the two parts in registers, where it passed every
// addend of a 128-bit integer through the stack.
#pragma once

#include <cstdint>

namespace vorn {

struct acc96 {
  std::uint64_t low;   // bits 0 ... 63
  std::uint32_t high;  // bits 64 ... 95, two's complement with low
};

inline void acc_clear(acc96& a) noexcept {
  a.low = 0;
  a.high = 0;
}

namespace detail {

inline void acc_add64(acc96& a, std::int64_t x) noexcept {
  const auto ux = static_cast<std::uint64_t>(x);
  a.low += ux;
  const std::uint32_t carry = a.low < ux ? 1u : 0u;
  const std::uint32_t extension = x < 0 ? 0xffffffffu : 0u;
  a.high += carry + extension;
}

inline void acc_sub64(acc96& a, std::int64_t x) noexcept {
  const auto ux = static_cast<std::uint64_t>(x);
  const std::uint32_t borrow = a.low < ux ? 1u : 0u;
  a.low -= ux;
  const std::uint32_t extension = x < 0 ? 0xffffffffu : 0u;
  a.high -= borrow + extension;
}

}  // namespace detail

// Adds a signed 32-bit value.
inline void acc_add(acc96& a, std::int32_t v) noexcept { detail::acc_add64(a, v); }

// Adds or subtracts the product of two values in [0, 2^31): no sign to
// extend, which saves the kernels' hot sums two instructions.
inline void acc_add_unsigned_product(acc96& a, std::uint32_t x, std::uint32_t y) noexcept {
  const std::uint64_t product = static_cast<std::uint64_t>(x) * y;
  a.low += product;
  a.high += a.low < product ? 1u : 0u;
}

inline void acc_sub_unsigned_product(acc96& a, std::uint32_t x, std::uint32_t y) noexcept {
  const std::uint64_t product = static_cast<std::uint64_t>(x) * y;
  a.high -= a.low < product ? 1u : 0u;
  a.low -= product;
}

// Adds or subtracts the full product of two signed 32-bit values.
inline void acc_add_product(acc96& a, std::int32_t x, std::int32_t y) noexcept {
  detail::acc_add64(a, static_cast<std::int64_t>(x) * y);
}
inline void acc_sub_product(acc96& a, std::int32_t x, std::int32_t y) noexcept {
  detail::acc_sub64(a, static_cast<std::int64_t>(x) * y);
}

// p with its reciprocal: a 64-bit value is reduced by two multiplications
// and one correction instead of a division, which costs several times more
// and comes once per result term.
struct modulus {
  std::uint32_t p;
  std::uint64_t reciprocal;  // floor((2^64 - 1) / p)
};

inline modulus make_modulus(std::int32_t p) noexcept {
  return {static_cast<std::uint32_t>(p), UINT64_MAX / static_cast<std::uint64_t>(p)};
}

namespace detail {

// The high 64 bits of the 128-bit product.
inline std::uint64_t mul_high(std::uint64_t a, std::uint64_t b) noexcept {
#if defined(__SIZEOF_INT128__)
  __extension__ typedef unsigned __int128 wide;
  return static_cast<std::uint64_t>((static_cast<wide>(a) * b) >> 64);
#else
  const std::uint64_t a0 = a & 0xffffffffu, a1 = a >> 32;
  const std::uint64_t b0 = b & 0xffffffffu, b1 = b >> 32;
  const std::uint64_t low = a0 * b0;
  const std::uint64_t mid1 = a1 * b0 + (low >> 32);  // no carry out: < 2^64
  const std::uint64_t mid2 = a0 * b1 + (mid1 & 0xffffffffu);
  return a1 * b1 + (mid1 >> 32) + (mid2 >> 32);
#endif
}

}  // namespace detail

// x mod p for any 64-bit x.  The reciprocal is at most 2^64 / p, so the
// estimated quotient is never too large, and it falls short by at most one:
// x − q·p < 2p.
inline std::uint32_t reduce64(std::uint64_t x, const modulus& m) noexcept {
  const std::uint64_t q = detail::mul_high(x, m.reciprocal);
  std::uint64_t r = x - q * m.p;
  if (r >= m.p) r -= m.p;
  return static_cast<std::uint32_t>(r);
}

// The least non-negative residue of the sum mod p (1 <= p < 2^31): the
// magnitude is reduced from the top word down in 64-bit steps, and a
// non-zero residue of a negative sum becomes p - r.
inline std::int32_t acc_reduce(const acc96& a, const modulus& m) noexcept {
  std::uint64_t low = a.low;
  std::uint64_t top = a.high;
  const bool negative = (a.high >> 31) != 0;
  if (negative) {
    low = ~low + 1;
    top = (~a.high + (low == 0 ? 1u : 0u)) & 0xffffffffu;
  }
  std::uint64_t r;
  if (top == 0) {
    r = reduce64(low, m);
  } else {
    r = reduce64(top, m);                           // r < p < 2^31
    r = reduce64((r << 32) | (low >> 32), m);       // fits 63 bits
    r = reduce64((r << 32) | (low & 0xffffffffu), m);
  }
  if (negative && r != 0) r = m.p - r;
  return static_cast<std::int32_t>(r);
}

// v mod p in [0, p), 1 <= p < 2^30.  Sums and differences of reduced
// values lie in [-p, 2p) and are corrected without a division; only
// unreduced inputs take the remainder.
inline std::int32_t residue(std::int32_t v, std::int32_t p) noexcept {
  const auto up = static_cast<std::uint32_t>(p);
  if (static_cast<std::uint32_t>(v) + up < 3 * up) {
    std::int32_t r = v + ((v >> 31) & p);  // [0, 2p)
    r -= p;
    return r + ((r >> 31) & p);
  }
  const std::int32_t r = v % p;
  return r < 0 ? r + p : r;
}

}  // namespace vorn
