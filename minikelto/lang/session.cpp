// The evaluator.  Every value it produces is made unique, so equal values are
// one handle; arithmetic keeps values canonical without the plug-in; a call
// of a name the plug-in exports runs that entry on the evaluated arguments.
//
// Failures inside a statement are thrown as `failure` and reported once per
// statement, with the place they come from; an interrupt of the host's own
// work arrives as `interrupted`.  Host memory is reclaimed after a statement
// when the window has grown well beyond what was live after the last
// collection.
#include "minikelto/lang/session.hpp"

#include <sys/time.h>

#include <cstdio>
#include <ctime>
#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "minikelto/expand.hpp"
#include "minikelto/lang/printer.hpp"
#include "minikelto/polynomial.hpp"

namespace minikelto::lang {

namespace {

// A statement that failed: the message, and where it comes from.
struct failure {
  enum kind_t {
    at_node,  // a syntax error or a bad operand: always shown with line and column
    in_call,  // an entry's or a built-in's error: "error in F: MESSAGE"
    whole,    // the statement as a whole (an interrupt while printing)
  };
  kind_t kind;
  location where;
  std::string message;
};

session* current = nullptr;

word evaluator_hook(const char* text);

// Values are written in pieces, each after a poll, so that Ctrl-C stops
// printing a value of millions of terms within a piece.
constexpr std::size_t write_piece = 4096;

// The text's lines, without their newlines.
std::vector<std::string_view> split_lines(const std::string& text) {
  std::vector<std::string_view> lines;
  std::size_t from = 0;
  while (from < text.size()) {
    const std::size_t end = std::min(text.find('\n', from), text.size());
    lines.push_back(std::string_view(text).substr(from, end - from));
    from = end + 1;
  }
  return lines;
}

// True when the statement is the bare name `command` (help, quit, exit).
bool is_command(const statement& s, const char* command) {
  return !s.assigns && s.value->kind == node_kind::name && s.value->text == command;
}

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

  [[noreturn]] static void fail_at(const node& n, const std::string& message) {
    throw failure{failure::at_node, n.where, "error: " + message};
  }
  [[noreturn]] static void fail_in(const node& call, const std::string& message) {
    throw failure{failure::in_call, call.where, "error in " + call.text + ": " + message};
  }

  // The line an error prints: in a script every error names its place
  // (SOURCE:LINE:COLUMN, or SOURCE:LINE for the statement as a whole); at the
  // prompt only syntax errors and bad operands do.
  std::string error_line(const failure& f) const {
    if (options.at_prompt && f.kind != failure::at_node) return f.message;
    std::string line = source;
    line += ':';
    line += std::to_string(f.where.line);
    if (f.kind != failure::whole) {
      line += ':';
      line += std::to_string(f.where.column);
    }
    line += ": ";
    line += f.message;
    return line;
  }

  // Writes text to the output a piece at a time, polling between pieces.
  void write_out(const std::string& text) const {
    for (std::size_t at = 0; at < text.size(); at += write_piece) {
      if (at != 0) {
        try {
          poll_interrupt();
        } catch (const interrupted&) {
          // A blocked write that Ctrl-C cut short leaves the stream's error
          // flag set; the next statement writes afresh on a new line.
          std::clearerr(options.out);
          if (!options.at_prompt) std::fputc('\n', options.out);
          throw;
        }
      }
      std::fwrite(text.data() + at, 1, std::min(write_piece, text.size() - at), options.out);
    }
  }

  // Echo: the lines of the text not yet shown, up to `last`; the lines of the
  // statement from `first` on as at a prompt, those before it as they are.
  std::vector<std::string_view> lines;
  std::int32_t first_line = 1;
  std::int32_t echoed_through = 0;
  void echo_through(std::int32_t first, std::int32_t last) {
    if (!options.echo) return;
    for (std::int32_t l = echoed_through + 1; l <= last; ++l) {
      const auto i = static_cast<std::size_t>(l - first_line);
      if (i >= lines.size()) break;
      const char* prefix = l < first ? "" : l == first ? "> " : "  ";
      std::fprintf(options.out, "%s%.*s\n", prefix, static_cast<int>(lines[i].size()), lines[i].data());
    }
    echoed_through = std::max(echoed_through, last);
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
      fail_in(n, "expecting " + std::to_string(count) + " argument" + (count == 1 ? "" : "s") + ", found " +
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
        fail_in(n, e.what());
      } catch (const interrupted& e) {
        fail_in(n, e.what());
      }
    }
    if (f == "print") {
      if (!quiet) write_out(to_text(unique(make_seq(args))) + "\n");
      return unique(make_seq({}));
    }
    if (f == "length") {
      want_arguments(n, 1);
      return make_immediate(operand_count(args[0]));
    }
    if (f == "VORN") fail_at(n, "containers are made by the plug-in's entries, not written");
    if (f == "export_vorn_frac") fail_in(n, "takes native arguments and cannot be called from kelto");
    // Any other name that is not an entry makes an unevaluated call, as the
    // monomial orders plex(x, y) are, so every kind of value can reach an entry.
    if (find_entry(plug, f) == nullptr) return unique(make_funcall(unique(make_name(f)), args));
    if (quiet) throw failure{failure::whole, n.where, "no entry calls here"};
    const call_result r = call_entry(plug, f, args);
    if (!r.ok) fail_in(n, r.error);
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
    shown += '\n';
    write_out(shown);
  }

  void reclaim() {
    const std::size_t in_use = window_state().in_use;
    if (in_use <= live_after_collect + live_after_collect / 2 + (256u << 10)) return;
    collect();
    live_after_collect = window_state().in_use;
  }

  // Runs one parsed item; the failure that stopped it, if any.
  std::optional<failure> run_one(const parsed& p, outcome& how) {
    const location line_only{p.first_line, 1};
    if (!p.ok) return failure{failure::at_node, p.error.where, p.error.message};
    if (is_command(p.stmt, "quit") || is_command(p.stmt, "exit")) {
      how = outcome::quit;
      return std::nullopt;
    }
    if (is_command(p.stmt, "help")) {
      std::fputs(help_text, options.out);
      return std::nullopt;
    }
    std::optional<failure> failed;
    if (options.interrupt_after_polls > 0) interrupt_from_poll(options.interrupt_after_polls);
    try {
      execute(p.stmt);
    } catch (const failure& f) {
      failed = f;
    } catch (const interrupted& e) {
      failed = failure{failure::whole, line_only, e.what()};
    }
    try {
      reclaim();
    } catch (const interrupted& e) {
      if (!failed) failed = failure{failure::whole, line_only, e.what()};
    }
    // Ctrl-C during work that does not poll, or after the last poll, still
    // stops what comes next.
    if (interrupt_pending()) {
      how = outcome::interrupted;
      if (!failed) failed = failure{failure::whole, line_only, "Interrupted"};
    }
    return failed;
  }
};

const char* const help_text =
    "Statements end with a newline, or with ';' to print nothing; several may\n"
    "share a line.  x := e assigns, 'x is the name x itself, # starts a comment,\n"
    "a line ending in \\ or inside ( ) goes on.  Values: integers of any size,\n"
    "names, calls f(a, b), a = b, + - * ^ and parentheses; expand multiplies out.\n"
    "\n"
    "Entries (p a prime below 2^30, A and B containers made by kelto2vorn):\n"
    "  kelto2vorn(f, tdeg(x, y) [, pack = k] [, characteristic = p])\n"
    "                                  an expanded polynomial into a container\n"
    "  vorn2kelto(A)                   a container back into a polynomial\n"
    "  repackvorn(A [, order] [, pack = k] [, characteristic = p])\n"
    "  mul_vorn(p, A, B)               A*B mod p\n"
    "  ads_vorn(p, flag, A, B)         A + B (flag 0) or A - B (flag 1) mod p\n"
    "  scl_vorn(p, num, den, A)        A*num/den mod p\n"
    "  div_vorn(p, A, B [, 'r [, 'q]]) true when B divides A; the quotient in q\n"
    "  num_cpus([n])                   threads used: always 1\n"
    "Orders: plex(x, ...), grlex(x, ...), tdeg(x, ...); other calls stay as written.\n"
    "Built-ins: expand(e), print(a, ...), time(e) (seconds taken), length(e).\n"
    "infolevel[vorn] := n   diagnostics of the entries, 0 (none) to 5\n"
    "\n"
    "Ctrl-C stops the statement running.  quit, exit or Ctrl-D leaves.\n";

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

outcome session::run(const std::string& text, const std::string& source, std::int32_t first_line) {
  impl& im = *impl_;
  im.source = source;
  im.lines = split_lines(text);
  im.first_line = first_line;
  im.echoed_through = first_line - 1;
  outcome how = outcome::done;
  for (const parsed& p : parse(text, first_line)) {
    im.echo_through(p.first_line, p.last_line);
    std::fflush(im.options.out);
    const std::optional<failure> failed = im.run_one(p, how);
    clear_interrupt();
    if (failed) {
      ++errors_;
      std::fflush(im.options.out);
      std::fflush(stdout);  // the plug-in's lines
      // At the prompt the terminal has echoed ^C where the cursor was.
      if (how == outcome::interrupted && im.options.at_prompt) std::fputc('\n', im.options.err);
      std::fprintf(im.options.err, "%s\n", im.error_line(*failed).c_str());
      std::fflush(im.options.err);
      if (how == outcome::done && im.options.stop_on_error) how = outcome::stopped;
    }
    if (how != outcome::done) break;
  }
  // Comments after the last statement.
  if (how == outcome::done)
    im.echo_through(std::numeric_limits<std::int32_t>::max(), first_line + static_cast<std::int32_t>(im.lines.size()) - 1);
  std::fflush(im.options.out);
  return how;
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
