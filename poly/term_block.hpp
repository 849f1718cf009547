// Result lists: the term blocks a computation fills, and their assembly into
// a container that owns all of its integers.
//
// A block is one gateway allocation, its header followed by room for its
// terms, so free_term_blocks releases it with one free.  In a list every block
// but the last is full; the terms read block by block are the result in its
// final (decreasing) order.
#pragma once

#include <cstddef>
#include <cstdint>

#include "host/callbacks.hpp"

namespace vorn {

// Bytes in front of a block's terms: the header, padded to 16 bytes so that
// the terms are aligned for anything (16 on i386, 32 on LP64).
inline constexpr std::size_t term_block_header_bytes = (sizeof(term_block) + 15) / 16 * 16;
static_assert(sizeof(void*) != 4 || term_block_header_bytes == 16);

// A block with room for n terms of msize + coef_words words; count = n,
// next = null.  Null when the allocation fails or the size does not fit.
term_block* alloc_term_block(std::int32_t n, word* layout, std::int32_t coef_words) noexcept;

// The block whose terms start at `terms` (a block made by alloc_term_block).
inline term_block* term_block_of_terms(word* terms) noexcept {
  return reinterpret_cast<term_block*>(reinterpret_cast<unsigned char*>(terms) - term_block_header_bytes);
}

// Copies the list starting at `first` into a new container of exactly its
// size in `ring`; with characteristic 0 the container gets its own copy of
// every big coefficient.  Returns the container after host_unique.  The list
// stays the caller's.
word assemble_container(const callback_table& cbt, term_block first, word ring,
                        std::int32_t characteristic) noexcept;

// Copies every big coefficient of a container's term array (count terms of
// msize + 1 words) into one host array and points the coefficient words at
// the copies.  Returns that array, or the immediate 0 when there is none.
word copy_big_coefficients(const callback_table& cbt, const term_block& view) noexcept;

}  // namespace vorn
