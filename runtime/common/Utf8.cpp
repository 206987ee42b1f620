#include "common/Utf8.h"

#include <cstdint>
#include <cstring>

namespace zaroruntime {

namespace {

// The characters that begin with a byte from `firstLowest` to `firstHighest`; bytes behind the second are any that go on.
struct Form {
  unsigned char firstLowest, firstHighest, secondLowest, secondHighest;
  std::size_t length;
};

constexpr Form kForms[] = {
    {0xc2, 0xdf, 0x80, 0xbf, 2}, {0xe0, 0xe0, 0xa0, 0xbf, 3}, {0xe1, 0xec, 0x80, 0xbf, 3}, {0xed, 0xed, 0x80, 0x9f, 3},
    {0xee, 0xef, 0x80, 0xbf, 3}, {0xf0, 0xf0, 0x90, 0xbf, 4}, {0xf1, 0xf3, 0x80, 0xbf, 4}, {0xf4, 0xf4, 0x80, 0x8f, 4},
};

unsigned char byteAt(std::string_view text, std::size_t at) {
  return at < text.size() ? static_cast<unsigned char>(text[at])
                          : 0;  // NUL, neither a lead byte nor a continuation byte
}

// Whether the 8 bytes at `bytes` are ASCII other than NUL.
bool arePlain(const char* bytes) {
  constexpr std::uint64_t kOnes = 0x0101010101010101;
  constexpr std::uint64_t kHighs = kOnes << 7;
  std::uint64_t word = 0;
  std::memcpy(&word, bytes, sizeof word);
  // The subtraction sets the high bit of a byte that is 0, and of others only beside one that is.
  return ((word | (word - kOnes)) & kHighs) == 0;
}

}  // namespace

std::size_t utf8Length(std::string_view text, std::size_t at) {
  if (at >= text.size()) {
    return 0;
  }
  const unsigned char first = byteAt(text, at);
  if (first < 0x80) {
    return 1;
  }
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

std::size_t findNotUtf8(std::string_view text) {
  for (std::size_t at = 0; at < text.size();) {
    if (text.size() - at >= sizeof(std::uint64_t) && arePlain(text.data() + at)) {
      at += sizeof(std::uint64_t);
      continue;
    }
    const std::size_t length = text[at] != '\0' ? utf8Length(text, at) : 0;
    if (length == 0) {
      return at;
    }
    at += length;
  }
  return std::string_view::npos;
}

}  // namespace zaroruntime
