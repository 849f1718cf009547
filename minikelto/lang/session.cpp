// The evaluator.  Every value it produces is made unique, so equal values are
// one handle; arithmetic keeps values canonical without the plug-in; a call
// of a name the plug-in exports runs that entry on the evaluated arguments.
//
// Failures inside a statement are thrown as `failure` and reported once per
// statement; host memory is reclaimed after a statement when the window has
// grown well beyond what was live after the last collection.
#include "minikelto/lang/session.hpp"

#include <sys/time.h>

#include <cstdio>
#include <ctime>
#include <stdexcept>
#include <vector>

#include "minikelto/expand.hpp"
#include "minikelto/lang/printer.hpp"
#include "minikelto/polynomial.hpp"

namespace minikelto::lang {

namespace {

struct failure {
  std::string message;  // the full line, without the newline
};

session* current = nullptr;

word evaluator_hook(const char* text);

// Functions that build unevaluated calls: the monomial orders.
bool is_inert(const std::string& f) { return f == "plex" || f == "grlex" || f == "tdeg"; }

double seconds_since(std::clock_t cpu_start) {
  return static_cast<double>(std::clock() - cpu_start) / CLOCKS_PER_SEC;
}

double wall_seconds() {
  timeval tv{};
  gettimeofday(&tv, nullptr);
  return static_cast<double>(tv.tv_sec) + static_cast<double>(tv.tv_usec) / 1e6;
}

}  // namespace

struct session::impl {
  plugin plug;
  session_options options;
  std::string source;
  bool quiet = false;  // evaluating for host_eval_string: no entry calls, no printing
  std::size_t live_after_collect = 0;

  [[noreturn]] void fail_at(const node& n, const std::string& message) const {
    throw failure{source + ":" + std::to_string(n.where.line) + ":" + std::to_string(n.where.column) +
                  ": error: " + message};
  }
  [[noreturn]] static void fail_in(const std::string& function, const std::string& message) {
    throw failure{"error in " + function + ": " + message};
  }

  // Arithmetic operands: values that can stand in a polynomial.
  void check_arithmetic(const node& n, word v) const {
    if (is_integer(v)) return;
    const std::int32_t t = type_of(v);
    if (t == equality) fail_at(n, "an equation cannot be an operand of + - * ^");
    if (t == boolean) fail_at(n, "a boolean cannot be an operand of + - * ^");
    if (t == seq) fail_at(n, "nothing (the value of print) cannot be an operand of + - * ^");
  }

  template <class Op>
  word arithmetic(const node& n, Op op) const {
    try {
      return op();
    } catch (const std::invalid_argument& e) {
      fail_at(n, e.what());
    }
  }

  word eval(const node& n) {
    switch (n.kind) {
      case node_kind::integer: {
        const auto v = parse_integer(n.text);
        if (!v) fail_at(n, "malformed integer");
        return unique(*v);
      }
      case node_kind::name: {
        if (n.text == "true") return true_value();
        if (n.text == "false") return false_value();
        const word name_handle = unique(make_name(n.text));
        const auto v = value_of(name_handle);
        return v ? *v : name_handle;
      }
      case node_kind::quoted:
        return unique(make_name(n.text));
      case node_kind::indexed: {
        if (n.text != "infolevel") fail_at(n, "only infolevel[...] can be indexed");
        const auto v = info_level(n.index);
        return v ? *v : make_immediate(0);
      }
      case node_kind::call:
        return call(n);
      case node_kind::equation: {
        const word l = eval(*n.children[0]);
        const word r = eval(*n.children[1]);
        return unique(make_equality(l, r));
      }
      case node_kind::sum: {
        word total = make_immediate(0);
        for (std::size_t i = 0; i < n.children.size(); ++i) {
          const word v = eval(*n.children[i]);
          check_arithmetic(*n.children[i], v);
          total = arithmetic(*n.children[i], [&] { return n.negated[i] ? subtract(total, v) : add(total, v); });
        }
        return total;
      }
      case node_kind::product: {
        word total = make_immediate(1);
        for (const auto& c : n.children) {
          const word v = eval(*c);
          check_arithmetic(*c, v);
          total = arithmetic(*c, [&] { return multiply(total, v); });
        }
        return total;
      }
      case node_kind::power: {
        const word base = eval(*n.children[0]);
        check_arithmetic(*n.children[0], base);
        const word exponent = eval(*n.children[1]);
        return arithmetic(n, [&] { return power(base, exponent); });
      }
      case node_kind::negate: {
        const word v = eval(*n.children[0]);
        check_arithmetic(*n.children[0], v);
        return arithmetic(n, [&] { return negate(v); });
      }
    }
    fail_at(n, "unknown expression");
  }

  void want_arguments(const node& n, std::size_t count) const {
    if (n.children.size() != count)
      fail_in(n.text, "expecting " + std::to_string(count) + " argument" + (count == 1 ? "" : "s") + ", found " +
                          std::to_string(n.children.size()));
  }

  word call(const node& n) {
    const std::string& f = n.text;
    if (f == "time") {
      want_arguments(n, 1);
      const std::clock_t cpu = std::clock();
      const double wall = wall_seconds();
      const word v = eval(*n.children[0]);
      if (!quiet) {
        std::fprintf(options.out, "time: %.3f sec   real: %.3f sec\n", seconds_since(cpu), wall_seconds() - wall);
      }
      return v;
    }
    std::vector<word> args;
    args.reserve(n.children.size());
    for (const auto& c : n.children) args.push_back(eval(*c));
    if (f == "expand") {
      want_arguments(n, 1);
      try {
        return expand(args[0]);
      } catch (const std::invalid_argument& e) {
        fail_in(f, e.what());
      } catch (const interrupted& e) {
        fail_in(f, e.what());
      }
    }
    if (f == "print") {
      if (!quiet) std::fprintf(options.out, "%s\n", to_text(unique(make_seq(args))).c_str());
      return unique(make_seq({}));
    }
    if (f == "length") {
      want_arguments(n, 1);
      return make_immediate(operand_count(args[0]));
    }
    if (is_inert(f)) return unique(make_funcall(unique(make_name(f)), args));
    if (f == "export_vorn_frac") fail_in(f, "takes native arguments and cannot be called from kelto");
    if (find_entry(plug, f) == nullptr) {
      if (f == "VORN") fail_at(n, "containers are made by the plug-in's entries, not written");
      fail_at(n, "unknown function " + f);
    }
    if (quiet) throw failure{"no entry calls here"};
    const call_result r = call_entry(plug, f, args);
    if (!r.ok) fail_in(f, r.error);
    return unique(r.value);
  }

  static std::int32_t operand_count(word v) {
    if (is_integer(v) || is_name(v)) return 1;
    switch (type_of(v)) {
      case sum:
      case prod: return (length_of(v) - 1) / 2;
      case funcall: return static_cast<std::int32_t>(funcall_arguments(v).size());
      case equality: return 2;
      case seq: return static_cast<std::int32_t>(seq_entries(v).size());
      case array: return array_count(v);
      default: return 1;
    }
  }

  void execute(const statement& s) {
    const word v = eval(*s.value);
    std::string shown;
    if (s.assigns) {
      const node& t = *s.target;
      if (t.kind == node_kind::indexed) {
        if (t.text != "infolevel") fail_at(t, "only infolevel[...] can be indexed");
        set_info_level(t.index, v);
        shown = "infolevel[" + t.index + "] := ";
      } else {
        if (t.text == "true" || t.text == "false") fail_at(t, t.text + " cannot be assigned");
        const word name_handle = unique(make_name(t.text));
        // name := 'name clears the name.
        if (v == name_handle) unassign(name_handle);
        else assign(name_handle, v);
        shown = t.text + " := ";
      }
    }
    if (s.silent) return;
    if (!is_immediate(v) && type_of(v) == seq && seq_entries(v).empty()) return;
    shown += to_text(v);
    std::fputs(shown.c_str(), options.out);
    std::fputc('\n', options.out);
  }

  void reclaim() {
    const std::size_t in_use = window_state().in_use;
    if (in_use <= live_after_collect + live_after_collect / 2 + (256u << 10)) return;
    collect();
    live_after_collect = window_state().in_use;
  }
};

session::session(plugin plug, session_options options) : impl_(std::make_unique<impl>()) {
  impl_->plug = std::move(plug);
  impl_->options = options;
  impl_->live_after_collect = window_state().in_use;
  current = this;
  set_evaluator(evaluator_hook);
}

session::~session() {
  if (current == this) {
    set_evaluator(nullptr);
    current = nullptr;
  }
}

bool session::run(const std::string& text, const std::string& source) {
  impl_->source = source;
  for (const parsed& p : parse(text)) {
    std::string message;
    if (!p.ok) {
      message = source + ":" + std::to_string(p.error.where.line) + ":" + std::to_string(p.error.where.column) +
                ": " + p.error.message;
    } else {
      try {
        if (impl_->options.interrupt_after_polls > 0) interrupt_from_poll(impl_->options.interrupt_after_polls);
        impl_->execute(p.stmt);
      } catch (const failure& f) {
        message = f.message;
      }
    }
    clear_interrupt();
    impl_->reclaim();
    if (!message.empty()) {
      ++errors_;
      std::fflush(impl_->options.out);
      std::fflush(stdout);  // the plug-in's lines
      std::fprintf(impl_->options.err, "%s\n", message.c_str());
      std::fflush(impl_->options.err);
      if (impl_->options.stop_on_error) return false;
    }
  }
  std::fflush(impl_->options.out);
  return true;
}

std::optional<word> session::evaluate_quietly(const std::string& text) {
  const auto items = parse(text);
  if (items.size() != 1 || !items[0].ok || items[0].stmt.assigns) return std::nullopt;
  const bool was_quiet = impl_->quiet;
  impl_->quiet = true;
  std::optional<word> result;
  try {
    result = impl_->eval(*items[0].stmt.value);
  } catch (const failure&) {
  }
  impl_->quiet = was_quiet;
  return result;
}

namespace {
word evaluator_hook(const char* text) {
  // Called from inside an entry call: nothing may propagate.
  try {
    if (current != nullptr) {
      if (const auto v = current->evaluate_quietly(text)) return *v;
    }
    return eval_builtin(text);
  } catch (...) {
    return make_immediate(0);
  }
}
}  // namespace

}  // namespace minikelto::lang
