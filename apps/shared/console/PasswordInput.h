// Passwords from a person or a pipe.
#pragma once

#include <string>

// Asks on the terminal, without echo, when standard input is one; otherwise takes the first line of standard input.
// The text is returned as it is, without the line end. Throws RuntimeError when there is no line, or when it is longer
// than any password may be.
std::string readPassword(const std::string& prompt);

// The same for a password that is to be stored, with a prompt that says whose it is. Throws UsageError for one that
// cannot be stored; `otherwise` is what to do instead of giving an empty one.
std::string readNewPassword(const std::string& whose, const std::string& otherwise);
