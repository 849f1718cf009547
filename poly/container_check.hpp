// The invariant checker of containers and term runs, for tests after every
// operation and for debug assertions.
//
// A container is well formed when: it is VORN(...) with five slots; its
// count is a non-negative immediate; its layout array holds a valid layout
// record (msize + 2 words, a shift of 32 / pack, equal guard masks); words 6
// and 8 of both arrays record their lengths; no monomial sets a guard bit;
// terms decrease (strictly when promised); for a mod-p result every
// coefficient is an immediate in 1 ... p - 1 and slot 5 is the immediate 0;
// otherwise no coefficient is 0 and every big coefficient is a record inside
// slot 5, whose size is exactly that of the records and their limbs.
// The checker allocates nothing and reports the first fault it finds.
#pragma once

#include <cstdint>

#include "host/gmp_record.hpp"
#include "poly/container.hpp"
#include "poly/monomial.hpp"
#include "poly/pack.hpp"

namespace vorn {

struct container_fault {
  const char* problem = nullptr;  // static text; null when the container is sound
  std::int32_t term = -1;         // the offending term, when there is one

  bool ok() const noexcept { return problem == nullptr; }
};

struct check_rules {
  std::int32_t modulus = 0;  // p of a mod-p result; 0: integer coefficients
  bool strictly_decreasing = true;
};

// The terms of a view (stride msize + 1): guards, order and coefficients.
inline container_fault check_terms(const term_block& view, const check_rules& rules) noexcept {
  const int msize = layout_msize(view.layout);
  const word guard = layout_guard(view.layout);
  const bool tdeg = layout_is_tdeg(view.layout);
  for (std::int32_t t = 0; t < view.count; ++t) {
    const word* term = view.terms + static_cast<std::ptrdiff_t>(t) * (msize + 1);
    if (has_guard_bit<0>(term, guard, msize)) return {"a monomial sets a guard bit", t};
    if (t + 1 < view.count) {
      const std::int32_t c = compare_monomials<0>(term, term + msize + 1, msize, tdeg);
      if (c < 0 || (c == 0 && rules.strictly_decreasing)) return {"terms are not in decreasing order", t};
    }
    const word coefficient = term[msize];
    if (rules.modulus > 0) {
      if (!is_immediate(coefficient)) return {"a mod-p coefficient is not an immediate", t};
      const std::int32_t v = immediate_value(coefficient);
      if (v < 1 || v >= rules.modulus) return {"a mod-p coefficient is outside 1 ... p - 1", t};
    } else if (coefficient == immediate_zero) {
      return {"a coefficient is 0", t};
    }
  }
  return {};
}

inline container_fault check_container(const callback_table& cbt, word container,
                                       const check_rules& rules = {}) noexcept {
  if (!is_container(cbt, container)) return {"not a VORN container", -1};
  const word count_slot = container_slot(container, 1);
  if (!is_immediate(count_slot) || immediate_value(count_slot) < 0) return {"the count is not a non-negative immediate", -1};
  const word layout_array = container_slot(container, 3);
  const word terms_array = container_slot(container, 4);
  if (is_immediate(layout_array) || is_immediate(terms_array)) return {"slot 3 or 4 is not an array", -1};

  const term_block view = read_container(cbt, container);
  const int msize = layout_msize(view.layout);
  const int shift = layout_shift(view.layout);
  if (msize < 0) return {"the layout's msize is negative", -1};
  if (shift < 1 || shift > 32 || pack_shift(32 / shift) != shift) return {"the layout's shift is no field width", -1};
  if ((view.layout[1] & ~tdeg_flag) != static_cast<word>(shift)) return {"the layout's shift word is malformed", -1};
  for (int i = 0; i < msize; ++i)
    if (view.layout[2 + i] != guard_mask(shift)) return {"a guard mask word is wrong", -1};
  const word* layout_object = object_words(layout_array);
  if (layout_object[6] != static_cast<word>(layout_words(msize)) || layout_object[8] != layout_object[6])
    return {"the layout array's length is not msize + 2", -1};
  const word* terms_object = object_words(terms_array);
  const auto term_words = static_cast<word>((msize + 1) * view.count);
  if (terms_object[6] != term_words || terms_object[8] != term_words)
    return {"the term array's words 6 and 8 disagree with the count", -1};

  if (const container_fault f = check_terms(view, rules); !f.ok()) return f;

  const word big = container_big_block(container);
  std::int32_t record_words_total = 0;
  const word* block = is_immediate(big) ? nullptr : host_array_data(cbt, big);
  const std::int32_t block_length = is_immediate(big) ? 0 : static_cast<std::int32_t>(object_words(big)[6]);
  if (is_immediate(big) && big != immediate_zero) return {"slot 5 is neither 0 nor an array", -1};
  if (rules.modulus > 0 && big != immediate_zero) return {"a mod-p result has a big-integer block", -1};
  for (std::int32_t t = 0; t < view.count; ++t) {
    const word coefficient = view.terms[static_cast<std::ptrdiff_t>(t) * (msize + 1) + msize];
    if (is_immediate(coefficient)) continue;
    if (block == nullptr) return {"a big coefficient but no big-integer block", t};
    const word* record = word_to_pointer(coefficient);
    if (record != block + record_words_total)
      return {"a big coefficient is not the next record of the block", t};
    if (record_size(record) == 0) return {"a big coefficient has no limbs", t};
    if (record[2] != pointer_to_word(record + 3)) return {"a record's limbs are not behind it", t};
    record_words_total += record_words(record_limb_count(record));
    if (record_words_total > block_length) return {"a record runs past the big-integer block", t};
  }
  if (block != nullptr && record_words_total != block_length)
    return {"the big-integer block is not exactly its records", -1};
  return {};
}

}  // namespace vorn
