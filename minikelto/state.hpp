// The host's global state (one host per process) and the unique table's
// internals shared by the object, callback and memory files.
//
// Invariant: every object in the unique table has bit 25 of its header set
// and sits in exactly one slot, with its hash beside it; the table is at most
// half full, and every slot between an entry's home slot (its hash modulo the
// table size) and the slot it sits in is occupied.
#pragma once

#include <csetjmp>
#include <csignal>
#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "minikelto/host.hpp"

namespace minikelto::detail {

inline constexpr word unique_bit = 0x02000000u;
inline constexpr std::size_t initial_unique_slots = 1024;  // a power of two
inline constexpr std::uint32_t work_per_poll = 1u << 16;

// A slot of the unique table; handle 0 when empty.  The stored hash lets a
// probe pass over other entries, and the table grow, without reading objects.
struct unique_slot {
  std::uint32_t hash = 0;
  word handle = 0;
};

struct host_state {
  std::vector<unique_slot> unique_slots;  // open addressing, linear probing
  std::size_t unique_count = 0;
  std::unordered_map<word, word> variables;
  std::map<std::string, word, std::less<>> levels;
  std::unordered_map<word, std::int64_t> roots;
  word true_handle = 0;
  word false_handle = 0;
  evaluator_fn evaluator = nullptr;
  bool capturing = false;
  std::string output;
  std::int64_t interrupt_at = 0;  // 0: no countdown
  std::int64_t polls = 0;
  bool interrupt_answered = false;
  std::uint32_t work_to_poll = work_per_poll;  // units of host work before the next poll
  std::string error;
  std::jmp_buf* active_jump = nullptr;
  int entry_depth = 0;
};

host_state& state() noexcept;

// Set from signal handlers, so kept outside the state record: 0 none,
// 1 requested and not yet seen by a poll, 2 seen by a poll.
extern volatile std::sig_atomic_t interrupt_requested;

// Drops every unmarked object from the unique table (before a sweep).
void drop_unmarked_from_unique_table() noexcept;
// Creates the boolean singletons after a reset.
void make_booleans();

}  // namespace minikelto::detail
