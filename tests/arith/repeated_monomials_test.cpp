// Containers that repeat a monomial, through every entry, against a model of
// the passes each entry makes.  Import leaves equal monomials side by side
// when terms differ only in names outside the ring, and repacking to fewer
// variables does too.  The product, sum, scaling, export and repacking take
// such terms as they lie, pass for pass: the model predicts their terms in
// order, the coefficients and the block lines of level 5.  The division
// merges both operands and then divides as usual: the model predicts its
// passes on the merged operands, and a quotient times the merged divisor
// must give the merged dividend back.
#include <algorithm>
#include <cmath>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "entry_test_util.hpp"
#include "host/gmp_record.hpp"
#include "support/test_seed.hpp"

namespace vorn::test {
namespace {

using monomial = exponents;  // of the ring's variables

struct mterm {
  monomial e;
  std::int64_t c;  // a big coefficient as its floor residue mod the round's p
};
using mpoly = std::vector<mterm>;  // in container order

// What an entry did, or what the model says it does.
struct outcome {
  mpoly terms;
  std::string lines;  // block, switch and vanished-terms lines
  bool answer = true;
  std::string error;
};

std::string shown(const mterm& t) {
  std::ostringstream out;
  out << t.c << "*[";
  for (std::uint32_t x : t.e) out << ' ' << x;
  out << " ]";
  return out.str();
}

// Empty when f and g hold the same terms in the same order, else where they part.
std::string difference(const mpoly& f, const mpoly& g) {
  std::size_t t = 0;
  while (t < f.size() && t < g.size() && f[t].e == g[t].e && f[t].c == g[t].c) ++t;
  if (t == f.size() && t == g.size()) return "";
  return "from term " + std::to_string(t) + " of " + std::to_string(f.size()) + " / " + std::to_string(g.size()) +
         ": " + (t < f.size() ? shown(f[t]) : "end") + " against " + (t < g.size() ? shown(g[t]) : "end");
}

// The passes of each entry, taken literally, on exponent vectors.
struct model {
  monomial_order order;
  std::int64_t p;

  std::int64_t residue(std::int64_t v) const { return ((v % p) + p) % p; }
  std::int64_t inverse(std::int64_t a) const {  // p prime
    std::int64_t r = 1;
    for (std::int64_t e = p - 2, b = residue(a); e > 0; e >>= 1, b = b * b % p)
      if (e & 1) r = r * b % p;
    return r;
  }
  static monomial plus(monomial a, const monomial& b) {
    for (std::size_t i = 0; i < a.size(); ++i) a[i] += b[i];
    return a;
  }
  static std::string alloc(std::int64_t n) { return "alloc " + std::to_string(n) + " terms\n"; }
  static std::int64_t grow(std::int64_t cap, std::int64_t k) {
    const long double v = static_cast<long double>(100 * k + 50) * static_cast<long double>(cap) /
                          static_cast<long double>(100 * k);
    return std::min(static_cast<std::int64_t>(std::llrint(v)), std::int64_t{524288});
  }

  // One stream per term of A walks B; a pass takes every product in the
  // heap equal to the largest, and only then do the streams move on.
  outcome product(const mpoly& A, const mpoly& B) const {
    outcome out;
    if (A.empty() || B.empty()) return out;
    std::multimap<monomial, std::pair<std::size_t, std::size_t>, decreasing> heap{decreasing{order}};
    auto insert = [&](std::size_t i, std::size_t j) { heap.emplace(plus(A[i].e, B[j].e), std::pair{i, j}); };
    auto remaining = static_cast<std::int64_t>(A.size() * B.size());
    std::int64_t capacity = std::min<std::int64_t>(remaining, 1024), written = 0;
    out.lines = alloc(capacity);
    insert(0, 0);
    while (!heap.empty()) {
      const monomial m = heap.begin()->first;
      std::vector<std::pair<std::size_t, std::size_t>> taken;
      for (; !heap.empty() && heap.begin()->first == m; heap.erase(heap.begin())) taken.push_back(heap.begin()->second);
      std::int64_t sum = 0;
      for (const auto& [i, j] : taken) sum = residue(sum + residue(A[i].c) * residue(B[j].c));
      for (const auto& [i, j] : taken) {
        if (j == 0 && i + 1 < A.size()) insert(i + 1, 0);
        if (j + 1 < B.size()) insert(i, j + 1);
      }
      if (sum != 0) {
        out.terms.push_back({m, sum});
        ++written;
      }
      if (written == capacity && !heap.empty()) {
        remaining -= written;
        capacity = std::min(grow(written, static_cast<std::int64_t>(taken.size())), remaining);
        out.lines += alloc(capacity);
        written = 0;
      }
    }
    return out;
  }

  // One merge: equal monomials meet once, one term of each side.
  outcome sum(const mpoly& A, const mpoly& B, bool subtract) const {
    if (B.empty() || (A.empty() && !subtract)) return {B.empty() ? A : B, "", true, ""};  // the operand itself
    outcome out;
    const std::int64_t sign = subtract ? -1 : 1;
    std::size_t i = 0, j = 0;
    auto left = [&] { return static_cast<std::int64_t>(A.size() - i + B.size() - j); };
    std::int64_t capacity = std::min<std::int64_t>(left(), 1024), written = 0;
    out.lines = alloc(capacity);
    auto put = [&](const monomial& e, std::int64_t v) {
      if (residue(v) == 0) return false;
      out.terms.push_back({e, residue(v)});
      return ++written == capacity;
    };
    while (i < A.size() && j < B.size()) {
      const int d = reference_compare(order, A[i].e, B[j].e);
      const monomial& e = d > 0 ? A[i].e : B[j].e;
      std::int64_t v = 0;
      if (d >= 0) v = A[i++].c;
      if (d <= 0) v += sign * B[j++].c;
      if (put(e, v)) {
        const auto grown = static_cast<std::int64_t>(std::llrint(static_cast<double>(capacity) * 250.0 / 200.0));
        capacity = std::min({grown, std::int64_t{524288}, left()});
        out.lines += alloc(capacity);
        written = 0;
      }
    }
    for (;;) {
      for (; i < A.size() && written < capacity; ++i) put(A[i].e, A[i].c);
      for (; j < B.size() && written < capacity; ++j) put(B[j].e, sign * B[j].c);
      if (left() <= 0) break;
      capacity = left();
      out.lines += alloc(capacity);
      written = 0;
    }
    return out;
  }

  outcome scaled(const mpoly& f, std::int64_t num, std::int64_t den) const {
    outcome out;
    if (den == 0 || (!f.empty() && residue(den) == 0)) out.error = "division by zero";
    if (f.empty() || !out.error.empty()) return out;
    const std::int64_t factor = residue(den) == 1 ? num : residue(inverse(den) * num);
    if (factor == 1) out.terms = f;  // copied as they are
    else if (factor != 0)
      for (const mterm& t : f)
        if (residue(t.c * factor) != 0) out.terms.push_back({t.e, residue(t.c * factor)});
    return out;
  }

  // Terms converted one by one: the first n variables kept, coefficients
  // reduced mod q (q = 0: kept), vanished ones dropped; not yet sorted.
  mpoly repacked(const mpoly& f, std::size_t n, std::int64_t q, std::string& lines) const {
    mpoly out;
    for (const mterm& t : f) {
      const std::int64_t c = q == 0 ? t.c : t.c % q;  // big ones come as residues, with q = p
      if (c != 0) out.push_back({monomial(t.e.begin(), t.e.begin() + static_cast<std::ptrdiff_t>(n)), c});
    }
    if (out.size() < f.size())
      lines = std::to_string(f.size() - out.size()) + " out of " + std::to_string(f.size()) + " terms vanished mod " +
              std::to_string(q) + "\n";
    return out;
  }

  // Equal neighbours summed mod p, vanished sums dropped.
  mpoly merged(const mpoly& f) const {
    mpoly out;
    for (std::size_t t = 0; t < f.size();) {
      const std::size_t first = t;
      std::int64_t s = 0;
      for (; t < f.size() && f[t].e == f[first].e; ++t) s += f[t].c;
      if (residue(s) != 0) out.push_back({f[first].e, residue(s)});
    }
    return out;
  }

  // The division's passes on the merged operands, one monomial of A - Q·B
  // each, with every product of that monomial summed in its pass.
  outcome quotient(const mpoly& A0, const mpoly& B0) const {
    outcome out;
    const mpoly A = merged(A0), B = merged(B0);
    if (B0.empty() || (!A0.empty() && B.empty())) return {{}, "", false, "division by zero"};
    if (A0.empty()) return out;
    const auto nB = static_cast<std::int64_t>(B.size());
    std::int64_t capacity = std::min<std::int64_t>(nB, 1024), count = 0, H = capacity;
    bool switched = false;
    out.lines = alloc(capacity);
    const std::int64_t inv = inverse(B[0].c);
    std::map<monomial, std::pair<std::int64_t, std::int64_t>, decreasing> rest{decreasing{order}};  // sum, k
    for (const mterm& t : A) rest[t.e] = {t.c, 1};
    while (!rest.empty()) {
      const auto [m, pass] = *rest.begin();
      rest.erase(rest.begin());
      if (residue(pass.first) == 0) continue;
      monomial q(m.size());
      for (std::size_t i = 0; i < m.size(); ++i) {
        if (m[i] < B[0].e[i]) return {{}, out.lines, false, {}};
        q[i] = m[i] - B[0].e[i];
      }
      const std::int64_t c = residue(pass.first * inv);
      out.terms.push_back({q, c});
      for (std::size_t j = 1; j < B.size(); ++j) {
        auto& [s, k] = rest[plus(q, B[j].e)];
        s = residue(s - c * B[j].c);
        ++k;
      }
      if (++count < capacity) continue;
      const std::int64_t newcap = grow(capacity, pass.second);
      out.lines += alloc(newcap);
      if (!switched && nB >= 2 && nB - 1 > H + newcap) {
        H += newcap;
      } else if (!switched && nB >= 2) {
        H += nB - 1;
        out.lines += "switch! qn=" + std::to_string(newcap) + " terms, dn=" + std::to_string(nB - 1) +
                     " terms, heap=" + std::to_string(H) + "\n";
        switched = true;
      }
      capacity = newcap;
      count = 0;
    }
    return out;
  }
};

class RepeatedMonomials : public entry_test {
 protected:
  std::mt19937 rng;
  monomial_order order = monomial_order::plex;
  std::size_t n = 1;
  std::vector<word> vars;  // the ring's, then w, a and b
  word R = 0, W = 0;       // the ring, and the ring with w
  std::int32_t pack = 4, p = 101;

  // The terms of a container over n variables, coefficients as values.
  mpoly terms_of(word container, std::size_t nvars) {
    const term_block v = read_container(cbt(), container);
    const int msize = layout_msize(v.layout);
    mpoly out;
    for (std::int32_t t = 0; t < v.count; ++t) {
      const word* term = v.terms + static_cast<std::ptrdiff_t>(t) * (msize + 1);
      monomial e(nvars);
      unpack_routine_of(order)(term, e.data(), static_cast<int>(nvars), layout_shift(v.layout));
      const word c = term[msize];
      out.push_back({e, is_immediate(c) ? std::int64_t{immediate_value(c)}
                                        : record_fdiv_ui(word_to_pointer<const word>(c), static_cast<std::uint32_t>(p))});
    }
    return out;
  }

  // Lines of the last call that the model predicts.
  std::string predicted_lines() {
    std::istringstream in(output());
    std::string line, kept;
    while (std::getline(in, line))
      if (line.starts_with("alloc ") || line.starts_with("switch!") || line.find("vanished") != std::string::npos)
        kept += line + "\n";
    return kept;
  }

  // An entry returning a container, at level 5.
  outcome run(const char* entry, std::initializer_list<word> arguments) {
    output();
    const minikelto::call_result r = call(entry, arguments);
    outcome got;
    got.lines = predicted_lines();
    if (!r.ok) {
      got.error = r.error;
      return got;
    }
    // Results may repeat monomials, and copies keep their coefficients.
    const container_fault fault = check_container(cbt(), r.value, {0, false});
    EXPECT_TRUE(fault.ok()) << fault.problem << " (term " << fault.term << ")";
    got.terms = terms_of(r.value, n);
    return got;
  }

  void expect_same(const outcome& got, const outcome& want) {
    EXPECT_EQ(got.error, want.error);
    EXPECT_EQ(got.answer, want.answer);
    EXPECT_EQ(difference(got.terms, want.terms), "");
    EXPECT_EQ(got.lines, want.lines);
  }

  // A host polynomial over the ring's variables, w, a and b whose ring
  // monomials come from a few, so that many terms differ only in w, a, b.
  word random_polynomial(std::size_t count, std::uint32_t degree) {
    std::vector<monomial> bases(std::max<std::size_t>(1, count / 3));
    std::uniform_int_distribution<std::size_t> var(0, n - 1);
    for (monomial& e : bases) {
      e.assign(n, 0);
      for (std::uint32_t d = std::uniform_int_distribution<std::uint32_t>(0, degree)(rng); d > 0; --d) ++e[var(rng)];
    }
    std::uniform_int_distribution<std::int32_t> outside(0, 2), small(-5, 5), kind(0, 9),
        any(min_immediate, max_immediate);
    std::set<exponents> seen;
    std::vector<std::pair<exponents, word>> terms;
    for (std::size_t tries = 0; terms.size() < count && tries < 10 * count; ++tries) {
      const monomial& base = bases[std::uniform_int_distribution<std::size_t>(0, bases.size() - 1)(rng)];
      exponents e(base.begin(), base.end());
      for (int k = 0; k < 3; ++k) e.push_back(outside(rng));
      if (!seen.insert(e).second) continue;
      // Mostly small; else vanishing mod p, unreduced, big, big and negative, any immediate.
      const std::int64_t c = small(rng) | 1, kinds[] = {p, std::int64_t{p} * (small(rng) | 1) + 1, (std::int64_t{1} << 40) + c,
                                                        -(std::int64_t{3} << 50) + c, any(rng) | 1};
      const std::int32_t k = kind(rng);
      terms.push_back({e, integer(k < 5 ? kinds[k] : c)});
    }
    return polynomial(vars, terms);
  }

  // f as a container over the ring: imported there (w, a and b lie outside),
  // or imported over the ring with w and repacked without it, checked
  // against the model's conversion.
  std::pair<word, mpoly> make(word f) {
    const std::int32_t route = std::uniform_int_distribution<std::int32_t>(0, 2)(rng);
    if (route == 0) {
      const word A = import(f, R, pack, p);
      return {A, terms_of(A, n)};
    }
    const std::int32_t wide_pack = std::uniform_int_distribution<std::int32_t>(1, 4)(rng);
    const word X = import(f, W, wide_pack, route == 1 ? 0 : p);
    const std::int32_t q = route == 1 ? p : 0;
    output();
    const word A = call_ok("repackvorn", {X, R, option("pack", pack), option("characteristic", q)});
    outcome want;
    want.terms = model{order, p}.repacked(terms_of(X, n + 1), n, q, want.lines);
    const outcome got{terms_of(A, n), predicted_lines(), true, {}};
    // The new ring sorts the converted terms; equal monomials keep no set order.
    auto larger = [&](const mterm& x, const mterm& y) { return reference_compare(order, x.e, y.e) > 0; };
    EXPECT_TRUE(std::is_sorted(got.terms.begin(), got.terms.end(), larger)) << "repackvorn";
    auto sorted = [&](mpoly g) {
      std::sort(g.begin(), g.end(), [&](const mterm& x, const mterm& y) { return larger(x, y) || (!larger(y, x) && x.c < y.c); });
      return g;
    };
    EXPECT_EQ(difference(sorted(got.terms), sorted(want.terms)), "") << "repackvorn";
    EXPECT_EQ(got.lines, want.lines) << "repackvorn";
    return {A, got.terms};
  }
};

TEST_F(RepeatedMonomials, EveryEntryTakesThemAsItsPassesDo) {
  constexpr monomial_order orders[] = {monomial_order::plex, monomial_order::grlex, monomial_order::tdeg};
  constexpr const char* order_names[] = {"plex", "grlex", "tdeg"};
  constexpr std::int32_t primes[] = {2, 3, 101, 32003, 1073741789};
  const std::uint32_t rounds = small_tests ? 12 : 40;
  const std::size_t size = small_tests ? 24 : 60;
  for (std::uint32_t round = 1; round <= rounds; ++round) {
    const std::uint32_t seed = test_seed(round);
    rng.seed(seed);
    order = orders[round % 3];
    n = 1 + round % 4;
    pack = 1 + static_cast<std::int32_t>(rng() % 4);
    p = primes[round % 5];
    SCOPED_TRACE("round " + std::to_string(round) + ", " + seed_note(seed) + ": " + order_names[round % 3] + " in " +
                 std::to_string(n) + " variables, pack " + std::to_string(pack) + ", mod " + std::to_string(p));
    vars = variables(static_cast<int>(n));
    R = ring(order_names[round % 3], vars);
    for (const char* outside : {"w", "a", "b"}) vars.push_back(name(outside));
    W = ring(order_names[round % 3], std::vector<word>(vars.begin(), vars.end() - 2));
    set_info_level(5);
    const std::uint32_t degree = n == 1 ? 12 : 5;
    const word f = random_polynomial(size, degree), g = random_polynomial(size / 3, degree);
    const auto [A, a] = make(f);
    const auto [B, b] = make(g);
    // A product with every repeat the host keeps apart: B divides it once merged.
    const auto [C, c] = make(minikelto::expand(minikelto::multiply(random_polynomial(size, degree), g)));
    const model m{order, p};
    const word P = integer(p);

    auto divide = [&](word X, const mpoly& x) {
      const word q = name("q");
      minikelto::unassign(q);
      output();
      const minikelto::call_result r = call("div_vorn", {P, X, B, name("one"), q});
      outcome got{{}, predicted_lines(), r.ok && r.value == minikelto::true_value(), r.ok ? "" : r.error};
      if (const auto Q = minikelto::value_of(q)) {
        EXPECT_TRUE(check_container(cbt(), *Q, {p, true}).ok());
        got.terms = terms_of(*Q, n);
      }
      expect_same(got, m.quotient(x, b));
      // Without repeats, the product's passes make the plain product.
      if (got.answer) {
        EXPECT_EQ(difference(m.product(got.terms, m.merged(b)).terms, m.merged(x)), "");
      }
    };
    const std::int64_t fractions[][2] = {{3, 3}, {-1, 1}, {5, 7}, {0, 3}, {p + 1, 1}, {2, p}};
    const std::int64_t* fraction = fractions[rng() % 6];
    const std::int32_t other_pack = pack == 4 ? 2 : 4;
    const struct {
      const char* entry;
      std::function<void()> check;
    } entries[] = {
        {"mul_vorn", [&] { expect_same(run("mul_vorn", {P, A, B}), m.product(a, b)); }},
        {"mul_vorn on the product", [&] { expect_same(run("mul_vorn", {P, C, A}), m.product(c, a)); }},
        {"ads_vorn +", [&] { expect_same(run("ads_vorn", {P, integer(0), A, C}), m.sum(a, c, false)); }},
        {"ads_vorn -", [&] { expect_same(run("ads_vorn", {P, integer(1), B, A}), m.sum(b, a, true)); }},
        {"scl_vorn",
         [&] {
           expect_same(run("scl_vorn", {P, integer(fraction[0]), integer(fraction[1]), A}),
                       m.scaled(a, fraction[0], fraction[1]));
         }},
        {"vorn2kelto",
         [&] {
           // The last term is the only one tested for being constant.
           std::vector<std::pair<word, word>> pairs;
           std::size_t rest = a.size();
           if (rest > 0 && std::all_of(a.back().e.begin(), a.back().e.end(), [](std::uint32_t x) { return x == 0; }))
             pairs.emplace_back(integer(a[--rest].c), integer(1));
           while (rest-- > 0) {
             std::vector<std::pair<word, word>> powers;
             for (std::size_t i = 0; i < n; ++i)
               if (a[rest].e[i] != 0) powers.emplace_back(vars[i], integer(a[rest].e[i]));
             pairs.emplace_back(minikelto::make_prod(powers), integer(a[rest].c));
           }
           const word want = a.empty() ? integer(0) : unique(minikelto::make_sum(pairs));
           const word got = call_ok("vorn2kelto", {A});
           EXPECT_EQ(got, want) << text(got) << "\nwanted " << text(want);
         }},
        {"repackvorn, same ring",
         [&] {
           outcome want;
           want.terms = m.repacked(a, n, p, want.lines);
           expect_same(run("repackvorn", {A, option("pack", other_pack), option("characteristic", p)}), want);
         }},
        {"div_vorn", [&] { divide(A, a); }},
        {"div_vorn on the product", [&] { divide(C, c); }},
    };
    for (const auto& e : entries) {
      SCOPED_TRACE(e.entry);
      e.check();
    }
    unset_info_level();
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace vorn::test
