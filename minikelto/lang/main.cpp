// kelto: the command-line front end of the minimal host.  Runs script files
// and standard input as scripts, or an interactive prompt (with line editing
// and history where the build has libedit) when no file is given and the
// input is a terminal.
//
// The plug-in is found next to the program (../lib/libvorn.so), then in the
// install location, unless --plugin names it.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "minikelto/host.hpp"
#include "minikelto/lang/session.hpp"
#include "minikelto/lang/syntax.hpp"

#ifdef KELTO_HAVE_LIBEDIT
#include <editline/readline.h>
#endif

#ifndef KELTO_VERSION
#define KELTO_VERSION "0.0.0"
#endif
#ifndef KELTO_INSTALL_PLUGIN
#define KELTO_INSTALL_PLUGIN "/usr/local/lib/libvorn.so"
#endif

namespace {

namespace lang = minikelto::lang;

// Exit statuses.
constexpr int exit_ok = 0;
constexpr int exit_failed = 1;       // a statement failed in a script, or with -e
constexpr int exit_usage = 2;        // usage or start-up error
constexpr int exit_interrupted = 130;

void usage(std::FILE* to) {
  std::fputs(
      "usage: kelto [options] [file.kel | - ...]\n"
      "Runs the scripts in order ('-' is standard input); with none, reads statements\n"
      "at a prompt from a terminal, else from standard input as a script.\n"
      "  -e             stop at the first error\n"
      "  -x, --echo     print each statement (and the comments before it) before its\n"
      "                 output\n"
      "  -q             no banner\n"
      "  --plugin PATH  the plug-in to load (default: ../lib/libvorn.so next to kelto,\n"
      "                 then " KELTO_INSTALL_PLUGIN ")\n"
      "  --interrupt-after N\n"
      "                 in every statement, answer the N-th interrupt poll (of the\n"
      "                 plug-in or of the host's own work) and every later one as if\n"
      "                 Ctrl-C had been pressed\n"
      "  -h, --help     this text\n"
      "  --version      the version\n"
      "Exit status: 0 success; 1 a statement of a script failed (at the prompt: -e\n"
      "stopped at an error); 2 usage or start-up error; 130 interrupted.  A session\n"
      "at the prompt ended by quit or Ctrl-D exits 0.\n",
      to);
}

std::string executable_dir() {
  std::vector<char> buffer(4096);
  const ssize_t n = readlink("/proc/self/exe", buffer.data(), buffer.size() - 1);
  if (n <= 0) return ".";
  std::string path(buffer.data(), static_cast<std::size_t>(n));
  const auto slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash);
}

bool read_file(const std::string& path, std::string& text) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::ostringstream s;
  s << in.rdbuf();
  text = s.str();
  return true;
}

enum class read_result { line, end, interrupted };

// One line of a stream, without its newline.  Ctrl-C ends a read that waits
// (the handler does not restart it).
read_result read_stream_line(std::FILE* in, std::string& line) {
  line.clear();
  for (;;) {
    const int c = std::fgetc(in);
    if (c == EOF) {
      if (std::ferror(in) != 0 && errno == EINTR) {
        std::clearerr(in);
        if (minikelto::interrupt_pending()) return read_result::interrupted;
        continue;
      }
      return line.empty() ? read_result::end : read_result::line;
    }
    if (c == '\n') return read_result::line;
    line += static_cast<char>(c);
  }
}

int status_after(lang::outcome how, const lang::session& s) {
  switch (how) {
    case lang::outcome::interrupted: return exit_interrupted;
    case lang::outcome::stopped: return exit_failed;
    default: return s.errors() > 0 ? exit_failed : exit_ok;
  }
}

// Runs a stream as a script: each statement as soon as its last line has
// come, numbered by its real lines; an unfinished statement at the end is
// a syntax error.  `how` says how the run ended.
void run_stream(lang::session& s, std::FILE* in, const std::string& source, lang::outcome& how) {
  std::string text, line;
  std::int32_t first = 1, next = 1;
  how = lang::outcome::done;
  for (;;) {
    const read_result r = read_stream_line(in, line);
    if (r == read_result::interrupted) {
      std::fflush(stdout);
      std::fprintf(stderr, "%s:%d: Interrupted\n", source.c_str(), next);
      minikelto::clear_interrupt();
      how = lang::outcome::interrupted;
      return;
    }
    if (r == read_result::end) break;
    text += line;
    text += '\n';
    ++next;
    if (lang::needs_more(text)) continue;
    how = s.run(text, source, first);
    text.clear();
    first = next;
    if (how != lang::outcome::done) return;
  }
  if (text.find_first_not_of(" \t\r\n") != std::string::npos) how = s.run(text, source, first);
}

#ifdef KELTO_HAVE_LIBEDIT
// History lives in ~/.kelto_history (none without a home directory).
std::string history_path() {
  const char* home = std::getenv("HOME");
  return home != nullptr && *home != '\0' ? std::string(home) + "/.kelto_history" : std::string();
}
#endif

// One line typed at the prompt; false at the end of input or on Ctrl-C (then
// the interrupt is pending).
bool read_prompt_line(const char* prompt, std::string& line) {
#ifdef KELTO_HAVE_LIBEDIT
  char* got = readline(prompt);
  if (got == nullptr) return false;
  line = got;
  std::free(got);
  if (line.find_first_not_of(" \t") != std::string::npos) {
    add_history(line.c_str());
    const std::string path = history_path();
    if (!path.empty()) write_history(path.c_str());
  }
  return true;
#else
  std::fputs(prompt, stdout);
  std::fflush(stdout);
  return read_stream_line(stdin, line) == read_result::line;
#endif
}

int prompt(lang::session& s, bool banner) {
#ifdef KELTO_HAVE_LIBEDIT
  stifle_history(1000);
  if (const std::string path = history_path(); !path.empty()) read_history(path.c_str());
#endif
  if (banner)
    std::printf("kelto %s, the minimal host of libvorn.  Type help for help; quit or Ctrl-D leaves.\n",
                KELTO_VERSION);
  std::string text, line;
  std::int32_t first = 1, next = 1;
  for (;;) {
    const bool got = read_prompt_line(text.empty() ? "> " : "  ", line);
    if (minikelto::interrupt_pending()) {
      // Ctrl-C at the prompt cancels the statement being typed.
      std::fputc('\n', stdout);
      text.clear();
      minikelto::clear_interrupt();
      continue;
    }
    if (!got) break;
    text += line;
    text += '\n';
    ++next;
    if (lang::needs_more(text)) continue;
    const lang::outcome how = s.run(text, "<stdin>", first);
    text.clear();
    first = next;
    if (how == lang::outcome::quit) return exit_ok;
    if (how == lang::outcome::stopped) return exit_failed;
  }
  std::fputc('\n', stdout);
  return exit_ok;
}

}  // namespace

int main(int argc, char** argv) {
  lang::session_options options;
  bool banner = true;
  std::string plugin_path;
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "-e") {
      options.stop_on_error = true;
    } else if (a == "-q") {
      banner = false;
    } else if (a == "-x" || a == "--echo") {
      options.echo = true;
    } else if (a == "--plugin") {
      if (i + 1 >= argc) {
        std::fputs("kelto: --plugin needs a path\n", stderr);
        return exit_usage;
      }
      plugin_path = argv[++i];
    } else if (a == "--interrupt-after") {
      char* end = nullptr;
      const long long n = i + 1 < argc ? std::strtoll(argv[i + 1], &end, 10) : 0;
      if (i + 1 >= argc || end == argv[i + 1] || *end != '\0' || n < 1) {
        std::fputs("kelto: --interrupt-after needs a positive count\n", stderr);
        return exit_usage;
      }
      options.interrupt_after_polls = n;
      ++i;
    } else if (a == "-h" || a == "--help") {
      usage(stdout);
      return exit_ok;
    } else if (a == "--version") {
      std::printf("kelto %s\n", KELTO_VERSION);
      return exit_ok;
    } else if (a.size() > 1 && a[0] == '-') {
      std::fprintf(stderr, "kelto: unknown option %s\n", a.c_str());
      usage(stderr);
      return exit_usage;
    } else {
      files.push_back(a);
    }
  }

  // Every script is read before the first runs, so a missing one is a
  // start-up error rather than a failure halfway.
  std::vector<std::string> texts(files.size());
  for (std::size_t i = 0; i < files.size(); ++i) {
    if (files[i] != "-" && !read_file(files[i], texts[i])) {
      std::fprintf(stderr, "kelto: cannot read %s: %s\n", files[i].c_str(), std::strerror(errno));
      return exit_usage;
    }
  }

  std::vector<std::string> candidates;
  if (!plugin_path.empty()) {
    candidates.push_back(plugin_path);
  } else {
    candidates.push_back(executable_dir() + "/../lib/libvorn.so");
    candidates.push_back(KELTO_INSTALL_PLUGIN);
  }
  std::optional<minikelto::plugin> plug;
  std::string why;
  for (const std::string& c : candidates) {
    std::string error;
    plug = minikelto::load_plugin(c, &error);
    if (plug) break;
    why += "\n  " + c + ": " + error;
  }
  if (!plug) {
    std::fprintf(stderr, "kelto: cannot load the plug-in:%s\n", why.c_str());
    return exit_usage;
  }

  minikelto::install_interrupt_handler();

  const bool interactive = files.empty() && isatty(STDIN_FILENO) != 0;
  options.at_prompt = interactive;
  if (interactive) options.echo = false;
  lang::session s(std::move(*plug), options);
  if (interactive) return prompt(s, banner);
  if (files.empty()) files.push_back("-");
  texts.resize(files.size());
  lang::outcome how = lang::outcome::done;
  for (std::size_t i = 0; i < files.size() && how == lang::outcome::done; ++i) {
    if (files[i] == "-") run_stream(s, stdin, "<stdin>", how);
    else how = s.run(texts[i], files[i]);
  }
  return status_after(how, s);
}
