// Output helpers of tarnell-host: JSON strings, and a progress line for long runs
// that only a person at a terminal sees.
#pragma once

#include <chrono>
#include <cstdio>
#include <string>
#include <string_view>

// printf checking; MinGW's C++ runtime formats like glibc (%zu included).
#if defined(__MINGW32__)
#define TARNELL_PRINTF_LIKE [[gnu::format(gnu_printf, 2, 3)]]
#else
#define TARNELL_PRINTF_LIKE [[gnu::format(printf, 2, 3)]]
#endif

namespace tarnell::tool {

// text as a JSON string literal, quotes included (paths on Windows carry backslashes,
// failure descriptions may carry quotes).
std::string jsonString(std::string_view text);

// True when the stream is an interactive terminal (console on Windows).
bool isTerminal(std::FILE* stream);

// One line on stderr, rewritten in place with carriage returns: "[k/n] label, t s".
// Disabled, it prints nothing at all, so piped and --json output stays exactly the
// results. Result lines go to stdout through print(), which clears the line first.
class Progress {
 public:
  Progress(bool enabled, const char* command, int total);
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  void start(const std::string& label);  // the next item begins
  // A result line on stdout, printf-style, not torn by the progress line.
  TARNELL_PRINTF_LIKE void print(const char* format, ...);

 private:
  void clear();
  bool enabled_;
  const char* command_;
  int total_, done_ = 0;
  std::size_t shown_ = 0;  // characters of the line on screen
  std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

}  // namespace tarnell::tool
