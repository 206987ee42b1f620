// How far the loading of big lists is: a bar on a terminal.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

// Seconds since it was made.
class Stopwatch {
 public:
  Stopwatch() : m_start(std::chrono::steady_clock::now()) {}
  double seconds() const { return std::chrono::duration<double>(std::chrono::steady_clock::now() - m_start).count(); }

 private:
  std::chrono::steady_clock::time_point m_start;
};

class Progress {
 public:
  // Shows itself on standard error if that is a terminal, and not before loading has taken a while.
  Progress();
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  // Loading goes on with a file of `size` bytes; 0 when that is not known.
  void startFile(const std::string& name, std::uint64_t size);
  // One more pattern is loaded; `bytes` of the file are read.
  void count(std::uint64_t bytes);
  // Takes the bar away.
  void finish();

  std::uint64_t patterns() const { return m_patterns; }
  double seconds() const { return m_watch.seconds(); }

 private:
  void _show(std::uint64_t bytes);

  Stopwatch m_watch;
  bool m_onTerminal;
  bool m_shown = false;
  double m_nextShow;
  std::string m_name;
  std::uint64_t m_size = 0;
  std::uint64_t m_patterns = 0;
};

// A count as people read it: 950, 12.3 k, 4.56 M.
std::string shownCount(double count);
// What the process occupies in memory now, in bytes; 0 when the system does not tell.
std::uint64_t memoryInUse();
