#include "PlainText.h"

#include <climits>
#include <cstdint>

namespace {

struct Number {
  bool present = false;
  bool negative = false;
  std::int64_t magnitude = 0;  // stops growing far beyond 32 bits
};

Number readNumber(const std::string& text) {
  constexpr std::int64_t kBeyondAll = std::int64_t{1} << 40;
  Number number;
  std::size_t at = text.find_first_not_of(" \t\n\v\f\r");
  if (at != std::string::npos && (text[at] == '-' || text[at] == '+')) {
    number.negative = text[at] == '-';
    ++at;
  }
  for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
    number.present = true;
    number.magnitude = number.magnitude * 10 + (text[at] - '0');
    number.magnitude = number.magnitude < kBeyondAll ? number.magnitude : kBeyondAll;
  }
  return number;
}

bool isSkipped(char character) {
  return character == '\r' || character == '\n' || character == '\t' || character == ' ';
}

void addField(const std::string& line, PlainRecord& record) {
  std::string key;
  std::string value;
  bool assigned = false;
  for (const char character : line) {
    if (character == '=' && !assigned) {
      assigned = true;
    } else {
      (assigned ? value : key) += character;
    }
  }
  record.fields[key] = assigned ? value : key;
}

}  // namespace

int plainInt(const std::string& text) {
  const Number number = readNumber(text);
  const std::int64_t value = number.negative ? -number.magnitude : number.magnitude;
  return number.present && value >= INT_MIN && value <= INT_MAX ? static_cast<int>(value) : -1;
}

unsigned int plainUInt(const std::string& text) {
  const Number number = readNumber(text);
  if (!number.present || number.magnitude > std::int64_t{UINT_MAX}) {
    return 0;
  }
  const auto magnitude = static_cast<unsigned int>(number.magnitude);
  return number.negative ? 0U - magnitude : magnitude;
}

std::string plainlyTrimmed(std::string text) {
  for (const char removed : std::string("\r\n\t ")) {
    while (!text.empty() && text.back() == removed) {
      text.pop_back();
    }
    while (!text.empty() && text.front() == removed) {
      text.erase(text.begin());
    }
  }
  return text;
}

PlainRecord plainBlobRead(const std::string& text) {
  PlainRecord record;
  std::string line;
  bool begun = false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    begun = begun || !isSkipped(text[at]);
    if (!begun) {
      continue;
    }
    if (text[at] != '\n') {
      line += text[at];
      continue;
    }
    if (!line.empty() && line.back() == '\r') {
      line.pop_back();
    }
    line = plainlyTrimmed(line);
    if (line.empty()) {
      record.length = at + 1;
      return record;
    }
    addField(line, record);
    line.clear();
  }
  return record;
}
