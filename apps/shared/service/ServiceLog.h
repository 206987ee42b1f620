// The log of a service: standard error in the foreground, the system's mail log otherwise. Safe from any thread.
#pragma once

#include <string>

class ServiceLog {
 public:
  enum class Target { StandardError, SystemLog };

  explicit ServiceLog(Target target);

  // One line each. Texts from outside are made printable.
  void info(const std::string& text) const;
  void warning(const std::string& text) const;
  void error(const std::string& text) const;

 private:
  void _write(int priority, const std::string& text) const;

  Target m_target;
};

// A field of a log line: NAME=VALUE, the value in quotes when it is empty or holds a blank or a quote.
std::string logField(const char* name, const std::string& value);
