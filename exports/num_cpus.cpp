// num_cpus and the exported constant MAX_IMMEDIATE.
#include "exports/entry.hpp"
#include "host/frame.hpp"

VORN_EXPORT const std::int32_t MAX_IMMEDIATE = vorn::max_immediate;

VORN_EXPORT vorn_word num_cpus(const vorn_callback_table* cbt, vorn_word args) noexcept {
  return vorn::guarded(cbt, [&] {
    if (vorn::seq_count(args) >= 1 && !vorn::is_immediate(vorn::object_word(args, 1)))
      vorn::fail("first argument must be an immediate integer");
    // Whatever was asked, every computation runs on the calling thread.
    vorn::worker_count = 1;
    return vorn::immediate_one;
  });
}
