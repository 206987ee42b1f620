// What a pattern's text alone gives away: things that mean something in other lists, and are ordinary characters here.
#pragma once

#include <string>
#include <string_view>
#include <vector>

struct PatternMistake {
  const char* rule;    // a word for programs
  const char* reason;  // what the pattern means, and does not
  const char* advice;  // for when no pattern says what was meant
};

// None for a pattern that says what it seems to say.
std::vector<PatternMistake> mistakesIn(std::string_view pattern);

// Whether the pattern contains every address.
bool isCatchAll(std::string_view pattern);

// The text before a comment behind a pattern, without blanks at its ends; all of the text when
// there is no comment. A "#" in a local part begins none.
std::string_view withoutComment(std::string_view text);
// The text inside of angle brackets or quotes, without blanks at its ends; nothing unless there is exactly one pair and
// no character behind it.
std::string_view insideBrackets(std::string_view text);
// Whether a word begins with a sign by which other lists except what follows.
bool beginsWithNegation(std::string_view word);
// Whether the text has angle brackets, or is in quotes.
bool hasBrackets(std::string_view text);
// Whether the line, but for a comment behind it, is in slashes, or begins with ^, ends with $ or has a backslash.
bool looksLikeRegularExpression(std::string_view line);
