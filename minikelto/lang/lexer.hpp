// Tokens of the kelto language.
//
// The lexer turns a text into tokens with their line and column.  A newline
// ends a statement only outside parentheses and brackets and when the line
// does not end with a backslash; such newlines come out as `newline` tokens,
// all others are skipped.  `#` comments run to the end of the line.
#pragma once

#include <string>
#include <vector>

#include "minikelto/lang/syntax.hpp"

namespace minikelto::lang {

enum class token_kind {
  integer, name, quote, assign, equals, plus, minus, star, slash, caret,
  lparen, rparen, lbracket, rbracket, comma, semicolon, newline, end, bad,
};

struct token {
  token_kind kind;
  location where;
  std::string text;
};

// Never fails: an unknown character becomes a `bad` token holding it.
std::vector<token> tokenize(const std::string& text);

}  // namespace minikelto::lang
