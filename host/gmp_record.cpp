// The GMP record adapter.
#include "host/gmp_record.hpp"

#include <cstring>

namespace vorn {

namespace {
const word* record_limbs(const word* record) { return word_to_pointer<const word>(record[2]); }
}  // namespace

#if UINTPTR_MAX == 0xffffffffu && GMP_LIMB_BITS == 32
static_assert(sizeof(__mpz_struct) == 12, "a host record is GMP's own mpz on i386");

std::uint32_t record_fdiv_ui(const word* record, std::uint32_t p) noexcept {
  return static_cast<std::uint32_t>(mpz_fdiv_ui(reinterpret_cast<mpz_srcptr>(record), p));
}

void record_to_mpz(mpz_ptr z, const word* record) { mpz_set(z, reinterpret_cast<mpz_srcptr>(record)); }

#else
std::uint32_t record_fdiv_ui(const word* record, std::uint32_t p) noexcept {
  // Horner over the 32-bit limbs from the top: no GMP integer is needed.
  const std::int32_t n = record_limb_count(record);
  const word* limbs = record_limbs(record);
  std::uint64_t r = 0;
  for (std::int32_t i = n - 1; i >= 0; --i) r = ((r << 32) | limbs[i]) % p;
  if (record_size(record) < 0 && r != 0) r = p - r;
  return static_cast<std::uint32_t>(r);
}

void record_to_mpz(mpz_ptr z, const word* record) {
  mpz_import(z, static_cast<std::size_t>(record_limb_count(record)), -1, sizeof(word), 0, 0,
             record_limbs(record));
  if (record_size(record) < 0) mpz_neg(z, z);
}
#endif

std::int32_t mpz_limb_count(mpz_srcptr z) noexcept {
  const std::size_t bits = mpz_sizeinbase(z, 2);
  return mpz_sgn(z) == 0 ? 0 : static_cast<std::int32_t>((bits + 31) / 32);
}

std::int32_t mpz_to_record(word* out, mpz_srcptr z) noexcept {
  const std::int32_t n = mpz_limb_count(z);
  std::size_t written = 0;
  if (n > 0) mpz_export(out + 3, &written, -1, sizeof(word), 0, 0, z);
#if UINTPTR_MAX == 0xffffffffu && GMP_LIMB_BITS == 32
  // The record is GMP's own struct here: z's allocation travels with it.
  out[0] = static_cast<word>(z->_mp_alloc);
#else
  // The 32-bit limbs written are all the record has.
  out[0] = static_cast<word>(n);
#endif
  out[1] = static_cast<word>(mpz_sgn(z) < 0 ? -n : n);
  out[2] = pointer_to_word(out + 3);
  return record_words(n);
}

std::int32_t copy_record(word* out, const word* record) noexcept {
  const std::int32_t n = record_limb_count(record);
  out[0] = record[0];
  out[1] = record[1];
  out[2] = pointer_to_word(out + 3);
  std::memcpy(out + 3, record_limbs(record), static_cast<std::size_t>(n) * sizeof(word));
  return record_words(n);
}

}  // namespace vorn
