#include "policy/JsonTextArray.h"

#include <algorithm>
#include <charconv>
#include <optional>
#include <string>

namespace {

// The place of the quote that closes a text, or any behind the array.
std::size_t endOfText(std::string_view array, std::size_t begin) {
  std::size_t end = begin;
  while (end < array.size() && array[end] != '"') {
    end += array[end] == '\\' ? 2 : 1;
  }
  return end;
}

// The character that four hexadecimal digits at the beginning stand for; nothing for one beyond ASCII.
std::optional<char> characterOf(std::string_view digits) {
  constexpr std::size_t kDigits = 4;
  constexpr unsigned int kBeyondAscii = 0x80;
  unsigned int code = 0;
  const char* end = digits.data() + std::min(digits.size(), kDigits);
  const auto read = std::from_chars(digits.data(), end, code, 16);
  const bool isCharacter = read.ptr == digits.data() + kDigits && code < kBeyondAscii;
  return isCharacter ? std::make_optional(static_cast<char>(code)) : std::nullopt;
}

// A text without its escapes, each of which is whole.
std::optional<std::string> plainText(std::string_view spelled) {
  constexpr std::string_view kLetters = "bfnrt";
  constexpr std::string_view kControls = "\b\f\n\r\t";
  std::string text;
  for (std::size_t at = 0; at < spelled.size(); ++at) {
    if (spelled[at] != '\\') {
      text += spelled[at];
      continue;
    }
    const char escaped = spelled[++at];
    const std::size_t letter = kLetters.find(escaped);
    if (escaped == 'u') {
      const std::optional<char> character = characterOf(spelled.substr(at + 1));
      if (!character) {
        return std::nullopt;
      }
      text += *character;
      at += 4;
    } else {
      text += letter != std::string_view::npos ? kControls[letter] : escaped;
    }
  }
  return text;
}

}  // namespace

bool eachTextIn(std::string_view array, const std::function<void(std::string_view text)>& take) {
  for (std::size_t at = array.find('"'); at < array.size(); at = array.find('"', at + 1)) {
    const std::size_t begin = at + 1;
    at = endOfText(array, begin);
    if (at >= array.size()) {
      return false;
    }
    const std::string_view spelled = array.substr(begin, at - begin);
    if (spelled.find('\\') == std::string_view::npos) {
      take(spelled);
      continue;
    }
    const std::optional<std::string> text = plainText(spelled);
    if (!text) {
      return false;
    }
    take(*text);
  }
  return !array.empty() && array.back() == ']';
}
