// scl_vorn(p, numerator, denominator, f).
#include "arith/entries.hpp"
#include "exports/entry.hpp"

VORN_EXPORT vorn_word scl_vorn(const vorn_callback_table* cbt, vorn_word args) noexcept {
  return vorn::guarded(cbt, [&] { return vorn::scale_entry(*cbt, args); });
}
