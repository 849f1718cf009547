// The readable form of host values: what tests and error messages show.
#include "minikelto/state.hpp"

namespace minikelto {

namespace {

void describe_to(std::string& out, word h);

// A factor or term in a product or sum is bracketed when it is itself a sum.
void describe_operand(std::string& out, word h) {
  const bool bracket = type_of(h) == sum && length_of(h) > 3;
  if (bracket) out += '(';
  describe_to(out, h);
  if (bracket) out += ')';
}

void describe_list(std::string& out, std::span<const word> entries) {
  for (std::size_t i = 0; i < entries.size(); ++i) {
    if (i != 0) out += ", ";
    describe_to(out, entries[i]);
  }
}

void describe_to(std::string& out, word h) {
  if (h == 0) {
    out += "<unset>";
    return;
  }
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
    case sum:
      for (std::int32_t i = 1; i + 1 < length; i += 2) {
        if (i != 1) out += " + ";
        if (w[i + 1] != make_immediate(1)) {
          describe_to(out, w[i + 1]);
          out += '*';
        }
        describe_operand(out, w[i]);
      }
      return;
    case prod:
      if (length == 1) out += '1';
      for (std::int32_t i = 1; i + 1 < length; i += 2) {
        if (i != 1) out += '*';
        describe_operand(out, w[i]);
        if (w[i + 1] != make_immediate(1)) {
          out += '^';
          describe_to(out, w[i + 1]);
        }
      }
      return;
    case funcall:
      describe_to(out, w[1]);
      out += '(';
      describe_list(out, seq_entries(w[2]));
      out += ')';
      return;
    case equality:
      describe_to(out, w[1]);
      out += " = ";
      describe_to(out, w[2]);
      return;
    case seq:
      describe_list(out, seq_entries(h));
      return;
    case array:
      out += "array[" + std::to_string(array_count(h)) + "]";
      return;
    case boolean:
      out += w[1] != 0 ? "true" : "false";
      return;
    default:
      out += "<object of type " + std::to_string(type_of(h)) + ">";
      return;
  }
}

}  // namespace

std::string describe(word h) {
  std::string out;
  describe_to(out, h);
  return out;
}

}  // namespace minikelto
