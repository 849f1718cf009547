// kelto2vorn, vorn2kelto and repackvorn against the minimal host: messages in
// their order of checks, residues and vanished terms, the diagnostic lines,
// round trips against the host's expand, and allocations that do not grow
// with the number of terms.
#include <gmp.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <random>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "host/frame.hpp"
#include "host/memory.hpp"
#include "layout_util.hpp"
#include "minikelto/expand.hpp"
#include "poly/container.hpp"
#include "poly/container_check.hpp"
#include "poly/pack.hpp"
#include "support/host_fixture.hpp"

namespace {

using word = minikelto::word;
using exponents = std::vector<std::int64_t>;
// A polynomial as monomial -> decimal coefficient, whatever its host form.
using term_map = std::map<exponents, std::string>;

class Conversion : public host_test {
 protected:
  word x = 0, y = 0, z = 0;

  void SetUp() override {
    host_test::SetUp();
    x = name("x"), y = name("y"), z = name("z");
  }

  // The terms of a host polynomial over `variables`; any other base fails.
  term_map terms(word f, const std::vector<word>& variables) {
    term_map out;
    const auto monomial = [&](word m) {
      exponents e(variables.size(), 0);
      const auto add = [&](word base, std::int64_t power) {
        for (std::size_t i = 0; i < variables.size(); ++i)
          if (variables[i] == base) return void(e[i] += power);
        ADD_FAILURE() << "unexpected base " << text(base);
      };
      if (minikelto::type_of(m) == minikelto::prod) {
        const word* w = minikelto::object_words(m);
        for (std::int32_t i = 1; i + 1 < minikelto::length_of(m); i += 2) add(w[i], minikelto::immediate_value(w[i + 1]));
      } else {
        add(m, 1);
      }
      return e;
    };
    const auto is_number = [](word h) { return minikelto::is_integer(h); };
    if (is_number(f)) {
      if (f != minikelto::make_immediate(0)) out[exponents(variables.size(), 0)] = minikelto::integer_text(f);
      return out;
    }
    if (minikelto::type_of(f) != minikelto::sum) {
      out[monomial(f)] = "1";
      return out;
    }
    const word* w = minikelto::object_words(f);
    for (std::int32_t i = 1; i + 1 < minikelto::length_of(f); i += 2) {
      const exponents e = is_number(w[i]) ? exponents(variables.size(), 0) : monomial(w[i]);
      EXPECT_EQ(out.count(e), 0u) << "a monomial occurs twice in " << text(f);
      out[e] = minikelto::integer_text(is_number(w[i]) ? w[i] : w[i + 1]);
    }
    return out;
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

TEST_F(Conversion, ResiduesAndVanishedTerms) {
  const word px = funcall("plex", {x});
  const auto coefficients = [&](word c) {
    std::vector<std::string> out;
    const vorn::term_block v = vorn::read_container(cbt(), c);
    const int msize = vorn::layout_msize(v.layout);
    for (std::int32_t t = 0; t < v.count; ++t) {
      const word w = v.terms[t * (msize + 1) + msize];
      out.push_back(vorn::is_immediate(w) ? std::to_string(vorn::immediate_value(w)) : "big");
    }
    return out;
  };
  using strings = std::vector<std::string>;
  EXPECT_EQ(coefficients(call_ok("kelto2vorn", {integer(0), px})), strings{});
  EXPECT_EQ(coefficients(call_ok("kelto2vorn", {integer(5), px, option("characteristic", 5)})), strings{});
  EXPECT_EQ(coefficients(call_ok("kelto2vorn", {integer(-3), px, option("characteristic", 7)})), strings{"-3"});
  // -2^40 = 2^40 * -1; 2^40 = 2 mod 7, so the floor residue is 5.
  EXPECT_EQ(coefficients(call_ok("kelto2vorn", {integer(-(std::int64_t{1} << 40)), px, option("characteristic", 7)})),
            strings{"5"});
  EXPECT_EQ(coefficients(call_ok("kelto2vorn", {integer(std::int64_t{1} << 40), px})), strings{"big"});

  // 3x + 7y - 7 mod 7: two of three terms vanish, and the line says so.
  set_info_level(3);
  freeze_clocks();
  const word f = sum({{x, integer(3)}, {y, integer(7)}, {integer(-7), integer(1)}});
  const word A = call_ok("kelto2vorn", {f, funcall("grlex", {x, y}), option("characteristic", 7)});
  EXPECT_EQ(lines(), std::string("2 out of 3 terms vanished mod 7\n") + import_time + "Rx\n");
  EXPECT_EQ(text(call_ok("vorn2kelto", {A})), "3*x");

  // Bases that are not ring variables contribute nothing: two terms, one monomial.
  const word g = sum({{prod({{name("a"), 1}, {x, 1}}), integer(2)}, {prod({{name("b"), 1}, {x, 1}}), integer(3)}});
  const word G = call_ok("kelto2vorn", {g, px});
  EXPECT_EQ(coefficients(G).size(), 2u);
  EXPECT_TRUE(vorn::check_container(cbt(), G, {0, false}).ok());
  output();
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
  // A lone constant is kept as the pair (5, 1) until the host simplifies it.
  EXPECT_EQ(call_ok("vorn2kelto", {call_ok("kelto2vorn", {integer(5), ring})}), integer(5));
  EXPECT_EQ(call_ok("vorn2kelto", {call_ok("kelto2vorn", {integer(0), ring})}), integer(0));
  const word big = integer("-123456789012345678901234567890");
  EXPECT_EQ(call_ok("vorn2kelto", {call_ok("kelto2vorn", {big, ring})}), unique(big));

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

TEST_F(Conversion, RepackReducesAndRemaps) {
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
  EXPECT_EQ(text(call_ok("vorn2kelto", {call_ok("repackvorn", {A, option("characteristic", 1)})})), "0");

  // New variable z gets exponent 0; reordering variables re-sorts.
  set_info_level(0);
  const word B = call_ok("repackvorn", {A, funcall("tdeg", {z, y, x}), option("pack", 2), option("pack", 4)});
  expect_sound(B);
  EXPECT_EQ(vorn::layout_shift(vorn::read_container(cbt(), B).layout), 8);
  EXPECT_EQ(terms(call_ok("vorn2kelto", {B}), {x, y, z}), terms(f, {x, y, z}));
}

TEST_F(Conversion, DiagnosticsByLevel) {
  freeze_clocks();
  const word ring = funcall("tdeg", {x, y});
  const word f = sum({{prod({{x, 2}}), integer("100000000000000000000")}, {y, integer(3)}});
  struct expected {
    std::int32_t level;
    const char* import;
    const char* repack;
    const char* export_;
  };
  const std::string t = import_time;
  const std::string e = "time: 0.000 sec   export: 0.000 sec   simp: 0.000 sec   real: 0.000 sec   Rx\n";
  const std::string gmp = "1 GMP coefficients, size (limbs): 3\n";
  const std::string imports[] = {"", t + "Rx\n", "char=0 pack=2 shift=16 msize=2: SUM 5\n" + t + "Rx\n",
                                 "char=0 pack=2 shift=16 msize=2: SUM 5\n" + gmp + t + "Rx\n"};
  const std::string repacks[] = {"", t + "Rx\n", "pack=2 shift=16 msize=2 -> pack=4 shift=8 msize=2\n" + t + "Rx\n",
                                 "pack=2 shift=16 msize=2 -> pack=4 shift=8 msize=2\n" + gmp + t + "Rx\n"};
  const std::string exports[] = {"", e, "pack=2 shift=16 msize=2: SUM 5\n" + e, "pack=2 shift=16 msize=2: SUM 5\n" + e};
  for (std::int32_t level = 2; level <= 5; ++level) {
    SCOPED_TRACE(level);
    set_info_level(level);
    const word A = call_ok("kelto2vorn", {f, ring, option("pack", 2)});
    EXPECT_EQ(lines(), imports[level - 2]);
    call_ok("repackvorn", {A, option("pack", 4)});
    EXPECT_EQ(lines(), repacks[level - 2]);
    call_ok("vorn2kelto", {A});
    EXPECT_EQ(lines(), exports[level - 2]);
  }
  set_info_level(4);
  for (const auto& [f1, line] : std::vector<std::pair<word, std::string>>{
           {integer(4), " IMMEDIATE 1\n"}, {x, " NAME 1\n"}, {prod({{x, 2}, {y, 1}}), " PROD 5\n"},
           {integer("100000000000000000000"), " INTPOS "}, {integer("-100000000000000000000"), " INTNEG "}}) {
    call_ok("kelto2vorn", {f1, ring});
    const std::string length = minikelto::is_integer(f1) && !minikelto::is_immediate(f1)
                                   ? std::to_string(minikelto::length_of(f1)) + "\n" : "";
    const std::string printed = output();
    EXPECT_EQ(printed.substr(0, printed.find('\n') + 1), "char=0 pack=1 shift=32 msize=3:" + line + length);
  }
}

// Random polynomials with distinct monomials: (monomial, coefficient) pairs.
struct random_polynomial {
  std::vector<exponents> monomials;
  std::vector<word> coefficients;
  std::int64_t max_degree = 0;
};

class RoundTrip : public Conversion {
 protected:
  std::mt19937_64 rng{20240611};
  gmp_randstate_t gmp_state;
  void SetUp() override {
    Conversion::SetUp();
    gmp_randinit_default(gmp_state);
    gmp_randseed_ui(gmp_state, 7);
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

  // The host SUM of f: constants as (c, 1), monomials as PRODs.
  word host_sum(const random_polynomial& f, const std::vector<word>& variables) {
    std::vector<std::pair<word, word>> pairs;
    for (std::size_t t = 0; t < f.monomials.size(); ++t) {
      std::vector<std::pair<word, word>> factors;
      for (std::size_t i = 0; i < variables.size(); ++i)
        if (f.monomials[t][i] != 0)
          factors.emplace_back(variables[i], minikelto::make_immediate(static_cast<std::int32_t>(f.monomials[t][i])));
      if (factors.empty()) pairs.emplace_back(f.coefficients[t], integer(1));
      else pairs.emplace_back(minikelto::make_prod(factors), f.coefficients[t]);
    }
    return minikelto::make_sum(pairs);
  }

  // f with coefficients reduced as the conversions reduce them: immediates
  // keep their sign, big integers give 0 ... p - 1; zeros dropped.
  random_polynomial reduced(random_polynomial f, std::int32_t p) {
    if (p == 0) return f;
    random_polynomial r;
    mpz_t c;
    mpz_init(c);
    for (std::size_t t = 0; t < f.monomials.size(); ++t) {
      const word h = f.coefficients[t];
      std::int64_t v;
      if (minikelto::is_immediate(h)) {
        v = minikelto::immediate_value(h) % p;
      } else {
        minikelto::integer_value(h, c);
        v = static_cast<std::int64_t>(mpz_fdiv_ui(c, static_cast<unsigned long>(p)));
      }
      if (v == 0) continue;
      r.monomials.push_back(f.monomials[t]);
      r.coefficients.push_back(integer(v));
    }
    mpz_clear(c);
    return r;
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
    SCOPED_TRACE("round " + std::to_string(round) + " of seed 20240611");
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
    const word expected = minikelto::expand(host_sum(reduced(f, p), variables));
    EXPECT_EQ(terms(call_ok("vorn2kelto", {A}), variables), terms(expected, variables));

    // Into another order, with the variables shuffled and one more, any pack that fits.
    std::vector<word> shuffled(variables);
    std::shuffle(shuffled.begin(), shuffled.end(), rng);
    shuffled.insert(shuffled.begin() + uniform(0, static_cast<std::int64_t>(n)), name("extra"));
    const word new_ring = minikelto::unique(minikelto::make_funcall(name(orders[uniform(0, 2)]), shuffled));
    const std::int32_t q = p == 0 ? primes[uniform(0, 5)] : 0;
    const word B = call_ok("repackvorn", {A, new_ring, option("pack", fitting_pack(f.max_degree)), option("characteristic", q)});
    expect_sound(B);
    const word twice = minikelto::expand(host_sum(reduced(reduced(f, p), q), variables));
    EXPECT_EQ(terms(call_ok("vorn2kelto", {B}), shuffled), terms(twice, shuffled));
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
