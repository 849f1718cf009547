// The options of the conversion entries: pack = k and characteristic = p,
// equations whose left side is the name itself and whose right side is an
// immediate.  The last occurrence of an option counts.
#pragma once

#include <cstdint>

#include "host/error.hpp"
#include "host/callbacks.hpp"

namespace vorn {

struct conversion_options {
  std::int32_t pack;
  std::int32_t characteristic;
};

// The option names, resolved once per call.
struct option_names {
  word pack;
  word characteristic;

  explicit option_names(const callback_table& cbt) noexcept
      : pack(fixed_name(cbt, "pack")), characteristic(fixed_name(cbt, "characteristic")) {}
};

// Applies `argument` to `options` when it is one of the two options; false
// for anything else.
inline bool read_option(word argument, const option_names& names, conversion_options& options) noexcept {
  if (handle_type(argument) != equality) return false;
  const word lhs = object_word(argument, 1);
  const word rhs = object_word(argument, 2);
  if (!is_immediate(rhs)) return false;
  if (lhs == names.pack) {
    options.pack = immediate_value(rhs);
    return true;
  }
  if (lhs == names.characteristic) {
    options.characteristic = immediate_value(rhs);
    return true;
  }
  return false;
}

// The checks after the last option: a negative modulus, then a pack that
// gives no field width.
inline void check_options(const conversion_options& options) {
  if (options.characteristic < 0) fail("negative modulus");
  if (options.pack < 1 || options.pack > 32) fail("invalid argument");
}

// The options among arguments first ... of args over `defaults`; raises
// "invalid argument" for any other argument, then checks them as
// check_options does.
inline conversion_options read_options(const callback_table& cbt, word args, std::int32_t first,
                                       conversion_options defaults) {
  conversion_options options = defaults;
  const option_names names(cbt);
  for (std::int32_t i = first; i <= seq_count(args); ++i)
    if (!read_option(object_word(args, i), names, options)) fail("invalid argument");
  check_options(options);
  return options;
}

}  // namespace vorn
