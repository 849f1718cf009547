// The kelto session: printed values read back as the same value, malformed
// and random input always ends in a clear error (never a crash, a leak or
// silence), and host memory stays bounded when large values are dropped.
#include <gtest/gtest.h>

#include <cstdio>
#include <random>
#include <memory>
#include <unistd.h>
#include <string>

#include "minikelto/host.hpp"
#include "minikelto/lang/printer.hpp"
#include "minikelto/lang/session.hpp"
#include "minikelto/lang/syntax.hpp"
#include "support/test_seed.hpp"
#include "vorn.h"

namespace mk = minikelto;
namespace lang = minikelto::lang;

namespace {

// A session whose output and errors go to memory.
class Session : public ::testing::Test {
 protected:
  void SetUp() override {
    mk::reset();
    mk::capture_output(true);
    out_ = std::tmpfile();
    err_ = std::tmpfile();
    const mk::plugin_symbol symbols[] = {{"num_cpus", reinterpret_cast<mk::any_fn>(&num_cpus)}};
    session_ = std::make_unique<lang::session>(mk::static_plugin(symbols), lang::session_options{false, out_, err_});
  }
  void TearDown() override {
    session_.reset();
    std::fclose(out_);
    std::fclose(err_);
    mk::capture_output(false);
  }

  static std::string drain(std::FILE* f) {
    std::fflush(f);
    std::rewind(f);
    std::string s;
    for (int c; (c = std::fgetc(f)) != EOF;) s += static_cast<char>(c);
    std::rewind(f);
    if (ftruncate(fileno(f), 0) != 0) ADD_FAILURE() << "cannot truncate";
    return s;
  }
  std::string run(const std::string& text) {
    session_->run(text, "t.kel");
    return drain(out_);
  }
  std::string errors() { return drain(err_); }

  std::FILE* out_ = nullptr;
  std::FILE* err_ = nullptr;
  std::unique_ptr<lang::session> session_;
};

}  // namespace

TEST_F(Session, printed_values_read_back) {
  const char* inputs[] = {
      "-3*x^2*y + 7 - y^3",       "(x + 1)^3*(y - 2)^2 - x",    "2^100*x - (3*y)^40",
      "a = -b + 1",                "tdeg(x, y, z)",              "-(x + y)^2*z",
      "(x*y)^2 + (-2)^3",          "true",                       "f = plex(b, a)",
      "x - (-(x + 1))^5",
  };
  for (const char* text : inputs) {
    const std::string once = run(std::string(text) + "\n");
    const std::string twice = run(once);
    EXPECT_EQ(once, twice) << text;
    EXPECT_EQ(errors(), "") << text;
  }
}

// Random token soup and mutated valid statements: every statement either runs
// or reports one error; nothing crashes (the sanitizers watch the build).  A
// mutation can ask for a huge expansion: the host's interrupt countdown ends
// any statement after about a million term operations, so each case is
// bounded and the host's own work is shown to stop on an interrupt.
TEST_F(Session, survives_random_and_mutated_input) {
  const std::uint32_t seed = vorn::test::test_seed(20261123);
  std::mt19937 rng(seed);
  const mk::plugin_symbol symbols[] = {{"num_cpus", reinterpret_cast<mk::any_fn>(&num_cpus)}};
  session_ = std::make_unique<lang::session>(mk::static_plugin(symbols), lang::session_options{false, out_, err_, 16});
  const char* pieces[] = {"x", "y", "12", "99999999999999999999", "+", "-", "*", "^", "/", "(", ")",
                          "[", "]", ",", ";", "\n", "=", ":=", "'", "#c\n", "\\\n", "expand", "print",
                          "time", "length", "num_cpus", "infolevel", "vorn", "tdeg", " ", "@", "2", "3"};
  const std::string valid = "p := expand((1 + x - 2*y)^3); q := p*(x + 1)^2 - 'x\nlength(p) = num_cpus(4)\n";
  for (int iteration = 0; iteration < 3000; ++iteration) {
    std::string text;
    if (iteration % 2 == 0) {
      const int n = std::uniform_int_distribution<int>(1, 25)(rng);
      for (int i = 0; i < n; ++i) text += pieces[std::uniform_int_distribution<std::size_t>(0, std::size(pieces) - 1)(rng)];
    } else {
      text = valid;
      const int edits = std::uniform_int_distribution<int>(1, 4)(rng);
      for (int e = 0; e < edits; ++e) {
        const std::size_t at = std::uniform_int_distribution<std::size_t>(0, text.size() - 1)(rng);
        switch (std::uniform_int_distribution<int>(0, 2)(rng)) {
          case 0: text.erase(at, 1); break;
          case 1: text.insert(at, pieces[std::uniform_int_distribution<std::size_t>(0, std::size(pieces) - 1)(rng)]); break;
          default: text[at] = static_cast<char>(std::uniform_int_distribution<int>(1, 255)(rng)); break;
        }
      }
    }
    const int before = session_->errors();
    run(text);
    const std::string err = errors();
    // Every error is one line that says what went wrong.
    int lines = 0;
    for (std::size_t start = 0; start < err.size();) {
      const std::size_t end = err.find('\n', start);
      ASSERT_NE(end, std::string::npos) << vorn::test::seed_note(seed) << " iteration " << iteration;
      const std::string line = err.substr(start, end - start);
      ASSERT_TRUE(line.find("error") != std::string::npos || line.find("not supported") != std::string::npos)
          << line << "\n" << vorn::test::seed_note(seed) << " iteration " << iteration;
      start = end + 1;
      ++lines;
    }
    ASSERT_EQ(session_->errors() - before, lines) << vorn::test::seed_note(seed) << " iteration " << iteration;
    // Malformed syntax is never silently accepted.
    bool malformed = false;
    for (const lang::parsed& p : lang::parse(text)) malformed |= !p.ok;
    if (malformed) {
      ASSERT_GT(lines, 0) << text << "\n" << vorn::test::seed_note(seed) << " iteration " << iteration;
    }
  }
}

TEST_F(Session, dropped_values_are_reclaimed) {
  // About a megabyte of host objects per round; instrumented builds expand
  // many times slower, and a third of that still outgrows the slack the
  // session allows before it collects.
#if defined(__SANITIZE_ADDRESS__) || !defined(NDEBUG)
  const std::string round = "p := expand((1 + x + y + z)^35);\np := 0;\n";
#else
  const std::string round = "p := expand((1 + x + y + z)^50);\np := 0;\n";
#endif
  run(round);
  const std::size_t after_first = mk::window_state().in_use;
  for (int i = 1; i < 50; ++i) run(round);
  EXPECT_LE(mk::window_state().in_use, 2 * after_first);
  EXPECT_EQ(errors(), "");
}
