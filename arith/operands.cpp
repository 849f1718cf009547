// Operand and modulus checks shared by the arithmetic entries.
#include "arith/operands.hpp"

#include "host/error.hpp"
#include "poly/container.hpp"

namespace vorn {

term_block read_operand(const callback_table& cbt, word h) {
  if (!is_container(cbt, h)) fail("expecting a polynomial");
  return read_container(cbt, h);
}

operand_pair read_operand_pair(const callback_table& cbt, word a, word b, std::int32_t p) {
  const term_block A = read_operand(cbt, a);
  const term_block B = read_operand(cbt, b);
  if (!same_ring(a, b)) fail("the polynomials are not in the same ring");
  if (!packed_alike(A.layout, B.layout)) fail("the polynomials are packed differently");
  if (p != 0 && (container_big_block(a) != immediate_zero || container_big_block(b) != immediate_zero))
    fail("inputs must be reduced mod p");
  return {a, b, A, B};
}

void check_modulus(std::int32_t p) {
  if (p == 0) fail("only mod p computations are supported");
  if (p < 0) fail("negative modulus");
}

}  // namespace vorn
