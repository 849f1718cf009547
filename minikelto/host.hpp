// minikelto: the minimal host.  Object memory, interned names, integers, host
// arrays, the unique table, variables, the callback table handed to the
// plug-in, the plug-in loader and the protected entry call.
//
// Every host value is a 32-bit word (a handle): an immediate integer v is the
// word 2v + 1, any other handle is the address of an object in one window of
// memory below 4 GiB whose word 0 is its header (type id in bits 26-31, length
// in words, header included, in bits 0-24).  Objects never move.  There is one
// host per process: callbacks are plain C function pointers, so the state is
// global; reset() starts it afresh.
//
// Objects live until collect() finds them unreachable from the roots: the
// variables, the info levels, the registered roots and the handles passed to
// collect().  collect() runs only between entry calls.
#pragma once

#include <gmp.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "vorn.h"

namespace minikelto {

using word = vorn_word;

// Type ids: the plug-in's own, then the host's private ones (which the
// plug-in never dispatches on).
enum type_id : std::int32_t {
  intneg = VORN_INTNEG,
  intpos = VORN_INTPOS,
  name = VORN_NAME,
  nameref = VORN_NAMEREF,
  prod = VORN_PROD,
  sum = VORN_SUM,
  funcall = VORN_FUNCALL,
  equality = VORN_EQUALITY,
  seq = 28,
  array = 29,
  boolean = 30,
};

inline constexpr std::int32_t max_immediate = 0x3fffffff;
inline constexpr std::int32_t min_immediate = -0x40000000;

// ---- Lifecycle -------------------------------------------------------------

// Drops every object, name, variable, level, root and plug-in state, and
// clears output capture and interrupts.  The window itself stays reserved.
void reset();

// The callback table the plug-in receives.
const vorn_callback_table& callbacks() noexcept;

// ---- Handles and objects ---------------------------------------------------

constexpr bool is_immediate(word h) noexcept { return (h & 1u) != 0; }
constexpr std::int32_t immediate_value(word h) noexcept { return static_cast<std::int32_t>(h) >> 1; }
constexpr word make_immediate(std::int32_t v) noexcept { return static_cast<word>(v) * 2u + 1u; }
constexpr bool fits_immediate(std::int64_t v) noexcept { return v >= min_immediate && v <= max_immediate; }

// Words of an object (h must not be an immediate).  The one place where
// minikelto turns a handle into an address.  Inline, with the two accessors
// below, because hashing, comparing and marking call them per object.
inline word* object_words(word h) noexcept { return reinterpret_cast<word*>(static_cast<std::uintptr_t>(h)); }

namespace detail {
inline std::int32_t header_type_of(word header) noexcept { return static_cast<std::int32_t>(header) >> 26; }
inline std::int32_t header_length_of(word header) noexcept { return static_cast<std::int32_t>(header & 0x1ffffffu); }
inline word make_header(std::int32_t type, std::int32_t length) noexcept {
  return (static_cast<word>(type) << 26) | static_cast<word>(length);
}
}  // namespace detail

// Type id of a handle; -1 for an immediate.
inline std::int32_t type_of(word h) noexcept {
  return is_immediate(h) ? -1 : detail::header_type_of(object_words(h)[0]);
}
// Length in words, header included (h must not be an immediate).
inline std::int32_t length_of(word h) noexcept { return detail::header_length_of(object_words(h)[0]); }

// A fresh, unshared, zero-filled object of `length` words (header included).
word new_object(std::int32_t length, std::int32_t type);

// Objects with their words set.  Children are handles; nothing is made unique.
word make_seq(std::span<const word> entries);
word make_sum(std::span<const std::pair<word, word>> terms);      // (term, coefficient)
word make_prod(std::span<const std::pair<word, word>> factors);   // (base, exponent)
word make_funcall(word function_name, std::span<const word> arguments);
word make_equality(word lhs, word rhs);

// Entries of a SEQ / arguments of a FUNCALL.
std::span<word> seq_entries(word seq) noexcept;
word funcall_name(word f) noexcept;
std::span<word> funcall_arguments(word f) noexcept;

// ---- Names -----------------------------------------------------------------

// Interned: equal texts give the same handle.  NAMEREF is a second kind of
// name with its own handles.
word make_name(std::string_view text);
word make_nameref(std::string_view text);
bool is_name(word h) noexcept;  // NAME or NAMEREF
std::string_view name_text(word h) noexcept;

// ---- Integers --------------------------------------------------------------

// Immediate when the value fits, else INTPOS / INTNEG with a record of 32-bit
// limbs (words 1-3: _mp_alloc, _mp_size, _mp_d) and the limbs behind it.
word make_integer(std::int64_t v);
word make_integer(mpz_srcptr z);
// Parses a decimal integer (optional sign); nullopt when the text is not one.
std::optional<word> parse_integer(std::string_view decimal);
bool is_integer(word h) noexcept;  // immediate, INTPOS or INTNEG
// Sets z (initialised by the caller) to the value of an integer handle.
void integer_value(word h, mpz_ptr z);
// Decimal text of an integer handle.
std::string integer_text(word h);
// A new integer from a record of 32-bit limbs (the plug-in's coefficient form).
word copy_integer_record(const word* record);

// A readable form of any value for messages and tests: integers in decimal,
// names by text, sums as "2*x^2*y + 3", calls as "f(a, b)", equations as
// "a = b", sequences as "a, b", arrays as "array[n]", true and false.
std::string describe(word h);

// ---- Booleans --------------------------------------------------------------

word true_value() noexcept;
word false_value() noexcept;
bool is_boolean(word h) noexcept;

// ---- Host arrays -----------------------------------------------------------

// Array object words: 1 data address, 2 element bytes (4), 3 dimensions (1),
// 4 lower bound (1), 5 upper bound, 6 count, 7 allocated words, 8 count.
// The plug-in shrinks an array by writing a smaller count into words 6 and 8.
word make_array(std::int32_t count);  // zero-filled 32-bit words
bool is_array(word h) noexcept;
word* array_data(word h) noexcept;
std::int32_t array_count(word h) noexcept;  // word 6

// ---- The unique table ------------------------------------------------------

// Canonical handle of an equal object: children first, by type and words;
// integers by value (immediate when they fit); arrays are leaves and never
// merged; a PROD of no pair is the empty product 1, a PROD of one pair with
// exponent 1 becomes its base; a SUM pair (1, c) becomes the constant pair
// (c, 1), and a SUM of one pair with coefficient 1 becomes its term.  Polls
// the interrupt (count_work) outside entry calls.  An object passed here must not be
// changed afterwards.
word unique(word h);

// ---- Variables and info levels ---------------------------------------------

void assign(word name_handle, word value);
void unassign(word name_handle);
std::optional<word> value_of(word name_handle);
// Every variable, in no particular order.
std::vector<std::pair<word, word>> variables();

// The levels behind "infolevel[library]".
void set_info_level(std::string_view library, word level);
void set_info_level(std::string_view library, std::int32_t level);
void unset_info_level(std::string_view library);
// The level, or nullopt when unassigned.
std::optional<word> info_level(std::string_view library);

// host_eval_string hands its text to the evaluator when one is set; without
// one it understands "infolevel[NAME]" only (an unassigned level, or any other
// text, evaluates to the name made of the text itself).
using evaluator_fn = word (*)(const char* text);
void set_evaluator(evaluator_fn evaluator) noexcept;
// The built-in evaluation, for an evaluator that falls back to it.
word eval_builtin(const char* text);

// ---- Output ----------------------------------------------------------------

// host_printf writes to stdout, or, while capturing, into a buffer.
void capture_output(bool on);
// The captured text so far; clears the buffer.
std::string take_output();

// ---- Interrupts ------------------------------------------------------------

// Async-signal-safe: makes every poll answer non-zero until cleared.
void request_interrupt() noexcept;
// Clears the request and the countdown.
void clear_interrupt() noexcept;
// Polls answer non-zero from the n-th poll after this call on (n >= 1);
// 0 turns the countdown off.  Restarts the poll counter.
void interrupt_from_poll(std::int64_t n) noexcept;
// Polls since reset(), clear_interrupt() or interrupt_from_poll().
std::int64_t interrupt_polls() noexcept;

// True when a poll has answered non-zero since the last clear_interrupt().
bool interrupt_answered() noexcept;
// True when an interrupt was requested (or the countdown reached) and not
// yet cleared, whether or not a poll has seen it.
bool interrupt_pending() noexcept;

// Thrown by the host's own long work (expansion, arithmetic, unique,
// printing, collection) when a poll answers non-zero, so that work stops as
// the plug-in's entries do.
struct interrupted : std::exception {
  const char* what() const noexcept override { return "Interrupted"; }
};
// One poll, counted with the plug-in's: throws `interrupted` when the request
// flag or the countdown is set.
void poll_interrupt();
// Counts `units` of the host's own work (one per term, object or child
// handled) and polls once every 65536 units.  Does nothing during an entry
// call, where the host is a callback that must return to the plug-in.  The
// count restarts with clear_interrupt() and interrupt_from_poll(), so where
// a countdown stops a statement does not depend on earlier ones.
void count_work(std::uint32_t units);

// SIGINT handler for a front end: the first signal requests an interrupt; a
// second one that comes before any poll has seen the first ends the process
// with status 130 (nothing is polling, so nothing else would stop it).
void install_interrupt_handler();

// ---- Plug-in and entry calls -----------------------------------------------

using entry_fn = vorn_word (*)(const vorn_callback_table*, vorn_word);
using any_fn = void (*)();

struct plugin_symbol {
  std::string name;
  any_fn function;
};

// A loaded plug-in (dlopen handle) or a static one (a list of symbols).
struct plugin {
  void* library = nullptr;
  std::vector<plugin_symbol> symbols;

  plugin() = default;
  plugin(plugin&& other) noexcept;
  plugin& operator=(plugin&& other) noexcept;
  plugin(const plugin&) = delete;
  plugin& operator=(const plugin&) = delete;
  ~plugin();
};

// dlopen's the shared object; on failure nullopt, with the reason in *error.
std::optional<plugin> load_plugin(const std::string& path, std::string* error);
// A plug-in made of functions linked into this program; null functions are left out.
plugin static_plugin(std::span<const plugin_symbol> symbols);
// A symbol of the plug-in, or null.
any_fn find_symbol(const plugin& p, std::string_view name);
entry_fn find_entry(const plugin& p, std::string_view name);

// Either the entry's result or the message it raised.
struct call_result {
  bool ok = false;
  word value = 0;
  std::string error;
};

// Builds the argument SEQ and calls the entry; a raise comes back as an error.
call_result call_entry(entry_fn entry, std::span<const word> arguments);
// As above by name; a missing entry is an error "no entry NAME in the plug-in".
call_result call_entry(const plugin& p, std::string_view entry, std::span<const word> arguments);
// Runs body(context) so that a host_raise_error inside it comes back as an
// error (for native entries such as the fraction export).
call_result call_protected(word (*body)(void* context), void* context);
// True while an entry call runs.
bool in_entry_call() noexcept;

// ---- Memory ----------------------------------------------------------------

// Keeps h (and what it reaches) alive across collect() until removed; counted.
void add_root(word h);
void remove_root(word h);

struct root_guard {
  word handle;
  explicit root_guard(word h) : handle(h) { add_root(h); }
  root_guard(const root_guard&) = delete;
  root_guard& operator=(const root_guard&) = delete;
  ~root_guard() { remove_root(handle); }
};

// Reclaims every object unreachable from the roots and from `extra_roots`;
// returns the bytes freed.  Must not run during an entry call.  Throws
// `interrupted` (having freed nothing) when a poll answers while it marks.
std::size_t collect(std::span<const word> extra_roots = {});

struct window_stats {
  std::uintptr_t base;        // first address of the window
  std::size_t reserved;       // bytes reserved
  std::size_t committed;      // bytes made accessible
  std::size_t high_water;     // bytes below the allocation top
  std::size_t in_use;         // bytes of live blocks, block headers included
  std::size_t objects;        // live blocks (an array counts twice: object and data)
};
window_stats window_state() noexcept;

}  // namespace minikelto
