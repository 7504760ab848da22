// Runs a piece of the program in a child process of its own, with standard input from a text and standard
// output into one: for what prints, reads or ends the process.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cwchar>
#include <functional>
#include <string>

namespace kelvane {

struct Captured {
  std::string output;
  int status = -1; // exit status, or 128 + the signal that ended the child
};

enum class Orientation { narrow, wide };

// The child ends with status 0 when body returns. ANSI colour sequences are left out of the output unless
// asked for.
inline Captured capture(const std::function<void()>& body, const std::string& input = {},
                        Orientation orientation = Orientation::wide, bool colors = false) {
  std::FILE* in = std::tmpfile();
  std::FILE* out = std::tmpfile();
  std::fwrite(input.data(), 1, input.size(), in);
  std::rewind(in);
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    dup2(fileno(in), STDIN_FILENO);
    dup2(fileno(out), STDOUT_FILENO);
    // Opening anew forgets the orientation that the test framework's own output has fixed.
    if (std::freopen("/proc/self/fd/1", "w", stdout) == nullptr) _exit(120);
    std::fwide(stdout, orientation == Orientation::wide ? 1 : -1);
    body();
    std::fflush(stdout);
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  Captured result;
  result.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);

  // The child's stream has its own file offset; the text is read from the start.
  std::rewind(out);
  for (int c = std::fgetc(out); c != EOF; c = std::fgetc(out)) {
    if (c == '\033' && !colors) {
      while (c != EOF && c != 'm') c = std::fgetc(out);
    } else {
      result.output.push_back(static_cast<char>(c));
    }
  }
  std::fclose(in);
  std::fclose(out);
  return result;
}

} // namespace kelvane
