// Plug-ins (loaded with dlopen, or made of functions linked into the
// program) and protected entry calls.
//
// A raise longjmps back into run_protected, so no frame between its setjmp
// and the plug-in's code holds a non-trivial object: the C++ wrappers build
// their arguments before and read the error after.
#include <dlfcn.h>

#include "minikelto/state.hpp"
#include "minikelto/window.hpp"

namespace minikelto {

plugin::plugin(plugin&& other) noexcept : library(other.library), symbols(std::move(other.symbols)) {
  other.library = nullptr;
}

plugin& plugin::operator=(plugin&& other) noexcept {
  if (this != &other) {
    if (library != nullptr) dlclose(library);
    library = other.library;
    symbols = std::move(other.symbols);
    other.library = nullptr;
  }
  return *this;
}

plugin::~plugin() {
  if (library != nullptr) dlclose(library);
}

std::optional<plugin> load_plugin(const std::string& path, std::string* error) {
  void* library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    if (error != nullptr) {
      const char* reason = dlerror();
      *error = reason != nullptr ? reason : "cannot load " + path;
    }
    return std::nullopt;
  }
  plugin p;
  p.library = library;
  return p;
}

plugin static_plugin(std::span<const plugin_symbol> symbols) {
  plugin p;
  for (const plugin_symbol& s : symbols) {
    if (s.function != nullptr) p.symbols.push_back(s);
  }
  return p;
}

any_fn find_symbol(const plugin& p, std::string_view name) {
  if (p.library != nullptr) {
    return reinterpret_cast<any_fn>(dlsym(p.library, std::string(name).c_str()));
  }
  for (const plugin_symbol& s : p.symbols) {
    if (s.name == name) return s.function;
  }
  return nullptr;
}

entry_fn find_entry(const plugin& p, std::string_view name) {
  return reinterpret_cast<entry_fn>(find_symbol(p, name));
}

namespace {

// Runs body(context); false when the body raised.  Only trivial objects here.
bool run_protected(word (*body)(void*), void* context, word* result) noexcept {
  detail::host_state& s = detail::state();
  std::jmp_buf jump;
  std::jmp_buf* const outer = s.active_jump;
  ++s.entry_depth;
  if (setjmp(jump) != 0) {
    s.active_jump = outer;
    --s.entry_depth;
    return false;
  }
  s.active_jump = &jump;
  *result = body(context);
  s.active_jump = outer;
  --s.entry_depth;
  return true;
}

struct entry_call {
  entry_fn entry;
  word arguments;
};

word call_body(void* context) {
  const auto* call = static_cast<const entry_call*>(context);
  return call->entry(&callbacks(), call->arguments);
}

}  // namespace

call_result call_protected(word (*body)(void* context), void* context) {
  call_result result;
  detail::state().error.clear();
  word value = 0;
  result.ok = run_protected(body, context, &value);
  if (result.ok) {
    result.value = value;
  } else {
    result.error = detail::state().error;
  }
  return result;
}

call_result call_entry(entry_fn entry, std::span<const word> arguments) {
  entry_call call{entry, make_seq(arguments)};
  return call_protected(call_body, &call);
}

call_result call_entry(const plugin& p, std::string_view entry, std::span<const word> arguments) {
  const entry_fn fn = find_entry(p, entry);
  if (fn == nullptr) {
    call_result missing;
    missing.error = "no entry " + std::string(entry) + " in the plug-in";
    return missing;
  }
  return call_entry(fn, arguments);
}

bool in_entry_call() noexcept { return detail::state().entry_depth != 0; }

}  // namespace minikelto
