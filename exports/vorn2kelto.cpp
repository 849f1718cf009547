// vorn2kelto(container).
#include "exports/entry.hpp"
#include "poly/export.hpp"

VORN_EXPORT vorn_word vorn2kelto(const vorn_callback_table* cbt, vorn_word args) noexcept {
  return vorn::guarded(cbt, [&] { return vorn::export_polynomial(*cbt, args); });
}
