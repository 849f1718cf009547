// vorn-bench: times the entries on the benchmark problems through the real
// path (host polynomials -> kelto2vorn -> entry -> vorn2kelto) and FLINT's
// nmod_mpoly (one thread) on the same polynomials in the same process,
// alternating run by run, checks that both give the same terms, and prints
// one table of median times and ratios libvorn / FLINT.  FLINT is timed
// twice per run: into a fresh output ("peer s", "ratio": how a
// computer-algebra system calls it, a new value for every result, as every
// entry of ours builds a new container) and into a warm output reused from
// run to run ("warm s", "warm": FLINT writing into memory it already owns).
//
//   vorn-bench [--quick] [--runs N] [--json FILE] [--plot DIR] [--replot DIR]
//              [--problem TEXT] [--order tdeg|plex] [--prime P] [--ops LIST]
//              [--vorn-only] [--base FILE]
//     --quick      one run of smaller problems, for trying it out
//     --runs N     runs per operation (default 3); medians are printed
//     --json FILE  also write the rows as a JSON list
//     --plot DIR   also time the dense family (1+x+y+z+t)^d, d = 5 ... 25,
//                  write its times to DIR/perf-dense-product-times.dat, and
//                  draw (gnuplot) time against term products in
//                  DIR/perf-dense-product-times.svg and the ratios of the
//                  table in DIR/perf-ratios-to-flint.svg
//     --replot DIR only draw those two plots again, from DIR/perf-latest.json
//                  and DIR/perf-dense-product-times.dat; nothing is timed
//     --problem, --order, --prime  run only the problems whose name holds
//                  TEXT, that order, that prime
//     --ops LIST   comma-separated subset of conv,mul,div,ads,scl
//                  (default all); with --vorn-only FLINT is not run
//     --base FILE  a JSON file of another build's run (the x86-64 one for
//                  the i386 benchmark): adds each row's libvorn time over
//                  the same row's time there
//
// Times are wall seconds of single calls; nothing here decides correctness
// beyond the equality checks, and nothing asserts a speed.
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
#include "host/memory.hpp"
#include "poly/container.hpp"
#include "poly/pack.hpp"
#include "support/flint_oracle.hpp"
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
  double peer_s;       // the peer into a fresh output, as a computer-algebra system calls it
  double peer_warm_s;  // the peer into an output reused from run to run
  double memory_ratio = 0;  // mul: peak bytes / (result + inputs); 0: not measured
  std::int64_t peak_bytes = 0;
  double base_s = 0;  // the same row's libvorn time in the --base run; 0: none
};

struct options {
  bool quick = false;
  int runs = 3;
  const char* json = nullptr;
  const char* plot = nullptr;
  const char* replot = nullptr;
  const char* base = nullptr;
  std::string problem;     // empty: all
  std::string order;       // empty: both
  std::int32_t prime = 0;  // 0: both
  std::string ops = "conv,mul,div,ads,scl";
  bool vorn_only = false;
  bool wants(const char* op) const {
    const std::size_t n = std::strlen(op);
    for (std::size_t at = ops.find(op); at != std::string::npos; at = ops.find(op, at + 1))
      if ((at == 0 || ops[at - 1] == ',') && (at + n == ops.size() || ops[at + n] == ',')) return true;
    return false;
  }
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
        {"div_vorn", reinterpret_cast<minikelto::any_fn>(&div_vorn)},
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

using vorn::test::flint_context;
using vorn::test::flint_poly;

// FLINT's copy of a container's terms.
void to_flint(flint_poly& F, word container, vorn::monomial_order order, int n, std::int32_t p) {
  vorn::test::load(F, vorn::read_container(minikelto::callbacks(), container), order, n, p);
}

// Times one peer call per run both ways: into a fresh output, initialised
// before the clock and cleared after it (every entry of ours builds a new
// container, as a computer-algebra system needs a new value for every
// result), and into `warm`, the same output every run, grown by an untimed
// first call.  `call(out)` writes its result into out.
template <class Call>
void time_peer(const nmod_mpoly_ctx_t ctx, nmod_mpoly_struct* warm, Call call, std::vector<double>& fresh_s,
               std::vector<double>& warm_s) {
  {
    flint_poly out(ctx);
    fresh_s.push_back(seconds_of([&] { call(out.a); }));
  }
  if (warm_s.empty()) call(warm);
  warm_s.push_back(seconds_of([&] { call(warm); }));
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

// Bytes of a container's terms and header words, as the host holds them.
std::int64_t container_bytes(word container) {
  const vorn::term_block view = vorn::read_container(minikelto::callbacks(), container);
  const std::int64_t words = std::int64_t{view.count} * (vorn::layout_msize(view.layout) + 1);
  return (words + 8) * static_cast<std::int64_t>(sizeof(word));
}

void fail_check(const std::string& what) {
  std::fprintf(stderr, "vorn-bench: %s differs between libvorn and FLINT\n", what.c_str());
  std::exit(1);
}

void run_problem(const problem& pr, std::int32_t p, const char* order_name, vorn::monomial_order order,
                 const options& opt, std::vector<row>& rows) {
  const int runs = opt.runs;
  const bool with_peer = !opt.vorn_only;
  std::vector<word> vars;
  const char* names[] = {"x", "y", "z", "t", "u"};
  for (int i = 0; i < pr.n; ++i) vars.push_back(minikelto::make_name(names[i]));
  const word ring = minikelto::unique(minikelto::make_funcall(minikelto::make_name(order_name), vars));
  const word pack = option("pack", 4);
  const word characteristic = option("characteristic", p);
  const word modulus = integer(p);

  const flint_context context(pr.n, order, p);
  const auto& ctx = context.ctx;
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
                       const std::vector<double>& ps, const std::vector<double>& pw) {
      rows.push_back({pr.name, order_name, p, op, terms, median(vs), peer ? peer : "", median(ps), median(pw)});
    };
    const auto count = [](word c) { return vorn::read_container(minikelto::callbacks(), c).count; };

    std::vector<double> vs, ps, ps2, pw, pw2;
    if (opt.wants("conv")) {
      for (int r = 0; r < runs; ++r) {
        vs.push_back(seconds_of([&] { call("kelto2vorn", {pr.f, ring, pack, characteristic}); }));
        minikelto::collect(keep);
      }
      add_row("kelto2vorn f", count(A), vs, nullptr, {}, {});
      vs.clear();
      for (int r = 0; r < runs; ++r) {
        vs.push_back(seconds_of([&] { call("kelto2vorn", {pr.g, ring, pack, characteristic}); }));
        minikelto::collect(keep);
      }
      add_row("kelto2vorn g", count(B), vs, nullptr, {}, {});
    }

    // The product, alternating with both FLINT multiplications; the first
    // run also measures the gateway's peak bytes.
    vs.clear();
    word P = 0;
    std::int64_t peak = 0;
    const bool timed_mul = opt.wants("mul");
    const int mul_runs = timed_mul ? runs : 1;
    for (int r = 0; r < mul_runs; ++r) {
      vorn::gateway_reset_peak();
      const std::int64_t before = vorn::gateway_byte_counts().current;
      vs.push_back(seconds_of([&] { P = call("mul_vorn", {modulus, A, B}); }));
      if (r == 0) peak = vorn::gateway_byte_counts().peak - before;
      if (with_peer && timed_mul) {
        time_peer(ctx, FP.a, [&](nmod_mpoly_struct* out) { nmod_mpoly_mul_johnson(out, FA.a, FB.a, ctx); }, ps, pw);
        time_peer(ctx, FR.a, [&](nmod_mpoly_struct* out) { nmod_mpoly_mul(out, FA.a, FB.a, ctx); }, ps2, pw2);
      }
      if (r + 1 < mul_runs) minikelto::collect(keep);
    }
    minikelto::root_guard keep_p(P);
    if (!with_peer || !timed_mul) nmod_mpoly_mul_johnson(FP.a, FA.a, FB.a, ctx);
    to_flint(check, P, order, pr.n, p);
    if (!nmod_mpoly_equal(check.a, FP.a, ctx)) fail_check(pr.name + " product");
    if (timed_mul) {
      add_row("mul_vorn", count(P), vs, "nmod_mpoly_mul_johnson", ps, pw);
      add_row("mul_vorn", count(P), vs, "nmod_mpoly_mul", ps2, pw2);
      // The call's own memory (blocks, heap, streams) with the result it
      // leaves and the inputs it reads, against result and inputs alone.
      const std::int64_t held = container_bytes(P) + container_bytes(A) + container_bytes(B);
      rows.back().peak_bytes = rows[rows.size() - 2].peak_bytes = peak + held;
      rows.back().memory_ratio = rows[rows.size() - 2].memory_ratio =
          static_cast<double>(peak + held) / static_cast<double>(held);
    }

    // Division: P / f, and P + 1 / f, which does not divide.
    if (opt.wants("div")) {
      const word one = call("kelto2vorn", {integer(1), ring, pack, characteristic});
      minikelto::root_guard keep_one(one);
      const word P1 = call("ads_vorn", {modulus, integer(0), P, one});
      minikelto::root_guard keep_p1(P1);
      flint_poly FP1(ctx);
      to_flint(FP1, P1, order, pr.n, p);
      const word qname = minikelto::make_name("q");
      const std::vector<word> keep3 = {A, B, P, P1, one, ring, pack, characteristic};
      for (int divisible = 1; divisible >= 0; --divisible) {
        vs.clear(), ps.clear(), pw.clear();
        const word dividend = divisible ? P : P1;
        word answer = 0;
        int flint_answer = 0;
        for (int r = 0; r < runs; ++r) {
          vs.push_back(seconds_of([&] { answer = call("div_vorn", {modulus, dividend, A, minikelto::make_name("r"), qname}); }));
          if (with_peer)
            time_peer(ctx, FR.a, [&](nmod_mpoly_struct* out) {
              flint_answer = nmod_mpoly_divides(out, divisible ? FP.a : FP1.a, FA.a, ctx);
            }, ps, pw);
          if (r + 1 < runs) minikelto::collect(keep3);
        }
        const bool vorn_answer = answer == minikelto::true_value();
        if (vorn_answer != (divisible != 0) || (with_peer && flint_answer != divisible)) fail_check(pr.name + " divisibility");
        std::int64_t quotient_terms = 0;
        if (divisible) {
          const word Qv = *minikelto::value_of(qname);
          to_flint(check, Qv, order, pr.n, p);
          if (!nmod_mpoly_equal(check.a, FB.a, ctx)) fail_check(pr.name + " quotient");
          quotient_terms = count(Qv);
        }
        minikelto::unassign(qname);
        add_row(divisible ? "div_vorn P/f" : "div_vorn (P+1)/f", quotient_terms, vs, "nmod_mpoly_divides", ps, pw);
        minikelto::collect(keep3);
      }
    }

    // A second product for the sum and the difference: A·A.
    const word Q = opt.wants("ads") ? call("mul_vorn", {modulus, A, A}) : P;
    minikelto::root_guard keep_q(Q);
    nmod_mpoly_mul_johnson(FQ.a, FA.a, FA.a, ctx);
    const std::vector<word> keep2 = {A, B, P, Q, ring, pack, characteristic};
    for (int subtract = 0; subtract < (opt.wants("ads") ? 2 : 0); ++subtract) {
      vs.clear(), ps.clear(), pw.clear();
      word S = 0;
      for (int r = 0; r < runs; ++r) {
        vs.push_back(seconds_of([&] { S = call("ads_vorn", {modulus, integer(subtract), P, Q}); }));
        time_peer(ctx, FR.a, [&](nmod_mpoly_struct* out) {
          if (subtract) nmod_mpoly_sub(out, FP.a, FQ.a, ctx);
          else nmod_mpoly_add(out, FP.a, FQ.a, ctx);
        }, ps, pw);
        if (r + 1 < runs) minikelto::collect(keep2);
      }
      to_flint(check, S, order, pr.n, p);
      if (!nmod_mpoly_equal(check.a, FR.a, ctx)) fail_check(pr.name + (subtract ? " difference" : " sum"));
      add_row(subtract ? "ads_vorn P-Q" : "ads_vorn P+Q", count(S), vs, subtract ? "nmod_mpoly_sub" : "nmod_mpoly_add",
              ps, pw);
      minikelto::collect(keep2);
    }

    // P by 3/7.
    vs.clear(), ps.clear(), pw.clear();
    if (opt.wants("scl")) {
    const auto c = static_cast<ulong>(std::int64_t{3} * inverse_mod(7, p) % p);
    word C = 0;
    for (int r = 0; r < runs; ++r) {
      vs.push_back(seconds_of([&] { C = call("scl_vorn", {modulus, integer(3), integer(7), P}); }));
      time_peer(ctx, FR.a, [&](nmod_mpoly_struct* out) { nmod_mpoly_scalar_mul_ui(out, FP.a, c, ctx); }, ps, pw);
      if (r + 1 < runs) minikelto::collect(keep2);
    }
    to_flint(check, C, order, pr.n, p);
    if (!nmod_mpoly_equal(check.a, FR.a, ctx)) fail_check(pr.name + " scaling");
    add_row("scl_vorn P*3/7", count(C), vs, "nmod_mpoly_scalar_mul_ui", ps, pw);
    minikelto::collect(keep2);
    }

    // The product back to the host, its two phases from the entry's time line.
    std::vector<double> total, exported, simp;
    minikelto::set_info_level("vorn", 3);
    minikelto::capture_output(true);
    for (int r = 0; r < (opt.wants("conv") ? runs : 0); ++r) {
      total.push_back(seconds_of([&] { call("vorn2kelto", {P}); }));
      const auto [e, s] = export_phases(minikelto::take_output());
      exported.push_back(e);
      simp.push_back(s);
      minikelto::collect(keep2);
    }
    minikelto::capture_output(false);
    minikelto::unset_info_level("vorn");
    if (opt.wants("conv")) {
      add_row("vorn2kelto P", count(P), total, nullptr, {}, {});
      add_row("  export phase", count(P), exported, nullptr, {}, {});
      add_row("  simp phase", count(P), simp, nullptr, {}, {});
    }
  }
  minikelto::collect();
}

void print_table(const std::vector<row>& rows) {
  const bool with_base = std::any_of(rows.begin(), rows.end(), [](const row& r) { return r.base_s > 0; });
  std::printf("%-34s %-5s %-10s %-16s %9s %10s  %-25s %10s %7s %10s %7s  %s\n", "problem", "order", "prime", "op",
              "terms", "vorn s", "peer", "peer s", "ratio", "warm s", "warm", with_base ? "vs base  memory" : "memory");
  for (const row& r : rows) {
    char memory[80] = "";
    int used = 0;
    if (with_base) {
      used = r.base_s > 0 ? std::snprintf(memory, sizeof memory, "%7.2f  ", r.vorn_s / r.base_s)
                          : std::snprintf(memory, sizeof memory, "%7s  ", "-");
    }
    if (r.memory_ratio > 0)
      std::snprintf(memory + used, sizeof memory - static_cast<std::size_t>(used), "%.1f MB %.2fx",
                    static_cast<double>(r.peak_bytes) / 1e6, r.memory_ratio);
    if (r.peer.empty() || r.peer_s <= 0 || r.peer_warm_s <= 0)
      std::printf("%-34s %-5s %-10d %-16s %9lld %10.4f  %-25s %10s %7s %10s %7s  %s\n", r.problem.c_str(),
                  r.order.c_str(), r.prime, r.op.c_str(), static_cast<long long>(r.terms), r.vorn_s,
                  r.peer.empty() ? "-" : r.peer.c_str(), "-", "-", "-", "-", memory);
    else
      std::printf("%-34s %-5s %-10d %-16s %9lld %10.4f  %-25s %10.4f %7.2f %10.4f %7.2f  %s\n", r.problem.c_str(),
                  r.order.c_str(), r.prime, r.op.c_str(), static_cast<long long>(r.terms), r.vorn_s, r.peer.c_str(),
                  r.peer_s, r.vorn_s / r.peer_s, r.peer_warm_s, r.vorn_s / r.peer_warm_s, memory);
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
    if (r.peer.empty() || r.peer_s <= 0 || r.peer_warm_s <= 0)
      std::fputs("\"peer\": null, \"peer_s\": null, \"ratio\": null, \"peer_warm_s\": null, \"ratio_warm\": null", out);
    else
      std::fprintf(out, "\"peer\": \"%s\", \"peer_s\": %.6f, \"ratio\": %.4f, \"peer_warm_s\": %.6f, \"ratio_warm\": %.4f",
                   r.peer.c_str(), r.peer_s, r.vorn_s / r.peer_s, r.peer_warm_s, r.vorn_s / r.peer_warm_s);
    if (r.memory_ratio > 0)
      std::fprintf(out, ", \"peak_bytes\": %lld, \"memory_ratio\": %.4f", static_cast<long long>(r.peak_bytes),
                   r.memory_ratio);
    if (r.base_s > 0) std::fprintf(out, ", \"base_vorn_s\": %.6f, \"vs_base\": %.4f", r.base_s, r.vorn_s / r.base_s);
    std::fputs(i + 1 < rows.size() ? "},\n" : "}\n", out);
  }
  std::fputs("]\n", out);
  std::fclose(out);
}

// The text of a JSON string field on one line of write_json's output.
std::string json_text(const std::string& line, const char* field) {
  const std::string key = std::string("\"") + field + "\": \"";
  const std::size_t at = line.find(key);
  if (at == std::string::npos) return "";
  const std::size_t from = at + key.size();
  return line.substr(from, line.find('"', from) - from);
}

// A JSON number field of one line of write_json's output; 0 when missing.
double json_number(const std::string& line, const char* field) {
  const std::string key = std::string("\"") + field + "\": ";
  const std::size_t at = line.find(key);
  return at == std::string::npos ? 0.0 : std::atof(line.c_str() + at + key.size());
}

// ---- Plots ----
//
// --plot DIR times the dense family and writes its figures and both plots
// into DIR; --replot DIR draws the plots again from the figures a run left
// there (perf-latest.json, the table; perf-dense-product-times.dat, the
// family), timing nothing.

const char* const ratios_svg = "perf-ratios-to-flint.svg";
const char* const family_svg = "perf-dense-product-times.svg";
const char* const family_dat = "perf-dense-product-times.dat";
const char* const json_name = "perf-latest.json";

struct family_point {
  int d;
  double products, vorn_s, johnson_s, mul_s;
};

void run_gnuplot(const std::string& script) {
  std::FILE* gp = popen("gnuplot", "w");
  if (gp == nullptr) {
    std::fprintf(stderr, "vorn-bench: cannot run gnuplot\n");
    std::exit(1);
  }
  std::fputs(script.c_str(), gp);
  if (pclose(gp) != 0) std::fprintf(stderr, "vorn-bench: gnuplot failed\n");
}

std::FILE* open_or_exit(const std::string& path, const char* mode) {
  std::FILE* f = std::fopen(path.c_str(), mode);
  if (f == nullptr) {
    std::fprintf(stderr, "vorn-bench: cannot open %s\n", path.c_str());
    std::exit(1);
  }
  return f;
}

// Times f*(f+1), f = (1+x+y+z+t)^d, tdeg, p = 32003, for d = 5, 9, ... 25 (5, 15,
// 25 with --quick), against term products nA*nB; the large d run once.
std::vector<family_point> time_dense_family(const options& opt) {
  const word ring_vars[] = {minikelto::make_name("x"), minikelto::make_name("y"), minikelto::make_name("z"),
                            minikelto::make_name("t")};
  const word ring = minikelto::unique(minikelto::make_funcall(minikelto::make_name("tdeg"), ring_vars));
  minikelto::root_guard keep_ring(ring);
  const std::int32_t p = 32003;
  const word pack = option("pack", 4);
  const word characteristic = option("characteristic", p);
  minikelto::root_guard keep_pack(pack), keep_char(characteristic);
  const flint_context context(4, vorn::monomial_order::tdeg, p);
  const auto& ctx = context.ctx;
  std::vector<family_point> points;
  for (int d = 5; d <= 25; d += opt.quick ? 10 : 4) {
    const word f = expanded_power(sum_of({integer(1), ring_vars[0], ring_vars[1], ring_vars[2], ring_vars[3]}), d);
    const word g = minikelto::expand(minikelto::add(f, integer(1)));
    minikelto::root_guard keep_f(f), keep_g(g);
    const word A = call("kelto2vorn", {f, ring, pack, characteristic});
    const word B = call("kelto2vorn", {g, ring, pack, characteristic});
    minikelto::root_guard keep_a(A), keep_b(B);
    {
      flint_poly FA(ctx), FB(ctx), FP(ctx);
      to_flint(FA, A, vorn::monomial_order::tdeg, 4, p);
      to_flint(FB, B, vorn::monomial_order::tdeg, 4, p);
      const double products = static_cast<double>(nmod_mpoly_length(FA.a, ctx)) *
                              static_cast<double>(nmod_mpoly_length(FB.a, ctx));
      const int runs = products > 5e7 ? 1 : std::max(1, opt.runs);
      std::vector<double> vs, js, ds;
      const std::vector<word> keep = {A, B, f, g, ring, pack, characteristic};
      for (int r = 0; r < runs; ++r) {
        vs.push_back(seconds_of([&] { call("mul_vorn", {integer(p), A, B}); }));
        js.push_back(seconds_of([&] { nmod_mpoly_mul_johnson(FP.a, FA.a, FB.a, ctx); }));
        ds.push_back(seconds_of([&] { nmod_mpoly_mul(FP.a, FA.a, FB.a, ctx); }));
        minikelto::collect(keep);
      }
      points.push_back({d, products, median(vs), median(js), median(ds)});
      std::fprintf(stderr, "plot: d = %d, %.0f products\n", d, products);
    }
    minikelto::collect();
  }
  return points;
}

void write_family(const std::vector<family_point>& points, const std::string& path) {
  std::FILE* out = open_or_exit(path, "w");
  std::fputs("# f*(f+1), f = (1+x+y+z+t)^d, tdeg, p = 32003: d, term products nA*nB, then the\n"
             "# seconds of mul_vorn, nmod_mpoly_mul_johnson and nmod_mpoly_mul (medians).\n",
             out);
  for (const family_point& q : points)
    std::fprintf(out, "%d %.0f %.6f %.6f %.6f\n", q.d, q.products, q.vorn_s, q.johnson_s, q.mul_s);
  std::fclose(out);
}

std::vector<family_point> read_family(const std::string& path) {
  std::FILE* in = open_or_exit(path, "r");
  std::vector<family_point> points;
  char line[256];
  while (std::fgets(line, sizeof line, in) != nullptr) {
    family_point q{};
    if (line[0] != '#' && std::sscanf(line, "%d %lf %lf %lf %lf", &q.d, &q.products, &q.vorn_s, &q.johnson_s,
                                      &q.mul_s) == 5)
      points.push_back(q);
  }
  std::fclose(in);
  return points;
}

// The rows of a table written by write_json (one object per line).
std::vector<row> read_json(const std::string& path) {
  std::FILE* in = open_or_exit(path, "r");
  std::vector<row> rows;
  std::string line;
  for (int c; (c = std::fgetc(in)) != EOF;) {
    if (c != '\n') {
      line += static_cast<char>(c);
      continue;
    }
    if (line.find("\"problem\"") != std::string::npos) {
      row r{json_text(line, "problem"), json_text(line, "order"), static_cast<std::int32_t>(json_number(line, "prime")),
            json_text(line, "op"), static_cast<std::int64_t>(json_number(line, "terms")), json_number(line, "vorn_s"),
            json_text(line, "peer"), json_number(line, "peer_s"), json_number(line, "peer_warm_s")};
      rows.push_back(r);
    }
    line.clear();
  }
  std::fclose(in);
  return rows;
}

// Sets base_s of every row that the --base run (a file of write_json) has.
void read_base(std::vector<row>& rows, const char* path) {
  for (const row& b : read_json(path)) {
    for (row& r : rows)
      if (b.problem == r.problem && b.order == r.order && b.prime == r.prime && b.op == r.op) r.base_s = b.vorn_s;
  }
}

// Time against term products, log-log, one line per implementation.
void plot_family(const std::vector<family_point>& points, const std::string& path) {
  std::string data;
  char line[200];
  for (const family_point& q : points) {
    std::snprintf(line, sizeof line, "%d %.0f %.6f %.6f %.6f\n", q.d, q.products, q.vorn_s * 1e3, q.johnson_s * 1e3,
                  q.mul_s * 1e3);
    data += line;
  }
  run_gnuplot("set terminal svg size 860,560 font 'Arial,13' background rgb 'white'\n"
              "set output '" + path + "'\n"
              "set title \"Dense products f*(f+1), f = (1+x+y+z+t)^d, tdeg, p = 32003\" noenhanced\n"
              "set logscale xy\nset grid\nset key left top box opaque noenhanced\n"
              "set xlabel 'term products nA*nB (d = 5, 9, ..., 25)'\nset ylabel 'milliseconds'\n"
              "set xtics ('10 000' 1e4, '100 000' 1e5, '1 million' 1e6, '10 million' 1e7, "
              "'100 million' 1e8, '1 billion' 1e9)\n"
              "set ytics ('0.01' 0.01, '0.1' 0.1, '1' 1, '10' 10, '100' 100, '1 000' 1000, '10 000' 10000)\n"
              "set xrange [8e3:1.25e9]\nset yrange [0.01:20000]\n"
              "$d << EOD\n" + data + "EOD\n"
              "plot $d using 2:3 with linespoints lw 2 pt 7 title 'mul_vorn (libvorn)', "
              "$d using 2:4 with linespoints lw 2 pt 5 title 'nmod_mpoly_mul_johnson (FLINT, heap)', "
              "$d using 2:5 with linespoints lw 2 pt 9 title 'nmod_mpoly_mul (FLINT, dense)', "
              "$d using 2:3:(sprintf('d = %d', $1)) with labels offset 0,-1.1 left font ',11' notitle\n");
}

// Ratios libvorn / FLINT as horizontal bars on a log scale: one panel per
// problem, in each a block per operation and a row per (order, prime), one
// colour per FLINT function, a line at 1.
void plot_ratios(const std::vector<row>& rows, const std::string& path) {
  struct operation {
    const char* op;
    const char* heading;
  };
  const operation operations[] = {
      {"mul_vorn", "product P = f*g"}, {"div_vorn P/f", "division P/f"},
      {"div_vorn (P+1)/f", "division (P+1)/f, not exact"}, {"ads_vorn P+Q", "sum P+Q"},
      {"ads_vorn P-Q", "difference P-Q"}, {"scl_vorn P*3/7", "scaling P*3/7"}};
  const char* const peers[] = {"nmod_mpoly_mul_johnson", "nmod_mpoly_mul", "nmod_mpoly_divides",
                               "nmod_mpoly_add", "nmod_mpoly_sub", "nmod_mpoly_scalar_mul_ui"};
  const char* const colours[] = {"#7b3294", "#1b9e77", "#d95f02", "#1f78b4", "#66a61e", "#e7298a"};
  const std::pair<const char*, std::int32_t> variants[] = {
      {"tdeg", 32003}, {"tdeg", 1073741789}, {"plex", 32003}, {"plex", 1073741789}};
  std::vector<std::string> problem_names;
  for (const row& r : rows)
    if (!r.peer.empty() && std::find(problem_names.begin(), problem_names.end(), r.problem) == problem_names.end())
      problem_names.push_back(r.problem);
  if (problem_names.empty()) return;

  // Rows from the top: a heading per operation, then its variants; a
  // variant's bars for two peers sit side by side.
  std::string ytics, data;
  double y = 0;
  char buffer[400];
  for (const operation& o : operations) {
    std::snprintf(buffer, sizeof buffer, "%s\"{/:Bold %s}\" %.2f", ytics.empty() ? "" : ", ", o.heading, -y);
    ytics += buffer;
    y += 1;
    for (const auto& [order, prime] : variants) {
      std::snprintf(buffer, sizeof buffer, ", \"%s, p = %d\" %.2f", order, prime, -y);
      ytics += buffer;
      std::vector<const row*> bars;
      for (const char* peer : peers)
        for (const row& r : rows)
          if (r.op == o.op && r.order == order && r.prime == prime && r.peer == peer && r.peer_s > 0)
            if (std::find_if(bars.begin(), bars.end(), [&](const row* b) { return b->peer == r.peer; }) == bars.end())
              bars.push_back(&r);
      for (std::size_t problem = 0; problem < problem_names.size(); ++problem) {
        std::size_t k = 0;
        for (std::size_t colour = 0; colour < std::size(peers); ++colour) {
          for (const row& r : rows) {
            if (r.problem != problem_names[problem] || r.op != o.op || r.order != order || r.prime != prime ||
                r.peer != peers[colour] || r.peer_s <= 0)
              continue;
            const double height = bars.size() > 1 ? 0.36 : 0.7;
            const double centre = -y + (bars.size() > 1 ? (k == 0 ? 0.19 : -0.19) : 0.0);
            std::snprintf(buffer, sizeof buffer, "%zu %.4f %.3f %.3f %ld\n", problem, r.vorn_s / r.peer_s, centre,
                          height / 2, std::strtol(colours[colour] + 1, nullptr, 16));
            data += buffer;
            ++k;
          }
        }
      }
      y += 1;
    }
    y += 0.4;
  }

  const int panel_width = 300, label_width = 250, top_margin = 100, bottom_margin = 130;
  const int height = top_margin + static_cast<int>(y * 19) + bottom_margin;
  const int width = label_width + panel_width * static_cast<int>(problem_names.size()) + 30;
  std::string script =
      "set terminal svg size " + std::to_string(width) + "," + std::to_string(height) +
      " font 'Arial,12' background rgb 'white'\n"
      "set output '" + path + "'\n"
      "set multiplot\n"
      "set label 1 \"libvorn time / FLINT time into a fresh output, on the same polynomials: left of 1 libvorn is faster\" "
      "at screen 0.5, screen " + std::to_string(1 - 28.0 / height) + " center font ',15'\n"
      "set logscale x\nset xrange [0.03:10]\n"
      "set xtics ('0.04' 0.04, '0.1' 0.1, '0.25' 0.25, '0.5' 0.5, '1' 1, '2' 2, '4' 4, '8' 8) nomirror\n"
      "set grid xtics\nset yrange [" + std::to_string(-y + 0.4) + ":0.8]\nset style fill solid 0.85 border -1\n"
      "set key off\nset xlabel 'time ratio'\n"
      "$d << EOD\n" + data + "EOD\n";
  // The legend, under the panels: a swatch and a name per FLINT function.
  for (std::size_t c = 0; c < std::size(peers); ++c) {
    const double x = (label_width + 20.0 + 300.0 * static_cast<double>(c % 3)) / width;
    const double ly = (bottom_margin - 75.0 - 22.0 * static_cast<double>(c / 3)) / height;
    std::snprintf(buffer, sizeof buffer,
                  "set object %zu rect from screen %.4f, screen %.4f to screen %.4f, screen %.4f "
                  "fc rgb '%s' fs solid 0.85 border -1\n"
                  "set label %zu '%s' at screen %.4f, screen %.4f left noenhanced\n",
                  c + 1, x, ly - 6.0 / height, x + 24.0 / width, ly + 6.0 / height, colours[c], c + 2, peers[c],
                  x + 32.0 / width, ly);
    script += buffer;
  }
  const double bottom = static_cast<double>(bottom_margin) / height, top = 1 - static_cast<double>(top_margin) / height;
  for (std::size_t problem = 0; problem < problem_names.size(); ++problem) {
    const double left = (label_width + panel_width * static_cast<double>(problem)) / width;
    const double right = left + (panel_width - 12.0) / width;
    char margins[200];
    std::snprintf(margins, sizeof margins, "set lmargin at screen %.4f\nset rmargin at screen %.4f\n"
                  "set bmargin at screen %.4f\nset tmargin at screen %.4f\n", left, right, bottom, top);
    // The problem and its sizes: the inputs' terms and the product's.
    std::int64_t input_terms = 0, product_terms = 0;
    for (const row& r : rows) {
      if (r.problem != problem_names[problem]) continue;
      if (r.op == "kelto2vorn f") input_terms = r.terms;
      if (r.op == "mul_vorn") product_terms = r.terms;
    }
    std::string name = problem_names[problem];
    for (char& c : name)
      if (c == '"' || c == '\\') c = ' ';
    std::snprintf(buffer, sizeof buffer, "set title \"%s\\nf, g: %lld terms; f*g: %lld terms\" noenhanced\n",
                  name.c_str(), static_cast<long long>(input_terms), static_cast<long long>(product_terms));
    script += margins;
    script += buffer;
    script += problem == 0 ? "set ytics (" + ytics + ") scale 0 font ',12'\n" : "unset ytics\n";
    script += "set arrow 1 from 1, graph 0 to 1, graph 1 nohead lw 2 lc rgb 'black' front\n";
    // Each bar runs from 1 to its ratio: left of the line libvorn is faster.
    script += "plot $d using (abs($1 - " + std::to_string(problem) + ") < 0.5 ? $2 : 1/0):3:"
              "($2 < 1 ? $2 : 1):($2 < 1 ? 1 : $2):($3 - $4):($3 + $4):5 with boxxyerror fc rgb variable\n";
    if (problem == 0)
      for (std::size_t c = 0; c < std::size(peers); ++c) script += "unset object " + std::to_string(c + 1) + "\n";
    if (problem == 0) script += "unset label\n";
  }
  script += "unset multiplot\n";
  run_gnuplot(script);
}

}  // namespace

int main(int argc, char** argv) {
  options opt;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    const bool has_value = i + 1 < argc;
    if (a == "--quick") {
      opt.quick = true;
    } else if (a == "--vorn-only") {
      opt.vorn_only = true;
    } else if (a == "--runs" && has_value) {
      opt.runs = std::max(1, std::atoi(argv[++i]));
    } else if (a == "--json" && has_value) {
      opt.json = argv[++i];
    } else if (a == "--plot" && has_value) {
      opt.plot = argv[++i];
    } else if (a == "--replot" && has_value) {
      opt.replot = argv[++i];
    } else if (a == "--problem" && has_value) {
      opt.problem = argv[++i];
    } else if (a == "--order" && has_value) {
      opt.order = argv[++i];
    } else if (a == "--prime" && has_value) {
      opt.prime = std::atoi(argv[++i]);
    } else if (a == "--ops" && has_value) {
      opt.ops = argv[++i];
    } else if (a == "--base" && has_value) {
      opt.base = argv[++i];
    } else {
      std::fprintf(stderr,
                   "usage: vorn-bench [--quick] [--runs N] [--json FILE] [--plot DIR] [--replot DIR] [--problem TEXT]\n"
                   "                  [--order tdeg|plex] [--prime P] [--ops conv,mul,div,ads,scl] [--vorn-only]\n"
                   "                  [--base FILE.json]\n");
      return 2;
    }
  }
  if (opt.replot != nullptr) {
    const std::string dir = std::string(opt.replot) + "/";
    plot_ratios(read_json(dir + json_name), dir + ratios_svg);
    plot_family(read_family(dir + family_dat), dir + family_svg);
    return 0;
  }
  if (opt.quick) opt.runs = 1;
  minikelto::reset();
  std::vector<row> rows;
  const std::vector<problem> all = problems(opt.quick);
  std::vector<word> inputs;
  for (const problem& pr : all) inputs.push_back(pr.f), inputs.push_back(pr.g);
  for (word h : inputs) minikelto::add_root(h);
  for (const problem& pr : all) {
    if (pr.name.find(opt.problem) == std::string::npos) continue;
    for (std::int32_t p : {32003, 1073741789}) {
      if (opt.prime != 0 && opt.prime != p) continue;
      for (const auto& [name, order] : {std::pair{"tdeg", vorn::monomial_order::tdeg},
                                        std::pair{"plex", vorn::monomial_order::plex}}) {
        if (!opt.order.empty() && opt.order != name) continue;
        std::fprintf(stderr, "%s mod %d, %s ...\n", pr.name.c_str(), p, name);
        run_problem(pr, p, name, order, opt, rows);
      }
    }
  }
  for (word h : inputs) minikelto::remove_root(h);
  if (opt.base != nullptr) read_base(rows, opt.base);
  print_table(rows);
  if (opt.json != nullptr) write_json(rows, opt.json);
  if (opt.plot != nullptr) {
    const std::string dir = std::string(opt.plot) + "/";
    plot_ratios(rows, dir + ratios_svg);
    const std::vector<family_point> family = time_dense_family(opt);
    write_family(family, dir + family_dat);
    plot_family(family, dir + family_svg);
  }
  return 0;
}
