#include "patterns/PatternMeaning.h"

#include <algorithm>

#include "mail/MailAddress.h"
#include "patterns/PatternMistakes.h"
#include "patterns/PatternPieces.h"

namespace {

using Texts = std::vector<std::string>;

bool isClean(std::string_view pattern) {
  return mistakesIn(pattern).empty();
}

bool isOnlyStars(std::string_view piece) {
  return !piece.empty() && piece.find_first_not_of('*') == std::string_view::npos;
}

// Patterns stand for whole labels on the left only, so "*a.test" takes two of them and leaves the names that end in "a"
// without one.
Texts domainsMeantBy(std::string_view domain) {
  if (domain.size() > 1 && domain.back() == '.') {
    domain.remove_suffix(1);  // the root
  }
  if (domain.size() > 1 && domain.front() == '.') {
    return {"*" + std::string(domain)};
  }
  const std::size_t stars = std::min(domain.find_first_not_of('*'), domain.size());
  const std::string rest(domain.substr(stars));
  if (stars == 0 || rest.empty() || rest.front() == '.') {
    return {(stars == 0 ? "" : "*") + rest};
  }
  return {rest, "*." + rest};
}

// A domain without a name and an "@". A single word may be anything, and numbers are a host's.
bool isPlainlyDomain(std::string_view word) {
  const std::string_view text = word.substr(std::min(word.find_first_not_of('*'), word.size()));
  const std::size_t dot = text.rfind('.');
  const std::string_view last = text.substr(dot == std::string_view::npos ? text.size() : dot + 1);
  return last.find_first_not_of("0123456789") != std::string_view::npos;
}

bool hasQuotedName(std::string_view word) {
  const std::size_t end = word.find('"', 1);
  return word.front() == '"' && end != std::string_view::npos && end + 1 == word.rfind('@');
}

Texts patternsMeantByWord(std::string_view word) {
  if (isClean(word)) {
    return {std::string(word)};
  }
  if (hasQuotedName(word)) {
    return {normalPattern(word)};
  }
  const std::size_t at = word.find('@');
  const bool hasAt = at != std::string_view::npos;
  if (!hasAt && !isPlainlyDomain(word)) {
    return {};
  }
  const std::string_view name = hasAt ? word.substr(0, at) : std::string_view();
  const std::string anyName = "*";
  const bool isAscii = std::none_of(word.begin(), word.end(), isBeyondAscii);
  Texts patterns = domainsMeantBy(hasAt ? word.substr(at + 1) : word);
  for (std::string& pattern : patterns) {
    pattern.insert(0, (name.empty() || isOnlyStars(name) ? anyName : std::string(name)) + "@");
    pattern = isAscii ? pattern : normalPattern(pattern);
  }
  return patterns;
}

// The words between commas, semicolons and blanks.
std::vector<std::string_view> wordsOf(std::string_view text) {
  const auto isBetween = [](char character) {
    return character == ',' || character == ';' || isBlankOrControl(character);
  };
  std::vector<std::string_view> words;
  for (auto begin = text.begin(); begin != text.end();) {
    const auto end = std::find_if(begin, text.end(), isBetween);
    if (end != begin) {
      words.push_back(text.substr(static_cast<std::size_t>(begin - text.begin()), static_cast<std::size_t>(end - begin)));
    }
    begin = std::find_if_not(end, text.end(), isBetween);
  }
  return words;
}

}  // namespace

std::vector<std::string> patternsMeantBy(std::string_view line) {
  if (looksLikeRegularExpression(line)) {
    return {};
  }
  std::string_view text = trimmed(withoutComment(line));
  if (hasBrackets(text)) {
    const std::size_t bracket = text.find('<');
    if (bracket != std::string_view::npos && text.substr(0, bracket).find('@') != std::string_view::npos) {
      return {};  // which of the two addresses is meant is not said
    }
    text = insideBrackets(text);
  }
  const std::vector<std::string_view> words = wordsOf(text);
  if (words.empty() || std::any_of(words.begin(), words.end(), beginsWithNegation)) {
    return {};
  }
  // Several words are suggested only if each is a pattern as it stands.
  Texts patterns = words.size() == 1 ? patternsMeantByWord(words.front()) : Texts(words.begin(), words.end());
  const bool canBeSaid = std::all_of(patterns.begin(), patterns.end(), [](const std::string& pattern) {
    return isClean(pattern) && !isCatchAll(pattern);
  });
  return canBeSaid ? patterns : Texts();
}
