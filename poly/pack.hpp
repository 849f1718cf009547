// The packed monomial encoding: the packing layout record, the pack and unpack
// routines of the three monomial orders, and the layout built from an order.
//
// A monomial is `msize` words of `shift`-bit fields, filled from the top bit of
// each word down; the low 32 mod shift bits of a word stay zero.  The layout
// record is msize + 2 words: msize, the shift word (bit 31 marks tdeg) and
// msize copies of the guard mask.
//
// Invariant of every stored monomial: each field is below 2^(shift - 1), so no
// guard bit is set, every word is below 2^31 and a word difference fits a
// signed 32-bit integer.  Adding two such monomials never carries between
// fields; a guard bit set after a subtraction means some field borrowed.
#pragma once

#include <cstdint>
#include <memory>

#include "host/callbacks.hpp"
#include "host/memory.hpp"

namespace vorn {

enum class monomial_order { plex, grlex, tdeg };

inline constexpr word tdeg_flag = 0x80000000u;

// Field width of a pack request (1 ... 32).
constexpr int pack_shift(int pack) noexcept { return 32 / pack; }

// Bit 31 and every bit 31 - k*shift above position 0.
constexpr word guard_mask(int shift) noexcept {
  word mask = 0;
  for (int position = 31; position > 0; position -= shift) mask |= word{1} << position;
  return mask;
}

// Words of one monomial of n variables; computed from pack, not from the
// fields that fit a word (pack 7 still packs eight 4-bit fields per word).
constexpr int layout_msize(monomial_order order, int n, int pack) noexcept {
  switch (order) {
    case monomial_order::plex: return (n + pack - 1) / pack;
    case monomial_order::grlex: return (n + pack) / pack;
    case monomial_order::tdeg: return (n + pack - 1) / pack + 1;
  }
  return 0;
}

static_assert(guard_mask(32) == 0x80000000u && guard_mask(10) == 0x80200802u);
static_assert(guard_mask(4) == 0x88888888u && guard_mask(1) == 0xfffffffeu);

// Reading a layout record.
inline int layout_msize(const word* layout) noexcept { return static_cast<int>(layout[0]); }
inline int layout_shift(const word* layout) noexcept { return static_cast<int>(layout[1] & ~tdeg_flag); }
inline bool layout_is_tdeg(const word* layout) noexcept { return (layout[1] & tdeg_flag) != 0; }
// The guard mask; 0 for a layout of no words (plex in no variables).
inline word layout_guard(const word* layout) noexcept { return layout[0] > 0 ? layout[2] : 0; }
inline constexpr int layout_words(int msize) noexcept { return msize + 2; }

// OR the encoding of exponents e1 ... en into msize zeroed words.  Nothing is
// masked: an exponent of 2^shift or more runs into the neighbouring field.
using pack_routine = void (*)(word* dest, const std::uint32_t* exponents, int n, int shift);
// Write e1 ... en of a packed monomial.
using unpack_routine = void (*)(const word* source, std::uint32_t* exponents, int n, int shift);

void pack_plex(word* dest, const std::uint32_t* exponents, int n, int shift) noexcept;
void pack_grlex(word* dest, const std::uint32_t* exponents, int n, int shift) noexcept;
void pack_tdeg(word* dest, const std::uint32_t* exponents, int n, int shift) noexcept;
void unpack_plex(const word* source, std::uint32_t* exponents, int n, int shift) noexcept;
void unpack_grlex(const word* source, std::uint32_t* exponents, int n, int shift) noexcept;
void unpack_tdeg(const word* source, std::uint32_t* exponents, int n, int shift) noexcept;

struct gateway_deleter {
  void operator()(void* block) const noexcept { gateway_free(block); }
};
// A layout record owned by the call that built it.
using layout_owner = std::unique_ptr<word[], gateway_deleter>;

struct packing {
  layout_owner layout;
  word variables;  // the order argument's SEQ of ring variables
  monomial_order order;
  pack_routine pack;
};

// The layout of an order argument such as tdeg(x, y, z) for a pack of 1 ... 32.
// Raises "monomial order not supported" and "out of memory".
packing make_layout(const callback_table& cbt, word order_argument, int pack);

struct unpacking {
  word variables;
  monomial_order order;
  unpack_routine unpack;
};

// The variables and unpack routine of an order argument (a container's ring).
// Raises "monomial order not supported".
unpacking order_unpacker(const callback_table& cbt, word order_argument);

// The order named by an order argument; raises "monomial order not supported".
monomial_order select_order(const callback_table& cbt, word order_argument);

pack_routine pack_routine_of(monomial_order order) noexcept;
unpack_routine unpack_routine_of(monomial_order order) noexcept;

}  // namespace vorn
