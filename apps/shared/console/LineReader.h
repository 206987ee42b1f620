// Lines of a file or pipe, at constant memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "ZaroRuntime/RuntimeError.h"

// A line that cannot be used; the reader can go on behind it.
class BadLine : public zaroruntime::RuntimeError {
 public:
  BadLine(const std::string& file, std::size_t line, const std::string& problem)
      : RuntimeError(file + ":" + std::to_string(line) + ": " + problem, zaroruntime::FailureKind::Data),
        m_problem(problem) {}

  // Without file and line.
  const std::string& problem() const { return m_problem; }

 private:
  std::string m_problem;
};

// Takes away what editors put before UTF-8, from the first line.
void withoutByteOrderMark(std::string& line, std::size_t number);

class LineReader {
 public:
  static constexpr std::size_t kLongestLine = 65536;  // bytes, without the end

  // Reads `path`; throws RuntimeError when it cannot be opened or is a directory.
  explicit LineReader(const std::string& path);
  // Reads a descriptor that stays open. `name` is for messages; `beforeWaiting` is called whenever more has to be read.
  LineReader(int descriptor, std::string name, std::function<void()> beforeWaiting);
  ~LineReader();
  LineReader(const LineReader&) = delete;
  LineReader& operator=(const LineReader&) = delete;

  // Takes the next line without its end (LF or CR LF; the last line needs none). False at the end. Throws RuntimeError
  // when reading fails, and BadLine for a line that is too long or holds a NUL.
  bool next(std::string& line);

  std::size_t lineNumber() const { return m_lineNumber; }  // of the last line, from 1
  std::uint64_t bytesRead() const { return m_bytesRead; }
  std::uint64_t size() const { return m_size; }  // of the file in bytes, 0 when it is not known

 private:
  bool _fill();

  std::string m_name;
  int m_descriptor;
  bool m_owned;
  std::function<void()> m_beforeWaiting;
  std::vector<char> m_buffer;
  std::size_t m_begin = 0;
  std::size_t m_end = 0;
  std::size_t m_lineNumber = 0;
  std::uint64_t m_bytesRead = 0;
  std::uint64_t m_size = 0;
};
