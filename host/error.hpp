// The library's one exception type: a fixed message, thrown inside the library
// and turned into host_raise_error by the exported entry that catches it.
//
// Invariant: trivially destructible and allocation-free, so throwing it never
// fails and the entry's catch leaves nothing to destroy.
#pragma once

#include <type_traits>

namespace vorn {

struct error {
  const char* message;  // static text
};
static_assert(std::is_trivially_destructible_v<error>);

[[noreturn]] inline void fail(const char* message) { throw error{message}; }

}  // namespace vorn
