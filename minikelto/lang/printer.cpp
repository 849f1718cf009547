// The printer: one recursive walk with the binding strength of the context,
// so parentheses appear exactly where reading back needs them.  A sum polls
// the interrupt as it goes: printing a value of millions of terms stops on
// Ctrl-C like any other long work.
#include "minikelto/lang/printer.hpp"

namespace minikelto::lang {

namespace {

// Binding strengths: an operand is parenthesised when it binds less tightly
// than its context demands.
enum strength : int { equation_level = 0, sum_level = 1, product_level = 2, power_level = 3, atom_level = 4 };

void print(word h, int context, std::string& out);

int strength_of(word h) {
  if (is_integer(h)) {
    if (is_immediate(h)) return immediate_value(h) < 0 ? sum_level : atom_level;
    return type_of(h) == intneg ? sum_level : atom_level;
  }
  switch (type_of(h)) {
    case sum: return length_of(h) > 3 ? sum_level : product_level;
    case prod: return length_of(h) > 3 ? product_level : length_of(h) == 3 ? power_level : atom_level;
    case equality: return equation_level;
    default: return atom_level;
  }
}

void print_operand(word h, int context, std::string& out) {
  if (strength_of(h) < context) {
    out += '(';
    print(h, equation_level, out);
    out += ')';
  } else {
    print(h, context, out);
  }
}

// coefficient * term, with the coefficients 1 and -1 left implicit.
std::string sum_term(word term, word coefficient) {
  std::string s;
  if (is_integer(term) && coefficient == make_immediate(1)) {
    print(term, sum_level, s);
    return s;
  }
  if (coefficient == make_immediate(-1)) {
    s += '-';
    print_operand(term, product_level, s);
    return s;
  }
  if (coefficient != make_immediate(1)) {
    // A negative integer coefficient needs no parentheses: -3*x reads as -(3*x).
    if (is_integer(coefficient)) print(coefficient, atom_level, s);
    else print_operand(coefficient, product_level, s);
    s += '*';
    print_operand(term, product_level, s);
    return s;
  }
  print_operand(term, product_level, s);
  return s;
}

void print_list(std::span<const word> items, std::string& out) {
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (i > 0) out += ", ";
    print(items[i], equation_level, out);
  }
}

void print(word h, int context, std::string& out) {
  if (is_integer(h)) {
    out += integer_text(h);
    return;
  }
  const word* w = object_words(h);
  const std::int32_t length = length_of(h);
  switch (type_of(h)) {
    case name:
    case nameref:
      out += name_text(h);
      return;
    case sum: {
      for (std::int32_t i = 1; i + 1 < length; i += 2) {
        count_work(1);
        std::string t = sum_term(w[i], w[i + 1]);
        if (i > 1) {
          if (t[0] == '-') {
            out += " - ";
            t.erase(0, 1);
          } else {
            out += " + ";
          }
        }
        out += t;
      }
      return;
    }
    case prod: {
      if (length == 1) out += '1';  // the empty product, as an entry may hand it over
      for (std::int32_t i = 1; i + 1 < length; i += 2) {
        if (i > 1) out += '*';
        print_operand(w[i], power_level + (w[i + 1] == make_immediate(1) ? 0 : 1), out);
        if (w[i + 1] != make_immediate(1)) {
          out += '^';
          print_operand(w[i + 1], atom_level, out);
        }
      }
      return;
    }
    case funcall: {
      print(funcall_name(h), atom_level, out);
      out += '(';
      print_list(funcall_arguments(h), out);
      out += ')';
      return;
    }
    case equality:
      print_operand(w[1], sum_level, out);
      out += " = ";
      print_operand(w[2], sum_level, out);
      return;
    case seq:
      print_list(seq_entries(h), out);
      return;
    case array:
      out += "array[" + std::to_string(array_count(h)) + "]";
      return;
    case boolean:
      out += h == true_value() ? "true" : "false";
      return;
    default:
      out += "<object of type " + std::to_string(type_of(h)) + ">";
      (void)context;
      return;
  }
}

}  // namespace

std::string to_text(word value) {
  std::string out;
  print(value, equation_level, out);
  return out;
}

}  // namespace minikelto::lang
