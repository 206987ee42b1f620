#include "odbc/OdbcHandle.h"

#include <utility>

#include "common/AsciiText.h"
#include "odbc/OdbcError.h"

namespace zaroruntime {

namespace {

// Drivers end messages with line ends and indent the lines between.
std::string onOneLine(const std::string& message) {
  std::string line;
  for (const char sign : message) {
    if (!isAsciiBlank(sign)) {
      line += sign;
    } else if (!line.empty() && line.back() != ' ') {
      line += ' ';
    }
  }
  while (!line.empty() && line.back() == ' ') {
    line.pop_back();
  }
  return line;
}

}  // namespace

OdbcHandle::OdbcHandle(SQLSMALLINT type, SQLHANDLE parent) : m_type(type) {
  const SQLRETURN result = SQLAllocHandle(type, parent, &m_handle);
  if (!SQL_SUCCEEDED(result)) {
    const SQLSMALLINT parentType = type == SQL_HANDLE_STMT ? SQL_HANDLE_DBC : SQL_HANDLE_ENV;
    const OdbcDiagnostics found = readDiagnostics(parentType, parent);
    throw OdbcError(found.state, found.native, "SQLAllocHandle: " + found.text, false);
  }
}

OdbcHandle::~OdbcHandle() {
  reset();
}

OdbcHandle::OdbcHandle(OdbcHandle&& other) noexcept
    : m_type(other.m_type), m_handle(std::exchange(other.m_handle, nullptr)) {}

OdbcHandle& OdbcHandle::operator=(OdbcHandle&& other) noexcept {
  if (this != &other) {
    reset();
    m_type = other.m_type;
    m_handle = std::exchange(other.m_handle, nullptr);
  }
  return *this;
}

void OdbcHandle::reset() noexcept {
  if (m_handle != SQL_NULL_HANDLE) {
    SQLFreeHandle(m_type, std::exchange(m_handle, nullptr));
  }
}

OdbcDiagnostics readDiagnostics(SQLSMALLINT type, SQLHANDLE handle) {
  OdbcDiagnostics all;
  if (handle == SQL_NULL_HANDLE) {
    return all;
  }
  for (SQLSMALLINT record = 1;; ++record) {
    SQLCHAR state[6] = {};
    SQLCHAR message[SQL_MAX_MESSAGE_LENGTH * 4] = {};
    SQLINTEGER native = 0;
    SQLSMALLINT length = 0;
    if (!SQL_SUCCEEDED(SQLGetDiagRec(type, handle, record, state, &native, message, sizeof message, &length))) {
      return all;
    }
    const std::string stateText = reinterpret_cast<const char*>(state);
    if (record == 1) {
      all.state = stateText;
      all.native = native;
    } else {
      all.text += "; ";
    }
    all.text +=
        "[" + stateText + "] (" + std::to_string(native) + ") " + onOneLine(reinterpret_cast<const char*>(message));
  }
}

}  // namespace zaroruntime
