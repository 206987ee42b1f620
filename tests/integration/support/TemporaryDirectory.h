// A directory of its own for one test, removed with everything in it.
#pragma once

#include <sys/types.h>

#include <string>

namespace zarotest {

class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;

  const std::string& path() const { return m_path; }
  std::string path(const std::string& name) const { return m_path + "/" + name; }
  // Writes a file below the directory, making the directories on the way; returns its path.
  std::string write(const std::string& name, const std::string& text, mode_t mode = 0644) const;

 private:
  std::string m_path;
};

std::string readFile(const std::string& path);

}  // namespace zarotest
