// An ini file, for reading and for writing; comments, order and every line that is not set are kept. Keys and sections
// are case-sensitive; blanks around a value are not part of it.
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
  // What to do with a file that has lines which are nothing that an ini file holds.
  enum class Malformed { Skipped, Refused };

  // Reads a file; throws RuntimeError when it is not a readable regular file or not an ini file.
  explicit IniFile(const std::string& path, Malformed malformed = Malformed::Skipped);
  // The same from a text that is there already; `name` is what failures call it.
  static IniFile parse(const std::string& text, const std::string& name, Malformed malformed = Malformed::Skipped);
  ~IniFile();
  IniFile(IniFile&&) noexcept;
  IniFile& operator=(IniFile&&) noexcept;

  bool hasSection(const std::string& section) const;
  // Names of all sections in the order of the file; "" is that of keys before the first section.
  std::vector<std::string> sections() const;
  std::optional<std::string> get(const std::string& section, const std::string& key) const;
  // Keys and values in the order of the file; empty for a missing section.
  std::vector<std::pair<std::string, std::string>> items(const std::string& section) const;

  // Sets a value in memory, adding section and key as needed. Throws RuntimeError for what the format cannot hold: line
  // ends and NUL, blanks at either end, empty names, "]" in a section, "=" in a key or "[", ";", "#" at its beginning.
  void set(const std::string& section, const std::string& key, const std::string& value);
  // The file as it would be written.
  const std::string& text() const;
  // Replaces `path` atomically, with `mode` for its permissions; throws RuntimeError, and the old file is then intact.
  void write(const std::string& path, mode_t mode) const;

 private:
  struct Impl;
  explicit IniFile(std::unique_ptr<Impl> impl);

  std::unique_ptr<Impl> m_impl;
};

}  // namespace zaroruntime
