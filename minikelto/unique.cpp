// The unique table: hash-consing of host objects, and the interning of names,
// in one open-addressing table of (hash, handle) slots.
//
// Objects are compared by type and words once their children are canonical,
// so equality of child handles is equality of children.  Integers compare by
// value (their _mp_d words differ), names by text.  The table holds its
// entries weakly: collect() drops the unreachable ones before it frees them.
#include <cstring>
#include <utility>

#include "minikelto/state.hpp"
#include "minikelto/window.hpp"

namespace minikelto {

using detail::address_of;
using detail::host_state;
using detail::state;
using detail::unique_slot;

namespace {

// One multiply and one shift per word; the final mix brings every bit down
// into the low bits that pick the slot.
struct hasher {
  std::uint64_t h;

  explicit hasher(std::int32_t type) noexcept : h(0x9e3779b97f4a7c15ull ^ static_cast<word>(type)) {}
  void add(word w) noexcept {
    h = (h ^ w) * 0xff51afd7ed558ccdull;
    h ^= h >> 32;
  }
  std::uint32_t result() const noexcept {
    std::uint64_t r = h * 0xc4ceb9fe1a85ec53ull;
    r ^= r >> 29;
    return static_cast<std::uint32_t>(r);
  }
};

std::uint32_t hash_text(std::int32_t type, std::string_view text) noexcept {
  hasher hash(type);
  for (const char c : text) hash.add(static_cast<unsigned char>(c));
  return hash.result();
}

bool is_big(std::int32_t type) noexcept { return type == intpos || type == intneg; }

std::int32_t limb_count(const word* w) noexcept {
  const auto size = static_cast<std::int32_t>(w[2]);
  return size < 0 ? -size : size;
}

std::uint32_t hash_object(word h) noexcept {
  const std::int32_t type = type_of(h);
  if (type == name || type == nameref) return hash_text(type, name_text(h));
  const word* w = address_of(h);
  hasher hash(type);
  if (is_big(type)) {
    const word* limbs = address_of(w[3]);
    for (std::int32_t i = 0; i < limb_count(w); ++i) hash.add(limbs[i]);
    return hash.result();
  }
  const std::int32_t length = length_of(h);
  hash.add(static_cast<word>(length));
  for (std::int32_t i = 1; i < length; ++i) hash.add(w[i]);
  return hash.result();
}

bool same_object(word a, word b) noexcept {
  const std::int32_t type = type_of(a);
  if (type != type_of(b)) return false;
  if (type == name || type == nameref) return name_text(a) == name_text(b);
  const word* wa = address_of(a);
  const word* wb = address_of(b);
  if (is_big(type)) {
    return wa[2] == wb[2] &&
           std::memcmp(address_of(wa[3]), address_of(wb[3]), sizeof(word) * static_cast<std::size_t>(limb_count(wa))) == 0;
  }
  if (((wa[0] ^ wb[0]) & ~detail::unique_bit) != 0) return false;
  return std::memcmp(wa + 1, wb + 1, sizeof(word) * static_cast<std::size_t>(length_of(a) - 1)) == 0;
}

// The slot of the entry with this hash for which equal(handle) holds, else
// the empty slot where such an entry belongs.
template <typename Equal>
unique_slot& find_slot(host_state& s, std::uint32_t hash, Equal equal) noexcept {
  const std::size_t mask = s.unique_slots.size() - 1;
  for (std::size_t i = hash & mask;; i = (i + 1) & mask) {
    unique_slot& slot = s.unique_slots[i];
    if (slot.handle == 0 || (slot.hash == hash && equal(slot.handle))) return slot;
  }
}

// Puts an entry into the first empty slot from its home.
void place(std::vector<unique_slot>& slots, unique_slot entry) noexcept {
  const std::size_t mask = slots.size() - 1;
  std::size_t i = entry.hash & mask;
  while (slots[i].handle != 0) i = (i + 1) & mask;
  slots[i] = entry;
}

// Makes room for `count` entries at most half full; true when the slots moved.
bool reserve(host_state& s, std::size_t count) {
  std::size_t size = s.unique_slots.size();
  while (2 * count > size) size *= 2;
  if (size == s.unique_slots.size()) return false;
  std::vector<unique_slot> old(size);
  old.swap(s.unique_slots);
  for (const unique_slot& entry : old) {
    if (entry.handle != 0) place(s.unique_slots, entry);
  }
  return true;
}

// Enters h into the empty slot found for it (found again if the table grew).
void insert(host_state& s, unique_slot* slot, word h, std::uint32_t hash) {
  if (reserve(s, s.unique_count + 1)) slot = &find_slot(s, hash, [](word) { return false; });
  *slot = {hash, h};
  address_of(h)[0] |= detail::unique_bit;
  ++s.unique_count;
}

// The table's entry equal to h, or h itself once inserted.
word intern(word h, std::uint32_t hash) {
  host_state& s = state();
  unique_slot& slot = find_slot(s, hash, [h](word e) { return same_object(e, h); });
  if (slot.handle != 0) return slot.handle;
  insert(s, &slot, h, hash);
  return h;
}

word intern_name(std::int32_t type, std::string_view text) {
  host_state& s = state();
  const std::uint32_t hash = hash_text(type, text);
  unique_slot& slot = find_slot(s, hash, [&](word e) { return type_of(e) == type && name_text(e) == text; });
  if (slot.handle != 0) return slot.handle;
  const auto bytes = static_cast<std::int32_t>(text.size());
  const word h = new_object(2 + (bytes + 1 + 3) / 4, type);
  address_of(h)[1] = static_cast<word>(bytes);
  std::memcpy(address_of(h) + 2, text.data(), text.size());
  insert(s, &slot, h, hash);
  return h;
}

bool is_composite(std::int32_t type) noexcept {
  return type == sum || type == prod || type == funcall || type == equality || type == seq;
}

bool is_unique(word h) noexcept { return is_immediate(h) || (address_of(h)[0] & detail::unique_bit) != 0; }

// What unique(h) has left to do once h's children are unique: nothing (the
// handle h stands for is known), or look h up in the table.
struct prepared {
  word handle;
  bool look_up;
};

void make_children_unique(word* w, std::int32_t length);

prepared prepare(word h) {
  const std::int32_t type = type_of(h);
  word* w = address_of(h);
  if (is_big(type)) {
    if (limb_count(w) <= 1) {
      // A big integer holding a small value still reads as an immediate.
      const std::int64_t magnitude = limb_count(w) == 0 ? 0 : address_of(w[3])[0];
      const std::int64_t v = type == intneg ? -magnitude : magnitude;
      if (fits_immediate(v)) return {make_immediate(static_cast<std::int32_t>(v)), false};
    }
    return {h, true};
  }
  if (!is_composite(type)) return {h, false};  // arrays and the host's private kinds are leaves
  const std::int32_t length = length_of(h);
  make_children_unique(w, length);
  if (type == prod && length == 1) return {make_immediate(1), false};
  if (type == sum) {
    // The empty product came back as 1: (1, c) is the constant c, written as
    // the canonical pair (c, 1).
    for (std::int32_t i = 1; i + 1 < length; i += 2)
      if (w[i] == make_immediate(1)) std::swap(w[i], w[i + 1]);
  }
  if (length == 3 && w[2] == make_immediate(1) && (type == prod || type == sum)) return {w[1], false};
  return {h, true};
}

// Makes the handles w[1] ... w[length - 1] unique, a chunk at a time: first
// each child's own children and hash, prefetching its home slot, then the
// lookups, so that a large SUM of fresh products waits for memory about once
// per chunk rather than once per child.
void make_children_unique(word* w, std::int32_t length) {
  constexpr std::int32_t chunk = 16;
  struct pending {
    std::int32_t index;
    std::uint32_t hash;
  };
  host_state& s = state();
  for (std::int32_t from = 1; from < length; from += chunk) {
    // Only long objects count (a product's few children are not worth a
    // call).  Throwing here leaves h half made unique, which is harmless: h
    // is fresh and dropped, and every entry already in the table is complete.
    if (length > chunk) count_work(chunk);
    pending lookups[chunk];
    std::int32_t count = 0;
    for (std::int32_t i = from; i < length && i < from + chunk; ++i) {
      if (w[i] == 0 || is_unique(w[i])) continue;
      const prepared child = prepare(w[i]);
      w[i] = child.handle;
      if (!child.look_up) continue;
      const std::uint32_t hash = hash_object(child.handle);
      __builtin_prefetch(&s.unique_slots[hash & (s.unique_slots.size() - 1)]);
      lookups[count++] = {i, hash};
    }
    // A child met twice in one chunk is entered the first time and found the second.
    for (std::int32_t k = 0; k < count; ++k) w[lookups[k].index] = intern(w[lookups[k].index], lookups[k].hash);
  }
}

}  // namespace

word make_name(std::string_view text) { return intern_name(name, text); }
word make_nameref(std::string_view text) { return intern_name(nameref, text); }

word unique(word h) {
  if (is_unique(h)) return h;
  const prepared p = prepare(h);
  return p.look_up ? intern(p.handle, hash_object(p.handle)) : p.handle;
}

void detail::drop_unmarked_from_unique_table() noexcept {
  host_state& s = state();
  std::vector<unique_slot>& slots = s.unique_slots;
  const std::size_t mask = slots.size() - 1;
  // Every entry's probe path lies within the run of occupied slots after an
  // empty one.  Walking once round from an empty slot, emptying the dead and
  // placing each survivor again, closes every gap before a survivor is placed.
  std::size_t from = 0;
  while (slots[from].handle != 0) ++from;
  for (std::size_t k = 1; k <= mask; ++k) {
    unique_slot& slot = slots[(from + k) & mask];
    if (slot.handle == 0) continue;
    const unique_slot entry = slot;
    slot = {};
    if (is_marked(address_of(entry.handle))) {
      place(slots, entry);
    } else {
      --s.unique_count;
    }
  }
}

}  // namespace minikelto
