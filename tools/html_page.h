// What the tool's HTML pages share: one style sheet, escaping, the header's
// flag chips, and a logarithmic axis of speed ratios around 1x. The pages are
// self-contained (no scripts, nothing fetched) and read from a phone-width window
// up: no fixed width wider than a narrow viewport; below 860 pixels each table row
// becomes a small card (label and figures above and below a full-width bar).
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace tarnell::tool::html {

std::string escape(const std::string& text);
std::string format(const char* fmt, double value);  // printf of one number
std::string times(double value);                    // tick label: "0.25×", "1×", "16×"

// "<!DOCTYPE html> ... <body>\n" with the shared style sheet; the caller closes
// with pageEnd().
std::string pageStart(const std::string& title);
std::string pageEnd();

// "MMX=1 SSE=1 AVX=0 ..." as chips, the absent flags struck through.
std::string flagChips(const std::string& flags);

// "<dt>term</dt><dd>html</dd>"
std::string metaItem(const char* term, const std::string& html);

// Powers of two around every ratio and 1x, at least 1/2x..2x (ratios that are not
// positive and finite are left out).
std::pair<double, double> ratioAxis(const std::vector<double>& ratios);

class LogAxis {
 public:
  explicit LogAxis(std::pair<double, double> range) : lo_(range.first), hi_(range.second) {}
  double lo() const { return lo_; }
  double hi() const { return hi_; }
  // Where a ratio sits on the track, in percent of its width (clamped to the ends).
  double at(double ratio) const;
  // The track's grid lines, a line per power of two, 1x stronger; or the tick labels.
  std::string grid() const;
  std::string ticks() const;
  // A bar from the 1x line to the ratio: "left:..%;width:..%".
  std::string barGeometry(double ratio) const;

 private:
  double lo_, hi_;
};

}  // namespace tarnell::tool::html
