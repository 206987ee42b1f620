// The gateway's log.
#pragma once

// Severity of a line; the numbers are the gateway's own. A sink that is set to a level shows it and the ones below.
enum class LogLevel : int { Error = 1, Warning = 2, Trace = 4 };

class PolicyLog {
 public:
  // Writes one line, printf style. Safe from any thread; never throws.
  static void log(LogLevel level, const char* format, ...) __attribute__((format(printf, 2, 3)));
};
