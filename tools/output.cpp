#include "tools/output.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdarg>
#include <cstring>
#include <filesystem>

#if defined(_WIN32)
#include <io.h>
#include <windows.h>
#define TARNELL_ISATTY(fd) _isatty(fd)
#define TARNELL_FILENO(f) _fileno(f)
#else
#include <sys/ioctl.h>
#include <unistd.h>
#define TARNELL_ISATTY(fd) isatty(fd)
#define TARNELL_FILENO(f) fileno(f)
#endif

namespace tarnell::tool {

std::string jsonString(std::string_view text) {
  std::string out = "\"";
  for (const char c : text) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\t': out += "\\t"; break;
      case '\r': out += "\\r"; break;
      default:
        if (static_cast<unsigned char>(c) < 0x20) {
          char escaped[8];
          std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(c));
          out += escaped;
        } else {
          out += c;
        }
    }
  }
  return out + "\"";
}

// ------------------------------------------------------------------- JSON

void JsonWriter::newline(std::size_t depth) {
  out_ += '\n';
  out_.append(2 * depth, ' ');
}

void JsonWriter::value(const std::string& literal) {
  if (!afterKey_ && !empty_.empty()) {
    if (!empty_.back()) out_ += ",";
    if (empty_.size() <= 2) newline(empty_.size());
    else if (!empty_.back()) out_ += " ";
    empty_.back() = false;
  }
  afterKey_ = false;
  out_ += literal;
}

void JsonWriter::open(char bracket) {
  value(std::string(1, bracket));
  empty_.push_back(true);
}

void JsonWriter::close(char bracket) {
  const bool wasEmpty = empty_.back();
  empty_.pop_back();
  if (!wasEmpty && empty_.size() < 2) newline(empty_.size());
  out_ += bracket;
}

JsonWriter& JsonWriter::beginObject() {
  open('{');
  return *this;
}
JsonWriter& JsonWriter::endObject() {
  close('}');
  return *this;
}
JsonWriter& JsonWriter::beginArray() {
  open('[');
  return *this;
}
JsonWriter& JsonWriter::endArray() {
  close(']');
  return *this;
}
JsonWriter& JsonWriter::key(std::string_view name) {
  value(jsonString(name) + ": ");
  afterKey_ = true;
  return *this;
}
JsonWriter& JsonWriter::string(std::string_view text) {
  value(jsonString(text));
  return *this;
}
JsonWriter& JsonWriter::stringOrNull(const std::optional<std::string>& text) {
  return text ? string(*text) : null();
}
JsonWriter& JsonWriter::number(double v, int decimals) {
  if (!std::isfinite(v)) return null();
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, v);
  value(text);
  return *this;
}
JsonWriter& JsonWriter::integer(int64_t v) {
  value(std::to_string(v));
  return *this;
}
JsonWriter& JsonWriter::boolean(bool v) {
  value(v ? "true" : "false");
  return *this;
}
JsonWriter& JsonWriter::null() {
  value("null");
  return *this;
}

// ------------------------------------------------------------------ files

std::string whyNotWritable(const std::string& path) {
  std::error_code ec;
  const bool existed = std::filesystem::exists(path, ec);
  std::FILE* file = std::fopen(path.c_str(), "ab");
  if (file == nullptr) return std::strerror(errno);
  std::fclose(file);
  if (!existed) std::filesystem::remove(path, ec);
  return {};
}

// --------------------------------------------------------------- terminal

bool isTerminal(std::FILE* stream) { return TARNELL_ISATTY(TARNELL_FILENO(stream)) != 0; }

int terminalColumns(std::FILE* stream) {
  if (!isTerminal(stream)) return 0;
#if defined(_WIN32)
  CONSOLE_SCREEN_BUFFER_INFO info;
  const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(TARNELL_FILENO(stream)));
  if (handle == INVALID_HANDLE_VALUE || !GetConsoleScreenBufferInfo(handle, &info)) return 0;
  return std::max(0, info.srWindow.Right - info.srWindow.Left + 1);
#else
  winsize size{};
  if (ioctl(TARNELL_FILENO(stream), TIOCGWINSZ, &size) != 0) return 0;
  return size.ws_col;
#endif
}

std::string progressLine(std::string_view command, int done, int total, std::string_view label, double seconds,
                         int columns) {
  if (columns <= 1) return {};
  char counts[64], time[32];
  std::snprintf(counts, sizeof counts, " [%d/%d] ", done, total);
  std::snprintf(time, sizeof time, "  (%.0f s)", seconds);
  const std::string prefix = std::string(command) + counts, suffix = time;
  const std::size_t room = static_cast<std::size_t>(columns - 1);
  if (prefix.size() + label.size() + suffix.size() <= room) return prefix + std::string(label) + suffix;
  constexpr std::string_view kCut = "...";
  if (prefix.size() + suffix.size() + kCut.size() + 1 <= room)
    return prefix + std::string(label.substr(0, room - prefix.size() - suffix.size() - kCut.size())) +
           std::string(kCut) + suffix;
  return (prefix + std::string(label) + suffix).substr(0, room);
}

Progress::Progress(bool enabled, const char* command, int total)
    : enabled_(enabled && total > 0), command_(command), total_(total) {}

Progress::~Progress() { clear(); }

void Progress::clear() {
  if (!enabled_ || shown_ == 0) return;
  // Blanks rather than a terminal escape: works on any console, Windows' included;
  // never more than the window is wide now, or the blanks themselves would wrap.
  const int columns = terminalColumns(stderr);
  const std::size_t blanks = columns > 1 ? std::min(shown_, static_cast<std::size_t>(columns - 1)) : shown_;
  std::fprintf(stderr, "\r%*s\r", static_cast<int>(blanks), "");
  std::fflush(stderr);
  shown_ = 0;
}

void Progress::start(const std::string& label) {
  if (!enabled_) return;
  ++done_;
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin_).count();
  const int columns = terminalColumns(stderr);
  const std::string line = progressLine(command_, done_, total_, label, seconds, columns);
  if (line.empty()) {  // the width is not known (any more): say nothing
    clear();
    return;
  }
  // Pad over a longer previous line instead of clearing it first (no flicker),
  // within the window's width.
  const std::size_t over = std::min(shown_, static_cast<std::size_t>(columns - 1));
  const int pad = over > line.size() ? static_cast<int>(over - line.size()) : 0;
  std::fprintf(stderr, "\r%s%*s", line.c_str(), pad, "");
  if (pad > 0) std::fprintf(stderr, "\r%s", line.c_str());
  std::fflush(stderr);
  shown_ = line.size();
}

void Progress::print(const char* format, ...) {
  clear();
  va_list args;
  va_start(args, format);
  std::vfprintf(stdout, format, args);
  va_end(args);
  std::fflush(stdout);
}

}  // namespace tarnell::tool
