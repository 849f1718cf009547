// Fault sweeps: a representative call of every entry, with results of
// several blocks, is run once to count its allocations and interrupt polls;
// then the N-th allocation is made to fail, and separately the N-th poll to
// answer "interrupt", for every N up to those counts.  Each fault must end in
// its message with nothing held by the library, and the host must then run
// the same call to the same answer.
//
// The counts are pinned in the table, so a new allocation site or poll point
// shows up here as a changed count (update the table once the new site's
// failure path is known to be covered by the sweep).
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "host/memory.hpp"
#include "minikelto/expand.hpp"
#include "minikelto/polynomial.hpp"
#include "poly/container.hpp"
#include "poly/pack.hpp"
#include "poly/term_block.hpp"
#include "support/host_fixture.hpp"

namespace {

using word = minikelto::word;

// One representative call.  `prepare` makes what the call consumes (it runs
// before the fault is armed), `run` is the entry call alone, `answer`
// describes a successful result, `release` frees what a successful call
// leaves to its caller.
struct sweep_case {
  const char* name;
  std::int64_t allocations;  // pinned counts
  std::int64_t polls;
  std::function<void()> prepare;
  std::function<minikelto::call_result()> run;
  std::function<std::string(const minikelto::call_result&)> answer;
  std::function<void()> release;
};

class FaultSweep : public host_test {
 protected:
  void SetUp() override {
    host_test::SetUp();
    const word x = name("x"), y = name("y"), z = name("z"), t = name("t");
    ring = funcall("tdeg", {x, y, z, t});
    const word s = minikelto::add(minikelto::add(minikelto::add(minikelto::add(integer(1), x), y), z), t);
    f = minikelto::expand(minikelto::power(s, integer(7)));  // 330 terms
    g = minikelto::expand(minikelto::add(minikelto::power(s, integer(7)), integer(1)));
    const word p = integer(32003);
    A = import(f, p);
    B = import(g, p);
    C = call_ok("mul_vorn", {p, A, B});  // 3060 terms, over several blocks
    big = call_ok("kelto2vorn", {minikelto::add(f, integer("123456789012345678901234567890")), ring});
    for (const word h : {ring, f, g, A, B, C, big}) minikelto::add_root(h);
    packing = vorn::make_layout(cbt(), ring, 4);
  }
  void TearDown() override {
    packing.layout.reset();
    host_test::TearDown();
  }

  word import(word polynomial, word p) {
    return call_ok("kelto2vorn", {polynomial, ring, option("pack", 4), equation(name("characteristic"), p)});
  }

  std::string read_back(const minikelto::call_result& r) {
    vorn::gateway_fail_at(0);
    interrupt_from_poll(0);
    return text(call_ok("vorn2kelto", {r.value}));
  }

  std::vector<sweep_case> cases();

  word ring = 0, f = 0, g = 0, A = 0, B = 0, C = 0, big = 0;
  vorn::packing packing{};

  // The fraction export's caller state: its blocks and chain.
  vorn::term_block* fraction_blocks = nullptr;
  void* chain = nullptr;
  void make_fraction_blocks();
  static word run_fraction_export(void* context);
};

// Two blocks of fraction terms (x^i y^j, numerator, denominator), denominators
// dividing one another along the list, numerators big enough for the pool.
void FaultSweep::make_fraction_blocks() {
  const int msize = vorn::layout_msize(packing.layout.get());
  const word huge = integer("98765432109876543210987654321");
  const word* record = vorn::integer_record(huge);
  vorn::term_block** link = &fraction_blocks;
  std::int32_t d = 1;
  for (int b = 0; b < 2; ++b) {
    vorn::term_block* block = vorn::alloc_term_block(20, packing.layout.get(), 2);
    ASSERT_NE(block, nullptr);
    for (std::int32_t k = 0; k < 20; ++k) {
      word* at = block->terms + k * (msize + 2);
      const std::uint32_t e[4] = {static_cast<std::uint32_t>(40 - 20 * b - k), 0, 0, 0};
      for (int i = 0; i < msize; ++i) at[i] = 0;
      vorn::pack_tdeg(at, e, 4, 8);
      at[msize] = k % 3 == 0 ? vorn::pointer_to_word(record) : minikelto::make_immediate(k + 1);
      at[msize + 1] = minikelto::make_immediate(d);
      if (k % 7 == 6) d *= 2;
    }
    *link = block;
    link = &block->next;
  }
}

word FaultSweep::run_fraction_export(void* context) {
  auto* self = static_cast<FaultSweep*>(context);
  vorn::term_block* first = self->fraction_blocks;
  return export_vorn_frac(&minikelto::callbacks(), first->terms, first->layout, first->count, first->next,
                          self->ring, minikelto::make_immediate(1 << 12), &self->chain);
}

std::vector<sweep_case> FaultSweep::cases() {
  const word p = integer(32003);
  const auto container_answer = [this](const minikelto::call_result& r) { return read_back(r); };
  const auto nothing = [] {};
  // Names are looked up at each call: collect() reclaims an unassigned one.
  const auto q = [this] { return name("q"); };
  const auto one = [this] { return name("one"); };
  std::vector<sweep_case> all = {
      {"kelto2vorn", 1, 0, nothing,
       [=, this] { return call("kelto2vorn", {minikelto::add(f, integer("-98765432109876543210")), ring, option("pack", 2)}); },
       container_answer, nothing},
      {"vorn2kelto", 0, 0, nothing, [=, this] { return call("vorn2kelto", {big}); },
       [this](const minikelto::call_result& r) { return text(r.value); }, nothing},
      {"repackvorn", 1, 0, nothing,
       [=, this] { return call("repackvorn", {big, funcall("plex", {name("t"), name("z"), name("y"), name("x")}), option("pack", 2), option("characteristic", 101)}); },
       container_answer, nothing},
      {"mul_vorn", 7, 2, nothing, [=, this] { return call("mul_vorn", {p, A, B}); }, container_answer, nothing},
      {"ads_vorn add", 3, 2, nothing, [=, this] { return call("ads_vorn", {p, integer(0), C, A}); }, container_answer, nothing},
      {"ads_vorn subtract", 3, 2, nothing, [=, this] { return call("ads_vorn", {p, integer(1), A, C}); }, container_answer, nothing},
      {"scl_vorn", 0, 0, nothing, [=, this] { return call("scl_vorn", {p, integer(-7), integer(12), C}); }, container_answer, nothing},
      {"div_vorn exact", 18, 1, [] { minikelto::unassign(minikelto::make_name("q")); },
       [=, this] { return call("div_vorn", {p, C, B, one(), q()}); },
       [=, this](const minikelto::call_result& r) {
         const auto quotient = minikelto::value_of(q());
         return text(r.value) + " " + (quotient ? read_back({true, *quotient, ""}) : "-");
       },
       nothing},
      {"div_vorn not dividing", 11, 0, nothing, [=, this] { return call("div_vorn", {p, B, A, one(), q()}); },
       [this](const minikelto::call_result& r) { return text(r.value); }, nothing},
      {"export_vorn_frac", 1, 1, [this] { make_fraction_blocks(); },
       [this] { return minikelto::call_protected(run_fraction_export, this); }, container_answer,
       [this] {
         vorn::free_term_blocks(fraction_blocks);
         vorn::free_tracked(&chain);
       }},
  };
  return all;
}

struct measured {
  minikelto::call_result result;
  std::int64_t allocations;
  std::int64_t polls;
};

TEST_F(FaultSweep, EveryAllocationAndPollOfEveryEntry) {
  for (const sweep_case& c : cases()) {
    SCOPED_TRACE(c.name);
    // The clean run: counts and the answer every later run must give again.
    c.prepare();
    interrupt_from_poll(0);
    const std::int64_t allocations_before = vorn::gateway_state().allocations;
    const minikelto::call_result clean = c.run();
    const std::int64_t allocations = vorn::gateway_state().allocations - allocations_before;
    const std::int64_t poll_count = polls();
    ASSERT_TRUE(clean.ok) << clean.error;
    const std::string answer = c.answer(clean);
    c.release();
    std::printf("%-22s %3lld allocations %3lld polls\n", c.name, static_cast<long long>(allocations),
                static_cast<long long>(poll_count));
    EXPECT_EQ(allocations, c.allocations) << "allocation sites changed: update the table";
    EXPECT_EQ(poll_count, c.polls) << "poll points changed: update the table";

    const std::int64_t live = vorn::gateway_state().live_blocks;
    for (const bool interrupt : {false, true}) {
      const std::int64_t faults = interrupt ? poll_count : allocations;
      for (std::int64_t n = 1; n <= faults; ++n) {
        SCOPED_TRACE((interrupt ? "poll " : "allocation ") + std::to_string(n));
        c.prepare();
        const std::int64_t live_before_call = vorn::gateway_state().live_blocks;
        if (interrupt) interrupt_from_poll(n);
        else vorn::gateway_fail_at(n);
        const minikelto::call_result r = c.run();
        vorn::gateway_fail_at(0);
        interrupt_from_poll(0);
        ASSERT_FALSE(r.ok) << "the fault went unnoticed";
        EXPECT_EQ(r.error, interrupt ? "Interrupted" : "out of memory");
        // A failed fraction export releases the caller's blocks and chain too.
        if (c.name == std::string_view("export_vorn_frac")) {
          EXPECT_EQ(chain, nullptr);
          fraction_blocks = nullptr;
        } else {
          EXPECT_EQ(vorn::gateway_state().live_blocks, live_before_call);
        }
        EXPECT_EQ(vorn::gateway_state().live_blocks, live) << "a block outlived the failed call";
        // The host is usable: the same call gives the same answer.
        c.prepare();
        const minikelto::call_result again = c.run();
        ASSERT_TRUE(again.ok) << again.error;
        EXPECT_EQ(c.answer(again), answer);
        c.release();
        minikelto::collect();
      }
    }
  }
}

}  // namespace
