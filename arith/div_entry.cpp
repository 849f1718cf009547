// div_vorn: the checks in their fixed order, the heap division with owners
// for all of its memory, the output names and the time line.
//
// Check order: argument count, an immediate modulus, two containers, one
// ring, one packing, a divisor with terms, inputs reduced when p is not 0;
// then a zero dividend answers true at once, whatever p is; then p = 0 and,
// right after it, a negative p ("negative modulus", as for the other
// arithmetic entries, since the kernel needs 0 < p).
#include "arith/div_entry.hpp"

#include "arith/heap_divide.hpp"
#include "arith/operands.hpp"
#include "host/error.hpp"
#include "host/frame.hpp"
#include "poly/container.hpp"
#include "poly/term_block.hpp"

namespace vorn {

namespace {

// Argument i (from 1) when it exists and is a NAME or NAMEREF, else 0.
word output_name(word args, std::int32_t i) noexcept {
  if (seq_count(args) < i) return 0;
  const word h = object_word(args, i);
  return is_name(h) ? h : 0;
}

// The division proper; the quotient blocks and the kernel's scratch are
// released before this returns or throws.
bool divide(const callback_table& cbt, word args, std::int32_t p, const term_block& A, const term_block& B,
            timing& t) {
  tracked_list scratch;
  term_block_list quotient;
  const bool divides = heap_divide(cbt, scratch, p, A, B, quotient);
  t.phase_end = cpu_clock();
  if (divides) {
    if (const word first = output_name(args, 4)) host_assign(cbt, first, immediate_one);
    if (const word second = output_name(args, 5))
      host_assign(cbt, second, assemble_container(cbt, *quotient.first, container_ring(object_word(args, 2)), p));
  }
  return divides;
}

}  // namespace

word divide_entry(const callback_table& cbt, word args) {
  timing t;
  t.start();
  read_info_level(cbt);

  if (seq_count(args) < 3) fail("expecting a modulus and at least two polynomials");
  const word modulus = object_word(args, 1);
  if (!is_immediate(modulus)) fail("first argument should be an immediate integer modulus");
  const std::int32_t p = immediate_value(modulus);
  const word a = object_word(args, 2);
  const word b = object_word(args, 3);
  const term_block A = read_operand(cbt, a);
  const term_block B = read_operand(cbt, b);
  if (!same_ring(a, b)) fail("the polynomials are not in the same ring");
  if (!packed_alike(A.layout, B.layout)) fail("the polynomials are packed differently");
  if (B.count == 0) fail("division by zero");
  if (p != 0 && (container_big_block(a) != immediate_zero || container_big_block(b) != immediate_zero))
    fail("inputs must be reduced mod p");
  if (A.count == 0) {
    if (const word first = output_name(args, 4)) host_assign(cbt, first, a);
    return host_to_boolean(cbt, 1);
  }

  t.phase_begin = cpu_clock();
  check_modulus(p);
  const bool divides = divide(cbt, args, p, A, B, t);
  t.stop();
  report_time(cbt, time_kind::arithmetic, t);
  return host_to_boolean(cbt, divides ? 1 : 0);
}

}  // namespace vorn
