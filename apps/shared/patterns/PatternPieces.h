// A pattern cut where address matching cuts it.
#pragma once

#include <string_view>
#include <vector>

// Views into the pattern.
struct PatternPieces {
  std::string_view name;                 // the local part: what stands before the first "@"
  std::vector<std::string_view> labels;  // of the domain, from left to right; one empty label for no domain

  std::string_view domain() const;
  // Position of the label from which on labels count: the last "*", else 0.
  std::size_t firstCounting() const;
};

// For a pattern with an "@".
PatternPieces piecesOf(std::string_view pattern);

// An ASCII letter or digit.
bool isAlphanumeric(char character);

// Characters of which local parts and labels of mail consist, as far as they are ASCII. A local part may also be
// quoted, a domain may be an address in brackets.
bool isNameCharacter(char character);
bool isLabelCharacter(char character);
bool isBlankOrControl(char character);
bool isBeyondAscii(char character);

// Without the blanks and control characters at both ends.
std::string_view trimmed(std::string_view text);
