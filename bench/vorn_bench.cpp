// vorn-bench: times the entries on the benchmark problems through the real
// path (host polynomials -> kelto2vorn -> entry -> vorn2kelto) and FLINT's
// nmod_mpoly (one thread) on the same polynomials in the same process,
// alternating run by run, checks that both give the same terms, and prints
// one table of median times and ratios libvorn / FLINT.
//
//   vorn-bench [--quick] [--runs N] [--json FILE]
//     --quick      one run of smaller problems, for trying it out
//     --runs N     runs per operation (default 3); medians are printed
//     --json FILE  also write the rows as a JSON list
//
// Times are wall seconds of single calls; nothing here decides correctness
// beyond the equality checks, and nothing asserts a speed.
#include <flint/nmod_mpoly.h>
#include <gmp.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "minikelto/expand.hpp"
#include "minikelto/host.hpp"
#include "minikelto/polynomial.hpp"
#include "poly/container.hpp"
#include "poly/pack.hpp"
#include "vorn.h"

namespace {

using minikelto::word;

struct row {
  std::string problem;
  std::string order;
  std::int32_t prime;
  std::string op;
  std::int64_t terms;
  double vorn_s;
  std::string peer;  // empty: no peer
  double peer_s;
};

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0.0 : v[v.size() / 2];
}

double seconds_of(const std::function<void()>& f) {
  const auto start = std::chrono::steady_clock::now();
  f();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

const minikelto::plugin& linked_plugin() {
  static const minikelto::plugin linked = [] {
    const minikelto::plugin_symbol symbols[] = {
        {"kelto2vorn", reinterpret_cast<minikelto::any_fn>(&kelto2vorn)},
        {"vorn2kelto", reinterpret_cast<minikelto::any_fn>(&vorn2kelto)},
        {"mul_vorn", reinterpret_cast<minikelto::any_fn>(&mul_vorn)},
        {"ads_vorn", reinterpret_cast<minikelto::any_fn>(&ads_vorn)},
        {"scl_vorn", reinterpret_cast<minikelto::any_fn>(&scl_vorn)},
    };
    return minikelto::static_plugin(symbols);
  }();
  return linked;
}

word call(const char* entry, std::vector<word> args) {
  const minikelto::call_result r = minikelto::call_entry(linked_plugin(), entry, args);
  if (!r.ok) {
    std::fprintf(stderr, "vorn-bench: %s raised \"%s\"\n", entry, r.error.c_str());
    std::exit(1);
  }
  return r.value;
}

word integer(std::int64_t v) { return minikelto::make_integer(v); }
word option(const char* key, std::int64_t v) {
  return minikelto::unique(minikelto::make_equality(minikelto::make_name(key), integer(v)));
}

// FLINT's copy of a container's terms.
struct flint_poly {
  nmod_mpoly_t a;
  const nmod_mpoly_ctx_struct* ctx;
  explicit flint_poly(const nmod_mpoly_ctx_t c) : ctx(c) { nmod_mpoly_init(a, c); }
  ~flint_poly() { nmod_mpoly_clear(a, ctx); }
  flint_poly(const flint_poly&) = delete;
  flint_poly& operator=(const flint_poly&) = delete;
};

void to_flint(flint_poly& F, word container, vorn::monomial_order order, int n, std::int32_t p) {
  const vorn::term_block view = vorn::read_container(minikelto::callbacks(), container);
  const int msize = vorn::layout_msize(view.layout);
  const int shift = vorn::layout_shift(view.layout);
  std::vector<std::uint32_t> e(static_cast<std::size_t>(n));
  std::vector<ulong> ue(static_cast<std::size_t>(n));
  nmod_mpoly_zero(F.a, F.ctx);
  nmod_mpoly_fit_length(F.a, view.count, F.ctx);
  for (std::int32_t t = 0; t < view.count; ++t) {
    const word* term = view.terms + static_cast<std::ptrdiff_t>(t) * (msize + 1);
    vorn::unpack_routine_of(order)(term, e.data(), n, shift);
    std::copy(e.begin(), e.end(), ue.begin());
    const std::int32_t c = minikelto::immediate_value(term[msize]);
    nmod_mpoly_push_term_ui_ui(F.a, static_cast<ulong>(((c % p) + p) % p), ue.data(), F.ctx);
  }
  nmod_mpoly_sort_terms(F.a, F.ctx);
  nmod_mpoly_combine_like_terms(F.a, F.ctx);
}

struct problem {
  std::string name;
  int n;
  word f;
  word g;
};

word sum_of(std::initializer_list<word> terms) {
  word s = integer(0);
  for (word t : terms) s = minikelto::add(s, t);
  return s;
}
word term(std::int64_t c, word v, std::int64_t e) {
  return minikelto::multiply(integer(c), minikelto::power(v, integer(e)));
}
word expanded_power(word s, std::int64_t e) { return minikelto::expand(minikelto::power(s, integer(e))); }

std::vector<problem> problems(bool quick) {
  std::vector<word> v;
  for (const char* name : {"x", "y", "z", "t", "u"}) v.push_back(minikelto::make_name(name));
  const word x = v[0], y = v[1], z = v[2], t = v[3], u = v[4];
  std::vector<problem> out;
  const std::int64_t dense_e = quick ? 10 : 20;
  const word f4 = expanded_power(sum_of({integer(1), x, y, z, t}), dense_e);
  out.push_back({"dense4 f*(f+1), f=(1+x+y+z+t)^" + std::to_string(dense_e), 4, f4,
                 minikelto::expand(minikelto::add(f4, integer(1)))});
  const std::int64_t sparse_e = quick ? 6 : 12;
  out.push_back({"sparse5 ^" + std::to_string(sparse_e), 5,
                 expanded_power(sum_of({integer(1), x, y, term(2, z, 2), term(3, t, 3), term(5, u, 5)}), sparse_e),
                 expanded_power(sum_of({integer(1), u, t, term(2, z, 2), term(3, y, 3), term(5, x, 5)}), sparse_e)});
  const word f3 = expanded_power(sum_of({integer(1), x, y, z}), dense_e);
  out.push_back({"dense3 f*(f+1), f=(1+x+y+z)^" + std::to_string(dense_e), 3, f3,
                 minikelto::expand(minikelto::add(f3, integer(1)))});
  return out;
}

std::int32_t inverse_mod(std::int32_t a, std::int32_t p) {
  mpz_t x, m;
  mpz_init_set_si(x, a);
  mpz_init_set_si(m, p);
  mpz_invert(x, x, m);
  const auto r = static_cast<std::int32_t>(mpz_get_si(x));
  mpz_clear(x);
  mpz_clear(m);
  return r;
}

// The export line's two phases, read from the entry's own time line.
std::pair<double, double> export_phases(const std::string& lines) {
  double total = 0, exported = 0, simp = 0, real = 0;
  if (std::sscanf(lines.c_str(), "time: %lf sec   export: %lf sec   simp: %lf sec   real: %lf", &total, &exported,
                  &simp, &real) != 4)
    return {0, 0};
  return {exported, simp};
}

void fail_check(const std::string& what) {
  std::fprintf(stderr, "vorn-bench: %s differs between libvorn and FLINT\n", what.c_str());
  std::exit(1);
}

void run_problem(const problem& pr, std::int32_t p, const char* order_name, vorn::monomial_order order, int runs,
                 std::vector<row>& rows) {
  std::vector<word> vars;
  const char* names[] = {"x", "y", "z", "t", "u"};
  for (int i = 0; i < pr.n; ++i) vars.push_back(minikelto::make_name(names[i]));
  const word ring = minikelto::unique(minikelto::make_funcall(minikelto::make_name(order_name), vars));
  const word pack = option("pack", 4);
  const word characteristic = option("characteristic", p);
  const word modulus = integer(p);

  nmod_mpoly_ctx_t ctx;
  nmod_mpoly_ctx_init(ctx, pr.n, order == vorn::monomial_order::plex ? ORD_LEX : ORD_DEGREVLEX,
                      static_cast<mp_limb_t>(p));
  {
    const word A = call("kelto2vorn", {pr.f, ring, pack, characteristic});
    const word B = call("kelto2vorn", {pr.g, ring, pack, characteristic});
    minikelto::root_guard keep_a(A), keep_b(B);
    flint_poly FA(ctx), FB(ctx), FP(ctx), FQ(ctx), FR(ctx), check(ctx);
    to_flint(FA, A, order, pr.n, p);
    to_flint(FB, B, order, pr.n, p);
    // Objects that survive the collections between runs.
    const std::vector<word> keep = {A, B, ring, pack, characteristic};

    auto add_row = [&](const std::string& op, std::int64_t terms, const std::vector<double>& vs, const char* peer,
                       const std::vector<double>& ps) {
      rows.push_back({pr.name, order_name, p, op, terms, median(vs), peer ? peer : "", median(ps)});
    };
    const auto count = [](word c) { return vorn::read_container(minikelto::callbacks(), c).count; };

    std::vector<double> vs, ps, ps2;
    for (int r = 0; r < runs; ++r) {
      vs.push_back(seconds_of([&] { call("kelto2vorn", {pr.f, ring, pack, characteristic}); }));
      minikelto::collect(keep);
    }
    add_row("kelto2vorn f", count(A), vs, nullptr, {});
    vs.clear();
    for (int r = 0; r < runs; ++r) {
      vs.push_back(seconds_of([&] { call("kelto2vorn", {pr.g, ring, pack, characteristic}); }));
      minikelto::collect(keep);
    }
    add_row("kelto2vorn g", count(B), vs, nullptr, {});

    // The product, alternating with both FLINT multiplications.
    vs.clear();
    word P = 0;
    for (int r = 0; r < runs; ++r) {
      vs.push_back(seconds_of([&] { P = call("mul_vorn", {modulus, A, B}); }));
      ps.push_back(seconds_of([&] { nmod_mpoly_mul_johnson(FP.a, FA.a, FB.a, ctx); }));
      ps2.push_back(seconds_of([&] { nmod_mpoly_mul(FP.a, FA.a, FB.a, ctx); }));
      if (r + 1 < runs) minikelto::collect(keep);
    }
    minikelto::root_guard keep_p(P);
    to_flint(check, P, order, pr.n, p);
    if (!nmod_mpoly_equal(check.a, FP.a, ctx)) fail_check(pr.name + " product");
    add_row("mul_vorn", count(P), vs, "nmod_mpoly_mul_johnson", ps);
    add_row("mul_vorn", count(P), vs, "nmod_mpoly_mul", ps2);

    // A second product for the sum and the difference: A·A.
    const word Q = call("mul_vorn", {modulus, A, A});
    minikelto::root_guard keep_q(Q);
    nmod_mpoly_mul_johnson(FQ.a, FA.a, FA.a, ctx);
    const std::vector<word> keep2 = {A, B, P, Q, ring, pack, characteristic};
    for (int subtract = 0; subtract < 2; ++subtract) {
      vs.clear(), ps.clear();
      word S = 0;
      for (int r = 0; r < runs; ++r) {
        vs.push_back(seconds_of([&] { S = call("ads_vorn", {modulus, integer(subtract), P, Q}); }));
        ps.push_back(seconds_of([&] {
          if (subtract) nmod_mpoly_sub(FR.a, FP.a, FQ.a, ctx);
          else nmod_mpoly_add(FR.a, FP.a, FQ.a, ctx);
        }));
      }
      to_flint(check, S, order, pr.n, p);
      if (!nmod_mpoly_equal(check.a, FR.a, ctx)) fail_check(pr.name + (subtract ? " difference" : " sum"));
      add_row(subtract ? "ads_vorn P-Q" : "ads_vorn P+Q", count(S), vs, subtract ? "nmod_mpoly_sub" : "nmod_mpoly_add",
              ps);
      minikelto::collect(keep2);
    }

    // P by 3/7.
    vs.clear(), ps.clear();
    const auto c = static_cast<ulong>(std::int64_t{3} * inverse_mod(7, p) % p);
    word C = 0;
    for (int r = 0; r < runs; ++r) {
      vs.push_back(seconds_of([&] { C = call("scl_vorn", {modulus, integer(3), integer(7), P}); }));
      ps.push_back(seconds_of([&] { nmod_mpoly_scalar_mul_ui(FR.a, FP.a, c, ctx); }));
    }
    to_flint(check, C, order, pr.n, p);
    if (!nmod_mpoly_equal(check.a, FR.a, ctx)) fail_check(pr.name + " scaling");
    add_row("scl_vorn P*3/7", count(C), vs, "nmod_mpoly_scalar_mul_ui", ps);
    minikelto::collect(keep2);

    // The product back to the host, its two phases from the entry's time line.
    std::vector<double> total, exported, simp;
    minikelto::set_info_level("vorn", 3);
    minikelto::capture_output(true);
    for (int r = 0; r < runs; ++r) {
      total.push_back(seconds_of([&] { call("vorn2kelto", {P}); }));
      const auto [e, s] = export_phases(minikelto::take_output());
      exported.push_back(e);
      simp.push_back(s);
      minikelto::collect(keep2);
    }
    minikelto::capture_output(false);
    minikelto::unset_info_level("vorn");
    add_row("vorn2kelto P", count(P), total, nullptr, {});
    add_row("  export phase", count(P), exported, nullptr, {});
    add_row("  simp phase", count(P), simp, nullptr, {});
  }
  nmod_mpoly_ctx_clear(ctx);
  minikelto::collect();
}

void print_table(const std::vector<row>& rows) {
  std::printf("%-34s %-5s %-10s %-15s %9s %10s  %-25s %10s %7s\n", "problem", "order", "prime", "op", "terms",
              "vorn s", "peer", "peer s", "ratio");
  for (const row& r : rows) {
    if (r.peer.empty())
      std::printf("%-34s %-5s %-10d %-15s %9lld %10.4f  %-25s %10s %7s\n", r.problem.c_str(), r.order.c_str(),
                  r.prime, r.op.c_str(), static_cast<long long>(r.terms), r.vorn_s, "-", "-", "-");
    else
      std::printf("%-34s %-5s %-10d %-15s %9lld %10.4f  %-25s %10.4f %7.2f\n", r.problem.c_str(), r.order.c_str(),
                  r.prime, r.op.c_str(), static_cast<long long>(r.terms), r.vorn_s, r.peer.c_str(), r.peer_s,
                  r.peer_s > 0 ? r.vorn_s / r.peer_s : 0.0);
  }
}

void write_json(const std::vector<row>& rows, const char* path) {
  std::FILE* out = std::fopen(path, "w");
  if (out == nullptr) {
    std::fprintf(stderr, "vorn-bench: cannot write %s\n", path);
    std::exit(1);
  }
  std::fputs("[\n", out);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const row& r = rows[i];
    std::fprintf(out, "  {\"problem\": \"%s\", \"order\": \"%s\", \"prime\": %d, \"op\": \"%s\", \"terms\": %lld, "
                 "\"vorn_s\": %.6f, ",
                 r.problem.c_str(), r.order.c_str(), r.prime, r.op.c_str(), static_cast<long long>(r.terms), r.vorn_s);
    if (r.peer.empty())
      std::fputs("\"peer\": null, \"peer_s\": null, \"ratio\": null}", out);
    else
      std::fprintf(out, "\"peer\": \"%s\", \"peer_s\": %.6f, \"ratio\": %.4f}", r.peer.c_str(), r.peer_s,
                   r.peer_s > 0 ? r.vorn_s / r.peer_s : 0.0);
    std::fputs(i + 1 < rows.size() ? ",\n" : "\n", out);
  }
  std::fputs("]\n", out);
  std::fclose(out);
}

}  // namespace

int main(int argc, char** argv) {
  bool quick = false;
  int runs = 3;
  const char* json = nullptr;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--quick") == 0) {
      quick = true;
    } else if (std::strcmp(argv[i], "--runs") == 0 && i + 1 < argc) {
      runs = std::max(1, std::atoi(argv[++i]));
    } else if (std::strcmp(argv[i], "--json") == 0 && i + 1 < argc) {
      json = argv[++i];
    } else {
      std::fprintf(stderr, "usage: vorn-bench [--quick] [--runs N] [--json FILE]\n");
      return 2;
    }
  }
  if (quick) runs = 1;
  minikelto::reset();
  std::vector<row> rows;
  const std::vector<problem> all = problems(quick);
  std::vector<word> inputs;
  for (const problem& pr : all) inputs.push_back(pr.f), inputs.push_back(pr.g);
  for (word h : inputs) minikelto::add_root(h);
  for (const problem& pr : all)
    for (std::int32_t p : {32003, 1073741789})
      for (const auto& [name, order] : {std::pair{"tdeg", vorn::monomial_order::tdeg},
                                        std::pair{"plex", vorn::monomial_order::plex}}) {
        std::fprintf(stderr, "%s mod %d, %s ...\n", pr.name.c_str(), p, name);
        run_problem(pr, p, name, order, runs, rows);
      }
  for (word h : inputs) minikelto::remove_root(h);
  print_table(rows);
  if (json != nullptr) write_json(rows, json);
  return 0;
}
