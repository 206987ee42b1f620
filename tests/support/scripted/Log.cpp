#include "scripted/Log.h"

#include <cstdarg>
#include <cstdio>
#include <ostream>

#include "scripted/Platform.h"

namespace scripted {

bool operator==(const LogLine& left, const LogLine& right) {
  return left.level == right.level && left.text == right.text;
}

std::ostream& operator<<(std::ostream& stream, const LogLine& line) {
  return stream << "level " << static_cast<int>(line.level) << ": \"" << line.text << '"';
}

LogLine error(std::string text) {
  return {LogLevel::Error, std::move(text)};
}

LogLine warning(std::string text) {
  return {LogLevel::Warning, std::move(text)};
}

LogLine trace(std::string text) {
  return {LogLevel::Trace, std::move(text)};
}

LogLines Log::lines() const {
  const std::lock_guard<std::mutex> lock(m_mutex);
  return m_lines;
}

std::vector<std::string> Log::texts(LogLevel level) const {
  std::vector<std::string> found;
  const std::lock_guard<std::mutex> lock(m_mutex);
  for (const LogLine& line : m_lines) {
    if (line.level == level) {
      found.push_back(line.text);
    }
  }
  return found;
}

void Log::clear() {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_lines.clear();
}

void Log::add(LogLevel level, std::string text) {
  const std::lock_guard<std::mutex> lock(m_mutex);
  m_lines.push_back({level, std::move(text)});
}

}  // namespace scripted

void PolicyLog::log(LogLevel level, const char* format, ...) {
  va_list arguments, again;
  va_start(arguments, format);
  va_copy(again, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, arguments);
  va_end(arguments);
  std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
  std::vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);

  scripted::platform().calls.add("log", {std::to_string(static_cast<int>(level)), scripted::quoted(text.c_str())});
  scripted::platform().log.add(level, std::move(text));
}
