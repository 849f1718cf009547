// FLINT's nmod_mpoly as the second oracle of the tests and the peer of
// vorn-bench: a context and polynomials that free themselves, and the terms
// of a packed view loaded into a polynomial.
#pragma once

#include <flint/nmod_mpoly.h>

#include <cstdint>
#include <vector>

#include "poly/pack.hpp"

namespace vorn::test {

struct flint_context {
  nmod_mpoly_ctx_t ctx;

  flint_context(int n, monomial_order order, std::int32_t p) {
    const ordering_t ord = order == monomial_order::plex    ? ORD_LEX
                           : order == monomial_order::grlex ? ORD_DEGLEX
                                                            : ORD_DEGREVLEX;
    nmod_mpoly_ctx_init(ctx, n, ord, static_cast<mp_limb_t>(p));
  }
  ~flint_context() { nmod_mpoly_ctx_clear(ctx); }
  flint_context(const flint_context&) = delete;
  flint_context& operator=(const flint_context&) = delete;
};

struct flint_poly {
  nmod_mpoly_t a;
  const nmod_mpoly_ctx_struct* ctx;

  explicit flint_poly(const nmod_mpoly_ctx_t c) : ctx(c) { nmod_mpoly_init(a, c); }
  explicit flint_poly(const flint_context& c) : flint_poly(c.ctx) {}
  ~flint_poly() { nmod_mpoly_clear(a, ctx); }
  flint_poly(const flint_poly&) = delete;
  flint_poly& operator=(const flint_poly&) = delete;
};

// Replaces F by the terms of a packed view in n variables of the order,
// coefficients reduced mod p and like terms combined.
inline void load(flint_poly& F, const term_block& view, monomial_order order, int n, std::int32_t p) {
  const int msize = layout_msize(view.layout);
  const int shift = layout_shift(view.layout);
  std::vector<std::uint32_t> e(static_cast<std::size_t>(n));
  std::vector<ulong> ue(static_cast<std::size_t>(n));
  nmod_mpoly_zero(F.a, F.ctx);
  nmod_mpoly_fit_length(F.a, view.count, F.ctx);
  for (std::int32_t t = 0; t < view.count; ++t) {
    const word* term = view.terms + static_cast<std::ptrdiff_t>(t) * (msize + 1);
    unpack_routine_of(order)(term, e.data(), n, shift);
    for (std::size_t i = 0; i < e.size(); ++i) ue[i] = e[i];
    const std::int32_t c = immediate_value(term[msize]);
    nmod_mpoly_push_term_ui_ui(F.a, static_cast<ulong>(((c % p) + p) % p), ue.data(), F.ctx);
  }
  nmod_mpoly_sort_terms(F.a, F.ctx);
  nmod_mpoly_combine_like_terms(F.a, F.ctx);
}

}  // namespace vorn::test
