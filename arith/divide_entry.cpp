// div_vorn: the checks in their fixed order, the heap division into term
// blocks, the output names and the time line.
//
// Check order: argument count, an immediate modulus, two containers, one
// ring, one packing, a divisor with terms, inputs reduced when p is not 0;
// then a zero dividend answers true at once, whatever p is; then p = 0 and,
// right after it, a negative p ("negative modulus", as for the other
// arithmetic entries, since the kernel needs 0 < p).
#include <climits>

#include "arith/divide.hpp"
#include "arith/entries.hpp"
#include "arith/operands.hpp"
#include "arith/sinks.hpp"
#include "host/error.hpp"
#include "poly/container.hpp"

namespace vorn {

namespace {

// Argument i (from 1) when it exists and is a NAME or NAMEREF, else 0.
word output_name(word args, std::int32_t i) noexcept {
  if (seq_count(args) < i) return 0;
  const word h = object_word(args, i);
  return is_name(h) ? h : 0;
}

}  // namespace

word divide_entry(const callback_table& cbt, word args) {
  arithmetic_call call(cbt, args, 3, INT32_MAX, "expecting a modulus and at least two polynomials");
  const operand_pair ops = call.operands(2, 3);
  if (ops.B.view.count == 0) fail("division by zero");
  call.check_reduced(ops);
  if (ops.A.view.count == 0) {
    if (const word first = output_name(args, 4)) host_assign(cbt, first, ops.A.handle);
    return host_to_boolean(cbt, 1);
  }

  const bool divides = call.compute([&] {
    tracked_list scratch;
    term_block_sink sink(cbt, ops.A.view.layout);
    const bool exact = divide_terms(run_of(ops.A.view), run_of(ops.B.view), shape_of(ops.A.view.layout), call.p,
                                    scratch, sink);
    call.computed();
    if (exact) {
      if (const word first = output_name(args, 4)) host_assign(cbt, first, immediate_one);
      if (const word second = output_name(args, 5))
        host_assign(cbt, second, sink.assemble(container_ring(ops.A.handle), call.p));
    }
    return exact;
  });
  return host_to_boolean(cbt, divides ? 1 : 0);
}

}  // namespace vorn
