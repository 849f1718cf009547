// The fraction export's walk, its exact divisions and its pool of records.
#include "poly/fraction_export.hpp"

#include <gmp.h>

#include <cmath>
#include <cstddef>

#include "host/error.hpp"
#include "host/frame.hpp"
#include "host/gmp_record.hpp"
#include "host/memory.hpp"
#include "poly/pack.hpp"
#include "poly/term_block.hpp"

namespace vorn {

namespace {

// A GMP integer cleared on every exit.
struct mpz_owner {
  mpz_t z;
  explicit mpz_owner(mp_bitcnt_t bits) { mpz_init2(z, bits); }
  mpz_owner(const mpz_owner&) = delete;
  mpz_owner& operator=(const mpz_owner&) = delete;
  ~mpz_owner() { mpz_clear(z); }
};

// Records written back to back into chunks taken on the caller's chain; a
// chunk's unused tail is abandoned when the next one is taken.
struct record_pool {
  const callback_table& cbt;
  void** chain;
  std::size_t last = 0;  // bytes of the current chunk
  std::size_t left = 0;  // bytes free in it
  unsigned char* next = nullptr;

  void grow(std::size_t need) {
    const std::size_t S = pool_chunk_bytes(need, last);
    if (info_level > 4) host_printf(cbt, "alloc %d kbytes GMP\n", static_cast<int>(S / 1024));
    if (host_check_interrupt(cbt)) fail("Interrupted");
    void* chunk = tracked_alloc(chain, S);
    if (chunk == nullptr) fail("out of memory");
    next = static_cast<unsigned char*>(chunk);
    last = S;
    left = S;
  }

  // T as a host integer word: the immediate when |T| <= MAX_IMMEDIATE, else
  // the address of a record of T in the pool.
  word store(mpz_srcptr T) {
    if (mpz_cmpabs_ui(T, static_cast<unsigned long>(max_immediate)) <= 0)
      return make_immediate(static_cast<std::int32_t>(mpz_get_si(T)));
    const std::size_t need = 4 * static_cast<std::size_t>(record_words(mpz_limb_count(T)));
    if (need > left) grow(need);
    word* record = reinterpret_cast<word*>(next);
    mpz_to_record(record, T);
    next += need;
    left -= need;
    return pointer_to_word(record);
  }
};

// The arithmetic of the walk on host integer words; every GMP result goes
// through T, big operands are read through two scratch integers.
struct word_arithmetic {
  record_pool& pool;
  mpz_owner T{120};
  mpz_owner a{64};
  mpz_owner b{64};

  mpz_srcptr load(word w, mpz_ptr scratch) {
    if (is_immediate(w)) mpz_set_si(scratch, immediate_value(w));
    else record_to_mpz(scratch, word_to_pointer(w));
    return scratch;
  }

  // x / y, exactly; y > 0.
  word divide(word x, word y) {
    if (is_immediate(x) && is_immediate(y)) return make_immediate(immediate_value(x) / immediate_value(y));
    if (is_immediate(y)) mpz_divexact_ui(T.z, load(x, a.z), static_cast<unsigned long>(immediate_value(y)));
    else mpz_divexact(T.z, load(x, a.z), load(y, b.z));
    return pool.store(T.z);
  }

  word multiply(word x, word y) {
    if (is_immediate(x) && is_immediate(y)) {
      mpz_set_si(T.z, immediate_value(y));
      mpz_mul_si(T.z, T.z, immediate_value(x));
    } else if (is_immediate(x)) {
      mpz_mul_si(T.z, load(y, a.z), immediate_value(x));
    } else if (is_immediate(y)) {
      mpz_mul_si(T.z, load(x, a.z), immediate_value(y));
    } else {
      mpz_mul(T.z, load(x, a.z), load(y, b.z));
    }
    return pool.store(T.z);
  }
};

void rewrite_terms(const callback_table& cbt, term_block first, word scale, void** chain) {
  record_pool pool{cbt, chain};
  word_arithmetic arithmetic{pool};
  const int msize = layout_msize(first.layout);
  word Dp = immediate_one;  // the previous denominator
  word M = scale;           // scale / Dp
  for (term_block* block = &first; block != nullptr && block->count > 0; block = block->next) {
    const word* read = block->terms;
    word* write = block->terms;
    for (std::int32_t k = 0; k < block->count; ++k, read += msize + 2, write += msize + 1) {
      const word numerator = read[msize];
      const word D = read[msize + 1];
      for (int i = 0; i < msize; ++i) write[i] = read[i];  // write <= read
      if (scale == Dp) {
        write[msize] = numerator;
        continue;
      }
      if (D != Dp) M = arithmetic.divide(M, arithmetic.divide(D, Dp));
      write[msize] = arithmetic.multiply(numerator, M);
      Dp = D;
    }
  }
}

}  // namespace

std::size_t pool_chunk_bytes(std::size_t need, std::size_t last) noexcept {
  const long double n = static_cast<long double>(need);
  const long double S = (16.0L * n + static_cast<long double>(last)) * (100.0L * n + 50.0L) / (100.0L * n);
  return static_cast<std::size_t>(std::nearbyintl(S));
}

word export_fractions(const callback_table& cbt, term_block first, word ring, word scale, void** chain) {
  try {
    rewrite_terms(cbt, first, scale, chain);
  } catch (const error&) {
    // The scratch integers are cleared by now; the caller gets nothing back.
    free_term_blocks(term_block_of_terms(first.terms));
    free_tracked(chain);
    throw;
  }
  return assemble_container(cbt, first, ring, 0);
}

}  // namespace vorn
