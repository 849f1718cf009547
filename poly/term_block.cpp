// Term blocks, result assembly and the big-integer block.
#include "poly/term_block.hpp"

#include <cstring>

#include "host/frame.hpp"
#include "host/gmp_record.hpp"
#include "host/memory.hpp"
#include "poly/container.hpp"
#include "poly/pack.hpp"

namespace vorn {

term_block* alloc_term_block(std::int32_t n, word* layout, std::int32_t coef_words) noexcept {
  if (n < 0) return nullptr;
  const auto width = static_cast<std::size_t>(layout_msize(layout) + coef_words);
  const std::size_t limit = (SIZE_MAX - term_block_header_bytes) / sizeof(word);
  if (width != 0 && static_cast<std::size_t>(n) > limit / width) return nullptr;
  const std::size_t bytes = term_block_header_bytes + static_cast<std::size_t>(n) * width * sizeof(word);
  auto* raw = static_cast<unsigned char*>(gateway_malloc(bytes));
  if (raw == nullptr) return nullptr;
  auto* block = reinterpret_cast<term_block*>(raw);
  block->terms = reinterpret_cast<word*>(raw + term_block_header_bytes);
  block->layout = layout;
  block->count = n;
  block->next = nullptr;
  return block;
}

word assemble_container(const callback_table& cbt, term_block first, word ring,
                        std::int32_t characteristic) noexcept {
  std::int32_t total = first.count;
  for (const term_block* b = first.next; b != nullptr; b = b->next) total += b->count;

  const word container = new_container(cbt, ring, total, first.layout);
  const term_block view = read_container(cbt, container);
  const auto width = static_cast<std::size_t>(layout_msize(first.layout) + 1);
  word* out = view.terms;
  for (const term_block* b = &first; b != nullptr; b = b->next) {
    const std::size_t words = static_cast<std::size_t>(b->count) * width;
    if (words != 0) std::memcpy(out, b->terms, words * sizeof(word));
    out += words;
  }
  if (characteristic == 0) set_container_big_block(container, copy_big_coefficients(cbt, view));
  return host_unique(cbt, container);
}

word copy_big_coefficients(const callback_table& cbt, const term_block& view) noexcept {
  if (view.count <= 0) return immediate_zero;
  const int msize = layout_msize(view.layout);
  const std::ptrdiff_t stride = msize + 1;
  word* coefficients = view.terms + msize;

  std::int32_t k = 0;
  std::int32_t S = 0;
  for (std::int32_t t = 0; t < view.count; ++t) {
    const word c = coefficients[t * stride];
    if (is_immediate(c)) continue;
    ++k;
    S += record_limb_count(word_to_pointer(c));
  }
  if (k == 0) return immediate_zero;
  if (info_level > 4) host_printf(cbt, "%d GMP coefficients, size (limbs): %d\n", k, S);

  const auto W = static_cast<std::int32_t>(static_cast<word>(3 * k + S) & 0x3fffffffu);
  const host_array block = new_host_array(cbt, W);
  word* out = block.data;
  for (std::int32_t t = 0; t < view.count; ++t) {
    word& c = coefficients[t * stride];
    if (is_immediate(c)) continue;
    const word* record = word_to_pointer(c);
    c = pointer_to_word(out);
    out += copy_record(out, record);
  }
  return block.handle;
}

}  // namespace vorn
