// The argument checks shared by the arithmetic entries.
#include "arith/operands.hpp"

#include "host/error.hpp"
#include "poly/container.hpp"

namespace vorn {

term_block read_operand(const callback_table& cbt, word h) {
  if (!is_container(cbt, h)) fail("expecting a polynomial");
  return read_container(cbt, h);
}

void check_modulus(std::int32_t p) {
  if (p == 0) fail("only mod p computations are supported");
  if (p < 0) fail("negative modulus");
}

arithmetic_call::arithmetic_call(const callback_table& table, word arguments, std::int32_t least,
                                 std::int32_t most, const char* count_message)
    : t(begin_entry(table)), cbt(table), args(arguments), p(read_modulus(arguments, least, most, count_message)) {}

std::int32_t arithmetic_call::read_modulus(word args, std::int32_t least, std::int32_t most,
                                           const char* count_message) {
  const std::int32_t n = seq_count(args);
  if (n < least || n > most) fail(count_message);
  const word modulus = object_word(args, 1);
  if (!is_immediate(modulus)) fail("first argument should be an immediate integer modulus");
  return immediate_value(modulus);
}

operand_pair arithmetic_call::operands(std::int32_t a, std::int32_t b) const {
  const operand A = operand_at(a);
  const operand B = operand_at(b);
  if (!same_ring(A.handle, B.handle)) fail("the polynomials are not in the same ring");
  if (!packed_alike(A.view.layout, B.view.layout)) fail("the polynomials are packed differently");
  return {A, B};
}

void arithmetic_call::check_reduced(const operand& f) const {
  if (p != 0 && container_big_block(f.handle) != immediate_zero) fail("inputs must be reduced mod p");
}

}  // namespace vorn
