#include "tools/output.h"

#include <algorithm>
#include <cstdarg>

#if defined(_WIN32)
#include <io.h>
#define TARNELL_ISATTY(fd) _isatty(fd)
#define TARNELL_FILENO(f) _fileno(f)
#else
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

bool isTerminal(std::FILE* stream) { return TARNELL_ISATTY(TARNELL_FILENO(stream)) != 0; }

Progress::Progress(bool enabled, const char* command, int total)
    : enabled_(enabled && total > 0), command_(command), total_(total) {}

Progress::~Progress() { clear(); }

void Progress::clear() {
  if (!enabled_ || shown_ == 0) return;
  // Blanks rather than a terminal escape: works on any console, Windows' included.
  std::fprintf(stderr, "\r%*s\r", static_cast<int>(shown_), "");
  std::fflush(stderr);
  shown_ = 0;
}

void Progress::start(const std::string& label) {
  if (!enabled_) return;
  ++done_;
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin_).count();
  char line[160];
  const int n = std::snprintf(line, sizeof line, "%s [%d/%d] %.60s  (%.0f s)", command_, done_, total_, label.c_str(),
                              seconds);
  const std::size_t length = n < 0 ? 0 : std::min(static_cast<std::size_t>(n), sizeof line - 1);
  // Pad over a longer previous line instead of clearing it first: no flicker.
  std::fprintf(stderr, "\r%s%*s", line, shown_ > length ? static_cast<int>(shown_ - length) : 0, "");
  if (shown_ > length) std::fprintf(stderr, "\r%s", line);
  std::fflush(stderr);
  shown_ = length;
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
