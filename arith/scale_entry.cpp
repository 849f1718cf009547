// scl_vorn: checks, the fraction made one factor, and the scaled terms written
// straight into a container of f's size that is shrunk when terms vanish.
#include "arith/entries.hpp"
#include "arith/acc96.hpp"
#include "arith/operands.hpp"
#include "arith/scale.hpp"
#include "arith/sinks.hpp"
#include "host/error.hpp"
#include "host/gmp_record.hpp"
#include "poly/container.hpp"

namespace vorn {

namespace {

bool is_integer_argument(word h) noexcept { return is_immediate(h) || is_big_integer(h); }

}  // namespace

word scale_entry(const callback_table& cbt, word args) {
  arithmetic_call call(cbt, args, 4, 4, "expecting a modulus, multiplier, denominator, and a polynomial");
  const word numerator = call.argument(2);
  if (!is_integer_argument(numerator)) fail("second argument should be an integer numerator");
  const word denominator = call.argument(3);
  if (!is_integer_argument(denominator)) fail("third argument should be an integer denominator");
  if (denominator == immediate_zero) fail("division by zero");
  const operand f = call.operand_at(4);
  call.check_reduced(f);
  if (f.view.count == 0) return f.handle;

  // Made before the modulus is looked at; on a raise it is simply the host's.
  const word R = new_container(cbt, container_ring(f.handle), f.view.count, f.view.layout);
  array_sink out{read_container(cbt, R).terms};

  return call.compute([&] {
    const std::int32_t p = call.p;
    // An immediate numerator stays unreduced: the kernel's product reduces it.
    const std::int32_t num = is_immediate(numerator) ? immediate_value(numerator) : integer_residue(numerator, p);
    const std::int32_t den = residue(integer_residue(denominator, p), p);
    scale_terms(run_of(f.view), shape_of(f.view.layout), scale_factor(num, den, p), p, out);
    call.computed();
    if (out.written < f.view.count) set_term_count(cbt, R, out.written);
    return R;
  });
}

}  // namespace vorn
