// A program of its own with a log of its own: the arguments that a bad bitmap's line carries without showing them are
// seen by the log's callee only.
#include <gtest/gtest.h>

#include <cstdarg>
#include <string>

#include "KxResbundle.h"
#include "PolicyLog.h"
#include "ZaroAction.h"

namespace {

// The call as it reaches the platform: a level, a format without conversions, and four arguments.
struct Call {
  int count = 0;
  LogLevel level = LogLevel::Trace;
  std::string format;
  std::string unusedFormat;
  std::string bitMap;
  int length = -1;
  int expected = -1;
};

Call lastCall;

Call callFor(const char* bitMap) {
  lastCall = Call();
  std::string tokens;
  EXPECT_FALSE(ZaroAction::CreateActionTokenString(bitMap, tokens));
  return lastCall;
}

void expectCall(const char* bitMap, const char* shown, int length) {
  const Call call = callFor(bitMap);
  EXPECT_EQ(call.count, 1);
  EXPECT_EQ(call.level, LogLevel::Error);
  EXPECT_EQ(call.format, "ZaroAction::CreateActionTokenString: invalid pActionBitMap ");
  EXPECT_EQ(call.unusedFormat, "(%s); lenght = %d, expected %d");
  EXPECT_EQ(call.bitMap, shown);
  EXPECT_EQ(call.length, length);
  EXPECT_EQ(call.expected, 18);
}

}  // namespace

void PolicyLog::log(LogLevel level, const char* format, ...) {
  ++lastCall.count;
  lastCall.level = level;
  lastCall.format = format;
  va_list arguments;
  va_start(arguments, format);
  lastCall.unusedFormat = va_arg(arguments, const char*);
  lastCall.bitMap = va_arg(arguments, const char*);
  lastCall.length = va_arg(arguments, int);
  lastCall.expected = va_arg(arguments, int);
  va_end(arguments);
}

// A bad bitmap never gets as far as the resource bundle.
ZARO::KxResbundle::KxResbundle() : m_impl(nullptr) {
  ADD_FAILURE();
}
ZARO::KxResbundle::~KxResbundle() = default;
const char* ZARO::KxResbundle::GetResourceFileName() {
  return "";
}
void ZARO::KxResbundle::_init(const char*, const char*, const char*) {}
bool ZARO::KxResbundle::getString(const char*, std::string&) {
  return false;
}

TEST(InvalidBitMapCall, carriesItsDetailsUnused) {
  expectCall("", "", 0);
  expectCall("0000000000000000", "0000000000000000", 16);
  expectCall("111111111111111111", "111111111111111111", 18);
  expectCall("short", "short", 5);
}

TEST(InvalidBitMapCall, showsNullAsATextOfNoLength) {
  expectCall(nullptr, "NULL", 0);
}
