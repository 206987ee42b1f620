#include "patterns/PatternText.h"

#include <algorithm>
#include <memory>

#include "KxWildcardEmail.h"

namespace {

constexpr const char* kWildcard = "*";

struct Pieces {
  std::string localPart;
  std::vector<std::string> labels;  // from left to right
};

// As the library splits it.
Pieces split(const std::string& pattern) {
  const std::unique_ptr<char[]> scratch(KxWildcardEmail::allocateNewEmailAddressString(pattern.c_str()));
  KxWildcardNode::LabelStack stack;
  KxWildcardNode::parseAddress(nullptr, pattern.c_str(), scratch.get(), stack);
  Pieces pieces;
  const KxIndexedString* localPart = KxWildcardNode::getEmailAddressName(stack);
  pieces.localPart = localPart->getString();
  KxStringtable::cleanupReference(localPart);
  while (const KxIndexedString* label = KxWildcardNode::getEmailAddressName(stack)) {
    pieces.labels.emplace_back(label->getString());
    KxStringtable::cleanupReference(label);
  }
  std::reverse(pieces.labels.begin(), pieces.labels.end());
  return pieces;
}

bool hasStarAmongOthers(const std::string& piece) {
  return piece != kWildcard && piece.find('*') != std::string::npos;
}

bool isBlankOrControl(char character) {
  const auto byte = static_cast<unsigned char>(character);
  return byte <= ' ' || byte == 0x7f;
}

bool isBeyondAscii(char character) {
  return static_cast<unsigned char>(character) >= 0x80;
}

std::string without(std::string text, bool (*unwanted)(char)) {
  text.erase(std::remove_if(text.begin(), text.end(), unwanted), text.end());
  return text;
}

// What somebody who left the @ out may have meant.
std::string withAt(const std::string& text) {
  const std::size_t begin = text.find_first_not_of("*.");
  if (begin == std::string::npos) {
    return "*@*";
  }
  const std::string rest = text.substr(begin);
  if (begin != 0) {
    return "*@*." + rest;
  }
  if (rest.find('.') == std::string::npos) {
    return "*@" + rest + " or " + rest + "@*";
  }
  return "*@" + rest + " for the domain, *@*." + rest + " for its sub-domains";
}

std::string mended(const std::string& pattern) {
  const std::string text = without(pattern, isBlankOrControl);
  if (text.find('@') == std::string::npos) {
    return withAt(text);
  }
  const Pieces pieces = split(text);
  const bool anyName = pieces.localPart.empty() || hasStarAmongOthers(pieces.localPart);
  std::string domain;
  for (auto label = pieces.labels.rbegin(); label != pieces.labels.rend(); ++label) {
    const std::string dot = domain.empty() ? "" : ".";
    if (label->find('*') != std::string::npos) {
      // "*example" mostly means every label before "example".
      const std::string tail = label->substr(label->rfind('*') + 1);
      domain = (tail.empty() ? kWildcard : "*." + tail) + dot + domain;
      break;
    }
    if (!label->empty()) {
      domain = *label + dot + domain;
    }
  }
  return (anyName ? kWildcard : pieces.localPart) + "@" + (domain.empty() ? kWildcard : domain);
}

}  // namespace

std::vector<TextFinding> checkPatternText(const std::string& pattern) {
  std::vector<TextFinding> findings;
  if (pattern == kWildcard) {
    return findings;
  }
  const auto report = [&](const char* rule, const char* reason) {
    findings.push_back({rule, reason, mended(pattern)});
  };

  if (std::any_of(pattern.begin(), pattern.end(), isBlankOrControl)) {
    report("blank", "a blank or control character is part of the pattern; no mail address has one there");
  }
  if (std::any_of(pattern.begin(), pattern.end(), isBeyondAscii)) {
    findings.push_back({"non-ascii",
                        "characters beyond ASCII: the letter case counts, and domains travel in their ASCII form",
                        "the domain in its ASCII form (xn--...)"});
  }
  if (pattern.find('@') == std::string::npos) {
    report("no-at", "without an @ it never matches mail");
    return findings;
  }

  const Pieces pieces = split(pattern);
  if (pieces.localPart.empty()) {
    report("empty-name", "nothing before the @: it matches only addresses that have nothing there either");
  }
  if (hasStarAmongOthers(pieces.localPart)) {
    report("literal-star", "a * among other characters is taken literally");
  }
  // Labels count from the right up to the first wildcard.
  const auto wildcard = std::find(pieces.labels.rbegin(), pieces.labels.rend(), kWildcard);
  if (wildcard != pieces.labels.rend() && wildcard + 1 != pieces.labels.rend()) {
    report("left-of-star", "labels left of a * are ignored");
  }
  if (std::any_of(pieces.labels.rbegin(), wildcard, hasStarAmongOthers)) {
    report("literal-star", "a * among other characters of a label is taken literally");
  }
  if (std::any_of(pieces.labels.rbegin(), wildcard, [](const std::string& label) { return label.empty(); })) {
    report("empty-label", "an empty label: no mail address has one");
  }
  if (std::any_of(pieces.labels.rbegin(), wildcard,
                  [](const std::string& label) { return label.find('@') != std::string::npos; })) {
    findings.push_back({"second-at", "the domain begins at the first @, so a label has one in it", "one pattern a line"});
  }
  return findings;
}
