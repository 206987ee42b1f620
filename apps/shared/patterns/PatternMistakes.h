// What a pattern's text alone gives away.
#pragma once

#include <string>
#include <vector>

struct TextFinding {
  const char* rule;
  const char* reason;
  std::string suggestion;
};

std::vector<TextFinding> checkPatternText(const std::string& pattern);
