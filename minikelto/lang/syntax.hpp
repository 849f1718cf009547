// The kelto language's syntax tree and its parser.
//
// A script is read whole (or, from a stream or the prompt, one complete
// statement at a time) into a list of statements.  Every node carries the line and column of
// its first character, so the evaluator can point at the culprit.  The parser
// never throws: a malformed statement becomes a `syntax_error` with its
// location, and parsing resumes at the next line.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace minikelto::lang {

struct location {
  std::int32_t line = 1;
  std::int32_t column = 1;
};

enum class node_kind {
  integer,    // text: the decimal digits
  name,       // text: the name
  quoted,     // text: the name, taken literally
  indexed,    // text: base name, index: the index name (infolevel[vorn])
  call,       // text: function name, children: arguments
  equation,   // children: left, right
  sum,        // children: operands; negated[i] says operand i is subtracted
  product,    // children: factors
  power,      // children: base, exponent
  negate,     // children: operand
};

struct node {
  node_kind kind;
  location where;
  std::string text;
  std::string index;
  std::vector<std::unique_ptr<node>> children;
  std::vector<bool> negated;
};

struct statement {
  location where;
  std::int32_t last_line = 1;    // the line of its terminator
  bool silent = false;           // ended by ';'
  bool assigns = false;          // target := value
  std::unique_ptr<node> target;  // a name or infolevel[...] when assigns
  std::unique_ptr<node> value;
};

struct syntax_error {
  location where;
  std::string message;
};

// One parsed item: a statement or the error that replaced one.
struct parsed {
  bool ok;
  statement stmt;
  syntax_error error;
  std::int32_t first_line = 1;  // the lines the item spans in the text
  std::int32_t last_line = 1;
};

// Parses a whole text whose first line is line `first_line` of its source;
// the list follows the statements in order.
std::vector<parsed> parse(const std::string& text, std::int32_t first_line = 1);

// Reading a stream or the prompt: true when `text` needs another line (an
// open parenthesis or a trailing backslash).
bool needs_more(const std::string& text);

}  // namespace minikelto::lang
