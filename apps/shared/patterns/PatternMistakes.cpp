#include "patterns/PatternMistakes.h"

#include <algorithm>

#include "patterns/PatternPieces.h"

namespace {

constexpr std::string_view kWildcard = "*";
constexpr std::string_view kNullSender = "<>";

constexpr PatternMistake kComment = {"comment", "a comment behind a pattern is a part of the pattern",
                                     "comments on lines of their own, which begin with #"};
constexpr PatternMistake kBrackets = {"brackets", "angle brackets and quotes are parts of the pattern",
                                      "the address alone"};
constexpr PatternMistake kRegularExpression = {
    "regular-expression", "there are no regular expressions: slashes, ^, $ and backslashes are taken literally",
    "no pattern says it: write out the addresses or domains"};
constexpr PatternMistake kBlank = {"blank",
                                   "a blank or control character is part of the pattern; no mail address has one there",
                                   "one pattern a line, with a tab before a kind"};
constexpr PatternMistake kNonAsciiDomain = {
    "non-ascii", "characters beyond ASCII: the letter case counts, and domains travel in their ASCII form",
    "the domain in its ASCII form (xn--...)"};
constexpr PatternMistake kNonAsciiName = {"non-ascii", "characters beyond ASCII: the letter case counts",
                                          "a line for each letter case that occurs"};
constexpr PatternMistake kQuestionMark = {"literal-question-mark", "a ? is taken literally",
                                          "no pattern says it: write out each address"};
constexpr PatternMistake kNoAt = {"no-at",
                                  "without an @ it never matches mail; *@DOMAIN is a domain, *@*.DOMAIN its sub-domains",
                                  "the name and the domain that are meant, NAME@DOMAIN"};
constexpr PatternMistake kEmptyName = {"empty-name",
                                       "nothing before the @: it matches only addresses that have nothing there either",
                                       "the name that is meant before the @"};
constexpr PatternMistake kStarInName = {
    "literal-star", "a * among other characters is taken literally",
    "no pattern says it, since none stands for a part of a name: write out each name"};
constexpr PatternMistake kStarInLabel = {
    "literal-star", "a * among other characters of a label is taken literally",
    "no pattern says it, since none stands for a part of a label: write out each domain"};
constexpr PatternMistake kLeftOfStar = {"left-of-star",
                                        "labels left of a * are ignored: the * stands for them and any others",
                                        "no pattern says it, since none has a label left of a *: write out each domain"};
constexpr PatternMistake kEmptyLabel = {"empty-label", "an empty label: no mail address has one",
                                        "the domain that is meant"};
constexpr PatternMistake kSecondAt = {"second-at", "the domain begins at the first @, so a label has one in it",
                                      "one pattern a line"};
constexpr PatternMistake kNegation = {"negation", "a sign before the address excepts nothing: it is a part of the name",
                                      "no pattern says it: have what is excepted in a list of its own"};
constexpr PatternMistake kOddCharacter = {"odd-character", "a character that no mail address has there",
                                          "the address alone, one a line"};

bool hasStarAmongOthers(std::string_view piece) {
  return piece != kWildcard && piece.find('*') != std::string_view::npos;
}

bool isQuoted(std::string_view text) {
  return text.size() >= 2 && (text.front() == '"' || text.front() == '\'') && text.back() == text.front();
}

// Characters that another rule reports are not odd.
bool isOdd(char character, bool (*isOrdinary)(char)) {
  constexpr std::string_view kOwnRule = "*?@";
  return !isOrdinary(character) && !isBlankOrControl(character) && !isBeyondAscii(character) &&
         kOwnRule.find(character) == std::string_view::npos;
}

bool hasOddCharacter(const PatternPieces& pieces, std::size_t firstLabel) {
  const auto isOddInName = [](char character) { return isOdd(character, isNameCharacter); };
  if (!isQuoted(pieces.name) && std::any_of(pieces.name.begin(), pieces.name.end(), isOddInName)) {
    return true;
  }
  const std::string_view domain = pieces.domain();
  if (!domain.empty() && domain.front() == '[' && domain.back() == ']') {
    return false;
  }
  const auto isOddInLabel = [](char character) { return isOdd(character, isLabelCharacter); };
  return std::any_of(pieces.labels.begin() + static_cast<std::ptrdiff_t>(firstLabel), pieces.labels.end(),
                     [&](std::string_view label) { return std::any_of(label.begin(), label.end(), isOddInLabel); });
}

// The text before and behind the "@", which is there.
void addMistakesOfPieces(const PatternPieces& pieces, std::vector<PatternMistake>& mistakes) {
  if (pieces.name.empty()) {
    mistakes.push_back(kEmptyName);
  }
  if (hasStarAmongOthers(pieces.name)) {
    mistakes.push_back(kStarInName);
  }
  const std::size_t first = pieces.firstCounting();
  const auto begin = pieces.labels.begin() + static_cast<std::ptrdiff_t>(first);
  const auto hasAt = [](std::string_view label) { return label.find('@') != std::string_view::npos; };
  if (first != 0) {
    mistakes.push_back(kLeftOfStar);
  }
  if (std::any_of(begin, pieces.labels.end(), hasStarAmongOthers)) {
    mistakes.push_back(kStarInLabel);
  }
  if (std::any_of(begin, pieces.labels.end(), [](std::string_view label) { return label.empty(); })) {
    mistakes.push_back(kEmptyLabel);
  }
  if (std::any_of(begin, pieces.labels.end(), hasAt)) {
    mistakes.push_back(kSecondAt);
  } else if (hasOddCharacter(pieces, first)) {
    mistakes.push_back(kOddCharacter);
  }
}

}  // namespace

std::vector<PatternMistake> mistakesIn(std::string_view pattern) {
  // What is in brackets, a regular expression or several words says nothing more by its pieces.
  if (looksLikeRegularExpression(pattern)) {
    return {kRegularExpression};
  }
  std::vector<PatternMistake> mistakes;
  std::string_view text = pattern;
  const std::string_view commented = withoutComment(pattern);
  if (commented.size() != pattern.size()) {
    mistakes.push_back(kComment);
    text = commented;
  }
  if ((text.empty() && !mistakes.empty()) || text == kWildcard || text == kNullSender) {
    return mistakes;
  }
  if (hasBrackets(trimmed(text))) {
    mistakes.push_back(kBrackets);
    return mistakes;
  }

  const std::size_t at = text.find('@');
  if (std::any_of(text.begin(), text.end(), isBlankOrControl)) {
    mistakes.push_back(kBlank);
  }
  const std::string_view words = trimmed(text);
  if (std::any_of(words.begin(), words.end(), isBlankOrControl)) {
    return mistakes;
  }
  if (std::any_of(text.begin(), text.end(), isBeyondAscii)) {
    const std::string_view domain = at == std::string_view::npos ? text : text.substr(at);
    mistakes.push_back(std::any_of(domain.begin(), domain.end(), isBeyondAscii) ? kNonAsciiDomain : kNonAsciiName);
  }
  if (at != std::string_view::npos && beginsWithNegation(text)) {
    mistakes.push_back(kNegation);
  }
  if (text.find('?') != std::string_view::npos) {
    mistakes.push_back(kQuestionMark);
  }
  if (at == std::string_view::npos) {
    mistakes.push_back(kNoAt);
  } else {
    addMistakesOfPieces(piecesOf(text), mistakes);
  }
  return mistakes;
}

bool isCatchAll(std::string_view pattern) {
  if (pattern.find('@') == std::string_view::npos) {
    return pattern == kWildcard;
  }
  const PatternPieces pieces = piecesOf(pattern);
  return pieces.name == kWildcard && pieces.labels.back() == kWildcard;
}

bool beginsWithNegation(std::string_view word) {
  constexpr std::string_view kSigns = "!-~";
  return !word.empty() && kSigns.find(word.front()) != std::string_view::npos;
}

std::string_view withoutComment(std::string_view text) {
  const std::size_t domain = text.find('@');
  for (std::size_t at = 0; at != text.size(); ++at) {
    const bool begins = at == 0 || isBlankOrControl(text[at - 1]);
    const bool isHash = text[at] == '#' && at != 0 && (begins || at > domain);
    if (isHash || (begins && (text[at] == ';' || text.substr(at, 2) == "//"))) {
      return trimmed(text.substr(0, at));
    }
  }
  return text;
}

bool hasBrackets(std::string_view text) {
  return text.find_first_of("<>") != std::string_view::npos || isQuoted(text);
}

std::string_view insideBrackets(std::string_view text) {
  const char closing = isQuoted(text) ? text.front() : '>';
  const char opening = isQuoted(text) ? text.front() : '<';
  const std::size_t begin = text.find(opening);
  const std::size_t end = text.find(closing, begin + 1);
  if (begin == std::string_view::npos || end + 1 != text.size()) {
    return {};
  }
  const std::string_view inside = text.substr(begin + 1, end - begin - 1);
  return inside.find_first_of("<>\"") == std::string_view::npos ? trimmed(inside) : std::string_view();
}

bool looksLikeRegularExpression(std::string_view line) {
  const std::string_view whole = trimmed(line);
  // Between slashes a "#" begins no comment.
  if (!whole.empty() && whole.front() == '/' && whole.find('/', 1) > 1 && whole.find('/', 1) != std::string_view::npos) {
    return true;
  }
  const std::string_view text = trimmed(withoutComment(line));
  return !text.empty() && (text.front() == '^' || text.back() == '$' || text.find('\\') != std::string_view::npos);
}
