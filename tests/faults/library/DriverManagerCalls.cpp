// Calls of the driver manager that fail, with a diagnostic record as a driver would leave one.
#include <sql.h>
#include <sqlext.h>

#include <algorithm>
#include <cstring>

#include "Control.h"

namespace {

constexpr char kText[] = "[test] the call fails as planned";

// The handle that has the record. A further call on it takes the record away.
thread_local SQLHANDLE failedHandle = SQL_NULL_HANDLE;

template <typename Call>
SQLRETURN make(const void* caller, SQLHANDLE handle, const char* name, Call call) {
  if (!faults::isOurs(caller)) {
    return call();  // a driver calls itself
  }
  failedHandle = SQL_NULL_HANDLE;
  if (!faults::isChosen(faults::kOdbc, name)) {
    return call();
  }
  switch (faults::action()) {
    case faults::kKill:
      faults::killProcess();
    case faults::kLoseAnswer:
      call();
      break;
    case faults::kFail:
      break;
  }
  failedHandle = handle;
  return SQL_ERROR;
}

}  // namespace

#define MAKE(function, handle, ...)         \
  static auto* const real = NEXT(function); \
  return make(__builtin_return_address(0), handle, #function, [&] { return real(__VA_ARGS__); })

extern "C" {

SQLRETURN SQLAllocHandle(SQLSMALLINT type, SQLHANDLE parent, SQLHANDLE* handle) {
  MAKE(SQLAllocHandle, parent, type, parent, handle);
}

SQLRETURN SQLSetEnvAttr(SQLHENV environment, SQLINTEGER attribute, SQLPOINTER value, SQLINTEGER length) {
  MAKE(SQLSetEnvAttr, environment, environment, attribute, value, length);
}

SQLRETURN SQLSetConnectAttr(SQLHDBC connection, SQLINTEGER attribute, SQLPOINTER value, SQLINTEGER length) {
  MAKE(SQLSetConnectAttr, connection, connection, attribute, value, length);
}

SQLRETURN SQLSetStmtAttr(SQLHSTMT statement, SQLINTEGER attribute, SQLPOINTER value, SQLINTEGER length) {
  MAKE(SQLSetStmtAttr, statement, statement, attribute, value, length);
}

SQLRETURN SQLDriverConnect(SQLHDBC connection, SQLHWND window, SQLCHAR* given, SQLSMALLINT givenLength,
                           SQLCHAR* completed, SQLSMALLINT room, SQLSMALLINT* length, SQLUSMALLINT completion) {
  MAKE(SQLDriverConnect, connection, connection, window, given, givenLength, completed, room, length, completion);
}

SQLRETURN SQLExecDirect(SQLHSTMT statement, SQLCHAR* text, SQLINTEGER length) {
  MAKE(SQLExecDirect, statement, statement, text, length);
}

SQLRETURN SQLNumResultCols(SQLHSTMT statement, SQLSMALLINT* count) {
  MAKE(SQLNumResultCols, statement, statement, count);
}

SQLRETURN SQLDescribeCol(SQLHSTMT statement, SQLUSMALLINT column, SQLCHAR* name, SQLSMALLINT room, SQLSMALLINT* length,
                         SQLSMALLINT* type, SQLULEN* size, SQLSMALLINT* digits, SQLSMALLINT* nullable) {
  MAKE(SQLDescribeCol, statement, statement, column, name, room, length, type, size, digits, nullable);
}

SQLRETURN SQLFetch(SQLHSTMT statement) {
  MAKE(SQLFetch, statement, statement);
}

SQLRETURN SQLGetData(SQLHSTMT statement, SQLUSMALLINT column, SQLSMALLINT type, SQLPOINTER value, SQLLEN room,
                     SQLLEN* length) {
  MAKE(SQLGetData, statement, statement, column, type, value, room, length);
}

SQLRETURN SQLMoreResults(SQLHSTMT statement) {
  MAKE(SQLMoreResults, statement, statement);
}

SQLRETURN SQLFreeStmt(SQLHSTMT statement, SQLUSMALLINT option) {
  MAKE(SQLFreeStmt, statement, statement, option);
}

SQLRETURN SQLDisconnect(SQLHDBC connection) {
  MAKE(SQLDisconnect, connection, connection);
}

SQLRETURN SQLGetDiagRec(SQLSMALLINT type, SQLHANDLE handle, SQLSMALLINT number, SQLCHAR* state, SQLINTEGER* native,
                        SQLCHAR* text, SQLSMALLINT room, SQLSMALLINT* length) {
  static auto* const real = NEXT(SQLGetDiagRec);
  if (handle != failedHandle || handle == SQL_NULL_HANDLE) {
    return real(type, handle, number, state, native, text, room, length);
  }
  if (number != 1) {
    return SQL_NO_DATA;
  }
  std::memcpy(state, faults::sqlState(), SQL_SQLSTATE_SIZE + 1);
  *native = 0;
  std::memcpy(text, kText, std::min(sizeof kText, static_cast<std::size_t>(room)));
  *length = static_cast<SQLSMALLINT>(sizeof kText - 1);
  return SQL_SUCCESS;
}

}  // extern "C"
