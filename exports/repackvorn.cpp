// repackvorn(container [, ring] [, pack = k] [, characteristic = p]).
#include "exports/entry.hpp"
#include "poly/repack.hpp"

VORN_EXPORT vorn_word repackvorn(const vorn_callback_table* cbt, vorn_word args) noexcept {
  return vorn::guarded(cbt, [&] { return vorn::repack_polynomial(*cbt, args); });
}
