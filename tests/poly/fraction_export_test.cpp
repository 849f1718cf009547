// The fraction export through its native entry: coefficients scaled to a
// common denominator, the immediate limit, the pool's growth, and an
// interrupt or a failed pool allocation that leave nothing behind.
#include <gmp.h>

#include <string>
#include <vector>

#include "host/frame.hpp"
#include "host/memory.hpp"
#include "poly/container.hpp"
#include "poly/container_check.hpp"
#include "poly/fraction_export.hpp"
#include "poly/pack.hpp"
#include "poly/term_block.hpp"
#include "support/host_fixture.hpp"

namespace {

using word = minikelto::word;

// One fraction term: exponents of (x, y), numerator and denominator words.
struct fraction {
  std::uint32_t ex, ey;
  word numerator, denominator;
};

class FractionExport : public host_test {
 protected:
  word ring = 0;
  vorn::packing packing{};
  void* chain = nullptr;

  void SetUp() override {
    host_test::SetUp();
    ring = funcall("plex", {name("x"), name("y")});
    packing = vorn::make_layout(cbt(), ring, 2);
  }
  // A coefficient word: the immediate itself, or the address of a big integer's record.
  word value(std::string_view decimal) {
    const word h = integer(decimal);
    return vorn::is_immediate(h) ? h : vorn::pointer_to_word(vorn::integer_record(h));
  }

  void TearDown() override {
    vorn::free_tracked(&chain);
    packing.layout.reset();
    vorn::info_level = 0;
    host_test::TearDown();
  }

  // Blocks of the given sizes (the caller's list), filled with `terms` in order.
  vorn::term_block* blocks(const std::vector<std::int32_t>& sizes, const std::vector<fraction>& terms) {
    vorn::term_block* first = nullptr;
    vorn::term_block** link = &first;
    std::size_t t = 0;
    for (const std::int32_t size : sizes) {
      vorn::term_block* b = vorn::alloc_term_block(size, packing.layout.get(), 2);
      for (std::int32_t k = 0; k < size; ++k, ++t) {
        word* at = b->terms + k * 3;
        at[0] = 0;
        const std::uint32_t e[2] = {terms[t].ex, terms[t].ey};
        vorn::pack_plex(at, e, 2, 16);
        at[1] = terms[t].numerator;
        at[2] = terms[t].denominator;
      }
      *link = b;
      link = &b->next;
    }
    return first;
  }

  struct call_context {
    const vorn_callback_table* cbt;
    vorn::term_block* first;
    word ring;
    word scale;
    void** chain;
  };
  static word run(void* context) {
    auto* c = static_cast<call_context*>(context);
    return export_vorn_frac(c->cbt, c->first->terms, c->first->layout, c->first->count, c->first->next, c->ring,
                            c->scale, c->chain);
  }
  minikelto::call_result export_fractions(vorn::term_block* first, word scale) {
    call_context context{&cbt(), first, ring, scale, &chain};
    return minikelto::call_protected(run, &context);
  }

  // The exported polynomial, after checking the container.
  std::string exported(const minikelto::call_result& r) {
    EXPECT_TRUE(r.ok) << r.error;
    const vorn::container_fault f = vorn::check_container(cbt(), r.value, {0, true});
    EXPECT_TRUE(f.ok()) << f.problem;
    return text(call_ok("vorn2kelto", {r.value}));
  }
};

TEST_F(FractionExport, ScalesToTheCommonDenominator) {
  // 3/2 x^2 + 5/2 x y + 1/6 y with L = 6, over two blocks and an empty last one.
  const std::vector<fraction> terms{{2, 0, integer(3), integer(2)}, {1, 1, integer(5), integer(2)}, {0, 1, integer(1), integer(6)}};
  vorn::term_block* list = blocks({2, 1, 0}, terms);
  EXPECT_EQ(exported(export_fractions(list, integer(6))), "y + 15*x*y + 9*x^2");
  vorn::free_term_blocks(list);

  list = blocks({0}, {});
  EXPECT_EQ(exported(export_fractions(list, integer(6))), "0");
  vorn::free_term_blocks(list);
  EXPECT_EQ(chain, nullptr);  // nothing went to the pool
}

TEST_F(FractionExport, ImmediatesEndAtMaxImmediate) {
  // numerator * (L / D) = +-0x3fffffff stays immediate; -2^30 and beyond go to the pool.
  const std::vector<fraction> terms{{3, 0, integer(0x3fffffff), integer(1)},
                                    {2, 0, integer(-0x3fffffff), integer(1)},
                                    {1, 0, integer(-(std::int64_t{1} << 29)), integer(1)},
                                    {0, 0, integer(0x3fffffff), integer(1)}};
  vorn::term_block* list = blocks({4}, terms);
  const minikelto::call_result r = export_fractions(list, integer(2));
  vorn::free_term_blocks(list);
  ASSERT_TRUE(r.ok) << r.error;
  const vorn::term_block v = vorn::read_container(cbt(), r.value);
  const int msize = vorn::layout_msize(v.layout);
  // With L = 2 and D = 1 every value doubles: 0x7ffffffe is big, and so is -2^30.
  EXPECT_FALSE(vorn::is_immediate(v.terms[msize]));
  EXPECT_FALSE(vorn::is_immediate(v.terms[3 * (msize + 1) - 1]));  // -2^30
  // A record keeps T's allocation on i386 (room for 120 bits: 4 limbs) and
  // counts its one limb on LP64.
  EXPECT_EQ(vorn::word_to_pointer<const word>(v.terms[msize])[0], sizeof(void*) == 4 ? 4u : 1u);
  EXPECT_EQ(exported(r), "2147483646 + -1073741824*x + -2147483646*x^2 + 2147483646*x^3");

  // 0x3fffffff = 3 * 357913941.
  list = blocks({2}, {{1, 0, integer(357913941), integer(1)}, {0, 0, integer(-357913941), integer(1)}});
  const minikelto::call_result same = export_fractions(list, integer(3));
  vorn::free_term_blocks(list);
  const vorn::term_block w = vorn::read_container(cbt(), same.value);
  EXPECT_EQ(w.terms[msize], integer(0x3fffffff));
  EXPECT_EQ(w.terms[2 * (msize + 1) - 1], integer(-0x3fffffff));
}

TEST_F(FractionExport, PoolGrowth) {
  EXPECT_EQ(vorn::pool_chunk_bytes(20, 0), 328u);
  EXPECT_EQ(vorn::pool_chunk_bytes(20, 328), 664u);
  // Halves go to the even neighbour: 17 * 1.5 = 25.5 -> 26, 19 * 1.5 = 28.5 -> 28.
  EXPECT_EQ(vorn::pool_chunk_bytes(1, 1), 26u);
  EXPECT_EQ(vorn::pool_chunk_bytes(1, 3), 28u);

  vorn::info_level = 5;
  std::vector<fraction> terms;
  for (std::uint32_t k = 0; k < 20; ++k) terms.push_back({20 - k, 0, value("100000000000000000000"), integer(1)});
  vorn::term_block* list = blocks({20}, terms);
  const minikelto::call_result r = export_fractions(list, integer(3));
  vorn::free_term_blocks(list);
  ASSERT_TRUE(r.ok) << r.error;
  // Records of 3 limbs (need 24): chunks of 392 and 792 bytes hold the 20 products.
  EXPECT_EQ(output(), "alloc 0 kbytes GMP\nalloc 0 kbytes GMP\n20 GMP coefficients, size (limbs): 60\n");
}

TEST_F(FractionExport, InterruptAndFailedPoolLeaveNothingBehind) {
  const std::vector<fraction> terms{{1, 0, integer(3), integer(1)}, {0, 0, value("100000000000000000000"), integer(1)}};
  for (const bool interrupt : {true, false}) {
    SCOPED_TRACE(interrupt ? "interrupt" : "failed allocation");
    vorn::term_block* list = blocks({1, 1}, terms);
    void* earlier = vorn::tracked_alloc(&chain, 64);  // the caller's own block on its chain
    ASSERT_NE(earlier, nullptr);
    if (interrupt) interrupt_from_poll(1);
    else vorn::gateway_fail_at(1);
    const minikelto::call_result r = export_fractions(list, integer(2));
    EXPECT_FALSE(r.ok);
    EXPECT_EQ(r.error, interrupt ? "Interrupted" : "out of memory");
    EXPECT_EQ(chain, nullptr);
    interrupt_from_poll(0);
    vorn::gateway_fail_at(0);
  }
}

}  // namespace
