// A directory that comes into being whole or not at all: it is filled under a temporary name beside its place, and
// moved there when it is complete. A directory that exists, and is empty, stays the one that it is, with its owner and
// permissions: what it gets is made in a temporary one inside it, since it may be a file system of its own, and moved up.
#pragma once

#include <string>

class NewInstallation {
 public:
  // `target` must not exist, or be a directory that holds nothing but the lost+found of its file system; the directory
  // above it must exist. Throws RuntimeError.
  explicit NewInstallation(const std::string& target);
  // Removes what was made, unless it was published.
  ~NewInstallation();
  NewInstallation(const NewInstallation&) = delete;
  NewInstallation& operator=(const NewInstallation&) = delete;

  // The place that it will have, as an absolute path.
  const std::string& target() const { return m_target; }
  // The directory to fill.
  const std::string& workDirectory() const { return m_work; }

  // Gives a file or directory below the work directory, and everything in it, the text and name of one of the skeleton.
  void copy(const std::string& from, const std::string& relative);
  // Sets the permissions, brings everything to the disk and moves it into place. Throws RuntimeError, and then nothing
  // is in its place; what another process put there meanwhile is not touched.
  void publish();

 private:
  void _finishFiles() const;
  void _moveUp() const;
  void _moveBack(const std::string& name) const;

  std::string m_target;
  bool m_targetExists = false;
  std::string m_work;
  bool m_published = false;
};
