// kelto: the command-line front end of the minimal host.  Runs script files,
// or an interactive prompt (with line editing where the build has libedit)
// when no file is given.
//
// The plug-in is found next to the program (../lib/libvorn.so), then in the
// install location, unless --plugin names it.
#include <signal.h>
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

volatile sig_atomic_t interrupted = 0;

extern "C" void on_interrupt(int) {
  interrupted = 1;
  minikelto::request_interrupt();
}

void usage(std::FILE* to) {
  std::fputs(
      "usage: kelto [options] [file.kel ...]\n"
      "Runs the scripts in order, or reads statements at a prompt when none is given.\n"
      "  -e             stop at the first error\n"
      "  -q             no banner\n"
      "  --plugin PATH  the plug-in to load (default: ../lib/libvorn.so next to kelto,\n"
      "                 then " KELTO_INSTALL_PLUGIN ")\n"
      "  --interrupt-after N\n"
      "                 in every statement, answer the plug-in's N-th interrupt poll\n"
      "                 (and every later one) as if Ctrl-C had been pressed\n"
      "  -h, --help     this text\n"
      "  --version      the version\n",
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

// One line from the terminal or standard input; false at end of input.
bool read_line(const char* prompt, bool interactive, std::string& line) {
#ifdef KELTO_HAVE_LIBEDIT
  if (interactive) {
    char* got = readline(prompt);
    if (got == nullptr) return false;
    line = got;
    if (!line.empty()) add_history(got);
    std::free(got);
    return true;
  }
#endif
  if (interactive) {
    std::fputs(prompt, stdout);
    std::fflush(stdout);
  }
  line.clear();
  for (;;) {
    const int c = std::fgetc(stdin);
    if (c == EOF) {
      if (interrupted != 0 && std::ferror(stdin) != 0 && errno == EINTR) {
        std::clearerr(stdin);
        return true;
      }
      return !line.empty();
    }
    if (c == '\n') return true;
    line += static_cast<char>(c);
  }
}

int prompt(minikelto::lang::session& s, bool banner) {
  const bool interactive = isatty(STDIN_FILENO) != 0;
  if (banner && interactive)
    std::printf("kelto %s, the minimal host of libvorn.  Statements end with a newline or ';'.\n", KELTO_VERSION);
  std::string text, line;
  for (;;) {
    interrupted = 0;
    if (!read_line(text.empty() ? "> " : "  ", interactive, line)) {
      if (interrupted != 0) {
        // Ctrl-C at the prompt cancels the line.
        std::fputc('\n', stdout);
        text.clear();
        minikelto::clear_interrupt();
        continue;
      }
      break;
    }
    if (interrupted != 0) {
      std::fputc('\n', stdout);
      text.clear();
      minikelto::clear_interrupt();
      continue;
    }
    text += line;
    text += '\n';
    if (minikelto::lang::needs_more(text)) continue;
    const bool go_on = s.run(text, "<stdin>");
    text.clear();
    if (!go_on) return 1;
  }
  if (interactive) std::fputc('\n', stdout);
  return s.errors() > 0 ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  minikelto::lang::session_options options;
  bool banner = true;
  std::string plugin_path;
  std::vector<std::string> files;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "-e") {
      options.stop_on_error = true;
    } else if (a == "-q") {
      banner = false;
    } else if (a == "--plugin") {
      if (i + 1 >= argc) {
        std::fputs("kelto: --plugin needs a path\n", stderr);
        return 2;
      }
      plugin_path = argv[++i];
    } else if (a == "--interrupt-after") {
      char* end = nullptr;
      const long long n = i + 1 < argc ? std::strtoll(argv[i + 1], &end, 10) : 0;
      if (i + 1 >= argc || end == argv[i + 1] || *end != '\0' || n < 1) {
        std::fputs("kelto: --interrupt-after needs a positive count\n", stderr);
        return 2;
      }
      options.interrupt_after_polls = n;
      ++i;
    } else if (a == "-h" || a == "--help") {
      usage(stdout);
      return 0;
    } else if (a == "--version") {
      std::printf("kelto %s\n", KELTO_VERSION);
      return 0;
    } else if (a.size() > 1 && a[0] == '-') {
      std::fprintf(stderr, "kelto: unknown option %s\n", a.c_str());
      usage(stderr);
      return 2;
    } else {
      files.push_back(a);
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
    return 2;
  }

  struct sigaction action {};
  action.sa_handler = on_interrupt;
  sigemptyset(&action.sa_mask);
  action.sa_flags = 0;  // no SA_RESTART: Ctrl-C ends a read at the prompt
  sigaction(SIGINT, &action, nullptr);

  minikelto::lang::session s(std::move(*plug), options);
  if (files.empty()) return prompt(s, banner);
  for (const std::string& f : files) {
    std::string text;
    if (!read_file(f, text)) {
      std::fprintf(stderr, "kelto: cannot read %s\n", f.c_str());
      return 2;
    }
    if (!s.run(text, f)) return 1;
  }
  return s.errors() > 0 ? 1 : 0;
}
