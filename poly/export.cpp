// vorn2kelto: the SUM is made at its final length, each PROD after counting
// its non-zero exponents; only big coefficients are copied.
#include "poly/export.hpp"

#include <cstddef>

#include "host/error.hpp"
#include "host/frame.hpp"
#include "poly/container.hpp"
#include "poly/exponent_buffer.hpp"
#include "poly/pack.hpp"

namespace vorn {

namespace {

word host_coefficient(const callback_table& cbt, word c) noexcept {
  return is_immediate(c) ? c : host_copy_integer(cbt, word_to_pointer(c));
}

}  // namespace

word export_polynomial(const callback_table& cbt, word args) {
  timing t = begin_entry(cbt);

  if (seq_count(args) < 1 || !is_container(cbt, object_word(args, 1))) fail("expecting a polynomial");
  const word container = object_word(args, 1);
  const term_block view = read_container(cbt, container);
  if (view.count == 0) return immediate_zero;  // no diagnostics, the order is not looked up

  const unpacking unpacked = order_unpacker(cbt, container_ring(container));
  const int nvars = seq_count(unpacked.variables);
  const word* variables = object_words(unpacked.variables) + 1;
  const int msize = layout_msize(view.layout);
  const int shift = layout_shift(view.layout);
  const std::int32_t length = 2 * view.count + 1;
  if (info_level > 3) host_printf(cbt, "pack=%d shift=%d msize=%d: SUM %d\n", 32 / shift, shift, msize, length);

  exponent_buffer buffer(static_cast<std::size_t>(nvars > 0 ? nvars : 0));
  std::uint32_t* e = buffer.data;
  const word polynomial = host_new_object(cbt, length, sum);
  word* pair = object_words(polynomial) + 1;

  const std::ptrdiff_t stride = msize + 1;
  const word* term = view.terms + (view.count - 1) * stride;
  std::int32_t remaining = view.count;
  // Only the last term can be the constant: the terms decrease.
  bool constant = true;
  for (int i = 0; i < msize; ++i) constant = constant && term[i] == 0;
  if (constant) {
    pair[0] = host_coefficient(cbt, term[msize]);
    pair[1] = immediate_one;
    pair += 2;
    term -= stride;
    --remaining;
  }

  for (; remaining > 0; --remaining, term -= stride, pair += 2) {
    pair[1] = host_coefficient(cbt, term[msize]);
    if (nvars <= 0) {
      pair[0] = host_new_object(cbt, 1, prod);
      continue;
    }
    unpacked.unpack(term, e, nvars, shift);
    std::int32_t k = 0;
    for (int i = 0; i < nvars; ++i) k += e[i] != 0;
    const word monomial = host_new_object(cbt, 2 * k + 1, prod);
    word* factor = object_words(monomial) + 1;
    for (int i = 0; i < nvars; ++i) {
      if (e[i] == 0) continue;
      factor[0] = variables[i];
      factor[1] = make_immediate(static_cast<std::int32_t>(e[i]));
      factor += 2;
    }
    pair[0] = monomial;
  }

  t.phase_begin = cpu_clock();
  const word result = host_unique(cbt, polynomial);
  t.phase_end = cpu_clock();
  t.cpu_end = t.phase_end;
  t.wall_end = wall_clock();
  report_time(cbt, time_kind::export_, t);
  return result;
}

}  // namespace vorn
