// The shared test fixture's implementation.
#include "support/host_fixture.hpp"
#include "support/test_seed.hpp"

#include <cstdlib>

#include "host/frame.hpp"
#include "host/memory.hpp"
#include "vorn.h"

void host_test::SetUp() {
  minikelto::reset();
  minikelto::capture_output(true);
  vorn::gateway_fail_at(0);
  vorn::set_clock_source({});
  live_blocks_at_start_ = vorn::gateway_state().live_blocks;
}

void host_test::TearDown() {
  vorn::gateway_fail_at(0);
  vorn::set_clock_source({});
  EXPECT_EQ(vorn::gateway_state().live_blocks, live_blocks_at_start_)
      << "the library still holds memory at the end of the test";
  minikelto::capture_output(false);
}

bool host_test::has_entry(std::string_view entry) const {
  return minikelto::find_symbol(linked_plugin(), entry) != nullptr;
}

minikelto::call_result host_test::call(std::string_view entry, std::initializer_list<word> arguments) {
  return minikelto::call_entry(linked_plugin(), entry, arguments);
}

minikelto::word host_test::call_ok(std::string_view entry, std::initializer_list<word> arguments) {
  const minikelto::call_result r = call(entry, arguments);
  if (!r.ok) {
    ADD_FAILURE() << entry << " raised \"" << r.error << "\"";
    return 0;
  }
  return r.value;
}

std::string host_test::call_error(std::string_view entry, std::initializer_list<word> arguments) {
  const minikelto::call_result r = call(entry, arguments);
  if (r.ok) {
    ADD_FAILURE() << entry << " returned " << minikelto::describe(r.value) << " instead of raising";
    return "";
  }
  return r.error;
}

minikelto::word host_test::integer(std::string_view decimal) {
  const auto h = minikelto::parse_integer(decimal);
  if (!h) {
    ADD_FAILURE() << "not an integer: " << decimal;
    return minikelto::make_immediate(0);
  }
  return *h;
}

minikelto::word host_test::prod(std::initializer_list<std::pair<word, std::int32_t>> factors) {
  std::vector<std::pair<word, word>> pairs;
  for (const auto& [base, exponent] : factors) pairs.emplace_back(base, minikelto::make_immediate(exponent));
  return minikelto::make_prod(pairs);
}

minikelto::word host_test::funcall(std::string_view function, std::initializer_list<word> arguments) {
  return minikelto::unique(minikelto::make_funcall(name(function), arguments));
}

namespace vorn::test {

namespace {
// The value of VORN_TEST_SEED; nullptr when unset or empty.
const char* seed_variable() {
  const char* v = std::getenv("VORN_TEST_SEED");
  return v != nullptr && *v != '\0' ? v : nullptr;
}
}  // namespace

std::uint32_t test_seed(std::uint32_t fixed) {
  const char* v = seed_variable();
  if (v == nullptr) return fixed;
  // splitmix64 of both, so nearby values of either give unrelated streams.
  std::uint64_t z = std::strtoull(v, nullptr, 10) * 0x9e3779b97f4a7c15ull + fixed;
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
  return static_cast<std::uint32_t>(z ^ (z >> 31));
}

std::string seed_note(std::uint32_t seed) {
  const char* v = seed_variable();
  return "seed " + std::to_string(seed) + (v != nullptr ? " (VORN_TEST_SEED=" + std::string(v) + ")" : " (default)");
}

}  // namespace vorn::test
