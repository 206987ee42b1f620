#include "service/ServiceLog.h"

#include <syslog.h>
#include <unistd.h>

#include <cerrno>

#include "ZaroRuntime/PrintableText.h"

using zaroruntime::printableText;

namespace {

const char* nameOf(int priority) {
  switch (priority) {
    case LOG_ERR:
      return "error";
    case LOG_WARNING:
      return "warning";
    default:
      return "info";
  }
}

}  // namespace

LogFields::LogFields(const std::string& text) : m_line(printableText(text)) {}

LogFields& LogFields::add(const char* name, const std::string& value) {
  std::string written = printableText(value);
  if (written.empty() || written.find_first_of(" \"") != std::string::npos) {
    for (std::size_t quote = written.find('"'); quote != std::string::npos; quote = written.find('"', quote + 2)) {
      written.insert(quote, 1, '\\');
    }
    written = '"' + written + '"';
  }
  m_line.append(m_line.empty() ? "" : " ").append(name).append("=").append(written);
  return *this;
}

LogFields& LogFields::say(const std::string& text) {
  m_line.append(m_line.empty() ? "" : " ").append(printableText(text));
  return *this;
}

ServiceLog::ServiceLog(Target target) : m_target(target) {
  if (m_target == Target::SystemLog) {
    openlog(program_invocation_short_name, LOG_PID, LOG_MAIL);
  }
}

void ServiceLog::info(const std::string& text) const {
  _write(LOG_INFO, printableText(text));
}

void ServiceLog::info(const LogFields& fields) const {
  _write(LOG_INFO, fields.line());
}

void ServiceLog::warning(const std::string& text) const {
  _write(LOG_WARNING, printableText(text));
}

void ServiceLog::warning(const LogFields& fields) const {
  _write(LOG_WARNING, fields.line());
}

void ServiceLog::error(const std::string& text) const {
  _write(LOG_ERR, printableText(text));
}

void ServiceLog::error(const LogFields& fields) const {
  _write(LOG_ERR, fields.line());
}

void ServiceLog::_write(int priority, const std::string& printable) const {
  if (m_target == Target::SystemLog) {
    syslog(priority, "%s", printable.c_str());
    return;
  }
  // One write per line, so that lines of several threads do not mix. A line that cannot be written is lost.
  const std::string line = std::string(program_invocation_short_name) + "[" + std::to_string(getpid()) +
                           "]: " + nameOf(priority) + ": " + printable + "\n";
  static_cast<void>(!::write(STDERR_FILENO, line.data(), line.size()));
}
