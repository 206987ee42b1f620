#include "match/Question.h"

#include <cstddef>
#include <utility>

#include "mail/MailAddress.h"

namespace {

Json orNull(const std::optional<std::string>& text) {
  return text ? Json(*text) : Json();
}

}  // namespace

Json AskedAddress::row() const {
  return {{"address", orNull(given)}, {"asked", orNull(asked)}};
}

AskedAddress AskedForm::of(const std::string& given) const {
  if (literal) {
    return {given, given};
  }
  std::string asked = normalAddress(given, delimiters);
  return {given, asked.empty() ? std::nullopt : std::optional(std::move(asked))};
}

std::vector<Decision> decide(const Addresses& addresses, PatternTrees& trees) {
  std::vector<std::string> texts;
  texts.reserve(addresses.size());
  for (const AskedAddress& address : addresses) {
    if (address.asked) {
      texts.push_back(*address.asked);
    }
  }
  const std::vector<Decision> made = decide(texts, trees);
  std::vector<Decision> decisions(addresses.size());
  auto next = made.begin();
  for (std::size_t i = 0; i != addresses.size(); ++i) {
    if (addresses[i].asked) {
      decisions[i] = *next++;
    }
  }
  return decisions;
}

bool allDecided(const Addresses& addresses, const std::vector<Decision>& decisions) {
  for (std::size_t i = 0; i != addresses.size(); ++i) {
    if (addresses[i].asked && decisions[i].code == 0) {
      return false;
    }
  }
  return true;
}
