// Tokens of the kelto language.
//
// The lexer turns a text into tokens with their line and column.  Every
// newline becomes a `newline` token except one after a trailing backslash
// (the parser ignores newlines inside parentheses).  `#` comments run to the
// end of the line.
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

// Never fails: an unknown character becomes a `bad` token holding it.  Lines
// are numbered from `first_line`.
std::vector<token> tokenize(const std::string& text, std::int32_t first_line = 1);

}  // namespace minikelto::lang
