// The host's own long work stops at an interrupt poll as the entries do, and
// leaves the host usable: arithmetic, unique, printing and collection; and
// the signal handler ends the process on a second Ctrl-C that nothing saw.
#include <signal.h>

#include "minikelto/lang/printer.hpp"
#include "minikelto/polynomial.hpp"
#include "support/host_fixture.hpp"

namespace {

using minikelto::word;

class Interrupt : public host_test {
 protected:
  // A fresh SUM of n terms c*x^i, more than one poll's worth of work.
  word fresh_polynomial(std::int32_t n) {
    std::vector<std::pair<word, word>> terms;
    for (std::int32_t i = 1; i <= n; ++i) terms.emplace_back(prod({{name("x"), i}}), integer(i));
    return minikelto::make_sum(terms);
  }
};

TEST_F(Interrupt, host_work_stops_at_a_poll_and_the_host_goes_on) {
  constexpr std::int32_t n = 70000;
  interrupt_from_poll(1);
  EXPECT_THROW(unique(fresh_polynomial(n)), minikelto::interrupted);
  EXPECT_TRUE(minikelto::interrupt_answered());
  minikelto::clear_interrupt();
  const word f = unique(fresh_polynomial(n));
  minikelto::root_guard keep(f);
  EXPECT_EQ(unique(fresh_polynomial(n)), f) << "the table is whole after the interrupted unique";

  interrupt_from_poll(1);
  EXPECT_THROW(minikelto::add(f, integer(1)), minikelto::interrupted);
  EXPECT_THROW(minikelto::lang::to_text(f), minikelto::interrupted);
  // Marking stops; nothing is freed, and the next collection is right.
  EXPECT_THROW(minikelto::collect(), minikelto::interrupted);
  minikelto::clear_interrupt();
  minikelto::collect();
  EXPECT_EQ(minikelto::subtract(minikelto::add(f, integer(1)), f), integer(1));
  EXPECT_EQ(minikelto::lang::to_text(f).substr(0, 14), "x + 2*x^2 + 3*");

  // Small work never reaches a poll.
  interrupt_from_poll(1);
  EXPECT_EQ(text(minikelto::add(name("x"), integer(1))), "x + 1");
  EXPECT_EQ(polls(), 0);
}

using InterruptDeathTest = Interrupt;

TEST_F(InterruptDeathTest, a_second_ctrl_c_that_no_poll_saw_ends_the_process) {
  GTEST_FLAG_SET(death_test_style, "fast");
  minikelto::install_interrupt_handler();
  raise(SIGINT);
  EXPECT_TRUE(minikelto::interrupt_pending());
  EXPECT_EXIT(raise(SIGINT), ::testing::ExitedWithCode(130), "interrupted again");
  // Once a poll has seen the first, a second only asks again.
  EXPECT_THROW(minikelto::poll_interrupt(), minikelto::interrupted);
  raise(SIGINT);
  EXPECT_TRUE(minikelto::interrupt_pending());
  minikelto::clear_interrupt();
  signal(SIGINT, SIG_DFL);
}

}  // namespace
