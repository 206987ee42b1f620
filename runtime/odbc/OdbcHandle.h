// ODBC handles that free themselves, and their diagnostics.
#pragma once

#include <sql.h>
#include <sqlext.h>

#include <string>

namespace zaroruntime {

class OdbcHandle {
 public:
  OdbcHandle() = default;
  // Allocates; throws OdbcError.
  OdbcHandle(SQLSMALLINT type, SQLHANDLE parent);
  ~OdbcHandle();
  OdbcHandle(OdbcHandle&& other) noexcept;
  OdbcHandle& operator=(OdbcHandle&& other) noexcept;

  SQLHANDLE get() const { return m_handle; }
  SQLSMALLINT type() const { return m_type; }
  void reset() noexcept;

 private:
  SQLSMALLINT m_type = 0;
  SQLHANDLE m_handle = nullptr;
};

struct OdbcDiagnostics {
  std::string state;  // SQLSTATE of the first record; empty without any
  int native = 0;     // the driver's own number beside it
  std::string text;   // every record: [state] (native code) message
};

OdbcDiagnostics readDiagnostics(SQLSMALLINT type, SQLHANDLE handle);

}  // namespace zaroruntime
