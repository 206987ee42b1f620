// The file of a unix socket: who may connect, and whether it is still there.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <string>

class SocketFile {
 public:
  // For a socket of the settings, of any family; only one of the family unix has a file. Makes its directory if there
  // is none. Throws RuntimeError, also when a program listens there: what replaces the file would take its mail.
  explicit SocketFile(const std::string& socket);

  // The path; empty for other families.
  const std::string& path() const { return m_path; }
  // Gives the file, which is there now, its mode and group, and remembers it. An empty group leaves the process's.
  // Throws RuntimeError.
  void open(mode_t mode, const std::string& group);
  // False when the file is gone or another one stands there: the socket cannot be reached any more.
  bool isThere() const;
  // Takes the file away, if it is still this one.
  void remove() const;

 private:
  std::string m_path;
  dev_t m_device = 0;
  ino_t m_inode = 0;
};
