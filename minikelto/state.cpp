// The host's lifecycle: the one state record, started on first use and
// started afresh by reset(); variables, info levels and evaluation.
#include "minikelto/state.hpp"

#include "minikelto/window.hpp"

namespace minikelto {

volatile std::sig_atomic_t detail::interrupt_requested = 0;

namespace {

detail::host_state& raw_state() noexcept {
  static detail::host_state s;
  return s;
}

void start(detail::host_state& s) {
  s.unique_slots.assign(detail::initial_unique_slots, {});
  s.unique_count = 0;
  detail::make_booleans();
}

}  // namespace

detail::host_state& detail::state() noexcept {
  detail::host_state& s = raw_state();
  if (s.unique_slots.empty()) start(s);
  return s;
}

void reset() {
  detail::host_state& s = raw_state();
  if (s.entry_depth != 0) detail::fatal("reset() during an entry call");
  s = detail::host_state{};
  detail::interrupt_requested = 0;
  detail::release_all();
  start(s);
}

void assign(word name_handle, word value) {
  if (!is_name(name_handle)) detail::fatal("assignment to a handle that is not a name");
  detail::state().variables[name_handle] = value;
}

void unassign(word name_handle) { detail::state().variables.erase(name_handle); }

std::optional<word> value_of(word name_handle) {
  const auto& variables = detail::state().variables;
  const auto found = variables.find(name_handle);
  if (found == variables.end()) return std::nullopt;
  return found->second;
}

std::vector<std::pair<word, word>> variables() {
  const auto& v = detail::state().variables;
  return {v.begin(), v.end()};
}

void set_info_level(std::string_view library, word level) {
  detail::state().levels.insert_or_assign(std::string(library), level);
}

void set_info_level(std::string_view library, std::int32_t level) { set_info_level(library, make_integer(level)); }

void unset_info_level(std::string_view library) {
  auto& levels = detail::state().levels;
  const auto found = levels.find(library);
  if (found != levels.end()) levels.erase(found);
}

std::optional<word> info_level(std::string_view library) {
  const auto& levels = detail::state().levels;
  const auto found = levels.find(library);
  if (found == levels.end()) return std::nullopt;
  return found->second;
}

void set_evaluator(evaluator_fn evaluator) noexcept { detail::state().evaluator = evaluator; }

word eval_builtin(const char* text) {
  const std::string_view t(text);
  constexpr std::string_view prefix = "infolevel[";
  if (t.size() > prefix.size() + 1 && t.substr(0, prefix.size()) == prefix && t.back() == ']') {
    const auto level = info_level(t.substr(prefix.size(), t.size() - prefix.size() - 1));
    if (level) return *level;
  }
  return make_name(t);
}

}  // namespace minikelto
