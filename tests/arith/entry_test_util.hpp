// What the entry tests share: host polynomials built from exponent vectors,
// containers made by kelto2vorn, the comparison of a result with an oracle
// container, and (native builds with FLINT) the same polynomials in FLINT.
#pragma once

#include <gmp.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "minikelto/expand.hpp"
#include "minikelto/polynomial.hpp"
#include "poly/container.hpp"
#include "poly/container_check.hpp"
#include "poly/pack.hpp"
#include "support/host_fixture.hpp"
#include "support/packed_terms.hpp"

#if defined(VORN_HAVE_FLINT)
#include "support/flint_oracle.hpp"
#endif

namespace vorn::test {


class entry_test : public host_test {
 protected:
  using exponents = std::vector<std::int32_t>;

  std::vector<word> variables(int n) {
    std::vector<word> v;
    for (int i = 0; i < n; ++i) {
      std::string text = std::to_string(i);
      text.insert(text.begin(), 'v');
      v.push_back(name(text));
    }
    return v;
  }

  word ring(const char* order, const std::vector<word>& vars) {
    return minikelto::unique(minikelto::make_funcall(name(order), vars));
  }

  // The canonical host polynomial of distinct monomials and coefficients.
  word polynomial(const std::vector<word>& vars, const std::vector<std::pair<exponents, word>>& terms) {
    std::vector<minikelto::expanded_term> t;
    for (const auto& [e, c] : terms) {
      std::vector<std::pair<word, std::int32_t>> powers;
      for (std::size_t i = 0; i < e.size(); ++i)
        if (e[i] > 0) powers.emplace_back(vars[i], e[i]);
      t.push_back({minikelto::make_monomial(powers), c});
    }
    return minikelto::make_polynomial(t);
  }

  // (1 + v0 + ... + v(n-1))^d, expanded by the host.
  word dense_power(const std::vector<word>& vars, std::int32_t d) {
    word s = integer(1);
    for (word v : vars) s = minikelto::add(s, v);
    return minikelto::expand(minikelto::power(s, integer(d)));
  }

  word import(word f, word order_argument, std::int32_t pack, std::int32_t p) {
    return call_ok("kelto2vorn", {f, order_argument, option("pack", pack), option("characteristic", p)});
  }

  std::int32_t term_count(word container) { return read_container(cbt(), container).count; }

  static std::int32_t reduced(std::int32_t v, std::int32_t p) { return ((v % p) + p) % p; }

  // R, an entry's mod-p result, holds the terms of O (an import, whose
  // coefficients keep their sign) with every coefficient reduced.
  void expect_same_terms(word R, word O, std::int32_t p) {
    const container_fault fault = check_container(cbt(), R, {p, true});
    ASSERT_TRUE(fault.ok()) << fault.problem << " (term " << fault.term << ")";
    const term_block r = read_container(cbt(), R);
    const term_block o = read_container(cbt(), O);
    ASSERT_EQ(r.count, o.count);
    const int msize = layout_msize(r.layout);
    ASSERT_EQ(msize, layout_msize(o.layout));
    for (std::int32_t t = 0; t < r.count; ++t) {
      const word* a = r.terms + static_cast<std::ptrdiff_t>(t) * (msize + 1);
      const word* b = o.terms + static_cast<std::ptrdiff_t>(t) * (msize + 1);
      for (int q = 0; q < msize; ++q) ASSERT_EQ(a[q], b[q]) << "monomial of term " << t;
      ASSERT_EQ(immediate_value(a[msize]), reduced(immediate_value(b[msize]), p)) << "coefficient of term " << t;
    }
  }

#if defined(VORN_HAVE_FLINT)
  // R equals FLINT's op(A, B) (op given FLINT's result, A and B, and context).
  template <class Op>
  void expect_flint(word R, word A, word B, monomial_order order, int n, std::int32_t p, Op op, const char* what) {
    flint_context ctx(n, order, p);
    flint_poly FA(ctx), FB(ctx), expected(ctx), got(ctx);
    load(FA, read_container(cbt(), A), order, n, p);
    load(FB, read_container(cbt(), B), order, n, p);
    op(expected.a, FA.a, FB.a, ctx.ctx);
    load(got, read_container(cbt(), R), order, n, p);
    EXPECT_TRUE(nmod_mpoly_equal(expected.a, got.a, ctx.ctx)) << what << " differs from FLINT's";
  }
#endif
};


}  // namespace vorn::test
