// The container of a packed polynomial in the host: the call
// VORN(count, ring, layout, terms, big-integer block).
//
// Slot 1 is the term count as an immediate, slot 2 the order argument the
// polynomial was made with (identity of that handle is identity of the ring),
// slot 3 a host array holding the layout record, slot 4 a host array of
// (msize + 1) * count words (the terms in decreasing order), slot 5 the
// immediate 0 or the host array of big-integer records the coefficient words
// point into.  Containers are written only by the call that creates them.
#pragma once

#include <cstdint>

#include "host/callbacks.hpp"

namespace vorn {

// A container of n zeroed terms in `ring`, with a copy of the layout record;
// slot 5 is the immediate 0.  Not yet made unique.
word new_container(const callback_table& cbt, word ring, std::int32_t n, const word* layout) noexcept;

// A view of the container's terms (next is null), valid while it lives.
term_block read_container(const callback_table& cbt, word container) noexcept;

// Shrinks a container made in this call to m terms, in place: slot 1 and the
// element count of its term array.  Returns the container.
word set_term_count(const callback_table& cbt, word container, std::int32_t m) noexcept;

// True when h is a call VORN(...) of five arguments.
bool is_container(const callback_table& cbt, word h) noexcept;

// Slot i (1 ... 5) of a container.
inline word container_slot(word container, std::int32_t i) noexcept {
  return object_word(object_word(container, 2), i);
}
inline word container_ring(word container) noexcept { return container_slot(container, 2); }
inline word container_big_block(word container) noexcept { return container_slot(container, 5); }
// Stores slot 5 in place; only on a container made in this call.
inline void set_container_big_block(word container, word block) noexcept {
  object_words(object_word(container, 2))[5] = block;
}

// Element count a host array made by the library records (its words 6 and 8).
inline std::int32_t host_array_length(word array) noexcept {
  return static_cast<std::int32_t>(object_words(array)[6]);
}

// Same ring: one and the same order argument.
inline bool same_ring(word A, word B) noexcept { return container_ring(A) == container_ring(B); }

// Packed alike: equal shift words and equal msize.  Equal shifts alone are
// not enough: packs 7 and 8 share a shift, not always the msize.
inline bool packed_alike(const word* layout_a, const word* layout_b) noexcept {
  return layout_a[0] == layout_b[0] && layout_a[1] == layout_b[1];
}

}  // namespace vorn
