// mul_vorn(p, A, B).
#include "arith/entries.hpp"
#include "exports/entry.hpp"

VORN_EXPORT vorn_word mul_vorn(const vorn_callback_table* cbt, vorn_word args) noexcept {
  return vorn::guarded(cbt, [&] { return vorn::multiply_entry(*cbt, args); });
}
