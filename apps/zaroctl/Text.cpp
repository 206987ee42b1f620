#include "Text.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "ZaroRuntime/RuntimeError.h"

namespace {

constexpr std::size_t kLongestName = 200;
constexpr std::size_t kLongestDiagnostic = 2000;

unsigned char byteAt(const std::string& text, std::size_t at) {
  return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

// Length of the well-formed multi-byte character at `at`; 0 if there is none. Characters 0x80 to 0x9f are controls.
std::size_t multiByteLength(const std::string& text, std::size_t at) {
  struct Form {
    unsigned char firstLowest, firstHighest, secondLowest, secondHighest;
    std::size_t length;
  };
  static constexpr Form kForms[] = {
      {0xc2, 0xc2, 0xa0, 0xbf, 2}, {0xc3, 0xdf, 0x80, 0xbf, 2}, {0xe0, 0xe0, 0xa0, 0xbf, 3},
      {0xe1, 0xec, 0x80, 0xbf, 3}, {0xed, 0xed, 0x80, 0x9f, 3}, {0xee, 0xef, 0x80, 0xbf, 3},
      {0xf0, 0xf0, 0x90, 0xbf, 4}, {0xf1, 0xf3, 0x80, 0xbf, 4}, {0xf4, 0xf4, 0x80, 0x8f, 4},
  };
  const unsigned char first = byteAt(text, at);
  const unsigned char second = byteAt(text, at + 1);
  for (const Form& form : kForms) {
    if (first < form.firstLowest || first > form.firstHighest) {
      continue;
    }
    if (second < form.secondLowest || second > form.secondHighest) {
      return 0;
    }
    for (std::size_t i = 2; i < form.length; ++i) {
      if ((byteAt(text, at + i) & 0xc0) != 0x80) {
        return 0;
      }
    }
    return form.length;
  }
  return 0;
}

struct EscapeRow {
  char byte;
  char letter;
};

constexpr EscapeRow kEscapes[] = {
    {'\n', 'n'},
    {'\r', 'r'},
    {'\t', 't'},
    {'\\', '\\'},
};

std::string escapedByte(unsigned char byte) {
  for (const EscapeRow& row : kEscapes) {
    if (static_cast<unsigned char>(row.byte) == byte) {
      return {'\\', row.letter};
    }
  }
  char text[5];
  std::snprintf(text, sizeof text, "\\x%02x", static_cast<unsigned int>(byte));
  return text;
}

struct EscapedByte {
  unsigned char byte;
  std::size_t length;  // 0 if there is none
};

// What the backslash at `at` escapes.
EscapedByte escapedByteAt(const std::string& text, std::size_t at) {
  const unsigned char letter = byteAt(text, at + 1);
  for (const EscapeRow& row : kEscapes) {
    if (static_cast<unsigned char>(row.letter) == letter) {
      return {static_cast<unsigned char>(row.byte), 2};
    }
  }
  if (letter != 'x' || std::isxdigit(byteAt(text, at + 2)) == 0 || std::isxdigit(byteAt(text, at + 3)) == 0) {
    return {0, 0};
  }
  return {static_cast<unsigned char>(std::stoi(text.substr(at + 2, 2), nullptr, 16)), 4};
}

}  // namespace

std::string escaped(const std::string& text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    const unsigned char byte = byteAt(text, at);
    if (byte >= 0x20 && byte < 0x7f && byte != '\\') {
      result += text[at++];
    } else if (const std::size_t length = multiByteLength(text, at); length != 0) {
      result.append(text, at, length);
      at += length;
    } else {
      result += escapedByte(byte);
      ++at;
    }
  }
  return result;
}

bool isPlainText(const std::string& text) {
  std::string withoutBackslashes = text;
  withoutBackslashes.erase(std::remove(withoutBackslashes.begin(), withoutBackslashes.end(), '\\'),
                           withoutBackslashes.end());
  return escaped(withoutBackslashes) == withoutBackslashes;
}

std::string unescaped(const std::string& text) {
  std::string result;
  result.reserve(text.size());
  for (std::size_t at = 0; at < text.size();) {
    if (text[at] != '\\') {
      result += text[at++];
      continue;
    }
    const EscapedByte escape = escapedByteAt(text, at);
    if (escape.length == 0) {
      throw zaroruntime::RuntimeError("a backslash that escapes nothing: " + quoted(text.substr(at)));
    }
    result += static_cast<char>(escape.byte);
    at += escape.length;
  }
  return result;
}

std::optional<long long> decimalNumber(const std::string& text) {
  constexpr std::size_t kMostDigits = 18;
  const bool negative = !text.empty() && text.front() == '-';
  const std::string digits = text.substr(negative ? 1 : 0);
  if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos ||
      digits.size() - std::min(digits.find_first_not_of('0'), digits.size()) > kMostDigits) {
    return std::nullopt;
  }
  const long long number = std::stoll(digits);
  return negative ? -number : number;
}

std::string quoted(const std::string& name) {
  if (name.size() <= kLongestName) {
    return '"' + name + '"';
  }
  return '"' + name.substr(0, kLongestName) + "...\" (" + std::to_string(name.size()) + " bytes)";
}

void diagnose(const std::string& text) {
  std::string line = escaped(text.substr(0, kLongestDiagnostic));
  if (text.size() > kLongestDiagnostic) {
    line += "...";
  }
  std::fprintf(stderr, "zaroctl: %s\n", line.c_str());
}
