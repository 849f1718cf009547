// The block sink's calls into the host.
#include "arith/sinks.hpp"

#include "host/error.hpp"
#include "poly/term_block.hpp"

namespace vorn {

word* term_block_sink::next_block(std::int32_t capacity) {
  note(3, "alloc %d terms\n", static_cast<int>(capacity));
  term_block* block = alloc_term_block(capacity, layout, 1);
  if (block == nullptr) fail("out of memory");
  if (current == nullptr)
    blocks.first = block;
  else
    current->next = block;
  current = block;
  return block->terms;
}

word term_block_sink::assemble(word ring, std::int32_t p) const noexcept {
  return assemble_container(cbt, *blocks.first, ring, p);
}

void term_block_sink::poll() {
  if (host_check_interrupt(cbt)) fail("Interrupted");
}

}  // namespace vorn
