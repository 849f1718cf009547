// Seeds of the randomized tests.  Every randomized test starts from a fixed
// seed of its own, so each run draws the same cases; VORN_TEST_SEED=N moves
// all of them to other cases at once (N mixed with each test's own seed), and
// the failure messages name the seed so a failing case can be drawn again.
#pragma once

#include <cstdint>
#include <string>

namespace vorn::test {

// The seed for a test whose fixed seed is `fixed`: `fixed` itself unless
// VORN_TEST_SEED is set.
std::uint32_t test_seed(std::uint32_t fixed);

// "seed S (VORN_TEST_SEED=N)" or "seed S (default)", for failure messages.
std::string seed_note(std::uint32_t seed);

}  // namespace vorn::test
