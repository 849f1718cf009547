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

// Every gateway block starts with its size and how it was obtained: term
// blocks of several MiB get their own mapping, aligned and marked for huge
// pages, since faulting in fresh 4 KiB pages cost about as much as writing
// the terms; smaller blocks come from malloc.
struct block_header {
  std::uint64_t bytes;  // as counted
  std::uint64_t mapped;
};
static_assert(sizeof(block_header) == 16);

constexpr std::size_t huge_page = std::size_t{2} << 20;
constexpr std::size_t mapped_from = 2 * huge_page;

void* map_aligned(std::size_t bytes, std::size_t* length) noexcept {
  const std::size_t page = 4096;
  if (bytes > SIZE_MAX - 2 * huge_page) return nullptr;
  *length = (bytes + page - 1) / page * page;
  void* raw = mmap(nullptr, *length + huge_page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (raw == MAP_FAILED) return nullptr;
  const auto from = reinterpret_cast<std::uintptr_t>(raw);
  const std::uintptr_t start = (from + huge_page - 1) & ~(huge_page - 1);
  if (start != from) munmap(raw, start - from);
  if (start - from != huge_page) munmap(reinterpret_cast<void*>(start + *length), huge_page - (start - from));
  void* p = reinterpret_cast<void*>(start);
#if defined(MADV_HUGEPAGE)
  madvise(p, *length, MADV_HUGEPAGE);  // a hint: kernels without huge pages ignore or refuse it
#endif
  return p;
}

}  // namespace

gateway_counts gateway_state() noexcept { return {live_blocks, allocations}; }

gateway_bytes gateway_byte_counts() noexcept { return {bytes_now, bytes_peak}; }

void gateway_reset_peak() noexcept { bytes_peak = bytes_now; }

void gateway_fail_at(std::int64_t n) noexcept { fail_countdown = n; }

void* gateway_malloc(std::size_t bytes) noexcept {
  if (injected_failure()) return nullptr;
  if (bytes > SIZE_MAX - sizeof(block_header)) return nullptr;
  const std::size_t total = sizeof(block_header) + bytes;
  block_header header{};
  void* raw = nullptr;
  if (total >= mapped_from) {
    std::size_t length = 0;
    raw = map_aligned(total, &length);
    header.bytes = length;
    header.mapped = 1;
  }
  if (raw == nullptr) {
    raw = std::malloc(total);
    if (raw == nullptr) return nullptr;
    header.bytes = malloc_usable_size(raw);
    header.mapped = 0;
  }
  std::memcpy(raw, &header, sizeof header);
  ++live_blocks;
  count_taken(static_cast<std::size_t>(header.bytes));
  return static_cast<unsigned char*>(raw) + sizeof header;
}

void gateway_free(void* block) noexcept {
  if (block == nullptr) return;
  --live_blocks;
  void* raw = static_cast<unsigned char*>(block) - sizeof(block_header);
  block_header header{};
  std::memcpy(&header, raw, sizeof header);
  count_released(static_cast<std::size_t>(header.bytes));
  if (header.mapped != 0) {
    munmap(raw, static_cast<std::size_t>(header.bytes));
  } else {
    std::free(raw);
  }
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
