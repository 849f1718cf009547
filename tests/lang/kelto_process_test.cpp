// kelto as a person runs it: at a terminal (a pseudo-terminal here), with
// scripts, with pipes, and with signals; what it prints and how it exits.
// kelto runs through this build's test runner (the emulator of the i386
// build), as every program a test starts must.
#include <gtest/gtest.h>
#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace {

std::vector<std::string> kelto_command(const std::vector<std::string>& args) {
  std::vector<std::string> argv;
  const std::string runner = KELTO_RUNNER;
  for (std::size_t from = 0; from < runner.size();) {
    const std::size_t end = std::min(runner.find(';', from), runner.size());
    if (end > from) argv.push_back(runner.substr(from, end - from));
    from = end + 1;
  }
  argv.insert(argv.end(), {KELTO_PATH, "--plugin", VORN_PLUGIN_PATH});
  argv.insert(argv.end(), args.begin(), args.end());
  return argv;
}

[[noreturn]] void exec(const std::vector<std::string>& argv) {
  std::vector<char*> raw;
  for (const std::string& a : argv) raw.push_back(const_cast<char*>(a.c_str()));
  raw.push_back(nullptr);
  execvp(raw[0], raw.data());
  _exit(127);
}

// The exit status, 128 + N for a death by signal N, -1 when it did not end
// in time (then it is killed, unless `keep` says to leave it running).
int wait_status(pid_t pid, double seconds, bool keep = false) {
  const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  for (;;) {
    int status = 0;
    if (waitpid(pid, &status, WNOHANG) == pid)
      return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    if (std::chrono::steady_clock::now() > until) {
      if (keep) return -1;
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      return -1;
    }
    usleep(10000);
  }
}

// Reads what is there within `seconds`; false at end of output.
bool read_some(int fd, std::string& into, double seconds) {
  pollfd p{fd, POLLIN, 0};
  if (poll(&p, 1, static_cast<int>(seconds * 1000)) <= 0) return true;
  char buffer[4096];
  const ssize_t n = read(fd, buffer, sizeof buffer);
  if (n <= 0) return false;
  into.append(buffer, static_cast<std::size_t>(n));
  return true;
}

// Generous: the instrumented and emulated builds start and compute slowly.
constexpr double patience = 60;

struct result {
  int status;
  std::string out, err;
};

// Runs kelto with `input` on a pipe; with `interrupt_when` set, sends SIGINT
// once that text has appeared on its standard output.
result run(const std::vector<std::string>& args, const std::string& input,
           const std::string& interrupt_when = "") {
  int in[2], out[2], err[2];
  if (pipe(in) != 0 || pipe(out) != 0 || pipe(err) != 0) ADD_FAILURE() << "pipe";
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(in[0], 0);
    dup2(out[1], 1);
    dup2(err[1], 2);
    for (int fd : {in[0], in[1], out[0], out[1], err[0], err[1]}) close(fd);
    exec(kelto_command(args));
  }
  close(in[0]);
  close(out[1]);
  close(err[1]);
  if (!input.empty() && write(in[1], input.data(), input.size()) != static_cast<ssize_t>(input.size()))
    ADD_FAILURE() << "write";
  close(in[1]);
  result r{0, "", ""};
  bool interrupted = interrupt_when.empty();
  const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(patience);
  bool out_open = true, err_open = true;
  while ((out_open || err_open) && std::chrono::steady_clock::now() < until) {
    if (out_open) out_open = read_some(out[0], r.out, 0.01);
    if (err_open) err_open = read_some(err[0], r.err, 0.01);
    if (!interrupted && r.out.find(interrupt_when) != std::string::npos) {
      usleep(200000);  // well into the statement after it
      kill(pid, SIGINT);
      interrupted = true;
    }
  }
  close(out[0]);
  close(err[0]);
  r.status = wait_status(pid, 5);
  return r;
}

// A directory of its own for a test's files and home, removed afterwards.
struct temp_dir {
  std::string path;
  temp_dir() {
    char pattern[] = "/tmp/kelto-test-XXXXXX";
    const char* dir = mkdtemp(pattern);
    path = dir != nullptr ? dir : "/tmp/kelto-test";
  }
  temp_dir(const temp_dir&) = delete;
  temp_dir& operator=(const temp_dir&) = delete;
  ~temp_dir() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
};

void write_file(const std::string& path, const std::string& text) { std::ofstream(path) << text; }

// kelto at a pseudo-terminal: keys typed, the screen's text read back.
class terminal {
 public:
  explicit terminal(const std::string& home, const std::vector<std::string>& args = {}) {
    pid_ = forkpty(&master_, nullptr, nullptr, nullptr);
    if (pid_ == 0) {
      setenv("HOME", home.c_str(), 1);
      setenv("TERM", "dumb", 1);
      exec(kelto_command(args));
    }
  }
  ~terminal() {
    if (pid_ > 0) wait_status(pid_, 0);
    close(master_);
  }
  void type(const std::string& keys) {
    if (write(master_, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size())) ADD_FAILURE() << "type";
  }
  // Reads until `text` appears after what earlier waits consumed.
  bool wait_for(const std::string& text, double seconds = patience) {
    const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (screen_.find(text, consumed_) == std::string::npos) {
      if (std::chrono::steady_clock::now() > until || !read_some(master_, screen_, 0.05)) {
        ADD_FAILURE() << "no \"" << text << "\" in:\n" << screen_.substr(consumed_, 2000);
        return false;
      }
    }
    consumed_ = screen_.find(text, consumed_) + text.size();
    return true;
  }
  // Reads at least n bytes more.
  void read_bytes(std::size_t n) {
    const std::size_t want = screen_.size() + n;
    while (screen_.size() < want && read_some(master_, screen_, patience)) {
    }
  }
  std::size_t bytes_read() const { return screen_.size(); }
  // Presses Ctrl-D until kelto ends, and gives its exit status.  Under load a
  // control key can reach the terminal before the line editor has taken it,
  // and the editor then inserts it as a character (it shows "^D"); a person
  // would clear the line (Ctrl-U) and press Ctrl-D again, and so does this.
  int end_with_ctrl_d() {
    for (int press = 0; press < 10; ++press) {
      // Not type(): kelto may end between two presses, and then the write fails.
      const char* keys = press == 0 ? "\x04" : "\x15\x04";
      if (write(master_, keys, std::strlen(keys)) <= 0) break;
      read_some(master_, screen_, 0.05);
      const int status = wait_status(pid_, 2, true);
      if (status != -1) {
        pid_ = -1;
        return status;
      }
    }
    return finish();
  }
  int finish() {
    const auto until = std::chrono::steady_clock::now() + std::chrono::duration<double>(patience);
    while (read_some(master_, screen_, 0.05) && std::chrono::steady_clock::now() < until) {
    }
    const int status = wait_status(pid_, patience);
    pid_ = -1;
    return status;
  }

 private:
  pid_t pid_ = -1;
  int master_ = -1;
  std::string screen_;
  std::size_t consumed_ = 0;
};

}  // namespace

// Keys are typed only at the prompt: typed ahead, they could reach kelto
// before its line editor takes the terminal.
TEST(KeltoTerminal, ctrl_c_stops_any_long_work_and_the_session_goes_on) {
  const temp_dir home;
  terminal t(home.path, {"-q"});
  ASSERT_TRUE(t.wait_for("> "));
  t.type("a := 5\r");
  ASSERT_TRUE(t.wait_for("> "));
  // The host's expansion, which once ignored Ctrl-C; "started" comes out as
  // the expansion starts.
  t.type("print(started); g := expand((1+x)^100000000);\r");
  ASSERT_TRUE(t.wait_for("started\r\n"));
  usleep(100000);
  t.type("\x03");
  ASSERT_TRUE(t.wait_for("error in expand: Interrupted"));
  ASSERT_TRUE(t.wait_for("> "));
  t.type("a + 1\r");
  ASSERT_TRUE(t.wait_for("\r\n6\r\n> "));
  // Printing a value of about a megabyte: stop reading (the terminal's
  // buffer fills and kelto waits), press Ctrl-C, and the rest never comes.
  t.type("f := expand((1+x+y+z+t)^30); length(f)\r");
  ASSERT_TRUE(t.wait_for("46376\r\n> "));
  t.type("f\r");
  t.read_bytes(20000);
  const std::size_t before = t.bytes_read();
  t.type("\x03");
  ASSERT_TRUE(t.wait_for("Interrupted"));
  EXPECT_LT(t.bytes_read() - before, 100000u);
  ASSERT_TRUE(t.wait_for("> "));
  t.type("length(f)\r");
  ASSERT_TRUE(t.wait_for("46376\r\n> "));
  t.type("quit\r");
  EXPECT_EQ(t.finish(), 0);
}

TEST(KeltoTerminal, banner_help_quit_history_and_ctrl_d) {
  const temp_dir dir;
  const std::string& home = dir.path;
  {
    terminal t(home);
    ASSERT_TRUE(t.wait_for("Type help for help; quit or Ctrl-D leaves.\r\n> "));
    t.type("help\r");
    ASSERT_TRUE(t.wait_for("mul_vorn(p, A, B)"));
    ASSERT_TRUE(t.wait_for("quit, exit or Ctrl-D leaves.\r\n> "));
    t.type("num_cpus(x)\r");
    ASSERT_TRUE(t.wait_for("error in num_cpus: first argument must be an immediate integer\r\n> "));
    EXPECT_EQ(t.end_with_ctrl_d(), 0) << "Ctrl-D ends a session well, whatever failed in it";
  }
#ifdef KELTO_HAVE_LIBEDIT
  std::ifstream history(home + "/.kelto_history");
  const std::string kept((std::istreambuf_iterator<char>(history)), std::istreambuf_iterator<char>());
  EXPECT_NE(kept.find("num_cpus(x)"), std::string::npos) << kept;
  terminal t(home, {"-q"});
  ASSERT_TRUE(t.wait_for("> "));
  // The line before, recalled; the recall replaces the whole line, so a
  // Ctrl-U that the editor takes as a character (see above) does no harm.
  t.type("\x15\x1b[A\r");
  ASSERT_TRUE(t.wait_for("error in num_cpus"));
  ASSERT_TRUE(t.wait_for("> "));
  t.type("exit\r");
  EXPECT_EQ(t.finish(), 0);
#endif
}

TEST(KeltoPipe, input_is_a_stream_with_real_line_numbers) {
  const std::string input = "1\nnum_cpus(x)\n\n  1 / 2\nprint(3,\n4)\n(5 +\n";
  for (const std::vector<std::string>& args : {std::vector<std::string>{}, std::vector<std::string>{"-"}}) {
    const result r = run(args, input);
    EXPECT_EQ(r.out, "1\n3, 4\n");
    EXPECT_EQ(r.err,
              "<stdin>:2:1: error in num_cpus: first argument must be an immediate integer\n"
              "<stdin>:4:5: '/' is not supported: the host has no rationals\n"
              "<stdin>:7:5: syntax error: expected a value, found end of input\n");
    EXPECT_EQ(r.status, 1);
  }
}

TEST(KeltoScript, sigint_stops_the_script_naming_the_line_with_status_130) {
  const temp_dir tmp;
  const std::string& dir = tmp.path;
  write_file(dir + "/t.kel", "print(started)\n\ng := expand((1 + x)^100000000);\nprint(not_reached)\n");
  const result r = run({dir + "/t.kel"}, "", "started");
  EXPECT_EQ(r.status, 130);
  EXPECT_EQ(r.out, "started\n");
  EXPECT_NE(r.err.find("/t.kel:3:6: error in expand: Interrupted"), std::string::npos) << r.err;
}

TEST(KeltoScript, exit_statuses) {
  const temp_dir tmp;
  const std::string& dir = tmp.path;
  write_file(dir + "/good.kel", "print(ran)\n");
  write_file(dir + "/bad.kel", "num_cpus(x)\nprint(after)\n");
  EXPECT_EQ(run({dir + "/good.kel"}, "").status, 0);
  const result failed = run({dir + "/bad.kel"}, "");
  EXPECT_EQ(failed.status, 1);
  EXPECT_EQ(failed.out, "after\n");
  const result stopped = run({"-e", dir + "/bad.kel"}, "");
  EXPECT_EQ(stopped.status, 1);
  EXPECT_EQ(stopped.out, "");
  // Every script is read first: a missing one is a start-up error before any runs.
  const result missing = run({dir + "/good.kel", dir + "/missing.kel"}, "");
  EXPECT_EQ(missing.status, 2);
  EXPECT_EQ(missing.out, "");
  EXPECT_NE(missing.err.find("kelto: cannot read " + dir + "/missing.kel"), std::string::npos);
  EXPECT_EQ(run({"--no-such-option"}, "").status, 2);
  EXPECT_NE(run({"--interrupt-after", "0"}, "").err.find("--interrupt-after needs a positive count"),
            std::string::npos);
  const result bad_plugin = run({"--plugin", "/nonexistent/libvorn.so"}, "");
  EXPECT_EQ(bad_plugin.status, 2);
  EXPECT_NE(bad_plugin.err.find("kelto: cannot load the plug-in"), std::string::npos);
  const result help = run({"--help"}, "");
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("130 interrupted"), std::string::npos);
}
