// ads_vorn(p, flag, A, B).
#include "arith/entries.hpp"
#include "exports/entry.hpp"

VORN_EXPORT vorn_word ads_vorn(const vorn_callback_table* cbt, vorn_word args) noexcept {
  return vorn::guarded(cbt, [&] { return vorn::add_entry(*cbt, args); });
}
