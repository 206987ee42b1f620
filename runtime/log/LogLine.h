// What a log line looks like once it leaves the process.
#pragma once

#include <string>

namespace zaroruntime {

// Hides passwords: a connection string's from "PWD=" (any case) to the last ";DATABASE=" behind it, or to the end,
// since a password may hold any character.
std::string withoutPasswords(const std::string& text);

// One printable line: a line end at the end is dropped, other control characters become \xNN (names and addresses come
// from outside, and must not forge lines or reach a terminal), and what is over 16 KiB is cut and counted.
std::string asOneLine(const std::string& text);

}  // namespace zaroruntime
