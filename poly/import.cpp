// kelto2vorn: one pass over the host polynomial, one pack call per term, one
// sort, then the big-integer block.
#include "poly/import.hpp"

#include <cstddef>

#include "host/error.hpp"
#include "host/frame.hpp"
#include "host/gmp_record.hpp"
#include "poly/container.hpp"
#include "poly/exponent_buffer.hpp"
#include "poly/options.hpp"
#include "poly/sort.hpp"
#include "poly/term_block.hpp"

namespace vorn {

namespace {

// What packing one term needs, fixed once per call.
struct term_packer {
  word variables;           // the ring's variable SEQ
  int n;                    // number of ring variables
  int shift;                // field width
  int msize;
  bool graded;              // grlex or tdeg: the total degree has a field too
  pack_routine pack;
  std::uint32_t* exponents;  // scratch for n exponents
};

[[noreturn]] void not_expanded() { fail("expecting an expanded polynomial"); }

// Exponents of a NAME, NAMEREF or PROD term over the ring variables.  Bases
// that are not ring variables are not looked at; a ring variable's exponent
// must be a non-negative immediate.
void term_exponents(word t, const term_packer& packer) {
  const word* variables = object_words(packer.variables) + 1;
  std::uint32_t* e = packer.exponents;
  if (object_type(t) != prod) {
    for (int i = 0; i < packer.n; ++i) e[i] = variables[i] == t ? 1u : 0u;
    return;
  }
  const word* factors = object_words(t);
  const std::int32_t length = header_length(factors[0]);
  for (int i = 0; i < packer.n; ++i) {
    e[i] = 0;
    for (std::int32_t j = 1; j + 1 < length; j += 2) {
      if (factors[j] != variables[i]) continue;
      const word exponent = factors[j + 1];
      if (!is_immediate(exponent) || immediate_value(exponent) < 0) not_expanded();
      e[i] = static_cast<std::uint32_t>(immediate_value(exponent));
      break;
    }
  }
}

bool is_monomial_term(word t) noexcept {
  const std::int32_t type = handle_type(t);
  return type == name || type == nameref || type == prod;
}

// Packs a monomial term into the zeroed words at `at`.
void pack_term(word* at, word t, const term_packer& packer) {
  term_exponents(t, packer);
  packer.pack(at, packer.exponents, packer.n, packer.shift);
}

void check_fits(const term_packer& packer) {
  if (!exponents_fit(packer.exponents, packer.n, packer.shift, packer.graded)) fail("exponent overflow");
}

// The residue of an integer coefficient mod p > 0 (see integer_residue).
std::int32_t residue(word c, std::int32_t p) {
  if (!is_immediate(c) && !is_big_integer(c)) not_expanded();
  return integer_residue(c, p);
}

// The coefficient word of an integer with characteristic 0.
word exact_coefficient(word c) {
  if (is_immediate(c)) return c;
  if (is_big_integer(c)) return pointer_to_word(integer_record(c));
  not_expanded();
}

// Packs the SUM's (length - 1) / 2 terms into `terms` (zeroed, room for all of
// them) and returns how many vanished mod p (always 0 when p = 0).  Raises
// "expecting an expanded polynomial" for a term, coefficient or ring-variable
// exponent of another kind, and "exponent overflow" for a surviving term that
// does not fit its fields; the first offending term decides.
std::int32_t import_sum_terms(word* terms, word sum, const term_packer& packer, std::int32_t length,
                              std::int32_t p) {
  const word* pairs = object_words(sum);
  const std::int32_t count = (length - 1) / 2;
  const int msize = packer.msize;
  const std::ptrdiff_t stride = msize + 1;

  if (p == 0) {
    word* at = terms;
    for (std::int32_t k = 0; k < count; ++k, at += stride) {
      const word t = pairs[2 * k + 1];
      if (is_monomial_term(t)) {
        pack_term(at, t, packer);
        check_fits(packer);
        at[msize] = exact_coefficient(pairs[2 * k + 2]);
      } else {
        at[msize] = exact_coefficient(t);  // the constant term: its coefficient is the integer itself
      }
    }
    return 0;
  }

  word* at = terms;  // the write position: survivors stay compacted in input order
  for (std::int32_t k = 0; k < count; ++k) {
    const word t = pairs[2 * k + 1];
    std::int32_t r;  // in (-p, p)
    const bool monomial = is_monomial_term(t);
    if (monomial) {
      pack_term(at, t, packer);
      r = residue(pairs[2 * k + 2], p);
    } else {
      r = residue(t, p);
    }
    if (r == 0) {
      for (int i = 0; i < msize; ++i) at[i] = 0;  // undo the packing
      continue;
    }
    if (monomial) check_fits(packer);
    at[msize] = make_immediate(r);
    at += stride;
  }
  return count - static_cast<std::int32_t>((at - terms) / stride);
}

}  // namespace

word import_polynomial(const callback_table& cbt, word args) {
  timing t = begin_entry(cbt);

  if (seq_count(args) < 2 || handle_type(object_word(args, 2)) != funcall)
    fail("expecting a polynomial and a monomial order");
  const word ring = object_word(args, 2);
  const conversion_options options = read_options(cbt, args, 3, {1, 0});
  const std::int32_t p = options.characteristic;

  packing packed = make_layout(cbt, ring, options.pack);
  const word* layout = packed.layout.get();
  const int msize = layout_msize(layout);
  const int shift = layout_shift(layout);
  if (info_level > 3) host_printf(cbt, "char=%d pack=%d shift=%d msize=%d:", p, options.pack, shift, msize);

  const int n = seq_count(packed.variables);
  exponent_buffer exponents(static_cast<std::size_t>(n));
  const term_packer packer{packed.variables, n, shift, msize, packed.order != monomial_order::plex, packed.pack,
                           exponents.data};

  const word f = object_word(args, 1);
  word container = 0;
  const std::int32_t type = handle_type(f);
  if (is_immediate(f)) {
    if (info_level > 3) host_printf(cbt, " IMMEDIATE 1\n");
    const std::int32_t c = p > 0 ? integer_residue(f, p) : immediate_value(f);
    container = new_container(cbt, ring, c != 0 ? 1 : 0, layout);
    if (c != 0) read_container(cbt, container).terms[msize] = make_immediate(c);
  } else if (type == name || type == nameref || type == prod) {
    if (info_level > 3) {
      if (type == prod) host_printf(cbt, " PROD %d\n", object_length(f));
      else host_printf(cbt, " NAME %d\n", 1);
    }
    term_exponents(f, packer);
    check_fits(packer);
    container = new_container(cbt, ring, 1, layout);
    word* terms = read_container(cbt, container).terms;
    packer.pack(terms, packer.exponents, n, shift);
    terms[msize] = immediate_one;  // whatever p is
  } else if (type == intpos || type == intneg) {
    if (info_level > 3) host_printf(cbt, type == intpos ? " INTPOS %d\n" : " INTNEG %d\n", object_length(f));
    const word* record = integer_record(f);
    const std::int32_t r = p != 0 ? integer_residue(f, p) : 1;
    container = new_container(cbt, ring, r != 0 ? 1 : 0, layout);
    if (r != 0) read_container(cbt, container).terms[msize] = p != 0 ? make_immediate(r) : pointer_to_word(record);
  } else if (type == sum) {
    const std::int32_t length = object_length(f);
    const std::int32_t count = (length - 1) / 2;
    if (info_level > 3) host_printf(cbt, " SUM %d\n", length);
    container = new_container(cbt, ring, count, layout);
    const std::int32_t vanished = import_sum_terms(read_container(cbt, container).terms, f, packer, length, p);
    if (vanished > 0) {
      if (info_level > 2)
        host_printf(cbt, "%d out of %d terms vanished mod %ld\n", vanished, count, static_cast<long>(p));
      set_term_count(cbt, container, count - vanished);
    }
  } else {
    not_expanded();
  }

  const term_block view = read_container(cbt, container);
  return finish_conversion(cbt, t, container, view, true, packed.layout);
}

word finish_conversion(const callback_table& cbt, timing& t, word container, const term_block& view, bool sort,
                       layout_owner& layout) {
  t.phase_begin = cpu_clock();
  if (sort && view.count > 1) sort_terms(view.terms, view.layout, 0, view.count - 1, view.count);
  t.phase_end = cpu_clock();
  set_container_big_block(container, copy_big_coefficients(cbt, view));
  t.cpu_end = cpu_clock();
  layout.reset();  // the container holds its own copy
  t.wall_end = wall_clock();
  report_time(cbt, time_kind::import, t);
  return host_unique(cbt, container);
}

}  // namespace vorn
