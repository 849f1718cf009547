// export_vorn_frac: the native entry for terms with fractional coefficients.
#include "exports/entry.hpp"
#include "poly/fraction_export.hpp"

VORN_EXPORT vorn_word export_vorn_frac(const vorn_callback_table* cbt, vorn_word* terms, vorn_word* layout,
                                       int32_t count, vorn_term_block* next, vorn_word ring,
                                       vorn_word scale_word, void** chain) noexcept {
  return vorn::guarded(cbt, [&] {
    return vorn::export_fractions(*cbt, vorn::term_block{terms, layout, count, next}, ring, scale_word, chain);
  });
}
