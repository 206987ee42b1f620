// Diagnostics on standard error.
#pragma once

#include <optional>
#include <string>

// Whether `text` is UTF-8 without control characters.
bool isPlainText(const std::string& text);

// The text whose printable form (`zaroruntime::printableText`) this is. Throws RuntimeError for a backslash that such a
// form does not hold.
std::string unescaped(const std::string& text);

// The number that a text is: decimal digits, with leading zeros if it likes, and a minus before them or nothing.
// Nothing for any other text and for more than 18 digits.
std::optional<long long> decimalNumber(const std::string& text);

// A name as diagnostics show it: in double quotes, and cut with its length told if it is very long. `diagnose` makes it
// printable.
std::string quoted(const std::string& name);

// Prints "zaroctl: TEXT" on standard error, in one printable line.
void diagnose(const std::string& text);
