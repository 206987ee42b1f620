// Functions of the driver manager that the runtime calls, with what a test does in them. In a program that is linked
// with this, they stand before the driver manager's own.
#pragma once

#include <sql.h>

#include <functional>

namespace zarotest {

struct DriverManagerHooks {
  std::function<void()> beforeDisconnect;
  std::function<SQLRETURN(SQLHSTMT)> moreResults;  // instead of the driver manager's
  std::function<bool()> failsToCountColumns;       // whether SQLNumResultCols fails
};

// Of this thread; empty ones do nothing.
DriverManagerHooks& driverManagerHooks();

}  // namespace zarotest
