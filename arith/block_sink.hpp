// The block sink of the entries: result terms go into a list of term blocks
// that the sink owns until the container is assembled.
//
// Invariant: every block taken is on the list (linked before anything can
// throw), so the list's owner frees all of them on every exit, the interrupt
// included.
#pragma once

#include <cstdint>

#include "host/frame.hpp"
#include "host/kernel.hpp"
#include "host/memory.hpp"

namespace vorn {

struct term_block_sink {
  const callback_table& cbt;
  word* layout;  // the result's layout, recorded in every block
  term_block_list blocks;
  term_block* current = nullptr;

  term_block_sink(const callback_table& table, word* result_layout) noexcept
      : cbt(table), layout(result_layout) {}

  // Prints "alloc %d terms" above level 3, allocates ("out of memory"),
  // links, and for every block after the first polls for "Interrupted".
  word* next_block(std::int32_t capacity);

  void finish(std::int32_t written) noexcept { current->count = written; }
};

}  // namespace vorn
