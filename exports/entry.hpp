// The one translation of library failures into host errors.
//
// An exported entry is a thin noexcept function around `guarded`: the work
// (whose owners live in callees) runs inside try; the catch keeps only the
// static message; host_raise_error, which never returns, is called after the
// handler has ended, so no exception and no non-trivial object is alive when
// the host longjmps out of the library.
#pragma once

#include <new>

#include "host/error.hpp"
#include "host/callbacks.hpp"

#if defined(__GNUC__)
#define VORN_EXPORT extern "C" __attribute__((visibility("default")))
#else
#define VORN_EXPORT extern "C"
#endif

namespace vorn {

template <class Work>
inline word guarded(const callback_table* cbt, Work&& work) noexcept {
  const char* failure = nullptr;
  try {
    return work();
  } catch (const error& e) {
    failure = e.message;
  } catch (const std::bad_alloc&) {
    failure = "out of memory";
  } catch (...) {
    failure = "internal error";
  }
  host_raise_error(*cbt, failure);
}

}  // namespace vorn
