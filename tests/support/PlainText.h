// The text conversions done one character at a time: slow and plain, to compare the library's with.
#pragma once

#include <string>

int plainInt(const std::string& text);
unsigned int plainUInt(const std::string& text);
std::string plainlyTrimmed(std::string text);
