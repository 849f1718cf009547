// The shared test fixture's implementation.
#include "support/host_fixture.hpp"

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
