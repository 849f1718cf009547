// Packing and unpacking of monomials, and the layout of an order argument.
//
// Fields run from the top of word 0 downwards and continue at the top of the
// next word; a cursor walks them so that no routine divides per field.
#include "poly/pack.hpp"

#include <cassert>

#include "host/error.hpp"

namespace vorn {

namespace {

// Walks the field positions of a run of fields, word by word.
struct field_cursor {
  int word_index;
  int position;
  int shift;

  void advance() noexcept {
    position -= shift;
    if (position < 0) {
      ++word_index;
      position = 32 - shift;
    }
  }
};

constexpr word field_mask(int shift) noexcept {
  return shift >= 32 ? ~word{0} : (word{1} << shift) - 1;
}

word read_field(const word* source, const field_cursor& c) noexcept {
  return (source[c.word_index] >> c.position) & field_mask(c.shift);
}

}  // namespace

void pack_plex(word* dest, const std::uint32_t* exponents, int n, int shift) noexcept {
  field_cursor c{0, 32 - shift, shift};
  for (int i = 0; i < n; ++i, c.advance()) dest[c.word_index] |= exponents[i] << c.position;
}

void pack_grlex(word* dest, const std::uint32_t* exponents, int n, int shift) noexcept {
  field_cursor c{0, 32 - shift, shift};
  c.advance();  // the first field of word 0 holds the degree
  word degree = 0;
  for (int i = 0; i < n; ++i, c.advance()) {
    dest[c.word_index] |= exponents[i] << c.position;
    degree += exponents[i];
  }
  dest[0] |= degree << (32 - shift);
}

void pack_tdeg(word* dest, const std::uint32_t* exponents, int n, int shift) noexcept {
  if (n == 0) return;  // the single degree word is 0
  field_cursor c{1, 32 - shift, shift};
  word degree = 0;
  for (int i = n - 1; i >= 0; --i, c.advance()) {
    dest[c.word_index] |= exponents[i] << c.position;
    degree += exponents[i];
  }
  // Field k of word 0 holds the degree without the last k exponents, so word 0
  // alone decides when all n degree fields fit.
  for (int k = 0, position = 32 - shift; position >= 0 && k < n; ++k, position -= shift) {
    dest[0] |= degree << position;
    degree -= exponents[n - 1 - k];
  }
}

void unpack_plex(const word* source, std::uint32_t* exponents, int n, int shift) noexcept {
  field_cursor c{0, 32 - shift, shift};
  for (int i = 0; i < n; ++i, c.advance()) exponents[i] = read_field(source, c);
}

void unpack_grlex(const word* source, std::uint32_t* exponents, int n, int shift) noexcept {
  field_cursor c{0, 32 - shift, shift};
  c.advance();
  for (int i = 0; i < n; ++i, c.advance()) exponents[i] = read_field(source, c);
}

void unpack_tdeg(const word* source, std::uint32_t* exponents, int n, int shift) noexcept {
  field_cursor c{1, 32 - shift, shift};
  for (int i = n - 1; i >= 0; --i, c.advance()) exponents[i] = read_field(source, c);
}

namespace {

// The routines of each order, in the order of monomial_order.
struct order_routines {
  pack_routine pack;
  unpack_routine unpack;
};
constexpr order_routines routines_of[] = {
    {pack_plex, unpack_plex}, {pack_grlex, unpack_grlex}, {pack_tdeg, unpack_tdeg}};
static_assert(static_cast<int>(monomial_order::tdeg) == 2);

}  // namespace

pack_routine pack_routine_of(monomial_order order) noexcept { return routines_of[static_cast<int>(order)].pack; }
unpack_routine unpack_routine_of(monomial_order order) noexcept {
  return routines_of[static_cast<int>(order)].unpack;
}

monomial_order select_order(const callback_table& cbt, word order_argument) {
  // Anything but a call such as tdeg(x, y) names no order.
  if (handle_type(order_argument) != funcall) fail("monomial order not supported");
  const word name_handle = object_word(order_argument, 1);
  if (name_handle == fixed_name(cbt, "plex")) return monomial_order::plex;
  if (name_handle == fixed_name(cbt, "grlex")) return monomial_order::grlex;
  if (name_handle == fixed_name(cbt, "tdeg")) return monomial_order::tdeg;
  fail("monomial order not supported");
}

packing make_layout(const callback_table& cbt, word order_argument, int pack) {
  // Callers reject other packs with "invalid argument" before getting here.
  assert(pack >= 1 && pack <= 32);
  if (pack < 1 || pack > 32) fail("invalid argument");
  const int shift = pack_shift(pack);
  const word mask = guard_mask(shift);
  const monomial_order order = select_order(cbt, order_argument);
  const word variables = object_word(order_argument, 2);
  const int msize = layout_msize(order, seq_count(variables), pack);

  layout_owner layout(static_cast<word*>(gateway_malloc(4 * static_cast<std::size_t>(msize) + 8)));
  if (!layout) fail("out of memory");
  layout[0] = static_cast<word>(msize);
  layout[1] = static_cast<word>(shift) | (order == monomial_order::tdeg ? tdeg_flag : 0);
  for (int i = 0; i < msize; ++i) layout[2 + i] = mask;
  return {std::move(layout), variables, order, pack_routine_of(order)};
}

unpacking order_unpacker(const callback_table& cbt, word order_argument) {
  const monomial_order order = select_order(cbt, order_argument);
  return {object_word(order_argument, 2), order, unpack_routine_of(order)};
}

}  // namespace vorn
