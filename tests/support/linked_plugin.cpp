// The statically linked plug-in shared by the test and fuzz programs.
#include "support/linked_plugin.hpp"

#include "vorn.h"

namespace {

template <class Fn>
minikelto::any_fn symbol(Fn fn) {
  return reinterpret_cast<minikelto::any_fn>(fn);
}

}  // namespace

const minikelto::plugin& linked_plugin() {
  static const minikelto::plugin linked = [] {
    const minikelto::plugin_symbol symbols[] = {
        {"num_cpus", symbol(&num_cpus)},     {"kelto2vorn", symbol(&kelto2vorn)},
        {"vorn2kelto", symbol(&vorn2kelto)}, {"repackvorn", symbol(&repackvorn)},
        {"mul_vorn", symbol(&mul_vorn)},     {"ads_vorn", symbol(&ads_vorn)},
        {"scl_vorn", symbol(&scl_vorn)},     {"div_vorn", symbol(&div_vorn)},
        {"export_vorn_frac", symbol(&export_vorn_frac)},
    };
    return minikelto::static_plugin(symbols);
  }();
  return linked;
}
