// The shared test fixture: a fresh minikelto host per test, entry calls into
// the statically linked plug-in by name, captured host_printf output, the
// info level, the interrupt countdown, builders for host objects, and a check
// at the end of every test that the library holds no memory.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

#include "minikelto/host.hpp"
#include "support/linked_plugin.hpp"

class host_test : public ::testing::Test {
 protected:
  using word = minikelto::word;

  void SetUp() override;
  void TearDown() override;

  const vorn_callback_table& cbt() const noexcept { return minikelto::callbacks(); }

  // ---- Entry calls ----
  bool has_entry(std::string_view entry) const;
  minikelto::call_result call(std::string_view entry, std::initializer_list<word> arguments);
  // The entry's result; a raise is a test failure (and gives 0).
  word call_ok(std::string_view entry, std::initializer_list<word> arguments);
  // The entry's message; a normal return is a test failure (and gives "").
  std::string call_error(std::string_view entry, std::initializer_list<word> arguments);

  // ---- Output, levels, interrupts ----
  // host_printf output since the last call (or SetUp).
  std::string output() { return minikelto::take_output(); }
  // "infolevel[vorn]" (unassigned after SetUp).
  void set_info_level(std::int32_t level) { minikelto::set_info_level("vorn", level); }
  void unset_info_level() { minikelto::unset_info_level("vorn"); }
  // host_check_interrupt answers non-zero from the n-th poll on; 0 turns it off.
  void interrupt_from_poll(std::int64_t n) { minikelto::interrupt_from_poll(n); }
  std::int64_t polls() const { return minikelto::interrupt_polls(); }

  // ---- Builders (nothing is made unique unless said) ----
  word name(std::string_view text) { return minikelto::make_name(text); }
  word integer(std::int64_t v) { return minikelto::make_integer(v); }
  // Any size, in decimal; the test fails on bad text.
  word integer(std::string_view decimal);
  word seq(std::initializer_list<word> entries) { return minikelto::make_seq(entries); }
  // (term, coefficient) pairs; a constant c is the pair (c, integer(1)).
  word sum(std::initializer_list<std::pair<word, word>> terms) { return minikelto::make_sum(terms); }
  // (base, exponent) pairs with immediate exponents.
  word prod(std::initializer_list<std::pair<word, std::int32_t>> factors);
  // A unique FUNCALL such as tdeg(x, y).
  word funcall(std::string_view function, std::initializer_list<word> arguments);
  // A unique EQUALITY such as pack = 4.
  word equation(word lhs, word rhs) { return minikelto::unique(minikelto::make_equality(lhs, rhs)); }
  word option(std::string_view key, std::int64_t value) { return equation(name(key), integer(value)); }
  word unique(word h) { return minikelto::unique(h); }
  std::string text(word h) { return minikelto::describe(h); }

 private:
  std::int64_t live_blocks_at_start_ = 0;
};
