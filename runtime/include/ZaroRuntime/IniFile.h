// An ini file, for reading and for writing; comments and order are kept. Keys and sections are case-sensitive; blanks
// around a value are not part of it.
#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zaroruntime {

class IniFile {
 public:
  // Reads a file; throws RuntimeError when it is not a readable regular file or not an ini file.
  explicit IniFile(const std::string& path);
  ~IniFile();
  IniFile(IniFile&&) noexcept;
  IniFile& operator=(IniFile&&) noexcept;

  bool hasSection(const std::string& section) const;
  std::optional<std::string> get(const std::string& section, const std::string& key) const;
  // Keys and values in the order of the file; empty for a missing section.
  std::vector<std::pair<std::string, std::string>> items(const std::string& section) const;

  // Sets a value in memory, adding section and key as needed. Throws RuntimeError for what the format cannot hold: line
  // ends and NUL, blanks at either end.
  void set(const std::string& section, const std::string& key, const std::string& value);
  // Replaces `path` atomically, with `mode` for its permissions; throws RuntimeError, and the old file is then intact.
  void write(const std::string& path, mode_t mode) const;

 private:
  struct Impl;
  std::unique_ptr<Impl> m_impl;
};

}  // namespace zaroruntime
