// scl_vorn: checks, the fraction made one factor, and the scaled terms written
// straight into a container of f's size that is shrunk when terms vanish.
#include <cstdint>

#include "arith/add.hpp"
#include "arith/entries.hpp"
#include "arith/mod_inverse.hpp"
#include "arith/operands.hpp"
#include "arith/scale.hpp"
#include "host/error.hpp"
#include "host/frame.hpp"
#include "host/gmp_record.hpp"
#include "poly/container.hpp"
#include "poly/pack.hpp"

namespace vorn {

namespace {

bool is_integer_argument(word h) noexcept { return is_immediate(h) || is_big_integer(h); }

// A big integer's residue in [0, p), p >= 1.
std::int32_t big_residue(word h, std::int32_t p) noexcept {
  return static_cast<std::int32_t>(record_fdiv_ui(integer_record(h), static_cast<std::uint32_t>(p)));
}

}  // namespace

word scale_entry(const callback_table& cbt, word args) {
  timing t;
  t.start();
  read_info_level(cbt);

  if (seq_count(args) != 4) fail("expecting a modulus, multiplier, denominator, and a polynomial");
  const word modulus = object_word(args, 1);
  if (!is_immediate(modulus)) fail("first argument should be an immediate integer modulus");
  const std::int32_t p = immediate_value(modulus);
  const word numerator = object_word(args, 2);
  if (!is_integer_argument(numerator)) fail("second argument should be an integer numerator");
  const word denominator = object_word(args, 3);
  if (!is_integer_argument(denominator)) fail("third argument should be an integer denominator");
  if (denominator == immediate_zero) fail("division by zero");
  const word f = object_word(args, 4);
  const term_block view = read_operand(cbt, f);
  if (p != 0 && container_big_block(f) != immediate_zero) fail("inputs must be reduced mod p");
  if (view.count == 0) return f;

  // Made before the modulus is looked at; on a raise it is simply the host's.
  const word R = new_container(cbt, container_ring(f), view.count, view.layout);
  word* const out = read_container(cbt, R).terms;

  t.phase_begin = cpu_clock();
  check_modulus(p);
  // An immediate numerator stays unreduced: the kernel's product reduces it.
  const std::int32_t num = is_immediate(numerator) ? immediate_value(numerator) : big_residue(numerator, p);
  const std::int32_t den =
      is_immediate(denominator) ? residue(immediate_value(denominator), p) : big_residue(denominator, p);
  if (den == 0) fail("division by zero");
  // Over a composite p a denominator sharing a factor with p has no inverse.
  if (den != 1 && static_cast<std::int64_t>(den) * mod_inverse(den, p) % p != 1) fail("division by zero");
  const std::int32_t factor = scale_factor(num, den, p);
  const std::int32_t written = scale_terms(out, view.terms, view.count, layout_msize(view.layout), factor, p);
  t.phase_end = cpu_clock();

  if (written < view.count) set_term_count(cbt, R, written);
  t.stop();
  report_time(cbt, time_kind::arithmetic, t);
  return R;
}

}  // namespace vorn
