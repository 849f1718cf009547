// div_vorn(p, A, B [, name [, name]]).
#include "arith/entries.hpp"
#include "exports/entry.hpp"

VORN_EXPORT vorn_word div_vorn(const vorn_callback_table* cbt, vorn_word args) noexcept {
  return vorn::guarded(cbt, [&] { return vorn::divide_entry(*cbt, args); });
}
