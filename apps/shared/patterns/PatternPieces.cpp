#include "patterns/PatternPieces.h"

#include <algorithm>

std::string_view PatternPieces::domain() const {
  const std::string_view last = labels.back();
  const char* begin = labels.front().data();
  return {begin, static_cast<std::size_t>(last.data() + last.size() - begin)};
}

std::size_t PatternPieces::firstCounting() const {
  const auto wildcard = std::find(labels.rbegin(), labels.rend(), "*");
  return wildcard == labels.rend() ? 0 : static_cast<std::size_t>(labels.rend() - wildcard) - 1;
}

PatternPieces piecesOf(std::string_view pattern) {
  const std::size_t at = pattern.find('@');
  PatternPieces pieces;
  pieces.name = pattern.substr(0, at);
  std::size_t begin = at + 1;
  for (std::size_t dot = pattern.find('.', begin); dot != std::string_view::npos; dot = pattern.find('.', begin)) {
    pieces.labels.push_back(pattern.substr(begin, dot - begin));
    begin = dot + 1;
  }
  pieces.labels.push_back(pattern.substr(begin));
  return pieces;
}

bool isAlphanumeric(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9');
}

bool isNameCharacter(char character) {
  constexpr std::string_view kOthers = ".!#$%&'*+-/=?^_`{|}~";
  return isAlphanumeric(character) || kOthers.find(character) != std::string_view::npos;
}

bool isLabelCharacter(char character) {
  return isAlphanumeric(character) || character == '-' || character == '_';
}

bool isBlankOrControl(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte <= ' ' || byte == 0x7f;
}

bool isBeyondAscii(char character) {
  return static_cast<unsigned char>(character) >= 0x80;
}

std::string_view trimmed(std::string_view text) {
  while (!text.empty() && isBlankOrControl(text.front())) {
    text.remove_prefix(1);
  }
  while (!text.empty() && isBlankOrControl(text.back())) {
    text.remove_suffix(1);
  }
  return text;
}
