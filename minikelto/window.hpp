// The object window: one reservation below 4 GiB from which every host
// object and every array's data is allocated, so that a 32-bit word holds any
// address in it.  Non-moving.
//
// Blocks lie back to back from the window's base up to the allocation top,
// each two header words and its payload, 8-byte aligned:
//   word 0: block size in words (bits 0-28), free (bit 30), mark (bit 31)
//   word 1: link (next free block)
// A handle is the address of a payload.  Free payloads are poisoned under
// AddressSanitizer; the window is a LeakSanitizer root region.
#pragma once

#include <cstddef>
#include <cstdint>

#include "minikelto/host.hpp"

namespace minikelto::detail {

// Conversions between words and addresses in the window: object_words
// (host.hpp) one way, word_of the other.
inline word* address_of(word w) noexcept { return object_words(w); }
inline word word_of(const void* p) noexcept {
  return static_cast<word>(reinterpret_cast<std::uintptr_t>(p));
}

// Ends the process with "minikelto: " and the message on stderr.
[[noreturn]] void fatal(const char* format, ...) noexcept __attribute__((format(printf, 1, 2)));

// A zero-filled payload of `words` words; ends the process when the window is full.
word* allocate_block(std::size_t words) noexcept;

// True when w is the address of a payload in the allocated part of the window
// as far as alignment and bounds tell.
bool in_window(word w) noexcept;

// Sets the mark of a payload's block; false when it was already set.
inline bool mark_block(word* payload) noexcept {
  word& header = payload[-2];
  if ((header & 0x80000000u) != 0) return false;
  header |= 0x80000000u;
  return true;
}
inline bool is_marked(const word* payload) noexcept { return (payload[-2] & 0x80000000u) != 0; }

// Frees every unmarked block, clears the marks, merges neighbouring free
// blocks; returns the bytes freed.
std::size_t sweep() noexcept;

// Clears the mark of every block (after an interrupted marking).
void clear_marks() noexcept;

// Frees every block.
void release_all() noexcept;

window_stats stats() noexcept;

}  // namespace minikelto::detail
