// How a file that an installation lost is put back.
#pragma once

#include <string>

// The command that copies a file of the skeleton to its place, in brackets behind a blank; empty when there is a file,
// or no such file in the skeleton.
//   original   below the skeleton, such as "sql/sqlite/schema.sql"
std::string restoringCommand(const std::string& original, const std::string& path);
