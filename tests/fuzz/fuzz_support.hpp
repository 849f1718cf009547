// What the fuzz harnesses share: a reader that turns fuzz bytes into choices,
// the entries linked into the harness as a plug-in, the answer check against
// the host's expand, and the per-input checks that the library holds no
// memory and never raises a message outside its vocabulary.
//
// A failed check prints what went wrong and aborts, which libFuzzer reports
// as a crash with the input that caused it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "minikelto/host.hpp"
#include "support/linked_plugin.hpp"

namespace vorn::fuzz {

using word = minikelto::word;

// Choices drawn from the input; past its end every choice is 0.
struct byte_source {
  const std::uint8_t* data;
  std::size_t size;
  std::size_t at = 0;

  std::uint8_t byte() noexcept { return at < size ? data[at++] : 0; }
  std::uint32_t u32() noexcept;
  // A value in lo ... hi (hi >= lo).
  std::int64_t range(std::int64_t lo, std::int64_t hi) noexcept;
  // True with probability about n/256.
  bool chance(int n) noexcept { return byte() < n; }
  bool empty() const noexcept { return at >= size; }
};


// Prints the problem and aborts when ok is false.
void check(bool ok, std::string_view problem, std::string_view detail = {});

// True when a and b expand to polynomials equal mod p (p = 0: equal).
bool equal_mod(word a, word b, std::int32_t p);

// Every message the entries raise, and "out of memory" and "Interrupted".
bool known_message(std::string_view message);

// Starts the host afresh and, at scope exit, checks that the library holds
// no gateway block.
struct input_scope {
  std::int64_t live_at_start;
  input_scope();
  input_scope(const input_scope&) = delete;
  input_scope& operator=(const input_scope&) = delete;
  ~input_scope();
};

// An entry call whose raise, if any, must be one of the known messages.
minikelto::call_result call(std::string_view entry, std::initializer_list<word> arguments);

// A unique FUNCALL f(arguments).
word funcall(std::string_view function, std::initializer_list<word> arguments);
word option(std::string_view key, word value);

}  // namespace vorn::fuzz
