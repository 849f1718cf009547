// The memory gateway, the low arena and the tracked block lists.
#include "host/memory.hpp"

#include <malloc.h>
#include <sys/mman.h>

#include <cstdlib>
#include <cstring>

#include "host/error.hpp"

namespace vorn {

namespace {

std::int64_t live_blocks = 0;
std::int64_t allocations = 0;
std::int64_t fail_countdown = 0;
std::int64_t bytes_now = 0;
std::int64_t bytes_peak = 0;

void count_taken(std::size_t bytes) noexcept {
  bytes_now += static_cast<std::int64_t>(bytes);
  if (bytes_now > bytes_peak) bytes_peak = bytes_now;
}
void count_released(std::size_t bytes) noexcept { bytes_now -= static_cast<std::int64_t>(bytes); }

// True when this allocation is the one a test asked to fail.
bool injected_failure() {
  ++allocations;
  if (fail_countdown > 0 && --fail_countdown == 0) return true;
  return false;
}

#if UINTPTR_MAX > 0xffffffffu
// LP64: every low block is its own mapping below 4 GiB, with its size in the
// first 8 bytes so that it can be unmapped.  Blocks are few per call (stream
// arrays, key buffers, pool chunks), so one mapping each costs little.
constexpr std::size_t low_header = 16;

#if defined(__SANITIZE_ADDRESS__)
constexpr std::uintptr_t low_limit = 0x7fff0000u;  // ASan's shadow starts above
#else
constexpr std::uintptr_t low_limit = 0xffffffffu;
#endif

void* map_low(std::size_t bytes) {
  // Above the host window first, then wherever the kernel finds room in the
  // first 2 GiB.
  static const std::uintptr_t hints[] = {0x60000000u, 0x80000000u};
  for (std::uintptr_t hint : hints) {
    if (hint + bytes > low_limit) continue;
    void* p = mmap(reinterpret_cast<void*>(hint), bytes, PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (p == MAP_FAILED) continue;
    if (reinterpret_cast<std::uintptr_t>(p) + bytes <= low_limit) return p;
    munmap(p, bytes);
  }
  void* p = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_32BIT, -1, 0);
  if (p == MAP_FAILED) return nullptr;
  if (reinterpret_cast<std::uintptr_t>(p) + bytes > low_limit) {
    munmap(p, bytes);
    return nullptr;
  }
  return p;
}

void* low_alloc(std::size_t bytes) {
  if (bytes > SIZE_MAX - low_header) return nullptr;
  const std::size_t total = bytes + low_header;
  auto* block = static_cast<unsigned char*>(map_low(total));
  if (block == nullptr) return nullptr;
  std::memcpy(block, &total, sizeof total);
  count_taken(total);
  return block + low_header;
}

void low_free(void* p) {
  auto* block = static_cast<unsigned char*>(p) - low_header;
  std::size_t total = 0;
  std::memcpy(&total, block, sizeof total);
  count_released(total);
  munmap(block, total);
}
#else
void* low_alloc(std::size_t bytes) {
  void* p = std::malloc(bytes);
  if (p != nullptr) count_taken(malloc_usable_size(p));
  return p;
}
void low_free(void* p) {
  count_released(malloc_usable_size(p));
  std::free(p);
}
#endif

}  // namespace

gateway_counts gateway_state() noexcept { return {live_blocks, allocations}; }

gateway_bytes gateway_byte_counts() noexcept { return {bytes_now, bytes_peak}; }

void gateway_reset_peak() noexcept { bytes_peak = bytes_now; }

void gateway_fail_at(std::int64_t n) noexcept { fail_countdown = n; }

void* gateway_malloc(std::size_t bytes) noexcept {
  if (injected_failure()) return nullptr;
  void* p = std::malloc(bytes == 0 ? 1 : bytes);
  if (p != nullptr) {
    ++live_blocks;
    count_taken(malloc_usable_size(p));
  }
  return p;
}

void gateway_free(void* block) noexcept {
  if (block == nullptr) return;
  --live_blocks;
  count_released(malloc_usable_size(block));
  std::free(block);
}

void* gateway_malloc_low(std::size_t bytes) noexcept {
  if (injected_failure()) return nullptr;
  void* p = low_alloc(bytes == 0 ? 1 : bytes);
  if (p != nullptr) ++live_blocks;
  return p;
}

void gateway_free_low(void* block) noexcept {
  if (block == nullptr) return;
  --live_blocks;
  low_free(block);
}

void* tracked_alloc(void** head, std::size_t bytes) noexcept {
  if (bytes > SIZE_MAX - tracked_header_bytes) return nullptr;
  auto* block = static_cast<unsigned char*>(gateway_malloc_low(bytes + tracked_header_bytes));
  if (block == nullptr) return nullptr;
  std::memcpy(block, head, sizeof(void*));
  *head = block;
  return block + tracked_header_bytes;
}

void free_tracked(void** head) noexcept {
  void* block = *head;
  *head = nullptr;
  while (block != nullptr) {
    void* older = nullptr;
    std::memcpy(&older, block, sizeof(void*));
    gateway_free_low(block);
    block = older;
  }
}

void free_term_blocks(term_block* first) noexcept {
  while (first != nullptr) {
    term_block* next = first->next;
    gateway_free(first);
    first = next;
  }
}

std::size_t checked_bytes(std::size_t count, std::size_t size) {
  if (size != 0 && count > SIZE_MAX / size) fail("out of memory");
  return count * size;
}

void* tracked_list::take(std::size_t count, std::size_t size) {
  void* p = tracked_alloc(&head, checked_bytes(count, size));
  if (p == nullptr) fail("out of memory");
  return p;
}

void* gateway_take(std::size_t count, std::size_t size) {
  void* p = gateway_malloc(checked_bytes(count, size));
  if (p == nullptr) fail("out of memory");
  return p;
}

}  // namespace vorn
