// The entry frame: time lines character for character through the clock
// seam, the diagnostics level, num_cpus, and the one translation of failures
// into host errors with nothing left behind.
#include <climits>
#include <cstdint>
#include <string>

#include "exports/entry.hpp"
#include "host/frame.hpp"
#include "host/memory.hpp"
#include "support/host_fixture.hpp"

namespace {

using vorn::time_kind;

vorn::timing sample_timing() {
  vorn::timing t;
  t.cpu_start = 1000000;
  t.phase_begin = 1250000;
  t.phase_end = 1750000;
  t.cpu_end = 2000000;
  t.wall_start = {100, 900000};
  t.wall_end = {102, 100000};  // 1.2 s later, across a second boundary
  return t;
}

class TimeLines : public host_test {
 protected:
  std::string line(time_kind kind, const vorn::timing& t, std::int32_t level) {
    set_info_level(level);
    vorn::read_info_level(cbt());
    vorn::report_time(cbt(), kind, t);
    return output();
  }
};

TEST_F(TimeLines, EachKindHasItsFormatAndThreshold) {
  const vorn::timing t = sample_timing();
  // Export: the first figure runs from the start to the first mark.
  const struct {
    time_kind kind;
    std::int32_t level;
    const char* text;
  } cases[] = {
      {time_kind::arithmetic, 2, "time: 1.000 sec   alg: 0.500 sec   io: 0.500 sec   real: 1.200 sec   0.833x\n"},
      {time_kind::import, 3, "time: 1.000 sec   import: 0.500 sec   sort: 0.500 sec   real: 1.200 sec   0.833x\n"},
      {time_kind::export_, 3, "time: 1.000 sec   export: 0.250 sec   simp: 0.500 sec   real: 1.200 sec   0.833x\n"}};
  for (const auto& c : cases) {
    EXPECT_EQ(line(c.kind, t, c.level - 1), "");
    EXPECT_EQ(line(c.kind, t, c.level), c.text);
  }
}

TEST_F(TimeLines, ACallWithinOneTickPrintsZero) {
  vorn::timing t = sample_timing();
  t.phase_begin = t.phase_end = t.cpu_end = t.cpu_start;
  EXPECT_EQ(line(time_kind::arithmetic, t, 5),
            "time: 0.000 sec   alg: 0.000 sec   io: 0.000 sec   real: 1.200 sec   0.000x\n");
}

TEST_F(TimeLines, IntervalsAreSigned32BitDifferences) {
  // The processor clock wraps past INT_MAX: the difference still holds.
  vorn::timing t = sample_timing();
  t.cpu_start = INT_MAX - 499999;
  t.phase_begin = t.cpu_start;
  t.phase_end = INT_MIN + 250000;
  t.cpu_end = INT_MIN + 500000;
  EXPECT_EQ(line(time_kind::arithmetic, t, 2),
            "time: 1.000 sec   alg: 0.750 sec   io: 0.250 sec   real: 1.200 sec   0.833x\n");
}

class InfoLevel : public host_test {};

TEST_F(InfoLevel, UnassignedOrNotAnIntegerReadsAsZero) {
  set_info_level(4);
  vorn::read_info_level(cbt());
  EXPECT_EQ(vorn::info_level, 4);
  unset_info_level();
  vorn::read_info_level(cbt());
  EXPECT_EQ(vorn::info_level, 0);
  minikelto::set_info_level("vorn", name("high"));
  vorn::info_level = 9;
  vorn::read_info_level(cbt());
  EXPECT_EQ(vorn::info_level, 0);
}

class NumCpus : public host_test {};

TEST_F(NumCpus, AnswersOneWhateverWasAsked) {
  vorn::worker_count = 5;
  EXPECT_EQ(call_ok("num_cpus", {}), vorn::immediate_one);
  EXPECT_EQ(vorn::worker_count, 1);
  vorn::worker_count = 5;
  EXPECT_EQ(call_ok("num_cpus", {integer(8)}), vorn::immediate_one);
  EXPECT_EQ(vorn::worker_count, 1);
  EXPECT_EQ(call_error("num_cpus", {name("x")}), "first argument must be an immediate integer");
  EXPECT_EQ(call_error("num_cpus", {integer("100000000000000000000")}),
            "first argument must be an immediate integer");
  EXPECT_EQ(output(), "");  // it prints nothing and reads no level
}

// A test-only entry: three allocations of the kinds entries make, released on
// every exit by their owners, then a failure of its own.
extern "C" vorn_word allocating_entry(const vorn_callback_table* cbt, vorn_word) noexcept {
  return vorn::guarded(cbt, [&] {
    vorn::tracked_list scratch;
    scratch.take(100, sizeof(vorn::word));
    vorn::gateway_array<vorn::word> plain;
    plain.data = static_cast<vorn::word*>(vorn::gateway_take(50, sizeof(vorn::word)));
    scratch.take(1, 1 << 20);
    if (vorn::host_check_interrupt(*cbt)) vorn::fail("Interrupted");
    return vorn::immediate_one;
  });
}

extern "C" vorn_word throwing_entry(const vorn_callback_table* cbt, vorn_word) noexcept {
  return vorn::guarded(cbt, []() -> vorn::word { throw 42; });
}

class EntryFrame : public host_test {};

TEST_F(EntryFrame, AFailedAllocationRaisesOutOfMemoryWithNothingHeld) {
  const auto start = vorn::gateway_state().live_blocks;
  for (int n = 1; n <= 3; ++n) {
    vorn::gateway_fail_at(n);
    const minikelto::call_result r = minikelto::call_entry(allocating_entry, {});
    EXPECT_FALSE(r.ok) << n;
    EXPECT_EQ(r.error, "out of memory") << n;
    EXPECT_EQ(vorn::gateway_state().live_blocks, start) << n;
  }
  vorn::gateway_fail_at(0);
  EXPECT_TRUE(minikelto::call_entry(allocating_entry, {}).ok);  // the host is still usable
  interrupt_from_poll(1);
  EXPECT_EQ(minikelto::call_entry(allocating_entry, {}).error, "Interrupted");
  EXPECT_EQ(vorn::gateway_state().live_blocks, start);
}

TEST_F(EntryFrame, AnUnexpectedExceptionIsAnInternalError) {
  EXPECT_EQ(minikelto::call_entry(throwing_entry, {}).error, "internal error");
}

TEST_F(EntryFrame, SizesThatOverflowAreOutOfMemory) {
  EXPECT_THROW(vorn::checked_bytes(SIZE_MAX / 2, 3), vorn::error);
  EXPECT_EQ(vorn::checked_bytes(3, 5), 15u);
}

}  // namespace
