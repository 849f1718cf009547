// The entry frame: the diagnostics level, the clocks and the time lines.
//
// Clocks are read through one seam that tests replace, so a time line can be
// checked character for character.  Every interval is a signed 32-bit
// microsecond difference, which covers calls of up to 2147 seconds.
#pragma once

#include <cstdint>

#include "host/words.hpp"

namespace vorn {

// The host's diagnostics level as read by the last entry; 0 until then.
extern std::int32_t info_level;
// Set by num_cpus and read by nothing: every computation runs on the calling thread.
extern std::int32_t worker_count;

struct wall_time {
  std::int32_t seconds;
  std::int32_t microseconds;
};

// The clock seam.  Null members mean the real clock (clock(), gettimeofday).
struct clock_source {
  std::int32_t (*cpu)() = nullptr;
  wall_time (*wall)() = nullptr;
};
void set_clock_source(const clock_source& source) noexcept;

std::int32_t cpu_clock() noexcept;
wall_time wall_clock() noexcept;

// One entry call's clock readings.  The phase marks are the entry's: around
// the computation (arithmetic), around the sort (import), or before and after
// host_unique (export, whose cpu end is the second mark).
struct timing {
  std::int32_t cpu_start = 0;
  wall_time wall_start{};
  std::int32_t phase_begin = 0;
  std::int32_t phase_end = 0;
  std::int32_t cpu_end = 0;
  wall_time wall_end{};

  // cpu start first, then the wall clock.
  void start() noexcept {
    cpu_start = cpu_clock();
    wall_start = wall_clock();
  }
  // cpu end, then the wall clock, read last.
  void stop() noexcept {
    cpu_end = cpu_clock();
    wall_end = wall_clock();
  }
};

enum class time_kind { arithmetic, import, export_ };

// Refreshes info_level from the host's "infolevel[vorn]"; a value that is not
// an integer reads as 0.
void read_info_level(const callback_table& cbt) noexcept;

// Prints the time line of the kind when info_level is above its threshold.
void report_time(const callback_table& cbt, time_kind kind, const timing& t) noexcept;

// What every entry does first: the clocks started, then info_level refreshed.
inline timing begin_entry(const callback_table& cbt) noexcept {
  timing t;
  t.start();
  read_info_level(cbt);
  return t;
}

}  // namespace vorn
