#include "ZaroRuntime/PrintableText.h"

#include <cstdio>

#include "common/Utf8.h"

namespace zaroruntime {

namespace {

// Bytes of the character of several bytes at `at`; 0 if there is none, or it is one of the controls U+0080 to U+009F.
std::size_t multiByteLength(const std::string& text, std::size_t at) {
  const std::size_t length = utf8Length(text, at);
  const bool control = text[at] == '\xc2' && length == 2 && static_cast<unsigned char>(text[at + 1]) < 0xa0;
  return length > 1 && !control ? length : 0;
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
    const auto byte = static_cast<unsigned char>(text[at]);
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
