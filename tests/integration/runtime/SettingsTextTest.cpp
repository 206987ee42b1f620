// Which texts are numbers and ports.
#include "SettingsText.h"

#include <gtest/gtest.h>

#include <string>

namespace {

struct TextCase {
  const char* text;  // may be null
  bool isNumber;
  bool isPort;
};

const TextCase kTextCases[] = {
    {nullptr, false, false},
    {"", false, false},
    {"0", true, false},
    {"1", true, true},
    {"80", true, true},
    {"00080", true, true},
    {"65535", true, true},
    {"65536", true, false},
    {"99999", true, false},
    {"4294967297", true, false},
    {"18446744073709551617", true, false},
    {"00000000000000000000000000080", true, true},
    {" 80", false, false},
    {"80 ", false, false},
    {"+80", false, false},
    {"-80", false, false},
    {"8 0", false, false},
    {"80x", false, false},
    {"0x50", false, false},
    {"80.0", false, false},
    {"8\n", false, false},
    {"\xd9\xa8", false, false},  // an Arabic digit
};

TEST(SettingsText, numbersAreDigitsAndPortsLieInTheirRange) {
  for (const TextCase& c : kTextCases) {
    SCOPED_TRACE(c.text != nullptr ? c.text : "null");
    EXPECT_EQ(isNum(c.text), c.isNumber);
    EXPECT_EQ(isValidPort(c.text), c.isPort);
  }
}

TEST(SettingsText, everyPortIsValidAndNoOtherNumberNearby) {
  for (int number = 0; number <= 70000; ++number) {
    EXPECT_EQ(isValidPort(std::to_string(number).c_str()), number >= 1 && number <= 65535) << number;
  }
}

}  // namespace
