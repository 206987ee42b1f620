// The file of a SQLite database, for users who may write it and for those who may only read it.
//
// 1. In WAL mode a reader writes, too: to the log and its index beside the file, which all connections share. Where both are
//    there, SQLite reads them without writing.
// 2. Where there is no log and this user cannot make one, the file is whole, and is opened as immutable: without locks, and
//    never read twice. That holds until another user's program begins a log, so results are given out only while there is
//    none and the file has not changed.
// 3. A log without its index cannot be read without writing, and to open the file as immutable would leave out what is in
//    the log. That is refused.
#pragma once

#include <sys/stat.h>

#include <string>

namespace zaroruntime {

// What the driver is to open for a database's file. Throws RuntimeError when this user cannot read it.
std::string openedSqliteFile(const std::string& path);

// Whether a connection string has a file opened as immutable.
bool opensImmutable(const std::string& connectionString);

// A file that a connection has open as immutable.
class ImmutableFile {
 public:
  explicit ImmutableFile(std::string path);

  const std::string& path() const { return m_path; }
  bool isUnchanged() const;

 private:
  std::string m_path;
  struct stat m_opened = {};
};

}  // namespace zaroruntime
