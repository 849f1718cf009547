// mul_vorn: checks, the exponent test, the heap product into term blocks and
// the assembly of the result.
#include "arith/block_sink.hpp"
#include "arith/entries.hpp"
#include "arith/mul.hpp"
#include "arith/operands.hpp"
#include "host/error.hpp"
#include "host/frame.hpp"
#include "poly/container.hpp"
#include "poly/term_block.hpp"

namespace vorn {

namespace {

// The product of two non-empty operands; every block and scratch array of the
// call is released before this returns or throws.
word multiply(const callback_table& cbt, const operand_pair& ops, std::int32_t p, timing& t) {
  tracked_list scratch;
  const term_run A{ops.A.terms, ops.A.count};
  const term_run B{ops.B.terms, ops.B.count};
  check_product_exponents(A, B, ops.A.layout, scratch);
  term_block_sink sink(cbt, ops.A.layout);
  multiply_terms(A, B, shape_of(ops.A.layout), p, scratch, sink);
  t.phase_end = cpu_clock();
  return assemble_container(cbt, *sink.blocks.first, container_ring(ops.a_handle), p);
}

}  // namespace

word multiply_entry(const callback_table& cbt, word args) {
  timing t;
  t.start();
  read_info_level(cbt);

  if (seq_count(args) != 3) fail("expecting a modulus and two polynomials");
  const word modulus = object_word(args, 1);
  if (!is_immediate(modulus)) fail("first argument should be an immediate integer modulus");
  const std::int32_t p = immediate_value(modulus);
  const operand_pair ops = read_operand_pair(cbt, object_word(args, 2), object_word(args, 3), p);
  if (ops.A.count == 0) return ops.a_handle;
  if (ops.B.count == 0) return ops.b_handle;

  t.phase_begin = cpu_clock();
  check_modulus(p);
  const word result = multiply(cbt, ops, p, t);
  t.stop();
  report_time(cbt, time_kind::arithmetic, t);
  return result;
}

}  // namespace vorn
