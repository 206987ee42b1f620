#include "console/Text.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>

#include "ZaroRuntime/PrintableText.h"
#include "ZaroRuntime/RuntimeError.h"

using zaroruntime::printableText;

namespace {

constexpr std::size_t kLongestName = 200;
constexpr std::size_t kLongestDiagnostic = 2000;

unsigned char byteAt(const std::string& text, std::size_t at) {
  return at < text.size() ? static_cast<unsigned char>(text[at]) : 0;
}

// Short forms of `printableText`; every other byte is \xNN.
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

bool isPlainText(const std::string& text) {
  std::string withoutBackslashes = text;
  withoutBackslashes.erase(std::remove(withoutBackslashes.begin(), withoutBackslashes.end(), '\\'),
                           withoutBackslashes.end());
  return printableText(withoutBackslashes) == withoutBackslashes;
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
      throw zaroruntime::RuntimeError("a backslash that escapes nothing: " + quoted(text.substr(at)),
                                      zaroruntime::FailureKind::Data);
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
  std::string line = printableText(text.substr(0, kLongestDiagnostic));
  if (text.size() > kLongestDiagnostic) {
    line += "...";
  }
  std::fprintf(stderr, "%s: %s\n", program_invocation_short_name, line.c_str());
}
