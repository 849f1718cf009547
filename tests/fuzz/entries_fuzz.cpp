// Fuzzes the arithmetic entries, repackvorn and vorn2kelto on well-formed
// containers with random arguments: other rings, other packs, other and
// composite moduli, big-integer blocks, bad flags, names and big integers in
// place of numbers.  Terms may carry names outside the ring, which import
// drops, so containers repeat monomials.  A chain of calls feeds results into
// later calls.  Each answer that is defined is checked against the host's
// expand mod p, and every container an entry returns must pass the invariant
// checker.
//
// The work an input can ask for is bounded: operands have at most 10 terms
// of degree at most 40 per variable, and a result joins the pool of later
// operands only when it has at most `max_pool_terms` terms, stored expanded,
// so the oracle never expands more than a product of two such polynomials.
#include <gmp.h>

#include <vector>

#include "fuzz/fuzz_support.hpp"
#include "minikelto/expand.hpp"
#include "minikelto/polynomial.hpp"
#include "poly/container.hpp"
#include "poly/container_check.hpp"

namespace {

namespace mk = minikelto;
namespace fz = vorn::fuzz;
using fz::byte_source;
using fz::word;

// A container with the host polynomial it stands for.
struct operand {
  word container = 0;
  word value = 0;  // canonical host polynomial, coefficients as imported
  word given = 0;  // what was imported: value with names outside the ring
};

// A polynomial as given to the import and as the container holds it.
struct drawn {
  word given;
  word value;  // given with the names outside the ring set to 1
};

constexpr std::int32_t max_pool_terms = 200;

// A result as a later operand: kept only while small, its value expanded.
void keep(std::vector<operand>& pool, word container, word value) {
  if (mk::immediate_value(mk::funcall_arguments(container)[0]) > max_pool_terms) return;
  const word v = mk::expand(value);
  pool.push_back({container, v, v});
}

struct session {
  byte_source& in;
  std::int32_t p = 7;
  word ring = 0;
  word other_ring = 0;
  std::int32_t pack = 1;
  std::vector<word> vars;

  drawn random_polynomial() {
    const word outside[] = {mk::make_name("a"), mk::make_name("b")};
    word f = mk::make_immediate(0);
    word value = f;
    const int terms = static_cast<int>(in.range(0, 10));
    for (int t = 0; t < terms; ++t) {
      word m = mk::make_immediate(1);
      for (word v : vars) {
        const std::int32_t e = static_cast<std::int32_t>(in.range(0, in.chance(20) ? 40 : 3));
        if (e > 0) m = mk::multiply(m, mk::power(v, mk::make_immediate(e)));
      }
      const std::int64_t c = in.chance(16) ? in.range(1, 0x7fffffff) : in.range(1, 200);
      const word term = mk::multiply(mk::make_integer(c), m);
      value = mk::add(value, term);
      const auto name_power = static_cast<std::int32_t>(in.range(0, 7));  // a, a^2, b or b^2 in half the terms
      f = mk::add(f, name_power < 4 ? mk::multiply(term, mk::power(outside[name_power / 2],
                                                                   mk::make_immediate(1 + name_power % 2)))
                                    : term);
    }
    return {f, value};
  }

  // Imports f over the session's ring and modulus (or another ring, pack or
  // characteristic when asked); 0 when the import refuses.
  operand import(drawn f, word over, std::int32_t with_pack, std::int32_t characteristic) {
    const minikelto::call_result r = fz::call(
        "kelto2vorn", {f.given, over, fz::option("pack", mk::make_immediate(with_pack)),
                       fz::option("characteristic", mk::make_integer(characteristic))});
    if (!r.ok) return {};
    return {r.value, f.value, f.given};
  }

  // The container, or a name when the import refused (0 is no host value).
  static word made(const operand& o) { return o.container != 0 ? o.container : mk::make_name("refused"); }

  // Something in place of a modulus, a flag, a numerator or a polynomial.
  word odd_argument(const std::vector<operand>& pool) {
    switch (in.range(0, 9)) {
      case 0: return mk::make_name("x");
      case 1: return mk::make_integer(-static_cast<std::int64_t>(in.range(0, 10)));
      case 2: return mk::make_integer(std::int64_t{1} << in.range(30, 62));
      case 3: return mk::make_immediate(0);
      case 4: return mk::make_immediate(static_cast<std::int32_t>(in.range(1, 40)));
      case 5: return fz::funcall("VORN", {mk::make_immediate(1)});
      case 6: return made(import(random_polynomial(), other_ring, pack, p));
      case 7: return made(import(random_polynomial(), ring, pack == 1 ? 2 : 1, p));
      case 8: {
        drawn f = random_polynomial();
        f.given = mk::add(f.given, mk::make_integer(std::int64_t{1} << 40));
        return made(import(f, ring, pack, 0));
      }
      default: return pool.empty() ? mk::make_immediate(1) : pool[static_cast<std::size_t>(in.range(0, static_cast<std::int64_t>(pool.size()) - 1))].container;
    }
  }

  // Results of operands that repeat a monomial may repeat one too; a
  // quotient never does.
  void expect_sound(word R, const char* entry, bool strictly_decreasing = true) {
    const vorn::container_fault fault = vorn::check_container(mk::callbacks(), R, {p, strictly_decreasing});
    fz::check(fault.ok(), std::string(entry) + " returned a malformed container", fault.problem ? fault.problem : "");
  }

  void expect_equal(word container, word expected, const char* what) {
    const minikelto::call_result back = fz::call("vorn2kelto", {container});
    fz::check(back.ok, "vorn2kelto refused a result", back.error);
    fz::check(fz::equal_mod(back.value, expected, p), what,
              "expected " + mk::describe(expected) + "\ngot " + mk::describe(back.value) + "\np = " + std::to_string(p));
  }
};

// True when no two terms of the container share a monomial.
bool distinct(word container) {
  return vorn::check_terms(vorn::read_container(mk::callbacks(), container), {0, true}).ok();
}

bool is_prime(std::int32_t p) {
  if (p < 2) return false;
  for (std::int32_t d = 2; d * d <= p; ++d)
    if (p % d == 0) return false;
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 2048) return 0;
  fz::input_scope scope;
  byte_source in{data, size};
  session s{in, 7, 0, 0, 1, {}};
  static const char* const names[] = {"x", "y", "z", "t"};
  static const char* const orders[] = {"plex", "grlex", "tdeg"};
  static const std::int32_t moduli[] = {2, 3, 7, 101, 32003, 65521, 1073741789, 6, 1000, 1073741823};
  const int n = static_cast<int>(in.range(1, 4));
  for (int i = 0; i < n; ++i) s.vars.push_back(mk::make_name(names[i]));
  const char* order = orders[in.range(0, 2)];
  s.ring = mk::unique(mk::make_funcall(mk::make_name(order), s.vars));
  s.other_ring = mk::unique(mk::make_funcall(mk::make_name(orders[in.range(0, 2)]), std::vector<word>(s.vars.rbegin(), s.vars.rend())));
  s.p = moduli[in.range(0, 9)];
  static const std::int32_t packs[] = {1, 2, 4, 8, 3};
  s.pack = packs[in.range(0, 4)];
  if (in.chance(30)) mk::set_info_level("vorn", static_cast<std::int32_t>(in.range(0, 6)));
  const word P = mk::make_immediate(s.p);

  std::vector<operand> pool;
  for (int i = 0; i < 2; ++i) {
    const operand o = s.import(s.random_polynomial(), s.ring, s.pack, s.p);
    if (o.container == 0) return 0;
    pool.push_back(o);
  }

  const int steps = static_cast<int>(in.range(1, 6));
  for (int step = 0; step < steps && !in.empty(); ++step) {
    const operand A = pool[static_cast<std::size_t>(in.range(0, static_cast<std::int64_t>(pool.size()) - 1))];
    const operand B = pool[static_cast<std::size_t>(in.range(0, static_cast<std::int64_t>(pool.size()) - 1))];
    // One argument may be replaced by something else; then only the absence
    // of crashes, leaks and unknown messages is checked.
    const int odd = in.chance(50) ? static_cast<int>(in.range(0, 4)) : -1;
    const auto arg = [&](int i, word w) { return odd == i ? s.odd_argument(pool) : w; };
    switch (in.range(0, 6)) {
      case 0: {
        const auto r = fz::call("mul_vorn", {arg(0, P), arg(1, A.container), arg(2, B.container)});
        if (!r.ok || odd >= 0) break;
        s.expect_sound(r.value, "mul_vorn", distinct(A.container) && distinct(B.container));
        const word v = mk::multiply(A.value, B.value);
        s.expect_equal(r.value, v, "mul_vorn: wrong product");
        keep(pool, r.value, v);
        break;
      }
      case 1: {
        const std::int32_t flag = static_cast<std::int32_t>(in.range(0, 1));
        const auto r = fz::call("ads_vorn", {arg(0, P), arg(1, mk::make_immediate(flag)), arg(2, A.container),
                                             arg(3, B.container)});
        if (!r.ok || odd >= 0) break;
        s.expect_sound(r.value, "ads_vorn", distinct(A.container) && distinct(B.container));
        const word v = flag == 0 ? mk::add(A.value, B.value) : mk::subtract(A.value, B.value);
        s.expect_equal(r.value, v, "ads_vorn: wrong sum or difference");
        keep(pool, r.value, v);
        break;
      }
      case 2: {
        const word num = mk::make_integer(in.chance(30) ? -in.range(0, 0x7fffffffLL) : in.range(-5, 5));
        const word den = mk::make_integer(in.chance(30) ? in.range(-0x7fffffffLL, 0x7fffffffLL) : in.range(-5, 5));
        const auto r = fz::call("scl_vorn", {arg(0, P), arg(1, num), arg(2, den), arg(3, A.container)});
        if (!r.ok || odd >= 0) break;
        s.expect_sound(r.value, "scl_vorn", distinct(A.container));
        const minikelto::call_result back = fz::call("vorn2kelto", {r.value});
        fz::check(back.ok, "vorn2kelto refused a result", back.error);
        fz::check(fz::equal_mod(mk::multiply(den, back.value), mk::multiply(num, A.value), s.p),
                  "scl_vorn: den * result differs from num * f", mk::describe(A.value));
        break;
      }
      case 3: {
        // An exact division: the quotient of A*B by B is A, also when the
        // product keeps terms apart by names outside the ring.
        const word product = mk::multiply(A.value, B.value);
        const operand C = s.import({mk::expand(mk::multiply(A.given, B.given)), product}, s.ring, s.pack, s.p);
        if (C.container == 0) break;
        const word one = mk::make_name("one");
        const word q = mk::make_name("q");
        mk::unassign(q);  // from an earlier division of this input
        const auto r = fz::call("div_vorn", {arg(0, P), arg(1, C.container), arg(2, B.container), arg(3, one), arg(4, q)});
        if (!r.ok || odd >= 0) break;
        const bool divisor_nonzero = !fz::equal_mod(B.value, mk::make_immediate(0), s.p);
        if (is_prime(s.p) && divisor_nonzero)
          fz::check(r.value == mk::true_value(), "div_vorn: a product is not divisible by its factor",
                    mk::describe(A.value) + " * " + mk::describe(B.value));
        if (r.value == mk::true_value() && mk::value_of(q)) {
          s.expect_sound(*mk::value_of(q), "div_vorn");
          s.expect_equal(*mk::value_of(q), A.value, "div_vorn: wrong quotient");
        }
        break;
      }
      case 4: {
        const word q = mk::make_name("q");
        mk::unassign(q);
        const auto r = fz::call("div_vorn", {arg(0, P), arg(1, A.container), arg(2, B.container), arg(3, mk::make_name("one")), arg(4, q)});
        if (!r.ok || odd >= 0) break;
        if (r.value == mk::true_value() && mk::value_of(q)) {
          const word Q = *mk::value_of(q);
          const minikelto::call_result back = fz::call("vorn2kelto", {Q});
          fz::check(back.ok, "vorn2kelto refused a quotient", back.error);
          fz::check(fz::equal_mod(mk::multiply(back.value, B.value), A.value, s.p), "div_vorn: quotient * B differs from A",
                    mk::describe(A.value) + " / " + mk::describe(B.value));
        }
        break;
      }
      case 5: {
        const std::int32_t new_pack = packs[in.range(0, 4)];
        const word new_ring = in.chance(128) ? s.ring : s.other_ring;
        const auto r = fz::call("repackvorn", {arg(0, A.container), arg(1, new_ring),
                                               arg(2, fz::option("pack", mk::make_immediate(new_pack)))});
        if (!r.ok || odd >= 0) break;
        s.expect_equal(r.value, A.value, "repackvorn changed the polynomial");
        if (new_ring == s.ring && new_pack == s.pack) keep(pool, r.value, A.value);
        break;
      }
      default: {
        const auto r = fz::call("vorn2kelto", {arg(0, A.container)});
        if (!r.ok || odd >= 0) break;
        fz::check(fz::equal_mod(r.value, A.value, s.p), "vorn2kelto: wrong polynomial", mk::describe(A.value));
        break;
      }
    }
  }
  return 0;
}
