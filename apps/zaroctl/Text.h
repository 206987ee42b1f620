// Diagnostics on standard error.
#pragma once

#include <string>

// A name as diagnostics show it: in double quotes, and cut with its length told if it is very long. `diagnose` makes it
// printable.
std::string quoted(const std::string& name);

// Prints "zaroctl: TEXT" on standard error, in one printable line.
void diagnose(const std::string& text);
