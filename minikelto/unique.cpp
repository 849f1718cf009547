// The unique table: hash-consing of host objects, and the interning of names,
// by chains through the blocks' link words (one table, power-of-two buckets).
//
// Objects are compared by type and words once their children are canonical,
// so equality of child handles is equality of children.  Integers compare by
// value (their _mp_d words differ), names by text.  The table holds its
// entries weakly: collect() drops the unreachable ones before it frees them.
#include <cstring>

#include "minikelto/state.hpp"
#include "minikelto/window.hpp"

namespace minikelto {

using detail::address_of;
using detail::host_state;
using detail::state;

namespace {

// FNV-1a over 32-bit words.
std::uint32_t mix(std::uint32_t hash, word w) noexcept {
  for (int i = 0; i < 4; ++i) {
    hash ^= (w >> (8 * i)) & 0xffu;
    hash *= 16777619u;
  }
  return hash;
}

std::uint32_t hash_text(std::int32_t type, std::string_view text) noexcept {
  std::uint32_t hash = mix(2166136261u, static_cast<word>(type));
  for (const char c : text) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 16777619u;
  }
  return hash;
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
  std::uint32_t hash = mix(2166136261u, static_cast<word>(type));
  if (is_big(type)) {
    const word* limbs = address_of(w[3]);
    for (std::int32_t i = 0; i < limb_count(w); ++i) hash = mix(hash, limbs[i]);
    return hash;
  }
  const std::int32_t length = length_of(h);
  hash = mix(hash, static_cast<word>(length));
  for (std::int32_t i = 1; i < length; ++i) hash = mix(hash, w[i]);
  return hash;
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

word& bucket(host_state& s, std::uint32_t hash) noexcept { return s.buckets[hash & (s.buckets.size() - 1)]; }

void grow(host_state& s) {
  std::vector<word> old(s.buckets.size() * 2, 0);
  old.swap(s.buckets);
  for (word head : old) {
    while (head != 0) {
      const word next = detail::block_link(address_of(head));
      word& b = bucket(s, hash_object(head));
      detail::block_link(address_of(head)) = b;
      b = head;
      head = next;
    }
  }
}

void insert(host_state& s, word h, std::uint32_t hash) {
  if (s.unique_count >= s.buckets.size()) {
    grow(s);
  }
  word& b = bucket(s, hash);
  detail::block_link(address_of(h)) = b;
  b = h;
  address_of(h)[0] |= detail::unique_bit;
  ++s.unique_count;
}

// The table's entry equal to h, or h itself once inserted.
word intern(word h) {
  host_state& s = state();
  const std::uint32_t hash = hash_object(h);
  for (word e = bucket(s, hash); e != 0; e = detail::block_link(address_of(e))) {
    if (same_object(e, h)) return e;
  }
  insert(s, h, hash);
  return h;
}

word intern_name(std::int32_t type, std::string_view text) {
  host_state& s = state();
  const std::uint32_t hash = hash_text(type, text);
  for (word e = bucket(s, hash); e != 0; e = detail::block_link(address_of(e))) {
    if (type_of(e) == type && name_text(e) == text) return e;
  }
  const auto bytes = static_cast<std::int32_t>(text.size());
  const word h = new_object(2 + (bytes + 1 + 3) / 4, type);
  address_of(h)[1] = static_cast<word>(bytes);
  std::memcpy(address_of(h) + 2, text.data(), text.size());
  insert(s, h, hash);
  return h;
}

bool is_composite(std::int32_t type) noexcept {
  return type == sum || type == prod || type == funcall || type == equality || type == seq;
}

}  // namespace

word make_name(std::string_view text) { return intern_name(name, text); }
word make_nameref(std::string_view text) { return intern_name(nameref, text); }

word unique(word h) {
  if (is_immediate(h) || (address_of(h)[0] & detail::unique_bit) != 0) return h;
  const std::int32_t type = type_of(h);
  word* w = address_of(h);
  if (is_big(type)) {
    if (limb_count(w) <= 1) {
      // A big integer holding a small value still reads as an immediate.
      const std::int64_t magnitude = limb_count(w) == 0 ? 0 : address_of(w[3])[0];
      const std::int64_t v = type == intneg ? -magnitude : magnitude;
      if (fits_immediate(v)) return make_immediate(static_cast<std::int32_t>(v));
    }
    return intern(h);
  }
  if (!is_composite(type)) return h;  // arrays and the host's private kinds are leaves
  const std::int32_t length = length_of(h);
  for (std::int32_t i = 1; i < length; ++i) {
    if (!is_immediate(w[i]) && w[i] != 0) w[i] = unique(w[i]);
  }
  if (length == 3 && w[2] == make_immediate(1) && (type == prod || type == sum)) return w[1];
  return intern(h);
}

void detail::drop_unmarked_from_unique_table() noexcept {
  host_state& s = state();
  for (word& head : s.buckets) {
    word* link = &head;
    while (*link != 0) {
      word* object = address_of(*link);
      if (is_marked(object)) {
        link = &block_link(object);
      } else {
        *link = block_link(object);
        --s.unique_count;
      }
    }
  }
}

}  // namespace minikelto
