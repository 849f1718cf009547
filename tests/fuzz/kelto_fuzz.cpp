// Fuzzes the kelto parser and evaluator with every entry of the plug-in
// linked in: any text runs or reports its errors, never crashes, leaves the
// library holding no memory, and leaves the session able to compute the next
// statement right (checked against the host's own expand).
#include <cstdio>
#include <memory>
#include <string>

#include "fuzz/fuzz_support.hpp"
#include "minikelto/lang/session.hpp"

namespace {

// Powers and products are what can make a short text take long: a text
// with more than two '^', or an exponent of more than two digits, is skipped,
// and the interrupt countdown ends any statement after about a million term
// operations (the host's expansion and the entries poll it alike).
bool small_enough(const std::string& text) {
  int powers = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] != '^') continue;
    if (++powers > 2) return false;
    std::size_t j = i + 1;
    while (j < text.size() && (text[j] == ' ' || text[j] == '(' || text[j] == '+')) ++j;
    int digits = 0;
    while (j < text.size() && text[j] >= '0' && text[j] <= '9') ++digits, ++j;
    if (digits > 2) return false;
  }
  return true;
}

std::string drain(std::FILE* f) {
  std::fflush(f);
  std::rewind(f);
  std::string s;
  for (int c; (c = std::fgetc(f)) != EOF;) s += static_cast<char>(c);
  return s;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 512) return 0;
  const std::string text(reinterpret_cast<const char*>(data), size);
  if (!small_enough(text)) return 0;
  vorn::fuzz::input_scope scope;
  std::FILE* out = std::tmpfile();
  std::FILE* err = std::tmpfile();
  vorn::fuzz::check(out != nullptr && err != nullptr, "no temporary files");
  {
    std::vector<minikelto::plugin_symbol> symbols = linked_plugin().symbols;
    minikelto::lang::session s(minikelto::static_plugin(symbols), {false, out, err, 16});
    s.run(text, "fuzz.kel");
    std::fflush(out);
    // Whatever happened, the session computes the next statement right.
    std::rewind(out);
    std::FILE* check_out = std::tmpfile();
    vorn::fuzz::check(check_out != nullptr, "no temporary file");
    minikelto::lang::session t(minikelto::static_plugin(symbols), {false, check_out, err});
    t.run("vorn2kelto(mul_vorn(7, kelto2vorn(1 + 'x, plex('x), characteristic = 7), "
          "kelto2vorn(6 + 'x, plex('x), characteristic = 7))) - expand(('x + 1)*('x + 6) - 7*'x)\n",
          "check.kel");
    const std::string answer = drain(check_out);
    std::fclose(check_out);
    vorn::fuzz::check(answer == "0\n", "the session computes wrong after the input", answer + drain(err));
  }
  std::fclose(out);
  std::fclose(err);
  return 0;
}
