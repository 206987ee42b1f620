// The text conversions and records done one character at a time: slow and plain, to compare the library's with.
#pragma once

#include <cstddef>
#include <map>
#include <string>

int plainInt(const std::string& text);
unsigned int plainUInt(const std::string& text);
std::string plainlyTrimmed(std::string text);

struct PlainRecord {
  std::map<std::string, std::string> fields;
  std::size_t length = 0;  // of the text up to behind the record; 0 for one that is unfinished
};
// The first record of a text without NUL.
PlainRecord plainBlobRead(const std::string& text);
