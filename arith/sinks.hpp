// The sinks of the entries (see kernel.hpp): term blocks that the sink owns
// until the result is assembled, and the term array of a container made in
// advance.
//
// Invariant of the block sink: every block taken is on its list (linked
// before anything can throw), so the list's owner frees all of them on every
// exit, the interrupt included.
#pragma once

#include <cstdint>

#include "host/callbacks.hpp"
#include "host/frame.hpp"
#include "host/memory.hpp"

namespace vorn {

struct term_block_sink {
  const callback_table& cbt;
  word* layout;  // the result's layout, recorded in every block
  term_block_list blocks;
  term_block* current = nullptr;

  term_block_sink(const callback_table& table, word* result_layout) noexcept : cbt(table), layout(result_layout) {}

  // Prints "alloc %d terms" above level 3, allocates ("out of memory") and links.
  word* next_block(std::int32_t capacity);
  // Raises "Interrupted" when the host asks for it.
  void poll();
  template <class... Args>
  void note(int level, const char* format, Args... args) noexcept {
    if (info_level > level) host_printf(cbt, format, args...);
  }
  void finish(std::int32_t written) noexcept { current->count = written; }

  // The finished blocks as a new unique container in `ring`.
  word assemble(word ring, std::int32_t p) const noexcept;
};

// One block: the term array of a container with room for every term; what
// is written counts, the rest the caller shrinks away.  Nothing to print,
// nothing to poll.
struct array_sink {
  word* terms;
  std::int32_t written = 0;

  word* next_block(std::int32_t) noexcept { return terms; }
  void poll() noexcept {}
  template <class... Args>
  void note(int, const char*, Args...) noexcept {}
  void finish(std::int32_t count) noexcept { written = count; }
};

}  // namespace vorn
