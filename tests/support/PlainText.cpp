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
