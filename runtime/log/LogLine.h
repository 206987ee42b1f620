// What a log line looks like once it leaves the process.
#pragma once

#include <string>

namespace zaroruntime {

// Hides passwords: a connection string's from "PWD=" (any case) to the last ";DATABASE=" behind it, or to the end,
// since a password may hold any character.
std::string withoutPasswords(const std::string& text);

// One line: a line end at the end is dropped, the rest made printable (names and addresses come from outside, and must
// not forge lines or steer a terminal), and what is over 16 KiB is cut and counted.
std::string asOneLine(const std::string& text);

}  // namespace zaroruntime
