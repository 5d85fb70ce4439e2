// What the tool's HTML pages must keep to, checked without a browser: every fixed
// width fits a phone's viewport, the narrow layout exists, nothing is fetched or
// run.
#pragma once

#include <gtest/gtest.h>

#include <regex>
#include <string>

namespace tarnell::tests {

// The narrowest window the pages are made for.
constexpr double kNarrowestViewport = 320;

inline std::size_t countOf(const std::string& text, const std::string& what) {
  std::size_t n = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

inline void expectPageFitsAnyWidth(const std::string& page) {
  // No width or min-width in pixels (in the style sheet or inline) wider than the
  // narrowest viewport; a max-width limits and is fine.
  const std::regex fixed(R"((^|[^-a-z])(min-)?width\s*:\s*([0-9.]+)px)");
  for (auto it = std::sregex_iterator(page.begin(), page.end(), fixed); it != std::sregex_iterator(); ++it)
    EXPECT_LE(std::stod((*it)[3].str()), kNarrowestViewport) << "fixed width: " << (*it)[0].str();
  // Phones lay it out at their own width, and below 860 pixels a row is a card.
  EXPECT_NE(page.find("<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"), std::string::npos);
  EXPECT_NE(page.find("@media (max-width: 860px)"), std::string::npos);
  for (const char* banned : {"<script", "<link", "<img", "<iframe", "src=", "url(", "http:", "https:", "@import"})
    EXPECT_EQ(page.find(banned), std::string::npos) << banned;
}

}  // namespace tarnell::tests
