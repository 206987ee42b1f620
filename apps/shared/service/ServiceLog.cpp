#include "service/ServiceLog.h"

#include <syslog.h>
#include <unistd.h>

#include <cerrno>

#include "ZaroRuntime/PrintableText.h"

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

ServiceLog::ServiceLog(Target target) : m_target(target) {
  if (m_target == Target::SystemLog) {
    openlog(program_invocation_short_name, LOG_PID, LOG_MAIL);
  }
}

void ServiceLog::info(const std::string& text) const {
  _write(LOG_INFO, text);
}

void ServiceLog::warning(const std::string& text) const {
  _write(LOG_WARNING, text);
}

void ServiceLog::error(const std::string& text) const {
  _write(LOG_ERR, text);
}

void ServiceLog::_write(int priority, const std::string& text) const {
  const std::string printable = zaroruntime::printableText(text);
  if (m_target == Target::SystemLog) {
    syslog(priority, "%s", printable.c_str());
    return;
  }
  // One write per line, so that lines of several threads do not mix. A line that cannot be written is lost.
  const std::string line = std::string(program_invocation_short_name) + "[" + std::to_string(getpid()) +
                           "]: " + nameOf(priority) + ": " + printable + "\n";
  static_cast<void>(!::write(STDERR_FILENO, line.data(), line.size()));
}

std::string logField(const char* name, const std::string& value) {
  if (!value.empty() && value.find_first_of(" \"") == std::string::npos) {
    return std::string(name) + "=" + value;
  }
  std::string inQuotes;
  for (const char letter : value) {
    inQuotes += letter == '"' ? "'" : std::string(1, letter);
  }
  return std::string(name) + "=\"" + inQuotes + "\"";
}
