// Entry calls through minikelto: raises coming back as messages, the host
// usable afterwards, the interrupt countdown, captured output, the info level
// and the callbacks the plug-in must not call.
#include <cstring>

#include "host/callbacks.hpp"
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

class EntryCall : public host_test {};

TEST_F(EntryCall, a_raise_reaches_the_caller_and_the_host_goes_on) {
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

TEST_F(EntryCall, the_interrupt_countdown_answers_from_the_nth_poll_on) {
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

TEST_F(EntryCall, the_shared_plugin_loads_and_its_entries_run) {
  std::string error;
  EXPECT_FALSE(minikelto::load_plugin("/nonexistent/libvorn.so", &error).has_value());
  EXPECT_NE(error.find("/nonexistent/libvorn.so"), std::string::npos) << error;
  std::optional<minikelto::plugin> p = minikelto::load_plugin(VORN_PLUGIN_PATH, &error);
  ASSERT_TRUE(p.has_value()) << error;
  EXPECT_EQ(minikelto::find_symbol(*p, "no_such_entry"), nullptr);
  const minikelto::call_result r = minikelto::call_entry(*p, "num_cpus", {});
  ASSERT_TRUE(r.ok) << r.error;
  EXPECT_EQ(r.value, vorn::make_immediate(1));
  EXPECT_EQ(minikelto::call_entry(*p, "num_cpus", std::vector<word>{name("n")}).error,
            "first argument must be an immediate integer");
}

using EntryCallDeathTest = EntryCall;

TEST_F(EntryCallDeathTest, unprovided_callbacks_end_the_process_naming_the_index) {
  // A fork of this process, never a new execution of the program: an i386
  // test program running under an emulator cannot be executed by the kernel.
  GTEST_FLAG_SET(death_test_style, "fast");
  EXPECT_DEATH(reinterpret_cast<void (*)()>(cbt().entry[3])(), "callback 3,");
  EXPECT_DEATH(reinterpret_cast<void (*)()>(cbt().entry[202])(), "callback 202,");
  EXPECT_DEATH(vorn::host_raise_error(cbt(), "stray"), "outside an entry call: stray");
}

}  // namespace
