// The log of the library, captured.
#pragma once

#include <iosfwd>
#include <mutex>
#include <string>
#include <vector>

#include "PolicyLog.h"

namespace scripted {

struct LogLine {
  LogLevel level;
  std::string text;
};
using LogLines = std::vector<LogLine>;

bool operator==(const LogLine& left, const LogLine& right);
std::ostream& operator<<(std::ostream& stream, const LogLine& line);

// Lines as tests expect them.
LogLine error(std::string text);    // level 1
LogLine warning(std::string text);  // level 2
LogLine trace(std::string text);    // level 4

// Safe from any thread.
class Log {
 public:
  // Every line so far, in order.
  LogLines lines() const;
  // The texts of one level.
  std::vector<std::string> texts(LogLevel level) const;
  void clear();

  // For the stand-in.
  void add(LogLevel level, std::string text);

 private:
  mutable std::mutex m_mutex;
  LogLines m_lines;
};

}  // namespace scripted
