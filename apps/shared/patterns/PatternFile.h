// Files of address patterns: one a line, "#" begins a comment line, a tab sets the line's own kind apart.
#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "KxListedEmailAddress.h"
#include "console/LineReader.h"

struct PatternLine {
  std::size_t number = 0;  // in its file, from 1
  std::string pattern;
  std::optional<KxEmailBelongsTo> kind;  // the line's own
};

class PatternFile {
 public:
  // Throws RuntimeError when the file cannot be opened.
  explicit PatternFile(const std::string& path) : m_path(path), m_lines(path) {}

  // Takes the next pattern; false at the end. Throws BadLine for a line that is no pattern, and RuntimeError when
  // reading fails.
  bool next(PatternLine& pattern);

  const std::string& path() const { return m_path; }
  const LineReader& lines() const { return m_lines; }

 private:
  std::string m_path;
  LineReader m_lines;
};

// A kind as people write it: a number from 0 to 4294967295. Nothing for anything else.
std::optional<KxEmailBelongsTo> kindOf(const std::string& text);
