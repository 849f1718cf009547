// Creating, reading and shrinking containers.
#include "poly/container.hpp"

#include <cstring>

#include "poly/pack.hpp"

namespace vorn {

word new_container(const callback_table& cbt, word ring, std::int32_t n, const word* layout) noexcept {
  const int msize = layout_msize(layout);
  const word seq = host_new_seq(cbt, 5);
  word* slots = object_words(seq);
  slots[1] = host_to_integer(cbt, n);
  slots[2] = ring;
  const host_array layout_array = new_host_array(cbt, layout_words(msize));
  std::memcpy(layout_array.data, layout, static_cast<std::size_t>(layout_words(msize)) * sizeof(word));
  slots[3] = layout_array.handle;
  // Left zeroed: the pack routines OR into it.
  slots[4] = new_host_array(cbt, (msize + 1) * n).handle;
  slots[5] = immediate_zero;
  return host_new_function(cbt, host_make_name(cbt, "VORN", 1), 1, seq);
}

term_block read_container(const callback_table& cbt, word container) noexcept {
  term_block view{};
  view.terms = host_array_data(cbt, container_slot(container, 4));
  view.layout = host_array_data(cbt, container_slot(container, 3));
  view.count = immediate_value(container_slot(container, 1));
  view.next = nullptr;
  return view;
}

word set_term_count(const callback_table& cbt, word container, std::int32_t m) noexcept {
  const term_block view = read_container(cbt, container);
  if (view.count == m) return container;
  object_words(object_word(container, 2))[1] = make_immediate(m);
  // The data block stays where it is; only the recorded length shrinks.
  word* array = object_words(container_slot(container, 4));
  const auto words = static_cast<word>((layout_msize(view.layout) + 1) * m);
  array[6] = words;
  array[8] = words;
  return container;
}

bool is_container(const callback_table& cbt, word h) noexcept {
  if (handle_type(h) != funcall) return false;
  if (object_word(h, 1) != fixed_name(cbt, "VORN")) return false;
  const word seq = object_word(h, 2);
  return !is_immediate(seq) && seq_count(seq) == 5;
}

}  // namespace vorn
