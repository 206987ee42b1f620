// A copy of the embedded database.
#pragma once

#include <cstdint>
#include <string>

struct DatabaseBackup {
  std::string file;
  std::uintmax_t bytes;
};

// Copies the installation's database as it is at one moment; other programs read and write meanwhile. The copy is
// checked, brought to the disk, and only then gets its name; only its owner may read and write it. Throws RuntimeError
// for a file that is there already, and for a database on a server.
DatabaseBackup backUpDatabase(const std::string& file);
