// The library's memory: one gateway for every allocation, the tracked block
// lists of an entry call, and the owners that release them on every exit.
//
// Invariant: after an entry returns or raises, the gateway holds no block of
// that call (the fraction export's pool, left on its caller's chain, aside).
// Tracked blocks come on LP64 from a low arena, so their addresses fit a word.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "host/words.hpp"

namespace vorn {

// Counts of the gateway, for tests: blocks alive now and allocations so far.
struct gateway_counts {
  std::int64_t live_blocks;
  std::int64_t allocations;
};
gateway_counts gateway_state() noexcept;

// Bytes the gateway holds now, and the most it has held since the last
// gateway_reset_peak (sizes as obtained: what malloc reports, or a mapping's
// length), for the benches.
struct gateway_bytes {
  std::int64_t current;
  std::int64_t peak;
};
gateway_bytes gateway_byte_counts() noexcept;
void gateway_reset_peak() noexcept;

// Makes the n-th allocation from now fail (n >= 1); 0 turns failing off.
void gateway_fail_at(std::int64_t n) noexcept;

// malloc and free through the gateway; null when the allocation fails.
void* gateway_malloc(std::size_t bytes) noexcept;
void gateway_free(void* block) noexcept;

// The same for memory that must lie below 4 GiB (the low arena on LP64).
void* gateway_malloc_low(std::size_t bytes) noexcept;
void gateway_free_low(void* block) noexcept;

// Links a new block of `bytes` usable bytes in front of the list at *head and
// returns its usable memory, or null (list unchanged) when allocation fails.
void* tracked_alloc(void** head, std::size_t bytes) noexcept;

// Sets *head to null and frees every block of the list, newest first.
void free_tracked(void** head) noexcept;

// Frees every record of a term-block list (each record with its terms).
void free_term_blocks(term_block* first) noexcept;

// Bytes of the tracked-block header in front of the usable memory.
inline constexpr std::size_t tracked_header_bytes = sizeof(void*) == 4 ? 4 : 16;

// Owners, so that every exit of a call releases what it took, once: none
// is copied.
struct single_owner {
  single_owner() = default;
  single_owner(const single_owner&) = delete;
  single_owner& operator=(const single_owner&) = delete;
};

struct tracked_list : single_owner {
  void* head = nullptr;
  ~tracked_list() { free_tracked(&head); }

  // Usable memory for count objects of size bytes; raises "out of memory".
  void* take(std::size_t count, std::size_t size);
};

struct term_block_list : single_owner {
  term_block* first = nullptr;
  ~term_block_list() { free_term_blocks(first); }
};

// count * size, or raises "out of memory" when it does not fit a size_t.
std::size_t checked_bytes(std::size_t count, std::size_t size);

// Allocates count objects of size bytes through the gateway or raises "out of memory".
void* gateway_take(std::size_t count, std::size_t size);

// A gateway block freed on scope exit.
template <class T>
struct gateway_array : single_owner {
  T* data = nullptr;
  ~gateway_array() { gateway_free(data); }

  // Replaces the array by one of count elements that starts with the first
  // kept elements of this one; raises "out of memory".
  void grow(std::size_t kept, std::size_t count) {
    gateway_array larger;
    larger.data = static_cast<T*>(gateway_take(count, sizeof(T)));
    if (data != nullptr) std::copy_n(data, kept, larger.data);
    std::swap(data, larger.data);  // the old array goes with the local
  }
};

}  // namespace vorn
