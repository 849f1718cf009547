// kelto2vorn(polynomial, order [, pack = k] [, characteristic = p]).
#include "exports/entry.hpp"
#include "poly/import.hpp"

VORN_EXPORT vorn_word kelto2vorn(const vorn_callback_table* cbt, vorn_word args) noexcept {
  return vorn::guarded(cbt, [&] { return vorn::import_polynomial(*cbt, args); });
}
