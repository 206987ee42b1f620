#include "TextConversions.h"

#include <locale>
#include <sstream>

namespace {

template <typename Number>
Number readNumber(const std::string& text, Number fallback) {
  std::istringstream stream(text);
  stream.imbue(std::locale::classic());
  Number number;
  return stream >> number ? number : fallback;
}

}  // namespace

std::string toString(long value) {
  return std::to_string(value);
}

std::string toString(int value) {
  return std::to_string(value);
}

std::string toString(unsigned int value) {
  return std::to_string(value);
}

int toInt(const std::string& text) {
  return readNumber(text, -1);
}

unsigned int toUInt(const std::string& text) {
  return readNumber(text, 0U);
}

void trim(std::string& text) {
  for (const char removed : {'\r', '\n', '\t', ' '}) {
    text.erase(text.find_last_not_of(removed) + 1);
    text.erase(0, text.find_first_not_of(removed));
  }
}
