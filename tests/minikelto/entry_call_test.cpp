// Entry calls through minikelto: raises coming back as messages, the host
// usable afterwards, the interrupt countdown, captured output, the info level
// and the callbacks the plug-in must not call.
#include <cstring>

#include "host/kernel.hpp"
#include "support/host_fixture.hpp"

namespace {

using minikelto::word;

// Test entries of our own, written as the plug-in's are.
word raise_with_first_name(const vorn_callback_table* cbt, word args) noexcept {
  // Leave a fresh object behind, as an entry that fails late would.
  vorn::host_new_seq(*cbt, 3);
  vorn::host_raise_error(*cbt, std::string(minikelto::name_text(vorn::object_word(args, 1))).c_str());
}

word poll_until_interrupted(const vorn_callback_table* cbt, word) noexcept {
  for (std::int32_t polls = 1;; ++polls) {
    if (vorn::host_check_interrupt(*cbt)) return vorn::host_to_integer(*cbt, polls);
  }
}

word echo_level(const vorn_callback_table* cbt, word) noexcept {
  const word v = vorn::host_eval_string(*cbt, "infolevel[vorn]");
  if (vorn::host_is_integer(*cbt, v)) {
    vorn::host_printf(*cbt, "level %d, %.3f sec, %ld terms", vorn::host_to_int32(*cbt, v), 0.25, 12L);
    vorn::host_printf(*cbt, "\n");
  }
  return v;
}

word assign_pair(const vorn_callback_table* cbt, word args) noexcept {
  vorn::host_assign(*cbt, vorn::object_word(args, 1), vorn::host_to_boolean(*cbt, 1));
  vorn::host_assign(*cbt, vorn::object_word(args, 2), vorn::host_to_boolean(*cbt, 0));
  return vorn::immediate_one;
}

class entry_call_test : public host_test {};

TEST_F(entry_call_test, a_raise_reaches_the_caller_and_the_host_goes_on) {
  const minikelto::plugin p = minikelto::static_plugin(std::vector<minikelto::plugin_symbol>{
      {"raise_with_first_name", reinterpret_cast<minikelto::any_fn>(&raise_with_first_name)}});
  const word x = name("x");
  const minikelto::call_result r = minikelto::call_entry(p, "raise_with_first_name", std::vector<word>{name("boom")});
  EXPECT_FALSE(r.ok);
  EXPECT_EQ(r.error, "boom");
  EXPECT_FALSE(minikelto::in_entry_call());

  // The host still works: objects, unique, further calls and raises.
  EXPECT_EQ(unique(sum({{x, integer(1)}})), x);
  EXPECT_EQ(minikelto::call_entry(p, "raise_with_first_name", std::vector<word>{name("again")}).error, "again");
  const minikelto::call_result missing = minikelto::call_entry(p, "absent", {});
  EXPECT_FALSE(missing.ok);
  EXPECT_EQ(missing.error, "no entry absent in the plug-in");
}

TEST_F(entry_call_test, the_interrupt_countdown_answers_from_the_nth_poll_on) {
  const word args = minikelto::make_seq({});
  interrupt_from_poll(5);
  EXPECT_EQ(poll_until_interrupted(&cbt(), args), vorn::make_immediate(5));
  EXPECT_EQ(polls(), 5);
  EXPECT_TRUE(vorn::host_check_interrupt(cbt())) << "the countdown keeps answering";
  minikelto::clear_interrupt();
  EXPECT_FALSE(vorn::host_check_interrupt(cbt()));
  EXPECT_EQ(polls(), 1);
  minikelto::request_interrupt();
  EXPECT_EQ(poll_until_interrupted(&cbt(), args), vorn::make_immediate(1));
}

TEST_F(entry_call_test, printf_and_the_info_level_reach_the_host) {
  const minikelto::plugin p = minikelto::static_plugin(
      std::vector<minikelto::plugin_symbol>{{"echo_level", reinterpret_cast<minikelto::any_fn>(&echo_level)}});
  const minikelto::call_result unset = minikelto::call_entry(p, "echo_level", {});
  ASSERT_TRUE(unset.ok);
  EXPECT_TRUE(minikelto::is_name(unset.value)) << "an unassigned level is not an integer";
  EXPECT_EQ(output(), "");

  set_info_level(3);
  EXPECT_EQ(minikelto::call_entry(p, "echo_level", {}).value, vorn::make_immediate(3));
  EXPECT_EQ(output(), "level 3, 0.250 sec, 12 terms\n");

  // A front end's evaluator takes over every text.
  minikelto::set_evaluator([](const char*) { return minikelto::make_immediate(9); });
  EXPECT_EQ(vorn::host_eval_string(cbt(), "anything"), vorn::make_immediate(9));
  minikelto::set_evaluator(nullptr);
}

TEST_F(entry_call_test, assign_and_booleans) {
  const word q = name("q");
  const word r = minikelto::make_nameref("r");
  const minikelto::plugin p = minikelto::static_plugin(
      std::vector<minikelto::plugin_symbol>{{"assign_pair", reinterpret_cast<minikelto::any_fn>(&assign_pair)}});
  ASSERT_TRUE(minikelto::call_entry(p, "assign_pair", std::vector<word>{q, r}).ok);
  EXPECT_EQ(minikelto::value_of(q), minikelto::true_value());
  EXPECT_EQ(minikelto::value_of(r), minikelto::false_value());
  EXPECT_EQ(text(*minikelto::value_of(q)), "true");
  EXPECT_FALSE(minikelto::value_of(name("unassigned")).has_value());
}

TEST_F(entry_call_test, statically_linked_entries_are_called_by_name) {
  ASSERT_TRUE(has_entry("num_cpus"));
  EXPECT_EQ(call_ok("num_cpus", {integer(8)}), vorn::make_immediate(1));
  EXPECT_EQ(call_error("num_cpus", {name("x")}), "first argument must be an immediate integer");
}

TEST_F(entry_call_test, a_plugin_that_cannot_be_loaded_says_why) {
  std::string error;
  EXPECT_FALSE(minikelto::load_plugin("/nonexistent/libvorn.so", &error).has_value());
  EXPECT_NE(error.find("/nonexistent/libvorn.so"), std::string::npos) << error;
}

TEST_F(entry_call_test, the_shared_plugin_loads_and_its_entries_run) {
  std::string error;
  std::optional<minikelto::plugin> p = minikelto::load_plugin(VORN_PLUGIN_PATH, &error);
  ASSERT_TRUE(p.has_value()) << error;
  EXPECT_EQ(minikelto::find_symbol(*p, "no_such_entry"), nullptr);
  const minikelto::call_result r = minikelto::call_entry(*p, "num_cpus", {});
  ASSERT_TRUE(r.ok) << r.error;
  EXPECT_EQ(r.value, vorn::make_immediate(1));
  EXPECT_EQ(minikelto::call_entry(*p, "num_cpus", std::vector<word>{name("n")}).error,
            "first argument must be an immediate integer");
}

using entry_call_death_test = entry_call_test;

TEST_F(entry_call_death_test, unprovided_callbacks_end_the_process_naming_the_index) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(reinterpret_cast<void (*)()>(cbt().entry[3])(), "callback 3,");
  EXPECT_DEATH(reinterpret_cast<void (*)()>(cbt().entry[202])(), "callback 202,");
  EXPECT_DEATH(vorn::host_raise_error(cbt(), "stray"), "outside an entry call: stray");
}

}  // namespace
