// The test for UTF-8 against a decoder that knows no table: it works out each character's number.
#include "common/Utf8.h"

#include "FuzzInput.h"

namespace {

// Bytes that a character beginning with `first` takes by its high bits; 0 if none begins so.
std::size_t announcedLength(unsigned char first) {
  if (first < 0x80) {
    return 1;
  }
  if ((first & 0xe0) == 0xc0) {
    return 2;
  }
  if ((first & 0xf0) == 0xe0) {
    return 3;
  }
  return (first & 0xf8) == 0xf0 ? 4 : 0;
}

// Bytes of the character at `at`; 0 if there is none.
std::size_t decodedLength(const std::string& text, std::size_t at) {
  const auto first = static_cast<unsigned char>(text[at]);
  const std::size_t length = announcedLength(first);
  if (length < 2 || length > text.size() - at) {
    return length < 2 ? length : 0;
  }
  unsigned int number = first & (0xffu >> (length + 1));
  for (std::size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(text[at + i]);
    if ((next & 0xc0) != 0x80) {
      return 0;
    }
    number = number << 6 | (next & 0x3fu);
  }
  constexpr unsigned int kLeast[] = {0, 0, 0x80, 0x800, 0x10000};
  const bool surrogate = number >= 0xd800 && number <= 0xdfff;
  return number >= kLeast[length] && number <= 0x10ffff && !surrogate ? length : 0;
}

std::size_t findNotDecoded(const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t length = text[at] != '\0' ? decodedLength(text, at) : 0;
    if (length == 0) {
      return at;
    }
    at += length;
  }
  return std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string text = textOf(data, size);
  FUZZ_CHECK(zaroruntime::findNotUtf8(text) == findNotDecoded(text));
  for (std::size_t at = 0; at < text.size(); ++at) {
    FUZZ_CHECK(zaroruntime::utf8Length(text, at) == decodedLength(text, at));
  }
  FUZZ_CHECK(zaroruntime::utf8Length(text, text.size()) == 0);
  return 0;
}
