// kelto2vorn, vorn2kelto and repackvorn against the minimal host: messages in
// their order of checks, residues and vanished terms, the diagnostic lines,
// round trips against the host's expand, and allocations that do not grow
// with the number of terms.
#include <gmp.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "host/frame.hpp"
#include "host/memory.hpp"
#include "support/packed_terms.hpp"
#include "minikelto/expand.hpp"
#include "poly/container.hpp"
#include "poly/container_check.hpp"
#include "poly/pack.hpp"
#include "support/host_fixture.hpp"
#include "support/test_seed.hpp"

namespace {

using word = minikelto::word;
using exponents = std::vector<std::int64_t>;

class Conversion : public host_test {
 protected:
  word x = 0, y = 0, z = 0;

  void SetUp() override {
    host_test::SetUp();
    x = name("x"), y = name("y"), z = name("z");
  }

  void expect_sound(word container) {
    const vorn::container_fault f = vorn::check_container(cbt(), container, {0, true});
    EXPECT_TRUE(f.ok()) << f.problem << " (term " << f.term << ") in " << text(container);
  }

  // Fixed clocks: every interval is 0, so a time line reads the same each run.
  static std::int32_t still_cpu() { return 0; }
  static vorn::wall_time still_wall() { return {0, 0}; }
  void freeze_clocks() { vorn::set_clock_source({still_cpu, still_wall}); }
  // The output with the ratio of each time line (0 / 0 here) masked as "R".
  std::string lines() { return std::regex_replace(output(), std::regex("   [^ ]+x\n"), "   Rx\n"); }
};

constexpr const char* import_time = "time: 0.000 sec   import: 0.000 sec   sort: 0.000 sec   real: 0.000 sec   ";

TEST_F(Conversion, ImportMessagesInTheirOrder) {
  const word ring = funcall("tdeg", {x, y});
  const word f = sum({{x, integer(2)}, {integer(1), integer(1)}});
  EXPECT_EQ(call_error("kelto2vorn", {f}), "expecting a polynomial and a monomial order");
  EXPECT_EQ(call_error("kelto2vorn", {f, x, option("pack", 0)}), "expecting a polynomial and a monomial order");
  EXPECT_EQ(call_error("kelto2vorn", {f, ring, option("characteristic", -1), equation(name("pack"), x)}),
            "invalid argument");
  EXPECT_EQ(call_error("kelto2vorn", {f, ring, option("size", 2)}), "invalid argument");
  EXPECT_EQ(call_error("kelto2vorn", {f, ring, integer(3)}), "invalid argument");
  EXPECT_EQ(call_error("kelto2vorn", {f, funcall("lex", {x}), option("pack", 0), option("characteristic", -5)}),
            "negative modulus");
  // The last pack counts, and only the final value is checked.
  EXPECT_EQ(call_error("kelto2vorn", {f, funcall("lex", {x}), option("pack", 2), option("pack", 33)}), "invalid argument");
  EXPECT_TRUE(call("kelto2vorn", {f, ring, option("pack", 33), option("pack", 2)}).ok);
  EXPECT_EQ(call_error("kelto2vorn", {name("sin"), funcall("lex", {x})}), "monomial order not supported");
  vorn::gateway_fail_at(1);
  EXPECT_EQ(call_error("kelto2vorn", {funcall("sin", {x}), ring}), "out of memory");
  EXPECT_EQ(call_error("kelto2vorn", {funcall("sin", {x}), ring}), "expecting an expanded polynomial");
  EXPECT_EQ(call_error("kelto2vorn", {sum({{funcall("sin", {x}), integer(1)}}), ring}), "expecting an expanded polynomial");
  EXPECT_EQ(call_error("kelto2vorn", {sum({{x, y}}), ring}), "expecting an expanded polynomial");
  EXPECT_EQ(call_error("kelto2vorn", {prod({{x, -1}}), ring}), "expecting an expanded polynomial");
  EXPECT_EQ(call_error("kelto2vorn", {minikelto::make_prod(std::vector<std::pair<word, word>>{{x, y}}), ring}),
            "expecting an expanded polynomial");
  // A base that is no ring variable is not looked at, whatever its exponent.
  EXPECT_TRUE(call("kelto2vorn", {minikelto::make_prod(std::vector<std::pair<word, word>>{{z, y}, {x, integer(2)}}), ring}).ok);

  // Fields of pack 4 hold 0 ... 127; in tdeg the degree must fit too.  The
  // first offending term decides.
  EXPECT_TRUE(call("kelto2vorn", {prod({{x, 127}}), funcall("plex", {x, y}), option("pack", 4)}).ok);
  EXPECT_EQ(call_error("kelto2vorn", {prod({{x, 100}, {y, 28}}), ring, option("pack", 4)}), "exponent overflow");
  EXPECT_EQ(call_error("kelto2vorn", {x, ring, option("pack", 32)}), "exponent overflow");
  const word big_first = sum({{prod({{x, 128}}), integer(1)}, {funcall("sin", {x}), integer(1)}});
  const word bad_first = sum({{funcall("sin", {x}), integer(1)}, {prod({{x, 128}}), integer(1)}});
  EXPECT_EQ(call_error("kelto2vorn", {big_first, ring, option("pack", 4)}), "exponent overflow");
  EXPECT_EQ(call_error("kelto2vorn", {bad_first, ring, option("pack", 4)}), "expecting an expanded polynomial");
  // A term that vanishes is never packed for good, so it cannot overflow.
  const word vanishing = sum({{prod({{x, 128}}), integer(7)}, {y, integer(1)}});
  EXPECT_TRUE(call("kelto2vorn", {vanishing, ring, option("pack", 4), option("characteristic", 7)}).ok);
}

TEST_F(Conversion, BasesOutsideTheRingAreIgnored) {
  // 2*a*x + 3*b*x over (x): two terms of one monomial, left side by side.
  const word g = sum({{prod({{name("a"), 1}, {x, 1}}), integer(2)}, {prod({{name("b"), 1}, {x, 1}}), integer(3)}});
  const word G = call_ok("kelto2vorn", {g, funcall("plex", {x})});
  EXPECT_EQ(vorn::read_container(cbt(), G).count, 2);
  EXPECT_TRUE(vorn::check_container(cbt(), G, {0, false}).ok());
  // A lone name outside the ring is the monomial 1.
  EXPECT_EQ(call_ok("vorn2kelto", {call_ok("kelto2vorn", {name("a"), funcall("plex", {x})})}), integer(1));
}

TEST_F(Conversion, ExportBuildsSumsOfProducts) {
  const word ring = funcall("tdeg", {x, y, z});
  // 3*x^2*y + 7: the constant first, then PROD(x, 2, y, 1); z does not appear.
  const word f = sum({{prod({{x, 2}, {y, 1}}), integer(3)}, {integer(7), integer(1)}});
  const word s = call_ok("vorn2kelto", {call_ok("kelto2vorn", {f, ring})});
  ASSERT_EQ(minikelto::type_of(s), minikelto::sum);
  ASSERT_EQ(minikelto::length_of(s), 5);
  const word* w = minikelto::object_words(s);
  EXPECT_EQ(w[1], integer(7));
  EXPECT_EQ(w[2], integer(1));
  EXPECT_EQ(text(w[3]), "x^2*y");
  EXPECT_EQ(w[4], integer(3));
  EXPECT_EQ(call_error("vorn2kelto", {x}), "expecting a polynomial");
  EXPECT_EQ(call_error("vorn2kelto", {}), "expecting a polynomial");
  // A container whose ring names another order: only a non-empty one is looked at.
  const vorn::packing p = vorn::make_layout(cbt(), ring, 1);
  const word lex = funcall("lex", {x, y, z});
  EXPECT_EQ(call_ok("vorn2kelto", {unique(vorn::new_container(cbt(), lex, 0, p.layout.get()))}), integer(0));
  const word one_term = vorn::new_container(cbt(), lex, 1, p.layout.get());
  vorn::read_container(cbt(), one_term).terms[vorn::layout_msize(p.layout.get())] = integer(1);
  EXPECT_EQ(call_error("vorn2kelto", {unique(one_term)}), "monomial order not supported");
}

TEST_F(Conversion, RepackMessagesInTheirOrder) {
  const word A = call_ok("kelto2vorn", {sum({{x, integer(2)}, {prod({{y, 3}}), integer(1)}}), funcall("tdeg", {x, y}),
                                        option("pack", 4)});
  EXPECT_EQ(call_error("repackvorn", {}), "expecting a polynomial");
  EXPECT_EQ(call_ok("repackvorn", {x}), x);
  EXPECT_EQ(call_ok("repackvorn", {A}), A);
  EXPECT_EQ(call_ok("repackvorn", {A, option("pack", 4)}), A);
  EXPECT_EQ(call_ok("repackvorn", {A, option("characteristic", 0)}), A);
  EXPECT_EQ(call_error("repackvorn", {x, option("pack", 2)}), "invalid argument");
  EXPECT_EQ(call_error("repackvorn", {A, integer(5)}), "invalid argument");
  EXPECT_EQ(call_error("repackvorn", {A, option("x", 3), option("characteristic", -1)}), "invalid argument");
  EXPECT_EQ(call_error("repackvorn", {A, option("pack", 2), funcall("plex", {x})}), "invalid argument");
  EXPECT_EQ(call_error("repackvorn", {A, funcall("lex", {x}), option("pack", 0), option("characteristic", -1)}),
            "negative modulus");
  EXPECT_EQ(call_error("repackvorn", {A, funcall("lex", {x}), option("pack", 0)}), "invalid argument");
  EXPECT_EQ(call_error("repackvorn", {A, funcall("lex", {x})}), "monomial order not supported");
  vorn::gateway_fail_at(1);
  EXPECT_EQ(call_error("repackvorn", {A, option("pack", 2)}), "out of memory");
  EXPECT_EQ(call_error("repackvorn", {A, option("pack", 11)}), "exponent overflow");  // y^3 needs 3 bits
  // Dropping y keeps only x's exponents, which fit.
  EXPECT_TRUE(call("repackvorn", {A, funcall("plex", {x}), option("pack", 16)}).ok);
}

TEST_F(Conversion, RepackReduces) {
  const word ring = funcall("plex", {x, y});
  // 7*x^3 + 10*x^2 - 3*x + 2^40: the first term vanishes mod 7.
  const word f = sum({{prod({{x, 3}}), integer(7)},
                      {prod({{x, 2}}), integer(10)},
                      {x, integer(-3)},
                      {integer(std::int64_t{1} << 40), integer(1)}});
  const word A = call_ok("kelto2vorn", {f, ring});
  set_info_level(3);
  freeze_clocks();
  const word R = call_ok("repackvorn", {A, option("characteristic", 7)});
  EXPECT_EQ(lines(), std::string("1 out of 4 terms vanished mod 7\n") + import_time + "Rx\n");
  EXPECT_EQ(text(call_ok("vorn2kelto", {R})), "2 + -3*x + 3*x^2");
}

// Random polynomials with distinct monomials: (monomial, coefficient) pairs.
struct random_polynomial {
  std::vector<exponents> monomials;
  std::vector<word> coefficients;
  std::int64_t max_degree = 0;
};

class RoundTrip : public Conversion {
 protected:
  const std::uint32_t seed = vorn::test::test_seed(20240611);
  std::mt19937_64 rng{seed};
  gmp_randstate_t gmp_state;
  void SetUp() override {
    Conversion::SetUp();
    gmp_randinit_default(gmp_state);
    gmp_randseed_ui(gmp_state, seed);
  }
  void TearDown() override {
    gmp_randclear(gmp_state);
    Conversion::TearDown();
  }

  std::int64_t uniform(std::int64_t lo, std::int64_t hi) {
    return std::uniform_int_distribution<std::int64_t>(lo, hi)(rng);
  }

  word random_coefficient() {
    mpz_t c;
    mpz_init(c);
    mpz_urandomb(c, gmp_state, static_cast<mp_bitcnt_t>(uniform(1, 200)));
    if (mpz_sgn(c) == 0) mpz_set_ui(c, 1);
    if (uniform(0, 1) != 0) mpz_neg(c, c);
    const word h = minikelto::make_integer(c);
    mpz_clear(c);
    return h;
  }

  random_polynomial make(std::size_t n, std::int32_t terms, std::int64_t max_exponent) {
    random_polynomial f;
    std::set<exponents> seen;
    for (std::int32_t t = 0; t < terms; ++t) {
      exponents e(n);
      std::int64_t d = 0;
      for (auto& v : e) d += v = uniform(0, 1) != 0 ? uniform(0, max_exponent) : 0;
      if (!seen.insert(e).second) continue;
      f.monomials.push_back(e);
      f.coefficients.push_back(random_coefficient());
      f.max_degree = std::max(f.max_degree, d);
    }
    return f;
  }

  // The host SUM of f, its coefficients reduced by each of `moduli` in turn as
  // the conversions reduce them (immediates keep their sign, big integers give
  // 0 ... p - 1), zeros dropped.
  word host_sum(const random_polynomial& f, const std::vector<word>& variables, std::vector<std::int32_t> moduli = {}) {
    std::vector<std::pair<word, word>> pairs;
    mpz_t c;
    mpz_init(c);
    for (std::size_t t = 0; t < f.monomials.size(); ++t) {
      word coefficient = f.coefficients[t];
      for (const std::int32_t p : moduli) {
        if (p == 0) continue;
        minikelto::integer_value(coefficient, c);
        coefficient = integer(minikelto::is_immediate(coefficient) ? minikelto::immediate_value(coefficient) % p
                                                                   : static_cast<std::int64_t>(mpz_fdiv_ui(c, static_cast<unsigned long>(p))));
      }
      if (coefficient == integer(0)) continue;
      std::vector<std::pair<word, word>> factors;
      for (std::size_t i = 0; i < variables.size(); ++i)
        if (f.monomials[t][i] != 0)
          factors.emplace_back(variables[i], minikelto::make_immediate(static_cast<std::int32_t>(f.monomials[t][i])));
      if (factors.empty()) pairs.emplace_back(coefficient, integer(1));
      else pairs.emplace_back(minikelto::make_prod(factors), coefficient);
    }
    mpz_clear(c);
    return minikelto::make_sum(pairs);
  }

  // A pack whose fields hold every exponent and degree, or 0 when none does.
  std::int32_t fitting_pack(std::int64_t max_degree) {
    std::vector<std::int32_t> packs;
    for (std::int32_t pack = 1; pack <= 32; ++pack)
      if (max_degree < (std::int64_t{1} << (vorn::pack_shift(pack) - 1))) packs.push_back(pack);
    return packs.empty() ? 0 : packs[static_cast<std::size_t>(uniform(0, static_cast<std::int64_t>(packs.size()) - 1))];
  }
};

TEST_F(RoundTrip, ImportExportAndRepackAgreeWithExpand) {
  const char* orders[] = {"plex", "grlex", "tdeg"};
  const std::int32_t primes[] = {0, 0, 2, 7, 32003, 1073741789};
  const char* variable_names[] = {"v0", "v1", "v2", "v3", "v4", "v5", "v6", "v7", "v8", "v9"};
  const int rounds = vorn::test::small_tests ? 40 : 200;
  for (int round = 0; round < rounds; ++round) {
    SCOPED_TRACE("round " + std::to_string(round) + " of " + vorn::test::seed_note(seed));
    const auto n = static_cast<std::size_t>(uniform(1, 10));
    std::vector<word> variables;
    for (std::size_t i = 0; i < n; ++i) variables.push_back(name(variable_names[i]));
    const std::int64_t max_exponent = std::int64_t{1} << uniform(0, 12);
    const random_polynomial f = make(n, static_cast<std::int32_t>(uniform(0, 60)), max_exponent);
    const std::int32_t pack = fitting_pack(f.max_degree);
    const std::int32_t p = primes[uniform(0, 5)];
    const word order = minikelto::unique(minikelto::make_funcall(name(orders[uniform(0, 2)]), variables));

    const word A = call_ok("kelto2vorn", {host_sum(f, variables), order, option("pack", pack), option("characteristic", p)});
    expect_sound(A);
    EXPECT_EQ(minikelto::expand(call_ok("vorn2kelto", {A})), minikelto::expand(host_sum(f, variables, {p})));

    // Into another order, with the variables shuffled and one more, any pack that fits.
    std::vector<word> shuffled(variables);
    std::shuffle(shuffled.begin(), shuffled.end(), rng);
    shuffled.insert(shuffled.begin() + static_cast<std::ptrdiff_t>(uniform(0, static_cast<std::int64_t>(n))), name("extra"));
    const word new_ring = minikelto::unique(minikelto::make_funcall(name(orders[uniform(0, 2)]), shuffled));
    const std::int32_t q = p == 0 ? primes[uniform(0, 5)] : 0;
    const word B = call_ok("repackvorn", {A, new_ring, option("pack", fitting_pack(f.max_degree)), option("characteristic", q)});
    expect_sound(B);
    EXPECT_EQ(minikelto::expand(call_ok("vorn2kelto", {B})), minikelto::expand(host_sum(f, variables, {p, q})));
    minikelto::collect();
  }
}

TEST_F(RoundTrip, AllocationsDoNotGrowWithTerms) {
  const std::vector<word> variables{x, y, z};
  std::int64_t counts[2];
  const std::int32_t sizes[2] = {10, vorn::test::small_tests ? 2000 : 20000};
  for (int k = 0; k < 2; ++k) {
    const random_polynomial f = make(3, sizes[k], 200);
    const word s = host_sum(f, variables);
    const std::int64_t before = vorn::gateway_state().allocations;
    const word A = call_ok("kelto2vorn", {s, funcall("tdeg", {x, y, z}), option("pack", 2)});
    call_ok("vorn2kelto", {A});
    call_ok("repackvorn", {A, funcall("plex", {z, x, y}), option("characteristic", 32003)});
    counts[k] = vorn::gateway_state().allocations - before;
  }
  EXPECT_EQ(counts[0], counts[1]);
}

}  // namespace
