// The kelto lexer: a single pass; the parser decides which newlines end a
// statement.
#include "minikelto/lang/lexer.hpp"

#include <cctype>

namespace minikelto::lang {

namespace {
bool name_start(char c) { return std::isalpha(static_cast<unsigned char>(c)) != 0 || c == '_'; }
bool name_char(char c) { return name_start(c) || std::isdigit(static_cast<unsigned char>(c)) != 0; }
bool digit(char c) { return std::isdigit(static_cast<unsigned char>(c)) != 0; }
}  // namespace

std::vector<token> tokenize(const std::string& text, std::int32_t first_line) {
  std::vector<token> out;
  location at{first_line, 1};
  std::size_t i = 0;
  auto advance = [&](std::size_t n) {
    for (; n > 0 && i < text.size(); --n, ++i) {
      if (text[i] == '\n') {
        ++at.line;
        at.column = 1;
      } else {
        ++at.column;
      }
    }
  };
  auto simple = [&](token_kind k, std::size_t n) {
    out.push_back({k, at, text.substr(i, n)});
    advance(n);
  };
  while (i < text.size()) {
    const char c = text[i];
    if (c == '#') {
      while (i < text.size() && text[i] != '\n') advance(1);
    } else if (c == '\\') {
      // A backslash followed by blanks (or a comment) and a newline joins lines.
      std::size_t j = i + 1;
      while (j < text.size() && (text[j] == ' ' || text[j] == '\t' || text[j] == '\r')) ++j;
      if (j < text.size() && text[j] == '#')
        while (j < text.size() && text[j] != '\n') ++j;
      if (j >= text.size() || text[j] == '\n') {
        advance(j - i + 1);
      } else {
        simple(token_kind::bad, 1);
      }
    } else if (c == '\n') {
      out.push_back({token_kind::newline, at, "\n"});
      advance(1);
    } else if (c == ' ' || c == '\t' || c == '\r') {
      advance(1);
    } else if (digit(c)) {
      std::size_t j = i;
      while (j < text.size() && digit(text[j])) ++j;
      simple(token_kind::integer, j - i);
    } else if (name_start(c)) {
      std::size_t j = i;
      while (j < text.size() && name_char(text[j])) ++j;
      simple(token_kind::name, j - i);
    } else if (c == ':' && i + 1 < text.size() && text[i + 1] == '=') {
      simple(token_kind::assign, 2);
    } else {
      token_kind k = token_kind::bad;
      switch (c) {
        case '\'': k = token_kind::quote; break;
        case '=': k = token_kind::equals; break;
        case '+': k = token_kind::plus; break;
        case '-': k = token_kind::minus; break;
        case '*': k = token_kind::star; break;
        case '/': k = token_kind::slash; break;
        case '^': k = token_kind::caret; break;
        case '(': k = token_kind::lparen; break;
        case ')': k = token_kind::rparen; break;
        case '[': k = token_kind::lbracket; break;
        case ']': k = token_kind::rbracket; break;
        case ',': k = token_kind::comma; break;
        case ';': k = token_kind::semicolon; break;
        default: break;
      }
      simple(k, 1);
    }
  }
  // Input that ends with a newline ends on that line: an unfinished statement
  // is reported there, not on a line after the text.
  if (!out.empty() && out.back().kind == token_kind::newline && !text.empty() && text.back() == '\n')
    at = out.back().where;
  out.push_back({token_kind::end, at, ""});
  return out;
}

}  // namespace minikelto::lang
