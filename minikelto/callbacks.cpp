// The callback table handed to the plug-in: the eighteen callbacks it uses at
// their indices, and at every other index a trap that names the index.
//
// Callbacks other than host_raise_error return normally and never throw;
// a call that breaks the host's contract ends the process with a message.
#include <signal.h>
#include <unistd.h>

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <utility>

#include "minikelto/state.hpp"
#include "minikelto/window.hpp"

namespace minikelto {

using detail::address_of;
using detail::word_of;

namespace {

constexpr word settings_signature = 0x4b4c5453u;  // marks a record filled by host_array_defaults
constexpr int signature_index = VORN_ARRAY_SETTINGS_WORDS - 1;

word cb_new_object(std::int32_t length, std::int32_t type_id) noexcept { return new_object(length, type_id); }

void cb_assign(word name_handle, word value) noexcept { assign(name_handle, value); }

[[noreturn]] void cb_raise_error(const char* message) noexcept {
  detail::host_state& s = detail::state();
  if (s.active_jump == nullptr) detail::fatal("host_raise_error outside an entry call: %s", message);
  s.error = message;
  std::longjmp(*s.active_jump, 1);
}

word cb_eval_string(const char* text) noexcept {
  const evaluator_fn evaluator = detail::state().evaluator;
  return evaluator != nullptr ? evaluator(text) : eval_builtin(text);
}

// The value of an integer handle when it fits 32 bits.
bool int32_value(word h, std::int32_t* out) noexcept {
  if (is_immediate(h)) {
    *out = immediate_value(h);
    return true;
  }
  const std::int32_t type = type_of(h);
  if (type != intpos && type != intneg) return false;
  const word* w = address_of(h);
  const auto size = static_cast<std::int32_t>(w[2]);
  if (size == 0) {
    *out = 0;
    return true;
  }
  if (size != 1 && size != -1) return false;
  const std::int64_t limb = address_of(w[3])[0];
  const std::int64_t v = size < 0 ? -limb : limb;
  if (v < INT32_MIN || v > INT32_MAX) return false;
  *out = static_cast<std::int32_t>(v);
  return true;
}

std::int32_t cb_is_integer(word h) noexcept {
  std::int32_t v = 0;
  return int32_value(h, &v) ? 1 : 0;
}

std::int32_t cb_to_int32(word h) noexcept {
  std::int32_t v = 0;
  if (!int32_value(h, &v)) detail::fatal("host_to_int32 of a handle that is not a 32-bit integer");
  return v;
}

word cb_array_create(word* settings, const word* data, const std::int32_t* bounds) noexcept {
  if (settings == nullptr || settings[signature_index] != settings_signature) {
    detail::fatal("host_array_create: settings record not filled by host_array_defaults");
  }
  if (settings[0] != 4) detail::fatal("host_array_create: element kind %u refused (only 4, 32-bit words)", settings[0]);
  if (settings[9] != 1) detail::fatal("host_array_create: %u dimensions refused (only 1)", settings[9]);
  if (data != nullptr) detail::fatal("host_array_create: initial data refused");
  if (bounds == nullptr || bounds[0] != 1 || bounds[1] < 0) {
    detail::fatal("host_array_create: bounds refused (only 1 .. n with n >= 0)");
  }
  return make_array(bounds[1]);
}

word* cb_array_data(word array_handle) noexcept {
  if (is_immediate(array_handle) || !is_array(array_handle)) detail::fatal("host_array_data of a non-array");
  return array_data(array_handle);
}

void cb_array_defaults(word* settings) noexcept {
  std::memset(settings, 0, VORN_ARRAY_SETTINGS_WORDS * sizeof(word));
  settings[0] = 0;  // host handles
  settings[9] = 0;  // dimensions from the bounds
  settings[signature_index] = settings_signature;
}

word cb_unique(word h) noexcept { return unique(h); }

word cb_to_boolean(std::int32_t value) noexcept { return value != 0 ? true_value() : false_value(); }

word cb_new_seq(std::int32_t count) noexcept {
  if (count < 0) detail::fatal("host_new_seq(%d)", count);
  return new_object(count + 1, seq);
}

word cb_to_integer(std::int32_t value) noexcept { return make_integer(std::int64_t{value}); }

word cb_make_name(const char* text, std::int32_t) noexcept { return make_name(text); }

__attribute__((format(printf, 1, 2))) void cb_printf(const char* format, ...) noexcept {
  detail::host_state& s = detail::state();
  va_list args;
  va_start(args, format);
  if (!s.capturing) {
    std::vprintf(format, args);
    va_end(args);
    return;
  }
  va_list again;
  va_copy(again, args);
  const int n = std::vsnprintf(nullptr, 0, format, args);
  va_end(args);
  if (n > 0) {
    const std::size_t at = s.output.size();
    s.output.resize(at + static_cast<std::size_t>(n) + 1);
    std::vsnprintf(s.output.data() + at, static_cast<std::size_t>(n) + 1, format, again);
    s.output.resize(at + static_cast<std::size_t>(n));
  }
  va_end(again);
}

word cb_new_function(word function_name, std::int32_t, word seq_handle) noexcept {
  return make_funcall(function_name, seq_entries(seq_handle));
}

word cb_copy_integer(const word* record) noexcept { return copy_integer_record(record); }

std::int32_t cb_check_interrupt() noexcept {
  detail::host_state& s = detail::state();
  ++s.polls;
  if (detail::interrupt_requested != 0) {
    detail::interrupt_requested = 2;
  } else if (s.interrupt_at == 0 || s.polls < s.interrupt_at) {
    return 0;
  }
  s.interrupt_answered = true;
  return 1;
}

extern "C" void on_interrupt_signal(int) {
  if (detail::interrupt_requested == 1) {
    // Only async-signal-safe calls here.
    static const char message[] = "\nkelto: interrupted again before the first interrupt was seen; ending\n";
    const ssize_t written = write(STDERR_FILENO, message, sizeof message - 1);
    (void)written;
    _exit(130);
  }
  detail::interrupt_requested = 1;
}

template <int Index>
void trap() noexcept {
  detail::fatal("the plug-in called callback %d, which this host does not provide", Index);
}

template <std::size_t... I>
constexpr std::array<vorn_host_fn, sizeof...(I)> traps(std::index_sequence<I...>) {
  return {&trap<static_cast<int>(I)>...};
}

template <class Fn>
vorn_host_fn slot(Fn fn) noexcept {
  return reinterpret_cast<vorn_host_fn>(fn);
}

vorn_callback_table make_table() noexcept {
  vorn_callback_table table{};
  const auto all = traps(std::make_index_sequence<VORN_CALLBACK_TABLE_SIZE>{});
  for (std::size_t i = 0; i < all.size(); ++i) table.entry[i] = all[i];
  table.entry[VORN_HOST_NEW_OBJECT] = slot<vorn_host_new_object_fn>(cb_new_object);
  table.entry[VORN_HOST_ASSIGN] = slot<vorn_host_assign_fn>(cb_assign);
  table.entry[VORN_HOST_RAISE_ERROR] = slot<vorn_host_raise_error_fn>(cb_raise_error);
  table.entry[VORN_HOST_EVAL_STRING] = slot<vorn_host_eval_string_fn>(cb_eval_string);
  table.entry[VORN_HOST_IS_INTEGER] = slot<vorn_host_is_integer_fn>(cb_is_integer);
  table.entry[VORN_HOST_TO_INT32] = slot<vorn_host_to_int32_fn>(cb_to_int32);
  table.entry[VORN_HOST_ARRAY_CREATE] = slot<vorn_host_array_create_fn>(cb_array_create);
  table.entry[VORN_HOST_ARRAY_DATA] = slot<vorn_host_array_data_fn>(cb_array_data);
  table.entry[VORN_HOST_ARRAY_DEFAULTS] = slot<vorn_host_array_defaults_fn>(cb_array_defaults);
  table.entry[VORN_HOST_UNIQUE] = slot<vorn_host_unique_fn>(cb_unique);
  table.entry[VORN_HOST_TO_BOOLEAN] = slot<vorn_host_to_boolean_fn>(cb_to_boolean);
  table.entry[VORN_HOST_NEW_SEQ] = slot<vorn_host_new_seq_fn>(cb_new_seq);
  table.entry[VORN_HOST_TO_INTEGER] = slot<vorn_host_to_integer_fn>(cb_to_integer);
  table.entry[VORN_HOST_MAKE_NAME] = slot<vorn_host_make_name_fn>(cb_make_name);
  table.entry[VORN_HOST_PRINTF] = slot<vorn_host_printf_fn>(cb_printf);
  table.entry[VORN_HOST_NEW_FUNCTION] = slot<vorn_host_new_function_fn>(cb_new_function);
  table.entry[VORN_HOST_COPY_INTEGER] = slot<vorn_host_copy_integer_fn>(cb_copy_integer);
  table.entry[VORN_HOST_CHECK_INTERRUPT] = slot<vorn_host_check_interrupt_fn>(cb_check_interrupt);
  return table;
}

}  // namespace

const vorn_callback_table& callbacks() noexcept {
  static const vorn_callback_table table = make_table();
  return table;
}

void capture_output(bool on) { detail::state().capturing = on; }

std::string take_output() {
  std::string out;
  out.swap(detail::state().output);
  return out;
}

void request_interrupt() noexcept { detail::interrupt_requested = 1; }

void clear_interrupt() noexcept {
  detail::interrupt_requested = 0;
  interrupt_from_poll(0);
}

void interrupt_from_poll(std::int64_t n) noexcept {
  detail::host_state& s = detail::state();
  s.interrupt_at = n;
  s.polls = 0;
  s.interrupt_answered = false;
  s.work_to_poll = detail::work_per_poll;
}

std::int64_t interrupt_polls() noexcept { return detail::state().polls; }

bool interrupt_answered() noexcept { return detail::state().interrupt_answered; }

bool interrupt_pending() noexcept {
  const detail::host_state& s = detail::state();
  return detail::interrupt_requested != 0 || s.interrupt_answered;
}

void poll_interrupt() {
  if (cb_check_interrupt() != 0) throw interrupted{};
}

void count_work(std::uint32_t units) {
  detail::host_state& s = detail::state();
  if (s.entry_depth != 0) return;
  if (s.work_to_poll > units) {
    s.work_to_poll -= units;
    return;
  }
  s.work_to_poll = detail::work_per_poll;
  poll_interrupt();
}

void install_interrupt_handler() {
  struct sigaction action {};
  action.sa_handler = on_interrupt_signal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0;  // no SA_RESTART: Ctrl-C ends a read at the prompt and a blocked write
  sigaction(SIGINT, &action, nullptr);
}

}  // namespace minikelto
