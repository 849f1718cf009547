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
  // -x: each statement is printed before its output, as typed at a prompt
  // ("> " and "  " before its lines), with the comments and blank lines
  // before it.
  bool echo = false;
  // At the prompt an error of an entry or a built-in, or an interrupt, is
  // printed without the source and line: the statement was just typed.
  bool at_prompt = false;
};

// How a run of statements ended.
enum class outcome {
  done,         // every statement ran (some may have failed)
  stopped,      // a statement failed and the session stops on errors
  interrupted,  // an interrupt stopped a statement; the rest did not run
  quit,         // `quit` or `exit`
};

class session {
 public:
  session(plugin plug, session_options options);
  ~session();
  session(const session&) = delete;
  session& operator=(const session&) = delete;

  // Runs the statements of `text`, whose first line is line `first_line` of
  // `source` (the name errors give).  Stops at an interrupt, at `quit`, and
  // at a failed statement when the session stops on errors.
  outcome run(const std::string& text, const std::string& source, std::int32_t first_line = 1);

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

// What `help` prints: the statements, the entries with their arguments and
// the built-ins, on one screen.
extern const char* const help_text;

}  // namespace minikelto::lang
