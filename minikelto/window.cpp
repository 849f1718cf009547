// The object window's block allocator: exact-size free lists for small
// blocks, one first-fit list for large ones, a bump top for the rest.  Free
// blocks are found again only by sweep(), which rebuilds every list while it
// walks the window in address order and merges neighbours.
#include "minikelto/window.hpp"

#include <sys/mman.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#include <sanitizer/lsan_interface.h>
#define MINIKELTO_POISON(p, n) ASAN_POISON_MEMORY_REGION(p, n)
#define MINIKELTO_UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION(p, n)
#else
#define MINIKELTO_POISON(p, n) ((void)(p), (void)(n))
#define MINIKELTO_UNPOISON(p, n) ((void)(p), (void)(n))
#endif

namespace minikelto::detail {

namespace {

constexpr word size_mask = 0x1fffffffu;
constexpr word free_bit = 0x40000000u;
constexpr word mark_bit = 0x80000000u;
constexpr std::size_t header_words = 2;
constexpr std::size_t small_limit = 512;  // largest block, in words, with an exact list
constexpr std::size_t commit_step = std::size_t{4} << 20;

struct window {
  char* base = nullptr;
  std::size_t reserved = 0;
  std::size_t committed = 0;
  std::size_t top = 0;    // bytes from base
  std::size_t dirty = 0;  // bytes from base ever handed out; above it the pages are still zero
  std::size_t in_use = 0;
  std::size_t blocks = 0;
  word small[small_limit / 2 + 1] = {};  // heads by size / 2; 0 = empty
  word large = 0;
};

window the_window;

bool try_reserve(std::uintptr_t hint, std::size_t bytes, bool fixed) noexcept {
  int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;
  if (fixed) flags |= MAP_FIXED_NOREPLACE;
  void* p = mmap(reinterpret_cast<void*>(hint), bytes, PROT_NONE, flags, -1, 0);
  if (p == MAP_FAILED) return false;
  // Kernels (and valgrind) that ignore the flag treat the address as a hint.
  if (fixed && reinterpret_cast<std::uintptr_t>(p) != hint) {
    munmap(p, bytes);
    return false;
  }
  the_window.base = static_cast<char*>(p);
  the_window.reserved = bytes;
  return true;
}

void reserve() noexcept {
  if (the_window.base != nullptr) return;
#if UINTPTR_MAX > 0xffffffffu
  // Below the library's own low arena (0x60000000 and up) and below 2 GiB,
  // which AddressSanitizer leaves to the program.
  constexpr std::uintptr_t low = 0x10000000u;
  constexpr std::uintptr_t high = 0x60000000u;
  for (std::uintptr_t hint = low; hint + (std::uintptr_t{64} << 20) <= high; hint += 0x4000000u) {
    if (try_reserve(hint, high - hint, true)) break;
  }
#else
  for (std::size_t bytes = std::size_t{1} << 30; bytes >= (std::size_t{64} << 20); bytes /= 2) {
    if (try_reserve(0, bytes, false)) break;
  }
#endif
  if (the_window.base == nullptr) fatal("cannot reserve the object window: %s", std::strerror(errno));
#if defined(__SANITIZE_ADDRESS__)
  __lsan_register_root_region(the_window.base, the_window.reserved);
#endif
}

word* block_at(std::size_t offset) noexcept {
  return reinterpret_cast<word*>(the_window.base + offset);
}

// Links a free block of `words` words into its list and poisons its payload.
void push_free(word* block, std::size_t words) noexcept {
  MINIKELTO_UNPOISON(block, header_words * sizeof(word));
  block[0] = static_cast<word>(words) | free_bit;
  word& head = words <= small_limit ? the_window.small[words / 2] : the_window.large;
  block[1] = head;
  head = word_of(block);
  MINIKELTO_POISON(block + header_words, (words - header_words) * sizeof(word));
}

void grow_to(std::size_t top) noexcept {
  if (top > the_window.reserved) {
    fatal("object window exhausted: %zu bytes in use of %zu", the_window.in_use, the_window.reserved);
  }
  if (top <= the_window.committed) return;
  std::size_t target = (top + commit_step - 1) / commit_step * commit_step;
  if (target > the_window.reserved) target = the_window.reserved;
  char* from = the_window.base + the_window.committed;
  if (mprotect(from, target - the_window.committed, PROT_READ | PROT_WRITE) != 0) {
    fatal("cannot commit object memory: %s", std::strerror(errno));
  }
  MINIKELTO_POISON(from, target - the_window.committed);
  the_window.committed = target;
}

// Takes a block of at least `words` words from the large list, splitting off the rest.
word* take_large(std::size_t words) noexcept {
  word* previous = nullptr;
  for (word w = the_window.large; w != 0;) {
    word* block = address_of(w);
    const std::size_t size = block[0] & size_mask;
    if (size >= words) {
      (previous != nullptr ? previous[1] : the_window.large) = block[1];
      if (size - words >= header_words) {
        push_free(block + words, size - words);
      } else {
        words = size;
      }
      block[0] = static_cast<word>(words);
      return block;
    }
    previous = block;
    w = block[1];
  }
  return nullptr;
}

}  // namespace

void fatal(const char* format, ...) noexcept {
  std::fputs("minikelto: ", stderr);
  va_list args;
  va_start(args, format);
  std::vfprintf(stderr, format, args);
  va_end(args);
  std::fputc('\n', stderr);
  std::abort();
}

word* allocate_block(std::size_t payload_words) noexcept {
  reserve();
  std::size_t words = (payload_words + header_words + 1) & ~std::size_t{1};
  if (words > size_mask) fatal("object of %zu words is too large", payload_words);
  word* block = nullptr;
  if (words <= small_limit && the_window.small[words / 2] != 0) {
    block = address_of(the_window.small[words / 2]);
    the_window.small[words / 2] = block[1];
    block[0] = static_cast<word>(words);
  } else {
    block = take_large(words);
  }
  if (block == nullptr) {
    grow_to(the_window.top + words * sizeof(word));
    block = block_at(the_window.top);
    the_window.top += words * sizeof(word);
    MINIKELTO_UNPOISON(block, header_words * sizeof(word));
    block[0] = static_cast<word>(words);
  }
  block[1] = 0;
  word* payload = block + header_words;
  const std::size_t payload_bytes = ((block[0] & size_mask) - header_words) * sizeof(word);
  MINIKELTO_UNPOISON(payload, payload_bytes);
  // Pages never handed out before are zero already; not touching them keeps
  // a large array's untouched tail out of memory.
  const std::size_t from = static_cast<std::size_t>(reinterpret_cast<char*>(payload) - the_window.base);
  if (from < the_window.dirty) std::memset(payload, 0, std::min(payload_bytes, the_window.dirty - from));
  if (from + payload_bytes > the_window.dirty) the_window.dirty = from + payload_bytes;
  the_window.in_use += (block[0] & size_mask) * sizeof(word);
  ++the_window.blocks;
  return payload;
}

bool in_window(word w) noexcept {
  const char* p = reinterpret_cast<const char*>(address_of(w));
  return the_window.base != nullptr && (w & 7u) == 0 && p >= the_window.base + header_words * sizeof(word) &&
         p < the_window.base + the_window.top;
}

std::size_t sweep() noexcept {
  if (the_window.base == nullptr) return 0;
  const std::size_t before = the_window.in_use;
  for (word& head : the_window.small) head = 0;
  the_window.large = 0;
  the_window.in_use = 0;
  the_window.blocks = 0;
  std::size_t offset = 0;
  std::size_t run_start = 0;
  std::size_t run_words = 0;  // free words gathered since run_start
  while (offset < the_window.top) {
    word* block = block_at(offset);
    const std::size_t size = block[0] & size_mask;
    const bool live = (block[0] & (free_bit | mark_bit)) == mark_bit;
    if (live) {
      block[0] &= ~mark_bit;
      the_window.in_use += size * sizeof(word);
      ++the_window.blocks;
      if (run_words != 0) push_free(block_at(run_start), run_words);
      run_words = 0;
    } else {
      if (run_words == 0) run_start = offset;
      run_words += size;
    }
    offset += size * sizeof(word);
  }
  if (run_words != 0) {
    // A free tail gives its space back to the top.
    MINIKELTO_POISON(block_at(run_start), run_words * sizeof(word));
    the_window.top = run_start;
  }
  return before - the_window.in_use;
}

void clear_marks() noexcept {
  for (std::size_t offset = 0; offset < the_window.top;) {
    word* block = block_at(offset);
    block[0] &= ~mark_bit;
    offset += (block[0] & size_mask) * sizeof(word);
  }
}

void release_all() noexcept {
  if (the_window.base == nullptr) return;
  for (word& head : the_window.small) head = 0;
  the_window.large = 0;
  MINIKELTO_POISON(the_window.base, the_window.committed);
  the_window.top = 0;
  the_window.in_use = 0;
  the_window.blocks = 0;
}

window_stats stats() noexcept {
  reserve();
  return {reinterpret_cast<std::uintptr_t>(the_window.base), the_window.reserved, the_window.committed,
          the_window.top, the_window.in_use, the_window.blocks};
}

}  // namespace minikelto::detail
