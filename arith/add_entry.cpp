// ads_vorn: checks, the short cuts, the merge into term blocks and the
// assembly of the result.
#include "arith/add.hpp"
#include "arith/entries.hpp"
#include "arith/operands.hpp"
#include "arith/sinks.hpp"
#include "host/error.hpp"
#include "poly/container.hpp"

namespace vorn {

word add_entry(const callback_table& cbt, word args) {
  arithmetic_call call(cbt, args, 4, 4, "expecting a modulus, flag, and two polynomials");
  const word flag = call.argument(2);
  if (!is_immediate(flag)) fail("second argument should be an immediate integer, 0=add, 1=subtract");
  const bool subtract = immediate_value(flag) != 0;
  const operand_pair ops = call.operands(3, 4);
  call.check_reduced(ops);
  // 0 − B is no short cut: it is −B, made by the merge.
  if (ops.A.view.count == 0 && !subtract) return ops.B.handle;
  if (ops.B.view.count == 0) return ops.A.handle;

  return call.compute([&] {
    term_block_sink sink(cbt, ops.A.view.layout);
    add_terms(run_of(ops.A.view), run_of(ops.B.view), shape_of(ops.A.view.layout), call.p, subtract, sink);
    call.computed();
    return sink.assemble(container_ring(ops.A.handle), call.p);
  });
}

}  // namespace vorn
