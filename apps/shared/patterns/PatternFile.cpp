#include "patterns/PatternFile.h"

#include <charconv>

#include "console/Text.h"

bool PatternFile::next(PatternLine& pattern) {
  std::string line;
  do {
    if (!m_lines.next(line)) {
      return false;
    }
    withoutByteOrderMark(line, m_lines.lineNumber());
  } while (line.find_first_not_of(" \t") == std::string::npos || line.front() == '#');

  pattern.number = m_lines.lineNumber();
  pattern.kind.reset();
  const std::size_t tab = line.find('\t');
  pattern.pattern = line.substr(0, tab);
  if (tab == std::string::npos) {
    return true;
  }
  if (pattern.pattern.find_first_not_of(' ') == std::string::npos) {
    throw BadLine(m_path, pattern.number, "a kind without a pattern before the tab");
  }
  const std::string kind = line.substr(tab + 1);
  pattern.kind = kindOf(kind);
  if (!pattern.kind) {
    throw BadLine(m_path, pattern.number, quoted(kind) + " behind the tab is no kind: a number is wanted");
  }
  return true;
}

std::optional<KxEmailBelongsTo> kindOf(const std::string& text) {
  KxEmailBelongsTo kind = 0;
  const char* end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, kind);
  if (text.empty() || result.ec != std::errc() || result.ptr != end) {
    return std::nullopt;
  }
  return kind;
}
