// ads_vorn: checks, the short cuts, the merge into term blocks and the
// assembly of the result.
#include "arith/add.hpp"
#include "arith/block_sink.hpp"
#include "arith/entries.hpp"
#include "arith/operands.hpp"
#include "host/error.hpp"
#include "host/frame.hpp"
#include "poly/container.hpp"
#include "poly/term_block.hpp"

namespace vorn {

namespace {

// The merge of A and B; its blocks are released before this returns or throws.
word add_or_subtract(const callback_table& cbt, const operand_pair& ops, std::int32_t p, bool subtract,
                     timing& t) {
  term_block_sink sink(cbt, ops.A.layout);
  add_terms({ops.A.terms, ops.A.count}, {ops.B.terms, ops.B.count}, shape_of(ops.A.layout), p, subtract, sink);
  t.phase_end = cpu_clock();
  return assemble_container(cbt, *sink.blocks.first, container_ring(ops.a_handle), p);
}

}  // namespace

word add_entry(const callback_table& cbt, word args) {
  timing t;
  t.start();
  read_info_level(cbt);

  if (seq_count(args) != 4) fail("expecting a modulus, flag, and two polynomials");
  const word modulus = object_word(args, 1);
  if (!is_immediate(modulus)) fail("first argument should be an immediate integer modulus");
  const word flag = object_word(args, 2);
  if (!is_immediate(flag)) fail("second argument should be an immediate integer, 0=add, 1=subtract");
  const std::int32_t p = immediate_value(modulus);
  const bool subtract = immediate_value(flag) != 0;
  const operand_pair ops = read_operand_pair(cbt, object_word(args, 3), object_word(args, 4), p);
  // 0 − B is no short cut: it is −B, made by the merge.
  if (ops.A.count == 0 && !subtract) return ops.b_handle;
  if (ops.B.count == 0) return ops.a_handle;

  t.phase_begin = cpu_clock();
  check_modulus(p);
  const word result = add_or_subtract(cbt, ops, p, subtract, t);
  t.stop();
  report_time(cbt, time_kind::arithmetic, t);
  return result;
}

}  // namespace vorn
