// Texts from outside, made fit to print.
#pragma once

#include <string>

// `text` on one line and harmless to a terminal: backslashes are doubled, control characters and bytes that are not
// UTF-8 become \n, \r, \t or \xNN. Other UTF-8 stays.
std::string escaped(const std::string& text);

// A name as diagnostics show it: in double quotes (`diagnose` escapes it), and cut with its length told if it is very long.
std::string quoted(const std::string& name);

// Prints "zaroctl: TEXT" on standard error, escaped, in one line.
void diagnose(const std::string& text);
