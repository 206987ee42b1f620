#include "patterns/MatchExplanation.h"

#include <algorithm>
#include <iterator>

namespace {

struct FateRow {
  KxMatchCandidate::Fate fate;
  const char* word;
  const char* text;  // %: the number of the other candidate
};

constexpr FateRow kFates[] = {
    {KxMatchCandidate::Decided, "decided", "decides"},
    {KxMatchCandidate::Tied, "tied", "as heavy as %, which gives the data"},
    {KxMatchCandidate::Lighter, "lighter", "lighter than %"},
    {KxMatchCandidate::Later, "later", "as heavy as %, but met later"},
    {KxMatchCandidate::Removed, "removed", "taken back by the exception %"},
    {KxMatchCandidate::Exception, "exception", nullptr},
    {KxMatchCandidate::Ignored, "ignored", nullptr},
    {KxMatchCandidate::Outranked, "outranked", "not needed: % of the first tier decides"},
    {KxMatchCandidate::NotSearched, "not searched", "not searched: an earlier tree decides"},
};

const FateRow& rowOf(KxMatchCandidate::Fate fate) {
  return *std::find_if(std::begin(kFates), std::end(kFates) - 1, [&](const FateRow& row) { return row.fate == fate; });
}

std::string ignoredText(KxEmailBelongsTo state) {
  std::string kinds;
  unsigned int count = 0;
  for (unsigned int bit = 0; bit != 32; ++bit) {
    const KxEmailBelongsTo kind = KxEmailBelongsTo{1} << bit;
    if ((state & kind) != 0) {
      kinds += (count++ == 0 ? "" : " and ") + std::to_string(kind);
    }
  }
  switch (count) {
    case 0:
      return "ignored: it has no kind";
    case 1:
      return "ignored: kind " + kinds + " has no part in decisions";
    default:
      return "ignored: it has kinds " + kinds + " together";
  }
}

std::string weighing(const KxMatchExplanation& explanation) {
  const std::string a = std::to_string(explanation.weightA);
  const std::string b = std::to_string(explanation.weightB);
  if (explanation.weightB == 0) {
    return "kind A alone, weight " + a;
  }
  if (explanation.weightA == 0) {
    return "kind B alone, weight " + b;
  }
  if (explanation.weightA == explanation.weightB) {
    return "kinds A and B are of equal weight, " + a;
  }
  return explanation.weightA > explanation.weightB ? "kind A is heavier: " + a + " against " + b
                                                   : "kind B is heavier: " + b + " against " + a;
}

}  // namespace

std::string fateText(const KxMatchCandidate& candidate) {
  if (candidate.fate == KxMatchCandidate::Ignored) {
    return ignoredText(candidate.state);
  }
  if (candidate.fate == KxMatchCandidate::Exception) {
    return "exception: takes " + (candidate.removed == 0 ? "nothing" : std::to_string(candidate.removed)) + " back";
  }
  std::string text = rowOf(candidate.fate).text;
  const std::size_t other = text.find('%');
  if (other != std::string::npos) {
    text.replace(other, 1, std::to_string(candidate.other + 1));
  }
  return text;
}

std::string codeText(const KxMatchExplanation& explanation) {
  const std::string code = "code " + std::to_string(explanation.code);
  switch (explanation.tier) {
    case KxMatchExplanation::NoTier:
      return code + ": no pattern decides";
    case KxMatchExplanation::SecondTier:
      return code + ": no tree has a pattern of kind 1 or 2; of all that are left of kind 8 (A) and 4 (B), " +
             weighing(explanation);
    default:
      break;
  }
  const std::string text = weighing(explanation);
  if (explanation.addedCode == 0) {
    return code + ": in the first tree with a pattern of kind 1 (A) or 2 (B), " + text;
  }
  const std::string added = std::to_string(explanation.addedCode);
  return code + " = " + std::to_string(explanation.baseCode) + " + " + added +
         ": in the first tree with a pattern of kind 1 (A) or 2 (B), " + text + "; " + added + " because it has both";
}

const char* fateWord(KxMatchCandidate::Fate fate) {
  return rowOf(fate).word;
}

const char* tierWord(KxMatchExplanation::Tier tier) {
  static constexpr const char* kWords[] = {"none", "first", "second"};
  return kWords[tier];
}
