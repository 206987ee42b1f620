// Texts from outside, made fit to print.
#pragma once

#include <optional>
#include <string>

// `text` on one line and harmless to a terminal: backslashes are doubled, control characters and bytes that are not
// UTF-8 become \n, \r, \t or \xNN. Other UTF-8 stays.
std::string escaped(const std::string& text);

// Whether `text` is UTF-8 without control characters.
bool isPlainText(const std::string& text);

// The text whose `escaped` form this is. Throws RuntimeError for a backslash that `escaped` does not write.
std::string unescaped(const std::string& text);

// The number that a text is: decimal digits, with leading zeros if it likes, and a minus before them or nothing.
// Nothing for any other text and for more than 18 digits.
std::optional<long long> decimalNumber(const std::string& text);

// A name as diagnostics show it: in double quotes (`diagnose` escapes it), and cut with its length told if it is very long.
std::string quoted(const std::string& name);

// Prints "zaroctl: TEXT" on standard error, escaped, in one line.
void diagnose(const std::string& text);
