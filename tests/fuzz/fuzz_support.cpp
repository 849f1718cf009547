// The fuzz harnesses' shared reader, plug-in, oracle and checks.
#include "fuzz/fuzz_support.hpp"

#include <gmp.h>

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/memory.hpp"
#include "minikelto/expand.hpp"
#include "minikelto/polynomial.hpp"
#include "vorn.h"

namespace vorn::fuzz {

std::uint32_t byte_source::u32() noexcept {
  std::uint32_t v = 0;
  for (int i = 0; i < 4; ++i) v = (v << 8) | byte();
  return v;
}

std::int64_t byte_source::range(std::int64_t lo, std::int64_t hi) noexcept {
  const auto span = static_cast<std::uint64_t>(hi - lo) + 1;
  const std::uint64_t v = span <= 256 ? byte() : u32();
  return lo + static_cast<std::int64_t>(v % span);
}

void check(bool ok, std::string_view problem, std::string_view detail) {
  if (ok) return;
  const std::string text = "fuzz check failed: " + std::string(problem) + "\n" + std::string(detail) + "\n";
  std::fputs(text.c_str(), stderr);
  std::abort();
}

bool equal_mod(word a, word b, std::int32_t p) {
  word d = 0;
  // The oracle's own work is bounded too: about a million term operations
  // (the interrupt countdown), so no input holds a harness for long.
  minikelto::interrupt_from_poll(16);
  try {
    d = minikelto::expand(minikelto::subtract(minikelto::unique(a), minikelto::unique(b)));
  } catch (const std::invalid_argument&) {
    d = 0;  // beyond what the oracle can expand
  } catch (const minikelto::interrupted&) {
    d = 0;  // beyond the oracle's budget
  }
  minikelto::clear_interrupt();
  if (d == 0) return true;  // no verdict
  if (p == 0) return d == minikelto::make_immediate(0);
  mpz_t z;
  mpz_init(z);
  bool zero = true;
  const auto coefficient_vanishes = [&](word c) {
    minikelto::integer_value(c, z);
    return mpz_fdiv_ui(z, static_cast<unsigned long>(p)) == 0;
  };
  if (minikelto::is_integer(d)) {
    zero = coefficient_vanishes(d);
  } else if (minikelto::type_of(d) == minikelto::sum) {
    const word* w = minikelto::object_words(d);
    const std::int32_t length = minikelto::length_of(d);
    for (std::int32_t i = 1; i + 1 < length && zero; i += 2) {
      zero = minikelto::is_integer(w[i]) ? coefficient_vanishes(w[i]) : coefficient_vanishes(w[i + 1]);
    }
  } else {
    zero = false;  // a lone monomial with coefficient 1
  }
  mpz_clear(z);
  return zero;
}

bool known_message(std::string_view m) {
  static const char* const messages[] = {
      "expecting a polynomial and a monomial order",
      "invalid argument",
      "negative modulus",
      "monomial order not supported",
      "out of memory",
      "expecting an expanded polynomial",
      "exponent overflow",
      "expecting a polynomial",
      "expecting a modulus and two polynomials",
      "first argument should be an immediate integer modulus",
      "the polynomials are not in the same ring",
      "the polynomials are packed differently",
      "inputs must be reduced mod p",
      "only mod p computations are supported",
      "Interrupted",
      "expecting a modulus, flag, and two polynomials",
      "second argument should be an immediate integer, 0=add, 1=subtract",
      "expecting a modulus, multiplier, denominator, and a polynomial",
      "second argument should be an integer numerator",
      "third argument should be an integer denominator",
      "division by zero",
      "expecting a modulus and at least two polynomials",
      "first argument must be an immediate integer",
  };
  for (const char* k : messages)
    if (m == k) return true;
  return false;
}

input_scope::input_scope() {
  minikelto::reset();
  minikelto::capture_output(true);
  vorn::gateway_fail_at(0);
  live_at_start = vorn::gateway_state().live_blocks;
}

input_scope::~input_scope() {
  vorn::gateway_fail_at(0);
  minikelto::take_output();
  check(vorn::gateway_state().live_blocks == live_at_start, "the library holds memory after the input");
}

minikelto::call_result call(std::string_view entry, std::initializer_list<word> arguments) {
  minikelto::call_result r = minikelto::call_entry(linked_plugin(), entry, arguments);
  if (!r.ok) check(known_message(r.error), "an entry raised an unknown message", std::string(entry) + ": " + r.error);
  // Output of diagnostics is not looked at; keep the buffer small.
  minikelto::take_output();
  return r;
}

word funcall(std::string_view function, std::initializer_list<word> arguments) {
  return minikelto::unique(minikelto::make_funcall(minikelto::make_name(function), arguments));
}

word option(std::string_view key, word value) {
  return minikelto::unique(minikelto::make_equality(minikelto::make_name(key), value));
}

}  // namespace vorn::fuzz
