// Failures of the platform, planned by a test.
#pragma once

#include <deque>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>

namespace scripted {

// Where the platform can fail. The failure comes before the operation takes effect, except where noted.
enum class Point {
  ConnectionMade,  // KxDbConnect: constructor
  SetConnectTimeOut,
  SetRetryTimeOut,
  SetReconnectTrial,
  Connect,
  Execute,
  FetchRow,
  FetchResultSet,
  ColumnText,  // getColVal
  ColumnInt,   // getColValInt
  StatementHandle,
  Diagnostics,  // getError
  PoolInit,     // KxDataAccess
  PoolGetConnect,
  PoolReturnConnect,
  PoolReinit,
  LoaderMade,      // KxSqlLoader: constructor
  Load,            // loadSQL, the buffer untouched
  LoadAfterWrite,  // loadSQL, the first half of the text already in the buffer
  IniOpen,         // ConfigFileOnDisk: constructor
  IniRead,
  Decrypt,
  SettingsInstance,  // GlobalSettingOnMem::Instance
  SettingsRead,      // both stores: a section or an item
  SettingsWrite,
  ResourceOpen,  // KxResbundle::_init
  ResourceRead,
};

const char* nameOf(Point point);

// An exception that is not the gateway's way of failing.
class OtherFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Which calls fail, and how. Safe from any thread.
class Faults {
 public:
  // Throws `text` as the gateway's libraries do, a `const char*` (valid until `clear`), when the point is passed for
  // the `passage`-th time from now (1 is the next); 0 means every time.
  void throwText(Point point, const std::string& text, int passage = 1);
  // The same with an OtherFailure.
  void throwOther(Point point, int passage = 1);
  // Plans no failures.
  void clear();
  // Whether one is planned that has not come yet.
  bool isPending();

  // For the stand-ins: fails here if that was planned.
  void pass(Point point);

 private:
  struct Plan {
    int passagesLeft;  // 0: every passage fails
    const char* text;  // null: OtherFailure
  };

  std::mutex m_mutex;
  std::deque<std::string> m_texts;  // addresses stay valid as it grows
  std::multimap<Point, Plan> m_plans;
};

// For the stand-ins: throws a text that lives until the thread throws its next one.
[[noreturn]] void throwText(const std::string& text);

}  // namespace scripted
