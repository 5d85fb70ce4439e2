// Output helpers of tarnell-host: JSON documents, and a progress line for long
// runs that only a person at a terminal sees.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

// Builds one JSON document. Members of the outer two levels go one to a line
// (a result per line), deeper ones stay on their line. An absent value is null:
// an empty optional, a number that is not finite.
class JsonWriter {
 public:
  JsonWriter& beginObject();
  JsonWriter& endObject();
  JsonWriter& beginArray();
  JsonWriter& endArray();
  JsonWriter& key(std::string_view name);
  JsonWriter& string(std::string_view text);
  JsonWriter& stringOrNull(const std::optional<std::string>& text);
  JsonWriter& number(double value, int decimals);
  JsonWriter& integer(int64_t value);
  JsonWriter& boolean(bool value);
  JsonWriter& null();
  // The document with a closing newline (all containers must be closed).
  std::string text() const { return out_ + "\n"; }

 private:
  void value(const std::string& literal);
  void newline(std::size_t depth);
  void open(char bracket);
  void close(char bracket);
  std::string out_;
  std::vector<bool> empty_;  // per open container: nothing in it yet
  bool afterKey_ = false;
};

// Whether a report file can be written, asked before a long run rather than after:
// "" when it can, else why not (the system's reason). The file is opened for
// appending, so an existing one is not truncated; one created only for the
// question is removed again.
std::string whyNotWritable(const std::string& path);

// True when the stream is an interactive terminal (console on Windows).
bool isTerminal(std::FILE* stream);
// The terminal's width in columns, or 0 when it is not known.
int terminalColumns(std::FILE* stream);

// "verify [12/49] blnd:7 DarkenTowardSourceThroughMask8  (3 s)", cut to fit in
// columns - 1 characters (a line that fills the last column wraps on some
// terminals): the label loses its end first ("..."), the count and time stay.
// Empty when columns is 0 (unknown).
std::string progressLine(std::string_view command, int done, int total, std::string_view label, double seconds,
                         int columns);

// One line on stderr, rewritten in place with carriage returns, cut to the
// terminal's width, which it asks for at every item (the window may be resized).
// Disabled, or where the width is unknown, it prints nothing at all, so piped and
// --json output stays exactly the results. Result lines go to stdout through
// print(), which clears the line first.
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
