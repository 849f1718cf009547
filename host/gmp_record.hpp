// GMP integer records in host memory: three words (_mp_alloc, _mp_size, _mp_d)
// with 32-bit limbs, least significant first.
//
// On i386 that is GMP's own mpz struct and GMP is handed the record itself; on
// LP64 GMP's limbs are 64 bits, so this adapter converts.  No other file knows
// the record's layout.
#pragma once

#include <gmp.h>

#include <cstdint>

#include "host/words.hpp"

namespace vorn {

// Words a record of `limbs` 32-bit limbs takes when its limbs follow it.
constexpr std::int32_t record_words(std::int32_t limbs) noexcept { return 3 + limbs; }

// Signed limb count of a record (negative for negative values).
inline std::int32_t record_size(const word* record) noexcept {
  return static_cast<std::int32_t>(record[1]);
}

// |_mp_size|.
inline std::int32_t record_limb_count(const word* record) noexcept {
  const std::int32_t s = record_size(record);
  return s < 0 ? -s : s;
}

// Floor residue of the record's value mod p (0 ... p - 1), p > 0.
std::uint32_t record_fdiv_ui(const word* record, std::uint32_t p) noexcept;

// Sets z to the record's value (z initialised by the caller).
void record_to_mpz(mpz_ptr z, const word* record);

// Writes z as a record at `out` with its limbs right behind it (_mp_d points
// at out + 3); _mp_alloc is z's own on i386, where records are GMP's own mpz,
// and the limb count on LP64.  Returns the words written.
std::int32_t mpz_to_record(word* out, mpz_srcptr z) noexcept;

// 32-bit limbs needed for z.
std::int32_t mpz_limb_count(mpz_srcptr z) noexcept;

// Copies a record with its limbs to `out` (limbs behind it, _mp_alloc kept as
// it was); returns the words written.
std::int32_t copy_record(word* out, const word* record) noexcept;

// Residues mod p > 0 of the integers a coefficient can be: an immediate's
// truncated remainder keeps its sign (in (-p, p)); a big integer's record
// gives the floor residue (0 ... p - 1).
inline std::int32_t record_residue(const word* record, std::int32_t p) noexcept {
  return static_cast<std::int32_t>(record_fdiv_ui(record, static_cast<std::uint32_t>(p)));
}
// A host integer: an immediate or a big integer's handle.
inline std::int32_t integer_residue(word h, std::int32_t p) noexcept {
  return is_immediate(h) ? immediate_value(h) % p : record_residue(integer_record(h), p);
}
// A container's coefficient word: an immediate or the address of a record.
inline std::int32_t coefficient_residue(word c, std::int32_t p) noexcept {
  return is_immediate(c) ? immediate_value(c) % p : record_residue(word_to_pointer(c), p);
}

}  // namespace vorn
