// The host array routine: the one place that fills the host's array settings.
#include "host/callbacks.hpp"

namespace vorn {

host_array new_host_array(const callback_table& cbt, std::int32_t n) noexcept {
  word settings[VORN_ARRAY_SETTINGS_WORDS] = {};
  host_array_defaults(cbt, settings);
  settings[0] = 4;  // 32-bit elements
  settings[9] = 1;  // one dimension
  const std::int32_t bounds[2] = {1, n};
  const word handle = host_array_create(cbt, settings, nullptr, bounds);
  return {handle, host_array_data(cbt, handle)};
}

}  // namespace vorn
