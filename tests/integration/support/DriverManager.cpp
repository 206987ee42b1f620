#include "support/DriverManager.h"

#include <dlfcn.h>

namespace zarotest {

DriverManagerHooks& driverManagerHooks() {
  thread_local DriverManagerHooks hooks;
  return hooks;
}

}  // namespace zarotest

namespace {

template <typename Function>
Function* driverManagers(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" {

SQLRETURN SQL_API SQLDisconnect(SQLHDBC connection) {
  static auto* const real = driverManagers<SQLRETURN SQL_API(SQLHDBC)>("SQLDisconnect");
  if (const auto& hook = zarotest::driverManagerHooks().beforeDisconnect) {
    hook();
  }
  return real(connection);
}

SQLRETURN SQL_API SQLMoreResults(SQLHSTMT statement) {
  static auto* const real = driverManagers<SQLRETURN SQL_API(SQLHSTMT)>("SQLMoreResults");
  const auto& hook = zarotest::driverManagerHooks().moreResults;
  return hook ? hook(statement) : real(statement);
}

SQLRETURN SQL_API SQLNumResultCols(SQLHSTMT statement, SQLSMALLINT* count) {
  static auto* const real = driverManagers<SQLRETURN SQL_API(SQLHSTMT, SQLSMALLINT*)>("SQLNumResultCols");
  const auto& hook = zarotest::driverManagerHooks().failsToCountColumns;
  return hook && hook() ? SQL_ERROR : real(statement, count);
}

}  // extern "C"
