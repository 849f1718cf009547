// The kelto parser: recursive descent over the token list.
//
//   statement := target ':=' expr | expr        ended by ';' (silent), newline or end
//   target    := NAME | NAME '[' NAME ']'
//   expr      := sum ['=' sum]
//   sum       := ['+'|'-'] product (('+'|'-') product)*
//   product   := unary (('*'|'/') unary)*
//   unary     := '-' unary | power
//   power     := primary ['^' unary]            (right-associative)
//   primary   := INTEGER | NAME | NAME '(' [expr (',' expr)*] ')' | NAME '[' NAME ']'
//              | '\'' NAME | '(' expr ')'
//
// '/' is parsed so that it can be refused with a message of its own.
#include <algorithm>
#include <stdexcept>

#include "minikelto/lang/lexer.hpp"
#include "minikelto/lang/syntax.hpp"

namespace minikelto::lang {

namespace {

// Thrown inside the parser only; caught per statement.
struct parse_failure {
  syntax_error error;
};

// Deeply nested input must end in an error, not in a stack overflow.
constexpr int max_depth = 200;

const char* describe(token_kind k) {
  switch (k) {
    case token_kind::integer: return "an integer";
    case token_kind::name: return "a name";
    case token_kind::quote: return "'''";
    case token_kind::assign: return "':='";
    case token_kind::equals: return "'='";
    case token_kind::plus: return "'+'";
    case token_kind::minus: return "'-'";
    case token_kind::star: return "'*'";
    case token_kind::slash: return "'/'";
    case token_kind::caret: return "'^'";
    case token_kind::lparen: return "'('";
    case token_kind::rparen: return "')'";
    case token_kind::lbracket: return "'['";
    case token_kind::rbracket: return "']'";
    case token_kind::comma: return "','";
    case token_kind::semicolon: return "';'";
    case token_kind::newline: return "end of line";
    case token_kind::end: return "end of input";
    case token_kind::bad: return "an unexpected character";
  }
  return "?";
}

class parser {
 public:
  explicit parser(std::vector<token> tokens) : toks_(std::move(tokens)) {}

  std::vector<parsed> run() {
    std::vector<parsed> out;
    for (;;) {
      while (at(token_kind::newline) || at(token_kind::semicolon)) advance();
      if (at(token_kind::end)) break;
      const std::int32_t first = peek().where.line;
      try {
        statement s = parse_statement();
        const std::int32_t last = s.last_line;
        out.push_back({true, std::move(s), {}, first, last});
      } catch (const parse_failure& f) {
        out.push_back({false, {}, f.error, first, f.error.where.line});
        // Resume after the line that failed, whatever was left open.
        nesting_ = 0;
        const std::int32_t line = f.error.where.line;
        while (!at(token_kind::end) && peek().where.line <= line) ++pos_;
      }
    }
    return out;
  }

 private:
  // Inside parentheses newlines are blanks.
  std::size_t effective(std::size_t i) const {
    if (nesting_ > 0)
      while (i < toks_.size() && toks_[i].kind == token_kind::newline) ++i;
    return std::min(i, toks_.size() - 1);
  }
  const token& peek(std::size_t ahead = 0) const {
    std::size_t i = effective(pos_);
    for (; ahead > 0; --ahead) i = effective(i + 1);
    return toks_[i];
  }
  void advance(std::size_t n = 1) {
    for (; n > 0; --n) pos_ = std::min(effective(pos_) + 1, toks_.size() - 1);
  }
  bool at(token_kind k) const { return peek().kind == k; }

  [[noreturn]] void fail_here(const std::string& what) const {
    const token& t = peek();
    std::string found = describe(t.kind);
    if (t.kind == token_kind::bad) found = "unexpected character '" + t.text + "'";
    else if (t.kind == token_kind::name || t.kind == token_kind::integer) found += " '" + t.text + "'";
    throw parse_failure{{t.where, "syntax error: " + what + ", found " + found}};
  }
  void expect(token_kind k, const char* what) {
    if (!at(k)) fail_here(std::string("expected ") + what);
    advance();
    if (k == token_kind::rparen) --nesting_;
  }

  std::unique_ptr<node> make(node_kind k, location where, std::string text = {}) {
    auto n = std::make_unique<node>();
    n->kind = k;
    n->where = where;
    n->text = std::move(text);
    return n;
  }

  statement parse_statement() {
    statement s;
    s.where = peek().where;
    depth_ = 0;
    nesting_ = 0;
    if (at(token_kind::name) && peek(1).kind == token_kind::assign) {
      s.target = make(node_kind::name, peek().where, peek().text);
      advance(2);
      s.assigns = true;
    } else if (at(token_kind::name) && peek(1).kind == token_kind::lbracket &&
               peek(2).kind == token_kind::name && peek(3).kind == token_kind::rbracket &&
               peek(4).kind == token_kind::assign) {
      s.target = make(node_kind::indexed, peek().where, peek().text);
      s.target->index = peek(2).text;
      advance(5);
      s.assigns = true;
    }
    s.value = parse_expr();
    s.last_line = at(token_kind::end) && pos_ > 0 ? toks_[pos_ - 1].where.line : peek().where.line;
    if (at(token_kind::semicolon)) {
      s.silent = true;
      advance();
    } else if (at(token_kind::newline)) {
      advance();
    } else if (!at(token_kind::end)) {
      if (at(token_kind::assign)) fail_here("only a name or infolevel[...] can be assigned");
      fail_here("expected an operator, ';' or end of line");
    }
    return s;
  }

  std::unique_ptr<node> parse_expr() {
    auto left = parse_sum();
    if (at(token_kind::equals)) {
      auto eq = make(node_kind::equation, peek().where);
      advance();
      eq->children.push_back(std::move(left));
      eq->children.push_back(parse_sum());
      if (at(token_kind::equals)) fail_here("an equation has one '='");
      return eq;
    }
    return left;
  }

  std::unique_ptr<node> parse_sum() {
    const location where = peek().where;
    std::vector<std::unique_ptr<node>> operands;
    std::vector<bool> negated;
    bool minus = false;
    if (at(token_kind::plus) || at(token_kind::minus)) {
      minus = at(token_kind::minus);
      advance();
    }
    operands.push_back(parse_product());
    negated.push_back(minus);
    while (at(token_kind::plus) || at(token_kind::minus)) {
      negated.push_back(at(token_kind::minus));
      advance();
      operands.push_back(parse_product());
    }
    if (operands.size() == 1 && !negated[0]) return std::move(operands[0]);
    auto s = make(node_kind::sum, where);
    s->children = std::move(operands);
    s->negated = std::move(negated);
    return s;
  }

  std::unique_ptr<node> parse_product() {
    const location where = peek().where;
    std::vector<std::unique_ptr<node>> factors;
    factors.push_back(parse_unary());
    while (at(token_kind::star) || at(token_kind::slash)) {
      if (at(token_kind::slash))
        throw parse_failure{{peek().where, "'/' is not supported: the host has no rationals"}};
      advance();
      factors.push_back(parse_unary());
    }
    if (factors.size() == 1) return std::move(factors[0]);
    auto p = make(node_kind::product, where);
    p->children = std::move(factors);
    return p;
  }

  std::unique_ptr<node> parse_unary() {
    if (at(token_kind::minus)) {
      auto n = make(node_kind::negate, peek().where);
      advance();
      nest();
      n->children.push_back(parse_unary());
      --depth_;
      return n;
    }
    return parse_power();
  }

  std::unique_ptr<node> parse_power() {
    auto base = parse_primary();
    if (!at(token_kind::caret)) return base;
    auto p = make(node_kind::power, peek().where);
    advance();
    nest();
    p->children.push_back(std::move(base));
    p->children.push_back(parse_unary());
    --depth_;
    return p;
  }

  void nest() {
    if (++depth_ > max_depth) fail_here("expression nested too deeply");
  }

  std::unique_ptr<node> parse_primary() {
    const token& t = peek();
    switch (t.kind) {
      case token_kind::integer: {
        advance();
        return make(node_kind::integer, t.where, t.text);
      }
      case token_kind::quote: {
        advance();
        if (!at(token_kind::name)) fail_here("expected a name after '''");
        auto n = make(node_kind::quoted, t.where, peek().text);
        advance();
        return n;
      }
      case token_kind::lparen: {
        ++nesting_;
        advance();
        nest();
        auto inner = parse_expr();
        --depth_;
        expect(token_kind::rparen, "')'");
        return inner;
      }
      case token_kind::name: {
        advance();
        if (at(token_kind::lparen)) {
          auto c = make(node_kind::call, t.where, t.text);
          ++nesting_;
          advance();
          nest();
          if (!at(token_kind::rparen)) {
            c->children.push_back(parse_expr());
            while (at(token_kind::comma)) {
              advance();
              c->children.push_back(parse_expr());
            }
          }
          --depth_;
          expect(token_kind::rparen, "',' or ')'");
          return c;
        }
        if (at(token_kind::lbracket)) {
          auto n = make(node_kind::indexed, t.where, t.text);
          advance();
          if (!at(token_kind::name)) fail_here("expected a name as index");
          n->index = peek().text;
          advance();
          expect(token_kind::rbracket, "']'");
          return n;
        }
        return make(node_kind::name, t.where, t.text);
      }
      default:
        fail_here("expected a value");
    }
  }

  std::vector<token> toks_;
  std::size_t pos_ = 0;
  int depth_ = 0;
  int nesting_ = 0;  // open parentheses
};

}  // namespace

std::vector<parsed> parse(const std::string& text, std::int32_t first_line) {
  return parser(tokenize(text, first_line)).run();
}

bool needs_more(const std::string& text) {
  int depth = 0;
  for (const token& t : tokenize(text)) {
    if (t.kind == token_kind::lparen || t.kind == token_kind::lbracket) ++depth;
    if ((t.kind == token_kind::rparen || t.kind == token_kind::rbracket) && depth > 0) --depth;
    if (t.kind == token_kind::semicolon) depth = 0;
  }
  if (depth > 0) return true;
  // A trailing backslash (the lexer skips it with its newline).
  std::size_t end = text.find_last_not_of(" \t\r\n");
  return end != std::string::npos && text[end] == '\\';
}

}  // namespace minikelto::lang
