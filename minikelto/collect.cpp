// Reclaiming host memory: mark from the roots, drop the dead from the unique
// table, sweep the window.  Runs only between entry calls, so the plug-in
// never sees an object vanish under it.  An interrupt can stop the marking,
// which is most of the work; the drop and the sweep run to their end.
//
// Marking follows the handles of SUM, PROD, FUNCALL, EQUALITY and SEQ words;
// an array marks its data block, whose words are never read; names, integers
// and booleans are leaves.
#include "minikelto/state.hpp"
#include "minikelto/window.hpp"

namespace minikelto {

using detail::address_of;

void add_root(word h) { ++detail::state().roots[h]; }

void remove_root(word h) {
  auto& roots = detail::state().roots;
  const auto found = roots.find(h);
  if (found != roots.end() && --found->second == 0) roots.erase(found);
}

namespace {

void mark_from(std::vector<word>& stack) {
  while (!stack.empty()) {
    count_work(1);
    const word h = stack.back();
    stack.pop_back();
    if (is_immediate(h) || !detail::in_window(h)) continue;
    word* w = address_of(h);
    if (!detail::mark_block(w)) continue;
    switch (type_of(h)) {
      case sum:
      case prod:
      case funcall:
      case equality:
      case seq:
        for (std::int32_t i = 1; i < length_of(h); ++i) stack.push_back(w[i]);
        break;
      case array:
        detail::mark_block(address_of(w[1]));
        break;
      default:
        break;
    }
  }
}

}  // namespace

std::size_t collect(std::span<const word> extra_roots) {
  detail::host_state& s = detail::state();
  if (s.entry_depth != 0) detail::fatal("collect() during an entry call");
  std::vector<word> stack(extra_roots.begin(), extra_roots.end());
  for (const auto& [name_handle, value] : s.variables) {
    stack.push_back(name_handle);
    stack.push_back(value);
  }
  for (const auto& level : s.levels) stack.push_back(level.second);
  for (const auto& root : s.roots) stack.push_back(root.first);
  stack.push_back(s.true_handle);
  stack.push_back(s.false_handle);
  try {
    mark_from(stack);
  } catch (const interrupted&) {
    // Nothing has been freed: unmark, and the next collection starts afresh.
    detail::clear_marks();
    throw;
  }
  detail::drop_unmarked_from_unique_table();
  return detail::sweep();
}

window_stats window_state() noexcept { return detail::stats(); }

}  // namespace minikelto
