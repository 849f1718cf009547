// The entry frame's clocks, level and time lines.
#include "host/frame.hpp"

#include <sys/time.h>

#include <ctime>

#include "host/callbacks.hpp"

namespace vorn {

std::int32_t info_level = 0;
std::int32_t worker_count = 1;

namespace {

clock_source seam;

std::int32_t real_cpu_clock() {
  // Truncated to 32 bits before any difference is taken.
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(std::clock()));
}

wall_time real_wall_clock() {
  timeval tv{};
  gettimeofday(&tv, nullptr);
  return {static_cast<std::int32_t>(tv.tv_sec), static_cast<std::int32_t>(tv.tv_usec)};
}

// Differences wrap like the host's 32-bit arithmetic instead of overflowing.
std::int32_t minus(std::int32_t a, std::int32_t b) {
  return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}

std::int32_t real_microseconds(const wall_time& start, const wall_time& end) {
  const auto seconds = static_cast<std::uint32_t>(minus(end.seconds, start.seconds));
  const auto micro = static_cast<std::uint32_t>(minus(end.microseconds, start.microseconds));
  return static_cast<std::int32_t>(seconds * 1000000u + micro);
}

long double extended_seconds(std::int32_t microseconds) {
  return static_cast<long double>(microseconds) / 1000000.0f;
}

double seconds(std::int32_t microseconds) { return static_cast<double>(extended_seconds(microseconds)); }

}  // namespace

void set_clock_source(const clock_source& source) noexcept { seam = source; }

std::int32_t cpu_clock() noexcept { return seam.cpu ? seam.cpu() : real_cpu_clock(); }

wall_time wall_clock() noexcept { return seam.wall ? seam.wall() : real_wall_clock(); }

void read_info_level(const callback_table& cbt) noexcept {
  const word v = host_eval_string(cbt, "infolevel[vorn]");
  info_level = host_is_integer(cbt, v) ? host_to_int32(cbt, v) : 0;
}

void report_time(const callback_table& cbt, time_kind kind, const timing& t) noexcept {
  const std::int32_t threshold = kind == time_kind::arithmetic ? 1 : 2;
  if (info_level <= threshold) return;

  const std::int32_t time = minus(t.cpu_end, t.cpu_start);
  const std::int32_t real = real_microseconds(t.wall_start, t.wall_end);
  const std::int32_t phase = minus(t.phase_end, t.phase_begin);
  const long double ratio = extended_seconds(time) / extended_seconds(real);

  switch (kind) {
    case time_kind::arithmetic:
      host_printf(cbt, "time: %.3f sec   alg: %.3f sec   io: %.3f sec   real: %.3f sec   %.3fx\n",
                  seconds(time), seconds(phase), seconds(minus(time, phase)), seconds(real),
                  static_cast<double>(ratio));
      break;
    case time_kind::import:
      host_printf(cbt, "time: %.3f sec   import: %.3f sec   sort: %.3f sec   real: %.3f sec   %.3fx\n",
                  seconds(time), seconds(minus(time, phase)), seconds(phase), seconds(real),
                  static_cast<double>(ratio));
      break;
    case time_kind::export_:
      host_printf(cbt, "time: %.3f sec   export: %.3f sec   simp: %.3f sec   real: %.3f sec   %.3fx\n",
                  seconds(time), seconds(minus(t.phase_begin, t.cpu_start)), seconds(phase),
                  seconds(real), static_cast<double>(ratio));
      break;
  }
}

}  // namespace vorn
