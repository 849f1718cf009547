// A kelto session: evaluates parsed statements against the host, calls the
// plug-in's entries, prints values and errors, and reclaims host memory
// between statements.
//
// Output goes through C stdio: values and the plug-in's lines on stdout,
// errors on stderr (stdout is flushed first, so a terminal or a merged
// capture shows both in order).  The session is the host's only evaluator
// while it lives (host_eval_string reaches it).
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>

#include "minikelto/host.hpp"
#include "minikelto/lang/syntax.hpp"

namespace minikelto::lang {

struct session_options {
  bool stop_on_error = false;  // -e
  std::FILE* out = stdout;     // values, print, time
  std::FILE* err = stderr;     // errors
  // --interrupt-after N: in every statement the host's interrupt poll answers
  // non-zero from the N-th poll on, as if the user pressed Ctrl-C there
  // (0: never).  Lets a script show an entry being interrupted.
  std::int64_t interrupt_after_polls = 0;
};

class session {
 public:
  session(plugin plug, session_options options);
  ~session();
  session(const session&) = delete;
  session& operator=(const session&) = delete;

  // Runs every statement of `text`; `source` names it in syntax errors.
  // Returns false when a statement failed and the session stops on errors.
  bool run(const std::string& text, const std::string& source);

  // Statements that failed so far.
  int errors() const { return errors_; }

  // Evaluates one expression without calling the plug-in and without
  // printing; nullopt when the text is not one valid expression.
  std::optional<word> evaluate_quietly(const std::string& text);

 private:
  struct impl;
  std::unique_ptr<impl> impl_;
  int errors_ = 0;
};

}  // namespace minikelto::lang
