#include "service/FilterLog.h"

#include <syslog.h>
#include <unistd.h>

#include "ZaroRuntime/PrintableText.h"

namespace {

constexpr const char* kProgram = "zarofilterd";

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

FilterLog::FilterLog(Target target) : m_target(target) {
  if (m_target == Target::SystemLog) {
    openlog(kProgram, LOG_PID, LOG_MAIL);
  }
}

void FilterLog::info(const std::string& text) const {
  _write(LOG_INFO, text);
}

void FilterLog::warning(const std::string& text) const {
  _write(LOG_WARNING, text);
}

void FilterLog::error(const std::string& text) const {
  _write(LOG_ERR, text);
}

void FilterLog::_write(int priority, const std::string& text) const {
  const std::string printable = zaroruntime::printableText(text);
  if (m_target == Target::SystemLog) {
    syslog(priority, "%s", printable.c_str());
    return;
  }
  // One write per line, so that lines of several threads do not mix. A log that cannot be written has nobody to tell.
  const std::string line =
      std::string(kProgram) + "[" + std::to_string(getpid()) + "]: " + nameOf(priority) + ": " + printable + "\n";
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
