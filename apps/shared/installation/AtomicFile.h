// A file that takes the place of another one as a whole, or not at all.
#pragma once

#include <string>
#include <string_view>

// Has another name until then, FILE.new-XXXXXX, which no other writer has. Only its owner may open it. What writers of
// FILE left that were killed is removed by the next one of the same user; those at work hold a lock on theirs.
// Everything throws RuntimeError naming the file.
class AtomicFile {
 public:
  // Makes the directories that `path` names, if they are not there.
  explicit AtomicFile(const std::string& path);
  // Unless it was put in place, nothing is left of it.
  ~AtomicFile();
  AtomicFile(const AtomicFile&) = delete;
  AtomicFile& operator=(const AtomicFile&) = delete;

  void append(std::string_view text);
  // It would outlast a power failure when this returns; if the disk does not confirm that, standard error tells.
  void putInPlace();

 private:
  void _flush();

  std::string m_target;
  std::string m_path;
  int m_descriptor = -1;
  bool m_isInPlace = false;
  std::string m_unwritten;
};
