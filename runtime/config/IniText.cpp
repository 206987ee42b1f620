#include "config/IniText.h"

#include <algorithm>
#include <vector>

namespace zaroruntime {

namespace {

constexpr const char* kByteOrderMark = "\xef\xbb\xbf";
constexpr const char* kLineEnds = "\r\n";
constexpr const char* kBlanks = " \t";

enum class LineKind { Blank, Comment, Section, Item, Malformed };

struct Line {
  LineKind kind;
  std::string name;   // of the section, or the key
  std::size_t begin;  // in the text
  std::size_t value;  // where the value of an item begins
  std::size_t end;    // without the line end
  std::size_t next;   // behind the line end
};

std::string trimmed(const std::string& text, std::size_t begin, std::size_t end) {
  const std::string part = text.substr(begin, end - begin);
  const std::size_t first = part.find_first_not_of(kBlanks);
  return first == std::string::npos ? "" : part.substr(first, part.find_last_not_of(kBlanks) - first + 1);
}

bool isComment(char sign) {
  return sign == ';' || sign == '#';
}

LineKind readSection(const std::string& text, std::size_t bracket, Line& line) {
  const std::size_t close = text.find(']', bracket);
  if (close >= line.end) {
    return LineKind::Malformed;
  }
  line.name = trimmed(text, bracket + 1, close);
  const std::size_t behind = text.find_first_not_of(kBlanks, close + 1);
  const bool clean = behind >= line.end || isComment(text[behind]);
  return clean && !line.name.empty() ? LineKind::Section : LineKind::Malformed;
}

LineKind readItem(const std::string& text, std::size_t first, Line& line) {
  const std::size_t sign = text.find('=', first);
  if (sign == first || sign >= line.end) {
    return LineKind::Malformed;
  }
  line.name = trimmed(text, first, sign);
  line.value = std::min(text.find_first_not_of(kBlanks, sign + 1), line.end);
  return LineKind::Item;
}

// The line that begins at `begin`.
Line readLine(const std::string& text, std::size_t begin) {
  Line line{LineKind::Blank, "", begin, begin, std::min(text.find_first_of(kLineEnds, begin), text.size()), 0};
  line.next = std::min(line.end + (text.compare(line.end, 2, "\r\n") == 0 ? 2 : 1), text.size());
  const std::size_t mark = begin == 0 && text.compare(0, 3, kByteOrderMark) == 0 ? 3 : 0;
  const std::size_t first = text.find_first_not_of(kBlanks, begin + mark);
  if (first >= line.end) {
    return line;
  }
  if (isComment(text[first])) {
    line.kind = LineKind::Comment;
  } else {
    line.kind = text[first] == '[' ? readSection(text, first, line) : readItem(text, first, line);
  }
  return line;
}

std::vector<Line> readLines(const std::string& text) {
  std::vector<Line> lines;
  for (std::size_t begin = 0; begin < text.size(); begin = lines.back().next) {
    lines.push_back(readLine(text, begin));
  }
  return lines;
}

// Where a value belongs.
struct Place {
  const Line* item = nullptr;  // its own line
  const Line* last = nullptr;  // the last line of its section, blank lines and comments behind it left out
};

Place findPlace(const std::vector<Line>& lines, const std::string& section, const std::string& key) {
  Place place;
  std::string current;
  for (const Line& line : lines) {
    if (line.kind == LineKind::Section) {
      current = line.name;
    }
    if (current != section || (line.kind != LineKind::Section && line.kind != LineKind::Item)) {
      continue;
    }
    place.last = &line;
    if (line.kind == LineKind::Item && line.name == key) {
      place.item = &line;  // of a key that stands there twice, the last one counts
    }
  }
  return place;
}

// The line end that the text uses.
std::string lineEndOf(const std::string& text) {
  const std::size_t end = text.find_first_of(kLineEnds);
  if (end == std::string::npos) {
    return "\n";
  }
  return text.substr(end, text.compare(end, 2, "\r\n") == 0 ? 2 : 1);
}

bool endsLine(const std::string& text) {
  return text.empty() || text.back() == '\n' || text.back() == '\r';
}

}  // namespace

std::optional<std::size_t> malformedIniLine(const std::string& text) {
  const std::vector<Line> lines = readLines(text);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].kind == LineKind::Malformed) {
      return i + 1;
    }
  }
  return std::nullopt;
}

std::string withIniValue(const std::string& text, const std::string& section, const std::string& key,
                         const std::string& value) {
  const std::vector<Line> lines = readLines(text);
  const Place place = findPlace(lines, section, key);
  if (place.item != nullptr) {
    return text.substr(0, place.item->value) + value + text.substr(place.item->end);
  }
  const std::string lineEnd = lineEndOf(text);
  const std::string item = key + "=" + value + lineEnd;
  if (place.last != nullptr) {
    const std::string before = text.substr(0, place.last->next);
    return before + (endsLine(before) ? "" : lineEnd) + item + text.substr(place.last->next);
  }
  return text + (endsLine(text) ? "" : lineEnd) + (text.empty() ? "" : lineEnd) + "[" + section + "]" + lineEnd + item;
}

}  // namespace zaroruntime
