// repackvorn: unpack, remap and pack each term once into a container of the
// input's size, shrunk in place when terms vanish.
#include "poly/repack.hpp"

#include <cstddef>

#include "host/error.hpp"
#include "host/frame.hpp"
#include "host/gmp_record.hpp"
#include "poly/container.hpp"
#include "poly/exponent_buffer.hpp"
#include "poly/import.hpp"
#include "poly/options.hpp"

namespace vorn {

namespace {

// What convert_terms needs of one side of the conversion.
struct ring_side {
  word variables;  // the variable SEQ
  const word* layout;
};

// Re-encodes n terms from `source` into the zeroed `dest`; with p > 0 the
// coefficients become residues (truncating for immediates, floor for big
// integers) and terms whose residue is 0 are dropped, the survivors keeping
// their order.  Returns the number dropped.  Raises "exponent overflow" for a
// surviving term that does not fit the new fields, and "out of memory".
std::int32_t convert_terms(const word* source, word* dest, ring_side from, ring_side to,
                           unpack_routine unpack, pack_routine pack, bool graded, std::int32_t n,
                           std::int32_t p) {
  const int nold = seq_count(from.variables);
  const int nnew = seq_count(to.variables);
  const int old_shift = layout_shift(from.layout);
  const int new_shift = layout_shift(to.layout);
  const int old_msize = layout_msize(from.layout);
  const int new_msize = layout_msize(to.layout);
  const std::ptrdiff_t source_stride = old_msize + 1;
  const std::ptrdiff_t dest_stride = new_msize + 1;

  exponent_buffer old_buffer(static_cast<std::size_t>(nold) + 1);
  exponent_buffer new_buffer(static_cast<std::size_t>(nnew));
  exponent_buffer map_buffer(static_cast<std::size_t>(nnew));
  std::uint32_t* old_e = old_buffer.data;
  std::uint32_t* new_e = new_buffer.data;
  std::uint32_t* map = map_buffer.data;

  // Index nold is always 0: the exponent of a variable the old ring lacks.
  old_e[nold] = 0;
  const word* old_variables = object_words(from.variables) + 1;
  const word* new_variables = object_words(to.variables) + 1;
  for (int j = 0; j < nnew; ++j) {
    map[j] = static_cast<std::uint32_t>(nold);
    for (int i = 0; i < nold; ++i) {
      if (old_variables[i] == new_variables[j]) {
        map[j] = static_cast<std::uint32_t>(i);
        break;
      }
    }
  }

  word* out = dest;
  for (std::int32_t t = 0; t < n; ++t, source += source_stride) {
    word c = source[old_msize];
    if (p != 0) {
      const std::int32_t r = coefficient_residue(c, p);
      if (r == 0) continue;
      c = make_immediate(r);
    }
    unpack(source, old_e, nold, old_shift);
    for (int j = 0; j < nnew; ++j) new_e[j] = old_e[map[j]];
    if (!exponents_fit(new_e, nnew, new_shift, graded)) fail("exponent overflow");
    pack(out, new_e, nnew, new_shift);
    out[new_msize] = c;
    out += dest_stride;
  }
  return n - static_cast<std::int32_t>((out - dest) / dest_stride);
}

}  // namespace

word repack_polynomial(const callback_table& cbt, word args) {
  timing t = begin_entry(cbt);

  const std::int32_t argc = seq_count(args);
  if (argc < 1) fail("expecting a polynomial");
  const word A = object_word(args, 1);
  if (argc == 1) return A;
  if (!is_container(cbt, A)) fail("invalid argument");

  const term_block old_view = read_container(cbt, A);
  const int old_shift = layout_shift(old_view.layout);
  const int old_msize = layout_msize(old_view.layout);
  const word old_ring = container_ring(A);
  // A new ring, when given, comes first.
  const bool ring_given = handle_type(object_word(args, 2)) == funcall;
  const word new_ring = ring_given ? object_word(args, 2) : old_ring;
  const conversion_options options = read_options(cbt, args, ring_given ? 3 : 2, {32 / old_shift, 0});
  const std::int32_t p = options.characteristic;
  if (p == 0 && new_ring == old_ring && options.pack == 32 / old_shift) return A;

  const unpacking unpacked = order_unpacker(cbt, old_ring);
  if (info_level > 3) host_printf(cbt, "pack=%d shift=%d msize=%d -> ", 32 / old_shift, old_shift, old_msize);
  packing packed = make_layout(cbt, new_ring, options.pack);
  const word* layout = packed.layout.get();
  if (info_level > 3)
    host_printf(cbt, "pack=%d shift=%d msize=%d\n", options.pack, layout_shift(layout), layout_msize(layout));

  const std::int32_t n = old_view.count;
  const word container = new_container(cbt, new_ring, n, layout);
  term_block view = read_container(cbt, container);
  const std::int32_t vanished =
      convert_terms(old_view.terms, view.terms, {unpacked.variables, old_view.layout}, {packed.variables, layout},
                    unpacked.unpack, packed.pack, packed.order != monomial_order::plex, n, p);
  bool sort = new_ring != old_ring;
  if (vanished > 0) {
    if (info_level > 2) host_printf(cbt, "%d out of %d terms vanished mod %ld\n", vanished, n, static_cast<long>(p));
    set_term_count(cbt, container, n - vanished);
    view = read_container(cbt, container);
    sort = true;
  }
  return finish_conversion(cbt, t, container, view, sort, packed.layout);
}

}  // namespace vorn
