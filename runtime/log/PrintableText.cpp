#include "ZaroRuntime/PrintableText.h"

#include <cstdio>

namespace zaroruntime {

namespace {

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

std::string escapedByte(unsigned char byte) {
  switch (byte) {
    case '\n':
      return "\\n";
    case '\r':
      return "\\r";
    case '\t':
      return "\\t";
    case '\\':
      return "\\\\";
    default: {
      char text[5];
      std::snprintf(text, sizeof text, "\\x%02x", static_cast<unsigned int>(byte));
      return text;
    }
  }
}

}  // namespace

std::string printableText(const std::string& text) {
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

}  // namespace zaroruntime
