// Host words: handles, object headers and the one place where a word and a
// native pointer are converted into each other.
//
// Invariant: every address the library stores in a word lies below 4 GiB (the
// host keeps its objects there; the library's tracked blocks come from its own
// low arena on LP64), so a word always holds a whole address.
#pragma once

#include <cassert>
#include <cstdint>

#include "vorn.h"

namespace vorn {

using word = vorn_word;
using callback_table = vorn_callback_table;
using term_block = vorn_term_block;

inline constexpr std::int32_t max_immediate = 0x3fffffff;
inline constexpr std::int32_t min_immediate = -0x40000000;
inline constexpr word immediate_zero = VORN_IMMEDIATE_ZERO;
inline constexpr word immediate_one = VORN_IMMEDIATE_ONE;

enum type_id : std::int32_t {
  intneg = VORN_INTNEG,
  intpos = VORN_INTPOS,
  name = VORN_NAME,
  nameref = VORN_NAMEREF,
  prod = VORN_PROD,
  sum = VORN_SUM,
  funcall = VORN_FUNCALL,
  equality = VORN_EQUALITY,
};

constexpr bool is_immediate(word h) noexcept { return (h & 1u) != 0; }

// Arithmetic shift: the sign of the stored value survives.
constexpr std::int32_t immediate_value(word h) noexcept {
  return static_cast<std::int32_t>(h) >> 1;
}

// v must lie in min_immediate ... max_immediate.
constexpr word make_immediate(std::int32_t v) noexcept {
  return static_cast<word>(v) * 2u + 1u;
}

// Ids of 32 and more come out negative and match no known id.
constexpr std::int32_t header_type(word header) noexcept {
  return static_cast<std::int32_t>(header) >> 26;
}

constexpr std::int32_t header_length(word header) noexcept {
  return static_cast<std::int32_t>(header & 0x1ffffffu);
}

// The only conversions between words and native pointers.
template <class T = word>
inline T* word_to_pointer(word w) noexcept {
  return reinterpret_cast<T*>(static_cast<std::uintptr_t>(w));
}

inline word pointer_to_word(const void* p) noexcept {
  const auto address = reinterpret_cast<std::uintptr_t>(p);
  assert(address <= 0xffffffffu && "address above 4 GiB cannot be held in a host word");
  return static_cast<word>(address);
}

// Object access; h must not be an immediate.
inline word* object_words(word h) noexcept { return word_to_pointer(h); }
inline std::int32_t object_type(word h) noexcept { return header_type(object_words(h)[0]); }
inline std::int32_t object_length(word h) noexcept { return header_length(object_words(h)[0]); }

// Type id of any handle; immediates have none (-1 matches no id).
inline std::int32_t handle_type(word h) noexcept {
  return is_immediate(h) ? -1 : object_type(h);
}

inline bool is_name(word h) noexcept {
  const std::int32_t t = handle_type(h);
  return t == name || t == nameref;
}

inline bool is_big_integer(word h) noexcept {
  const std::int32_t t = handle_type(h);
  return t == intpos || t == intneg;
}

// Word i of a SUM, PROD, FUNCALL, EQUALITY or SEQ (word 0 is the header).
inline word object_word(word h, std::int32_t i) noexcept { return object_words(h)[i]; }

// Number of entries of a SEQ: its length minus the header.
inline std::int32_t seq_count(word seq) noexcept { return object_length(seq) - 1; }

// Address of the GMP record (words 1 to 3) of an INTPOS or INTNEG.
inline word* integer_record(word h) noexcept { return object_words(h) + 1; }

}  // namespace vorn
