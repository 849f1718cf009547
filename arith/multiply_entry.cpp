// mul_vorn: checks, the exponent test, the heap product into term blocks and
// the assembly of the result.
#include "arith/entries.hpp"
#include "arith/multiply.hpp"
#include "arith/operands.hpp"
#include "arith/sinks.hpp"
#include "poly/container.hpp"

namespace vorn {

word multiply_entry(const callback_table& cbt, word args) {
  arithmetic_call call(cbt, args, 3, 3, "expecting a modulus and two polynomials");
  const operand_pair ops = call.operands(2, 3);
  call.check_reduced(ops);
  if (ops.A.view.count == 0) return ops.A.handle;
  if (ops.B.view.count == 0) return ops.B.handle;

  return call.compute([&] {
    tracked_list scratch;
    const term_run A = run_of(ops.A.view);
    const term_run B = run_of(ops.B.view);
    check_product_exponents(A, B, ops.A.view.layout, scratch);
    term_block_sink sink(cbt, ops.A.view.layout);
    multiply_terms(A, B, shape_of(ops.A.view.layout), call.p, scratch, sink);
    call.computed();
    return sink.assemble(container_ring(ops.A.handle), call.p);
  });
}

}  // namespace vorn
