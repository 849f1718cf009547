// Reclaimed host memory: collect() frees what no root reaches, keeps roots
// and everything they reach, keeps the unique table consistent, and reuses
// the space; the window lies below 4 GiB.
#include "host/callbacks.hpp"
#include "support/host_fixture.hpp"

namespace {

using minikelto::word;

class Collect : public host_test {
 protected:
  // (x + ... ) with n terms c*x^i, made unique.
  word polynomial(std::int32_t n, std::int32_t c) {
    std::vector<std::pair<word, word>> terms;
    for (std::int32_t i = 1; i <= n; ++i) {
      terms.emplace_back(unique(prod({{name("x"), i}})), integer(std::int64_t{c} << 40));
    }
    return unique(minikelto::make_sum(terms));
  }
};

TEST_F(Collect, the_window_lies_below_4_gib) {
  const minikelto::window_stats s = minikelto::window_state();
  EXPECT_GT(s.base, 0u);
  EXPECT_LE(std::uint64_t{s.base} + s.reserved, std::uint64_t{0x100000000});
  if (sizeof(void*) == 8) {
    EXPECT_GE(s.base, 0x10000000u);
    EXPECT_LE(s.base + s.reserved, 0x60000000u);
  }
  const word big = minikelto::make_array(1 << 20);
  EXPECT_LT(std::uint64_t{reinterpret_cast<std::uintptr_t>(minikelto::array_data(big))} + (4u << 20),
            std::uint64_t{0x100000000});
}

TEST_F(Collect, unreachable_objects_go_and_roots_keep_what_they_reach) {
  minikelto::collect();
  const std::size_t empty = minikelto::window_state().in_use;

  const word kept = polynomial(50, 3);
  const word assigned = polynomial(40, 5);
  const word passed = funcall("tdeg", {name("u"), name("v")});
  const word arr = minikelto::make_array(100);
  minikelto::object_words(arr);
  minikelto::array_data(arr)[7] = 77;
  const word container = unique(minikelto::make_funcall(name("VORN"), std::vector<word>{integer(1), arr}));
  minikelto::assign(name("f"), assigned);
  minikelto::set_info_level("vorn", integer("123456789012345678901234567890"));
  const std::string kept_text = text(kept);
  const std::string assigned_text = text(assigned);
  polynomial(60, 7);  // garbage
  const std::size_t before = minikelto::window_state().in_use;

  minikelto::root_guard guard(kept);
  const std::size_t freed = minikelto::collect(std::vector<word>{passed, container});
  EXPECT_GT(freed, 0u);
  EXPECT_EQ(minikelto::window_state().in_use, before - freed);
  EXPECT_GT(minikelto::window_state().in_use, empty);

  EXPECT_EQ(text(kept), kept_text);
  EXPECT_EQ(text(*minikelto::value_of(name("f"))), assigned_text);
  EXPECT_EQ(text(passed), "tdeg(u, v)");
  EXPECT_EQ(minikelto::array_data(arr)[7], 77u);
  EXPECT_EQ(text(*minikelto::info_level("vorn")), "123456789012345678901234567890");
  // The unique table still finds the survivors, and rebuilds the dropped one.
  EXPECT_EQ(polynomial(50, 3), kept);
  EXPECT_EQ(funcall("tdeg", {name("u"), name("v")}), passed);
  EXPECT_EQ(text(polynomial(60, 7)), text(polynomial(60, 7)));
  EXPECT_EQ(polynomial(60, 7), polynomial(60, 7));
}

TEST_F(Collect, the_unique_table_finds_every_survivor_among_many_dropped) {
  // Enough entries for the table to grow several times and form long probe
  // runs; a collection empties two slots in three.
  constexpr std::int32_t n = 30000;
  auto monomial = [&](std::int32_t i) { return unique(prod({{name("x"), i + 2}, {name("y"), i % 7 + 1}})); };
  std::vector<word> kept;
  for (std::int32_t i = 0; i < n; ++i) {
    const word m = monomial(i);
    if (i % 3 == 0) kept.push_back(m);
  }
  minikelto::collect(kept);
  for (std::int32_t i = 0; i < n; ++i) {
    const word m = monomial(i);
    if (i % 3 == 0) ASSERT_EQ(m, kept[static_cast<std::size_t>(i / 3)]) << i;
    else ASSERT_EQ(monomial(i), m) << i;
  }
}

using CollectDeathTest = Collect;

TEST_F(CollectDeathTest, collect_refuses_to_run_inside_an_entry_call) {
  // A fork of this process, never a new execution of the program: an i386
  // test program running under an emulator cannot be executed by the kernel.
  GTEST_FLAG_SET(death_test_style, "fast");
  auto body = [](void*) -> word {
    minikelto::collect();
    return 1;
  };
  EXPECT_DEATH(minikelto::call_protected(body, nullptr), "during an entry call");
}

}  // namespace
