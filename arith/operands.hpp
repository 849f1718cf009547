// How the arithmetic entries read their arguments: the clocks and the level
// first, the argument count, the modulus (argument 1), the operand
// containers, the check that they hold only immediates when p is not 0, and
// the computation between the phase marks with the modulus checked first.
// Each entry calls these in its own fixed order of checks.
#pragma once

#include <cstdint>

#include "host/callbacks.hpp"
#include "host/frame.hpp"

namespace vorn {

// A container argument and its view.
struct operand {
  word handle;
  term_block view;
};

struct operand_pair {
  operand A;
  operand B;
};

// Reads one container operand; raises "expecting a polynomial" for anything
// else (the terms of a real container are trusted as the library built them).
term_block read_operand(const callback_table& cbt, word h);

// Raises "only mod p computations are supported" for p = 0, then "negative
// modulus" for p < 0.  Composite moduli are computed with.
void check_modulus(std::int32_t p);

class arithmetic_call {
  timing t;  // declared first: the clocks start before any argument is read

 public:
  // Starts the clocks and refreshes info_level; then raises count_message
  // unless least <= argument count <= most, and "first argument should be
  // an immediate integer modulus".
  arithmetic_call(const callback_table& table, word arguments, std::int32_t least, std::int32_t most,
                  const char* count_message);

  const callback_table& cbt;
  const word args;
  const std::int32_t p;

  std::int32_t count() const noexcept { return seq_count(args); }
  word argument(std::int32_t i) const noexcept { return object_word(args, i); }

  // Argument i as a container operand ("expecting a polynomial").
  operand operand_at(std::int32_t i) const { return {argument(i), read_operand(cbt, argument(i))}; }

  // Arguments a and b as operands, then "the polynomials are not in the same
  // ring" and "the polynomials are packed differently".
  operand_pair operands(std::int32_t a, std::int32_t b) const;

  // "inputs must be reduced mod p" when p is not 0 and an operand has big
  // coefficients.
  void check_reduced(const operand& f) const;
  void check_reduced(const operand_pair& ops) const {
    check_reduced(ops.A);
    check_reduced(ops.B);
  }

  // Marks the start of the computation, checks the modulus, runs work (which
  // calls computed() when its kernel is done) and prints the time line;
  // returns what work returns.
  template <class Work>
  auto compute(Work&& work) {
    t.phase_begin = cpu_clock();
    check_modulus(p);
    const auto result = work();
    t.stop();
    report_time(cbt, time_kind::arithmetic, t);
    return result;
  }
  void computed() noexcept { t.phase_end = cpu_clock(); }

 private:
  static std::int32_t read_modulus(word args, std::int32_t least, std::int32_t most, const char* count_message);
};

}  // namespace vorn
