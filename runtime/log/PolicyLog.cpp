// The log goes where ZARO_LOG says ("stderr", the default; "syslog"; or a file), down to the level in ZARO_LOG_LEVEL (0
// nothing, 1 errors, the default 2 warnings, 4 everything). Both are read once, at the first line.
#include "PolicyLog.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>

#include "log/LogLine.h"

namespace {

// Where finished lines go.
class Sink {
 public:
  Sink() = default;
  virtual ~Sink() = default;
  Sink(const Sink&) = delete;
  Sink& operator=(const Sink&) = delete;
  virtual void write(LogLevel level, const std::string& text) = 0;
};

struct LevelRow {
  LogLevel level;
  const char* name;
  int priority;
};

constexpr LevelRow kLevels[] = {
    {LogLevel::Error, "error", LOG_ERR},
    {LogLevel::Warning, "warning", LOG_WARNING},
    {LogLevel::Trace, "trace", LOG_DEBUG},
};

const LevelRow& rowOf(LogLevel level) {
  for (const LevelRow& row : kLevels) {
    if (row.level == level) {
      return row;
    }
  }
  return kLevels[0];
}

std::string stamped(LogLevel level, const std::string& text) {
  struct timespec now = {};
  clock_gettime(CLOCK_REALTIME, &now);
  struct tm utc = {};
  gmtime_r(&now.tv_sec, &utc);
  char head[96];
  const std::size_t date = std::strftime(head, sizeof head, "%Y-%m-%dT%H:%M:%S", &utc);
  std::snprintf(head + date, sizeof head - date, ".%03ldZ zaro[%ld] %s: ", now.tv_nsec / 1000000,
                static_cast<long>(getpid()), rowOf(level).name);
  return head + text + '\n';
}

// One write per line, so that lines of several threads and processes do not mix.
void writeLine(int fd, const std::string& line) {
  // A log that cannot be written leaves no place to tell that.
  static_cast<void>(!::write(fd, line.data(), line.size()));
}

class StandardError : public Sink {
 public:
  void write(LogLevel level, const std::string& text) override { writeLine(STDERR_FILENO, stamped(level, text)); }
};

class SystemLog : public Sink {
 public:
  SystemLog() { openlog("zaro", LOG_PID, LOG_MAIL); }
  ~SystemLog() override { closelog(); }
  void write(LogLevel level, const std::string& text) override { syslog(rowOf(level).priority, "%s", text.c_str()); }
};

// A file of mode 0600, opened again when it has been moved away. While it cannot be opened, lines go to standard error.
class LogFile : public Sink {
 public:
  explicit LogFile(std::string path) : m_path(std::move(path)) {}
  ~LogFile() override { _close(); }

  void write(LogLevel level, const std::string& text) override {
    const std::string line = stamped(level, text);
    const std::lock_guard<std::mutex> lock(m_mutex);
    _reopenIfMoved();
    writeLine(m_fd >= 0 ? m_fd : STDERR_FILENO, line);
  }

 private:
  void _reopenIfMoved() {
    struct stat there = {};
    if (m_fd >= 0 && ::stat(m_path.c_str(), &there) == 0 && there.st_ino == m_inode && there.st_dev == m_device) {
      return;
    }
    _close();
    m_fd = ::open(m_path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK, 0600);
    struct stat opened = {};
    if (m_fd < 0 || ::fstat(m_fd, &opened) != 0 || !S_ISREG(opened.st_mode) || ::fchmod(m_fd, 0600) != 0) {
      _close();
      return;
    }
    m_inode = opened.st_ino;
    m_device = opened.st_dev;
  }

  void _close() {
    if (m_fd >= 0) {
      ::close(m_fd);
      m_fd = -1;
    }
  }

  const std::string m_path;
  std::mutex m_mutex;
  int m_fd = -1;
  ino_t m_inode = 0;
  dev_t m_device = 0;
};

std::unique_ptr<Sink> sinkOfEnvironment() {
  const char* where = std::getenv("ZARO_LOG");
  const std::string target = where != nullptr ? where : "stderr";
  if (target.empty() || target == "stderr") {
    return std::make_unique<StandardError>();
  }
  if (target == "syslog") {
    return std::make_unique<SystemLog>();
  }
  return std::make_unique<LogFile>(target);
}

int levelOfEnvironment() {
  constexpr int kDefault = static_cast<int>(LogLevel::Warning);
  const char* text = std::getenv("ZARO_LOG_LEVEL");
  if (text == nullptr || *text == '\0') {
    return kDefault;
  }
  char* end = nullptr;
  const long level = std::strtol(text, &end, 10);
  if (*end != '\0' || level < 0 || level > INT_MAX) {
    writeLine(STDERR_FILENO, stamped(LogLevel::Warning, "ZARO_LOG_LEVEL is no level (0, 1, 2 or 4); 2 is taken"));
    return kDefault;
  }
  return static_cast<int>(level);
}

std::string formatted(const char* format, va_list arguments) {
  char usual[1024];
  va_list again;
  va_copy(again, arguments);
  const int length = std::vsnprintf(usual, sizeof usual, format, arguments);
  std::string text;
  if (length >= 0 && static_cast<std::size_t>(length) < sizeof usual) {
    text.assign(usual, static_cast<std::size_t>(length));
  } else if (length >= 0) {
    text.resize(static_cast<std::size_t>(length) + 1);
    std::vsnprintf(text.data(), text.size(), format, again);
    text.pop_back();
  }
  va_end(again);
  return text;
}

void write(LogLevel level, const char* format, va_list arguments) {
  static const int enabled = levelOfEnvironment();
  if (static_cast<int>(level) > enabled || format == nullptr) {
    return;
  }
  // Never destroyed: static objects of other libraries may log while they go down.
  static Sink* const sink = sinkOfEnvironment().release();
  sink->write(level, zaroruntime::asOneLine(zaroruntime::withoutPasswords(formatted(format, arguments))));
}

}  // namespace

void PolicyLog::log(LogLevel level, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  try {
    write(level, format, arguments);
  } catch (const std::exception&) {
    // Out of memory for a line: the caller's work goes on without it.
  }
  va_end(arguments);
}
