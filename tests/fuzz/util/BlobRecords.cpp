#include <cstring>

#include "Blob.h"
#include "FuzzInput.h"
#include "PlainText.h"

namespace {

const std::string kTrimmed = "\r\n\t ";

// Whether the format brings this field back; see the head of Blob.h.
bool comesBack(const std::string& key, const std::string& value) {
  const bool keyHolds =
      key.find('=') == std::string::npos && (key.empty() || kTrimmed.find(key.front()) == std::string::npos);
  return keyHolds && (value.empty() || kTrimmed.find(value.back()) == std::string::npos);
}

// Writes those fields that come back and compares.
void checkRoundTrip(const Blob::Fields& read) {
  Blob::Fields fields;
  for (const auto& [key, value] : read) {
    if (comesBack(key, value)) {
      fields[key] = value;
    }
  }
  if (fields.empty()) {
    return;
  }
  std::string text;
  Blob::writeBlob(text, fields);
  Blob::Fields again;
  const char* cursor = text.c_str();
  FUZZ_CHECK(Blob::readBlob(cursor, again));
  FUZZ_CHECK(again == fields);
  FUZZ_CHECK(cursor == text.c_str() + text.size());
}

}  // namespace

// Reads record after record until the rest is unfinished.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::vector<char> block = blockOf(data, size);
  const char* end = block.data() + std::strlen(block.data());
  const char* cursor = block.data();
  const char* before = nullptr;
  while (cursor != before) {
    before = cursor;
    Blob::Fields fields;
    FUZZ_CHECK(Blob::readBlob(cursor, fields));
    const PlainRecord plain = plainBlobRead(std::string(before, end));
    FUZZ_CHECK(fields == plain.fields);
    FUZZ_CHECK(cursor == before + plain.length);
    checkRoundTrip(fields);
  }
  return 0;
}
