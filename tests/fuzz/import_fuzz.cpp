// Fuzzes kelto2vorn on host values of every kind: polynomials, sums with odd
// terms and coefficients, wrong kinds, negative, huge and non-integer
// exponents, big integers, and option lists of any shape.  When the input is
// a well-formed polynomial in the ring's variables and the import succeeds,
// the container read back through vorn2kelto must equal the input mod p; any
// container the import makes is then repacked with random arguments.
#include <gmp.h>

#include <vector>

#include "fuzz/fuzz_support.hpp"
#include "host/callbacks.hpp"
#include "poly/container.hpp"
#include "poly/container_check.hpp"

namespace {

namespace mk = minikelto;
using vorn::fuzz::byte_source;
using vorn::fuzz::word;

struct generator {
  byte_source& in;
  std::vector<word> vars;  // the ring's variables
  bool clean = true;       // the input is a polynomial the oracle can check

  word big_integer() {
    const int limbs = static_cast<int>(in.range(1, 4));
    mpz_t z;
    mpz_init(z);
    for (int i = 0; i < limbs; ++i) {
      mpz_mul_2exp(z, z, 32);
      mpz_add_ui(z, z, in.u32());
    }
    if (in.chance(128)) mpz_neg(z, z);
    const word h = mk::make_integer(z);
    mpz_clear(z);
    return h;
  }

  word integer() {
    switch (in.range(0, 5)) {
      case 0: return mk::make_integer(in.range(-3, 3));
      case 1: return mk::make_integer(in.range(-100000, 100000));
      case 2: return mk::make_integer(mk::max_immediate - in.range(0, 2));
      case 3: return mk::make_integer(mk::min_immediate + in.range(-2, 2));
      case 4: return big_integer();
      default: return mk::make_integer(in.range(1, 1000));
    }
  }

  word not_a_polynomial() {
    clean = false;
    switch (in.range(0, 5)) {
      case 0: return funcall("f", {mk::make_name("x")});
      case 1: return mk::make_equality(mk::make_name("a"), mk::make_immediate(1));
      case 2: return mk::make_seq(std::vector<word>{mk::make_immediate(1), vars[0]});
      case 3: return mk::make_array(static_cast<std::int32_t>(in.range(0, 3)));
      case 4: return mk::true_value();
      default: return mk::make_sum(std::vector<std::pair<word, word>>{{vars[0], mk::make_immediate(2)}});
    }
  }

  static word funcall(std::string_view f, std::initializer_list<word> a) { return vorn::fuzz::funcall(f, a); }

  word exponent() {
    switch (in.range(0, 15)) {
      case 0: clean = false; return mk::make_integer(-in.range(1, 3));
      case 1: clean = false; return mk::make_integer(in.range(1, mk::max_immediate));
      case 2: clean = false; return big_integer();
      case 3: clean = false; return mk::make_name("n");
      case 4: return mk::make_immediate(static_cast<std::int32_t>(in.range(0, 300)));
      default: return mk::make_immediate(static_cast<std::int32_t>(in.range(0, 6)));
    }
  }

  word base() {
    switch (in.range(0, 15)) {
      case 0: clean = false; return mk::make_name("a");
      case 1: clean = false; return mk::make_nameref(mk::name_text(vars[0]));
      case 2: clean = false; return mk::make_integer(in.range(-3, 3));
      default: return vars[static_cast<std::size_t>(in.range(0, static_cast<std::int64_t>(vars.size()) - 1))];
    }
  }

  word monomial() {
    if (in.chance(60)) return base();
    const int n = static_cast<int>(in.range(1, 4));
    std::vector<std::pair<word, word>> pairs;
    for (int i = 0; i < n; ++i) {
      const word b = base();
      for (const auto& [seen, e] : pairs)
        if (seen == b) clean = false;  // repeated bases: the oracle multiplies, the import takes the first
      pairs.emplace_back(b, exponent());
    }
    return mk::make_prod(pairs);
  }

  word sum_term() {
    const int kind = static_cast<int>(in.range(0, 15));
    if (kind == 0) return not_a_polynomial();
    if (kind <= 3) return integer();
    return monomial();
  }

  word coefficient() {
    if (in.chance(8)) {
      clean = false;
      return mk::make_name("c");
    }
    return integer();
  }

  word polynomial() {
    switch (in.range(0, 9)) {
      case 0: return integer();
      case 1: return base();
      case 2: return monomial();
      case 3: return not_a_polynomial();
      default: {
        const int n = static_cast<int>(in.range(0, 12));
        std::vector<std::pair<word, word>> pairs;
        for (int i = 0; i < n; ++i) {
          const word t = sum_term();
          pairs.emplace_back(t, mk::is_integer(t) ? mk::make_immediate(1) : coefficient());
        }
        return mk::make_sum(pairs);
      }
    }
  }

  word order() {
    static const char* const orders[] = {"plex", "grlex", "tdeg", "lex", "plex"};
    const char* o = orders[in.range(0, 4)];
    std::vector<word> args = vars;
    if (in.chance(10)) {
      clean = false;
      args.push_back(mk::make_immediate(3));
    }
    if (o == std::string_view("lex")) clean = false;
    return mk::unique(mk::make_funcall(mk::make_name(o), args));
  }

  // pack = k, characteristic = p and everything else an option list may hold.
  word option(std::int32_t& pack, std::int32_t& p) {
    switch (in.range(0, 9)) {
      case 0: {
        clean = false;
        return vorn::fuzz::option("pack", mk::make_name("k"));
      }
      case 1: clean = false; return vorn::fuzz::option("modulus", mk::make_immediate(7));
      case 2: clean = false; return mk::make_immediate(4);
      case 3: {
        const word c = big_integer();  // may still fit an immediate
        if (mk::is_immediate(c)) p = mk::immediate_value(c);
        return vorn::fuzz::option("characteristic", c);
      }
      case 4: case 5: {
        pack = static_cast<std::int32_t>(in.range(-2, 40));
        return vorn::fuzz::option("pack", mk::make_immediate(pack));
      }
      default: {
        static const std::int32_t primes[] = {0, 2, 3, 7, 32003, 65521, 1073741789, 1000000, -5};
        p = primes[in.range(0, 8)];
        return vorn::fuzz::option("characteristic", mk::make_integer(p));
      }
    }
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 4096) return 0;
  vorn::fuzz::input_scope scope;
  byte_source in{data, size};
  generator g{in, {}};
  static const char* const names[] = {"x", "y", "z", "t", "u"};
  const int n = static_cast<int>(in.range(0, 5));
  for (int i = 0; i < n; ++i) g.vars.push_back(mk::make_name(names[i]));
  if (g.vars.empty()) {
    g.clean = false;
    g.vars.push_back(mk::make_name("w"));  // a base for the generator; the ring stays empty
  }
  if (in.chance(40)) mk::set_info_level("vorn", static_cast<std::int32_t>(in.range(0, 6)));

  const word f = g.polynomial();
  std::vector<word> args{f};
  if (n == 0) {
    args.push_back(mk::unique(mk::make_funcall(mk::make_name("tdeg"), std::span<const word>{})));
  } else {
    args.push_back(g.order());
  }
  if (in.chance(8)) args.pop_back();
  std::int32_t pack = 1;
  std::int32_t p = 0;
  const int options = static_cast<int>(in.range(0, 3));
  for (int i = 0; i < options; ++i) args.push_back(g.option(pack, p));

  const minikelto::call_result r = minikelto::call_entry(linked_plugin(), "kelto2vorn", args);
  minikelto::take_output();
  if (!r.ok) {
    vorn::fuzz::check(vorn::fuzz::known_message(r.error), "kelto2vorn raised an unknown message", r.error);
    return 0;
  }
  // A canonical host sum has no zero coefficient; a forged one keeps its
  // zero terms when p = 0 (nothing vanishes then), so only the rest is checked.
  bool zero_pair = false;
  if (mk::type_of(f) == minikelto::sum) {
    const word* w = mk::object_words(f);
    for (std::int32_t i = 1; i + 1 < mk::length_of(f); i += 2)
      zero_pair = zero_pair || w[i] == mk::make_immediate(0) || w[i + 1] == mk::make_immediate(0);
  }
  const vorn::container_fault fault = vorn::check_container(minikelto::callbacks(), r.value, {0, false});
  vorn::fuzz::check(fault.ok() || (zero_pair && p == 0 && fault.problem == std::string_view("a coefficient is 0")),
                    "kelto2vorn made a malformed container",
                    std::string(fault.problem ? fault.problem : "") + " in the import of " + mk::describe(f) + " p = " + std::to_string(p));

  const minikelto::call_result back = vorn::fuzz::call("vorn2kelto", {r.value});
  vorn::fuzz::check(back.ok, "vorn2kelto refused a container kelto2vorn made", back.error);
  if (g.clean && p >= 0)
    vorn::fuzz::check(vorn::fuzz::equal_mod(back.value, f, p), "the import read back differs from the input mod p",
                      mk::describe(f) + "\nread back: " + mk::describe(back.value) + "\np = " + std::to_string(p));

  // Repacking with random arguments: what it returns must read back equal to
  // the container mod the new characteristic when only the packing changes.
  const word ring = mk::object_words(r.value)[2];
  std::vector<word> rargs{r.value};
  if (in.chance(200)) rargs.push_back(in.chance(128) ? ring : g.order());
  std::int32_t pack2 = pack;
  std::int32_t p2 = p;
  const int roptions = static_cast<int>(in.range(0, 2));
  for (int i = 0; i < roptions; ++i) rargs.push_back(g.option(pack2, p2));
  const minikelto::call_result rr = minikelto::call_entry(linked_plugin(), "repackvorn", rargs);
  minikelto::take_output();
  if (!rr.ok) {
    vorn::fuzz::check(vorn::fuzz::known_message(rr.error), "repackvorn raised an unknown message", rr.error);
    return 0;
  }
  const minikelto::call_result back2 = vorn::fuzz::call("vorn2kelto", {rr.value});
  vorn::fuzz::check(back2.ok, "vorn2kelto refused a container repackvorn made", back2.error);
  // A new order over the same variables keeps the polynomial; a new
  // characteristic reduces it (p2 = 0 keeps the residues as they are).
  if (g.clean && p2 >= 0 && (p2 == 0 || p2 == p || p == 0))
    vorn::fuzz::check(vorn::fuzz::equal_mod(back2.value, back.value, p2), "repackvorn changed the polynomial",
                      mk::describe(back.value) + "\nrepacked: " + mk::describe(back2.value));
  return 0;
}
