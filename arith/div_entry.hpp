// The entry behind div_vorn: whether B divides A mod p, and the quotient.
#pragma once

#include "host/callbacks.hpp"

namespace vorn {

// div_vorn(p, A, B [, name [, name]]): the host's true or false; on true the
// fourth argument, when a name, gets 1 (or A itself when A has no terms) and
// the fifth, when a name, the quotient container.  Failures are thrown as
// vorn::error for the exported entry to raise.
word divide_entry(const callback_table& cbt, word args);

}  // namespace vorn
