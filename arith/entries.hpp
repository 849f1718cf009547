// The arithmetic entries behind mul_vorn, ads_vorn, scl_vorn and div_vorn:
// each checks its arguments in its fixed order, reads the containers, runs
// the kernel with owners for all of its memory, builds the result and prints
// the time line.  Failures are thrown as vorn::error for the exported entry
// to raise.
#pragma once

#include "host/callbacks.hpp"

namespace vorn {

// mul_vorn(p, A, B): A·B mod p, or an operand without terms itself.
word multiply_entry(const callback_table& cbt, word args);

// ads_vorn(p, flag, A, B): A + B (flag 0) or A − B (any other flag) mod p.
word add_entry(const callback_table& cbt, word args);

// scl_vorn(p, num, den, f): f·num/den mod p, or f itself when it has no terms.
word scale_entry(const callback_table& cbt, word args);

// div_vorn(p, A, B [, name [, name]]): the host's true or false; on true the
// fourth argument, when a name, gets 1 (or A itself when A has no terms) and
// the fifth, when a name, the quotient container.
word divide_entry(const callback_table& cbt, word args);

}  // namespace vorn
