// Typed binding of the host's callback table: the only code that indexes it.
//
// Every callback takes the table explicitly.  All return normally except
// host_raise_error, which leaves the library for good (the host longjmps), so
// it may only be called once no non-trivial object is alive on the stack.
#pragma once

#include <cstdint>

#include "host/words.hpp"

namespace vorn {

namespace detail {
template <class Fn>
inline Fn callback(const callback_table& cbt, int index) noexcept {
  return reinterpret_cast<Fn>(cbt.entry[index]);
}
}  // namespace detail

inline word host_new_object(const callback_table& cbt, std::int32_t length, std::int32_t type) noexcept {
  return detail::callback<vorn_host_new_object_fn>(cbt, VORN_HOST_NEW_OBJECT)(length, type);
}
inline void host_assign(const callback_table& cbt, word name_handle, word value) noexcept {
  detail::callback<vorn_host_assign_fn>(cbt, VORN_HOST_ASSIGN)(name_handle, value);
}
[[noreturn]] inline void host_raise_error(const callback_table& cbt, const char* message) noexcept {
  detail::callback<vorn_host_raise_error_fn>(cbt, VORN_HOST_RAISE_ERROR)(message);
  __builtin_unreachable();
}
inline word host_eval_string(const callback_table& cbt, const char* text) noexcept {
  return detail::callback<vorn_host_eval_string_fn>(cbt, VORN_HOST_EVAL_STRING)(text);
}
inline bool host_is_integer(const callback_table& cbt, word h) noexcept {
  return detail::callback<vorn_host_is_integer_fn>(cbt, VORN_HOST_IS_INTEGER)(h) != 0;
}
inline std::int32_t host_to_int32(const callback_table& cbt, word h) noexcept {
  return detail::callback<vorn_host_to_int32_fn>(cbt, VORN_HOST_TO_INT32)(h);
}
inline word host_array_create(const callback_table& cbt, word* settings, const word* data,
                              const std::int32_t* bounds) noexcept {
  return detail::callback<vorn_host_array_create_fn>(cbt, VORN_HOST_ARRAY_CREATE)(settings, data, bounds);
}
inline word* host_array_data(const callback_table& cbt, word array) noexcept {
  return detail::callback<vorn_host_array_data_fn>(cbt, VORN_HOST_ARRAY_DATA)(array);
}
inline void host_array_defaults(const callback_table& cbt, word* settings) noexcept {
  detail::callback<vorn_host_array_defaults_fn>(cbt, VORN_HOST_ARRAY_DEFAULTS)(settings);
}
inline word host_unique(const callback_table& cbt, word h) noexcept {
  return detail::callback<vorn_host_unique_fn>(cbt, VORN_HOST_UNIQUE)(h);
}
inline word host_to_boolean(const callback_table& cbt, std::int32_t value) noexcept {
  return detail::callback<vorn_host_to_boolean_fn>(cbt, VORN_HOST_TO_BOOLEAN)(value);
}
inline word host_new_seq(const callback_table& cbt, std::int32_t count) noexcept {
  return detail::callback<vorn_host_new_seq_fn>(cbt, VORN_HOST_NEW_SEQ)(count);
}
inline word host_to_integer(const callback_table& cbt, std::int32_t value) noexcept {
  return detail::callback<vorn_host_to_integer_fn>(cbt, VORN_HOST_TO_INTEGER)(value);
}
inline word host_make_name(const callback_table& cbt, const char* text, std::int32_t flag) noexcept {
  return detail::callback<vorn_host_make_name_fn>(cbt, VORN_HOST_MAKE_NAME)(text, flag);
}
inline word host_new_function(const callback_table& cbt, word name_handle, std::int32_t count,
                              word seq) noexcept {
  return detail::callback<vorn_host_new_function_fn>(cbt, VORN_HOST_NEW_FUNCTION)(name_handle, count, seq);
}
inline word host_copy_integer(const callback_table& cbt, const word* record) noexcept {
  return detail::callback<vorn_host_copy_integer_fn>(cbt, VORN_HOST_COPY_INTEGER)(record);
}
inline bool host_check_interrupt(const callback_table& cbt) noexcept {
  return detail::callback<vorn_host_check_interrupt_fn>(cbt, VORN_HOST_CHECK_INTERRUPT)() != 0;
}

// host_printf goes through a truly variadic pointer so that x86-64 passes the
// vector-register count; %d takes int, %ld long, %.3f double.
template <class... Args>
inline void host_printf(const callback_table& cbt, const char* format, Args... args) noexcept {
  detail::callback<vorn_host_printf_fn>(cbt, VORN_HOST_PRINTF)(format, args...);
}

// Resolves a fixed name for identity comparison; no handle is kept across calls.
inline word fixed_name(const callback_table& cbt, const char* text) noexcept {
  return host_unique(cbt, host_make_name(cbt, text, 1));
}

// A zero-filled one-dimensional host array of n words.
struct host_array {
  word handle;
  word* data;
};
host_array new_host_array(const callback_table& cbt, std::int32_t n) noexcept;

}  // namespace vorn
