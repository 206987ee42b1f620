#include "NamedObjMgr.h"

#include <new>

namespace {

constexpr char kSeparator = ';';
constexpr unsigned int kRoomForHeader = 64;
constexpr unsigned int kRoomForNumbers = 65;  // of one record

unsigned int estimatedSize(const std::map<int, PolicyObjectRecord*>& records) {
  unsigned int size = kRoomForHeader;
  for (const auto& [key, record] : records) {
    if (record != nullptr) {
      size += record->firstSize + record->secondSize + kRoomForNumbers;
    }
  }
  return size;
}

void appendNumber(std::string& text, int number) {
  text.append(std::to_string(number)).append(1, kSeparator);
}

void appendText(std::string& text, const std::string& appended) {
  appendNumber(text, static_cast<int>(appended.size()));
  text.append(appended).append(1, kSeparator);
}

}  // namespace

bool NamedObjMgrForPolicy::serialize(std::string& text, unsigned int& sizeHint) {
  sizeHint = estimatedSize(records);
  text.clear();
  if (sizeHint > text.max_size()) {
    throw std::bad_alloc();  // in 32 bits the string would throw a type that callers do not expect
  }
  text.reserve(sizeHint);

  appendNumber(text, static_cast<int>(records.size()));
  appendNumber(text, leadValue);
  for (const auto& [key, record] : records) {
    if (record == nullptr) {
      continue;
    }
    appendNumber(text, key);
    appendNumber(text, record->value);
    appendText(text, record->secondText);
    appendText(text, record->firstText);
  }
  return true;
}
