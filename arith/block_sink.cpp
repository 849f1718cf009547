// Term blocks for the entries' results.
#include "arith/block_sink.hpp"

#include "host/error.hpp"
#include "poly/term_block.hpp"

namespace vorn {

word* term_block_sink::next_block(std::int32_t capacity) {
  if (info_level > 3) host_printf(cbt, "alloc %d terms\n", static_cast<int>(capacity));
  term_block* block = alloc_term_block(capacity, layout, 1);
  if (block == nullptr) fail("out of memory");
  const bool first = current == nullptr;
  if (first)
    blocks.first = block;
  else
    current->next = block;
  current = block;
  if (!first && host_check_interrupt(cbt)) fail("Interrupted");
  return block->terms;
}

}  // namespace vorn
