// Host objects: construction and access for sequences, sums, products,
// calls, equations, integers, booleans and host arrays.
//
// Layouts (word 0 is always the header):
//   INTPOS/INTNEG  1 _mp_alloc, 2 _mp_size, 3 _mp_d (= word 4's address), 4... 32-bit limbs
//   NAME/NAMEREF   1 byte length, 2... text with a terminating NUL
//   SEQ            1... entries
//   BOOLEAN        1 value (0 or 1)
//   array          see make_array in host.hpp; its data is a block of its own
#include <cstring>

#include "minikelto/state.hpp"
#include "minikelto/window.hpp"

namespace minikelto {

using detail::address_of;
using detail::word_of;

word new_object(std::int32_t length, std::int32_t type) {
  if (length < 1 || length > 0x1ffffff) detail::fatal("object length %d out of range", length);
  if (type < 0 || type > 63) detail::fatal("type id %d out of range", type);
  word* w = detail::allocate_block(static_cast<std::size_t>(length));
  w[0] = detail::make_header(type, length);
  return word_of(w);
}

word make_seq(std::span<const word> entries) {
  const word h = new_object(static_cast<std::int32_t>(entries.size()) + 1, seq);
  if (!entries.empty()) std::memcpy(address_of(h) + 1, entries.data(), entries.size() * sizeof(word));
  return h;
}

namespace {
word make_pairs(std::int32_t type, std::span<const std::pair<word, word>> pairs) {
  const word h = new_object(2 * static_cast<std::int32_t>(pairs.size()) + 1, type);
  word* w = address_of(h);
  for (std::size_t i = 0; i < pairs.size(); ++i) {
    w[2 * i + 1] = pairs[i].first;
    w[2 * i + 2] = pairs[i].second;
  }
  return h;
}
}  // namespace

word make_sum(std::span<const std::pair<word, word>> terms) { return make_pairs(sum, terms); }
word make_prod(std::span<const std::pair<word, word>> factors) { return make_pairs(prod, factors); }

word make_funcall(word function_name, std::span<const word> arguments) {
  const word args = make_seq(arguments);
  const word h = new_object(3, funcall);
  address_of(h)[1] = function_name;
  address_of(h)[2] = args;
  return h;
}

word make_equality(word lhs, word rhs) {
  const word h = new_object(3, equality);
  address_of(h)[1] = lhs;
  address_of(h)[2] = rhs;
  return h;
}

std::span<word> seq_entries(word s) noexcept {
  return {address_of(s) + 1, static_cast<std::size_t>(length_of(s) - 1)};
}
word funcall_name(word f) noexcept { return address_of(f)[1]; }
std::span<word> funcall_arguments(word f) noexcept { return seq_entries(address_of(f)[2]); }

bool is_name(word h) noexcept {
  const std::int32_t t = type_of(h);
  return t == name || t == nameref;
}

std::string_view name_text(word h) noexcept {
  const word* w = address_of(h);
  return {reinterpret_cast<const char*>(w + 2), w[1]};
}

// ---- Integers ----

namespace {

// The value of a record of 32-bit limbs.
void record_value(const word* record, mpz_ptr z) {
  const auto size = static_cast<std::int32_t>(record[1]);
  const std::size_t limbs = static_cast<std::size_t>(size < 0 ? -static_cast<std::int64_t>(size) : size);
  mpz_import(z, limbs, -1, sizeof(word), 0, 0, address_of(record[2]));
  if (size < 0) mpz_neg(z, z);
}

struct mpz_temp {
  mpz_t z;
  mpz_temp() { mpz_init(z); }
  mpz_temp(const mpz_temp&) = delete;
  mpz_temp& operator=(const mpz_temp&) = delete;
  ~mpz_temp() { mpz_clear(z); }
};

}  // namespace

word make_integer(mpz_srcptr z) {
  if (mpz_sizeinbase(z, 2) <= 31) {
    // |z| < 2^31: the value fits a 32-bit signed integer, perhaps an immediate.
    const auto magnitude = static_cast<std::int64_t>(mpz_getlimbn(z, 0));
    const std::int64_t v = mpz_sgn(z) < 0 ? -magnitude : magnitude;
    if (fits_immediate(v)) return make_immediate(static_cast<std::int32_t>(v));
  }
  const auto limbs = static_cast<std::int32_t>((mpz_sizeinbase(z, 2) + 31) / 32);
  const word h = new_object(4 + limbs, mpz_sgn(z) < 0 ? intneg : intpos);
  word* w = address_of(h);
  w[1] = static_cast<word>(limbs);
  w[2] = static_cast<word>(mpz_sgn(z) < 0 ? -limbs : limbs);
  w[3] = word_of(w + 4);
  std::size_t written = 0;
  mpz_export(w + 4, &written, -1, sizeof(word), 0, 0, z);
  return h;
}

word make_integer(std::int64_t v) {
  if (fits_immediate(v)) return make_immediate(static_cast<std::int32_t>(v));
  const std::uint64_t magnitude = v < 0 ? 0 - static_cast<std::uint64_t>(v) : static_cast<std::uint64_t>(v);
  mpz_temp t;
  mpz_import(t.z, 1, -1, sizeof magnitude, 0, 0, &magnitude);
  if (v < 0) mpz_neg(t.z, t.z);
  return make_integer(t.z);
}

std::optional<word> parse_integer(std::string_view decimal) {
  if (!decimal.empty() && decimal[0] == '+') decimal.remove_prefix(1);
  const std::size_t digits_from = !decimal.empty() && decimal[0] == '-' ? 1 : 0;
  if (decimal.size() == digits_from) return std::nullopt;
  for (std::size_t i = digits_from; i < decimal.size(); ++i) {
    if (decimal[i] < '0' || decimal[i] > '9') return std::nullopt;
  }
  mpz_temp t;
  mpz_set_str(t.z, std::string(decimal).c_str(), 10);
  return make_integer(t.z);
}

bool is_integer(word h) noexcept {
  const std::int32_t t = type_of(h);
  return is_immediate(h) || t == intpos || t == intneg;
}

void integer_value(word h, mpz_ptr z) {
  if (is_immediate(h)) {
    mpz_set_si(z, immediate_value(h));
  } else {
    record_value(address_of(h) + 1, z);
  }
}

std::string integer_text(word h) {
  mpz_temp t;
  integer_value(h, t.z);
  std::string text(mpz_sizeinbase(t.z, 10) + 2, '\0');
  mpz_get_str(text.data(), 10, t.z);
  text.resize(std::strlen(text.c_str()));
  return text;
}

word copy_integer_record(const word* record) {
  mpz_temp t;
  record_value(record, t.z);
  return make_integer(t.z);
}

// ---- Booleans ----

void detail::make_booleans() {
  host_state& s = state();
  s.false_handle = new_object(2, boolean);
  s.true_handle = new_object(2, boolean);
  address_of(s.true_handle)[1] = 1;
  address_of(s.false_handle)[0] |= unique_bit;
  address_of(s.true_handle)[0] |= unique_bit;
}

word true_value() noexcept { return detail::state().true_handle; }
word false_value() noexcept { return detail::state().false_handle; }
bool is_boolean(word h) noexcept { return type_of(h) == boolean; }

// ---- Arrays ----

word make_array(std::int32_t count) {
  if (count < 0) detail::fatal("array of %d elements", count);
  const word h = new_object(9, array);
  word* data = detail::allocate_block(static_cast<std::size_t>(count));
  word* w = address_of(h);
  w[1] = word_of(data);
  w[2] = 4;
  w[3] = 1;
  w[4] = 1;
  w[5] = static_cast<word>(count);
  w[6] = static_cast<word>(count);
  w[7] = static_cast<word>(count);
  w[8] = static_cast<word>(count);
  return h;
}

bool is_array(word h) noexcept { return type_of(h) == array; }
word* array_data(word h) noexcept { return address_of(address_of(h)[1]); }
std::int32_t array_count(word h) noexcept { return static_cast<std::int32_t>(address_of(h)[6]); }

}  // namespace minikelto
