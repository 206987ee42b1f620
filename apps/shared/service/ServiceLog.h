// The log of a service: standard error in the foreground, the system's mail log otherwise. Safe from any thread.
#pragma once

#include <string>

// Fields of a log line, NAME=VALUE, fit to be written: a backslash is doubled and a control character escaped; a value that
// is empty or holds a blank or a quote stands in quotes, a quote in it as \". Different values are never written alike.
class LogFields {
 public:
  // Text before the fields; none if it is empty.
  explicit LogFields(const std::string& text = "");
  LogFields& add(const char* name, const std::string& value);
  // Text behind those that are there.
  LogFields& say(const std::string& text);

  const std::string& line() const { return m_line; }

 private:
  std::string m_line;
};

class ServiceLog {
 public:
  enum class Target { StandardError, SystemLog };

  explicit ServiceLog(Target target);

  // One line each. Texts from outside are made printable.
  void info(const std::string& text) const;
  void info(const LogFields& fields) const;
  void warning(const std::string& text) const;
  void warning(const LogFields& fields) const;
  void error(const std::string& text) const;
  void error(const LogFields& fields) const;

 private:
  void _write(int priority, const std::string& printable) const;

  Target m_target;
};
