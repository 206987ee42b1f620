#include "MailData.h"

#include <array>
#include <cctype>
#include <cmath>
#include <random>
#include <unordered_set>

namespace bench {

namespace {

class Maker {
 public:
  explicit Maker(std::size_t patterns) : m_random(20), m_domainCount(patterns / 6 + 10) {
    for (std::size_t i = 0; i != m_domainCount; ++i) {
      m_domains.push_back(newDomain());
    }
  }

  std::string pattern() {
    const std::size_t kind = upTo(99);
    if (kind < 82) {
      return name() + "@" + domain();
    }
    if (kind < 89) {
      return "*@" + domain();
    }
    if (kind < 95) {
      return "*@*." + domain();
    }
    return kind < 99 ? name() + "@*." + domain() : name() + "@*";
  }

  // An address that a pattern with a wildcard matches.
  std::string below(const std::string& pattern) {
    const std::size_t at = pattern.find('@');
    const std::string local = pattern[0] == '*' ? name() : pattern.substr(0, at);
    const std::string rest = pattern.substr(at + 1);
    if (rest == "*") {
      return local + "@" + newDomain();
    }
    return local + "@" + (rest[0] == '*' ? word(2, 6) + rest.substr(1) : rest);
  }

  std::string unknown() {
    // At a known domain as often as not.
    return upTo(1) == 0 ? name() + "@" + domain() : name() + "@" + (upTo(2) == 0 ? word(2, 6) + "." : "") + newDomain();
  }

  std::size_t upTo(std::size_t highest) { return std::uniform_int_distribution<std::size_t>(0, highest)(m_random); }

 private:
  std::string word(std::size_t shortest, std::size_t longest) {
    // Letters as frequent as in names.
    static const char kLetters[] = "aaaaabccddeeeeeeffghhiiiijkkllllmmmnnnnnooooppqrrrrrssssstttttuuvwxyz";
    std::string text;
    for (std::size_t size = shortest + upTo(longest - shortest); size != 0; --size) {
      text += kLetters[upTo(sizeof kLetters - 2)];
    }
    return text;
  }

  std::string name() {
    switch (upTo(9)) {
      case 0:
        return word(2, 4);
      case 1:
      case 2:
        return word(1, 1) + "." + word(4, 9);
      case 3:
        return word(3, 7) + std::to_string(upTo(9999));
      case 4:
        return word(6, 11);
      default:
        return word(3, 8) + "." + word(4, 10);
    }
  }

  std::string newDomain() {
    static const std::array<const char*, 20> kTops = {"com", "com",   "com", "com",    "com", "com", "com",
                                                      "com", "com",   "net", "net",    "org", "org", "de",
                                                      "de",  "co.uk", "fr",  "com.br", "it",  "info"};
    const std::string inner = upTo(9) == 0 ? word(2, 6) + "." : "";
    return inner + word(4, 9) + (upTo(3) == 0 ? "-" + word(3, 7) : "") + "." + kTops[upTo(kTops.size() - 1)];
  }

  // Few are met often.
  const std::string& domain() {
    const double chance = std::uniform_real_distribution<double>(0, 1)(m_random);
    return m_domains[static_cast<std::size_t>(std::pow(chance, 2.0) * static_cast<double>(m_domainCount))];
  }

  std::mt19937_64 m_random;
  std::size_t m_domainCount;
  std::vector<std::string> m_domains;
};

}  // namespace

MailData makeMailData(std::size_t patterns, std::size_t addresses) {
  Maker maker(patterns);
  MailData data;
  std::unordered_set<std::string> seen;
  while (data.patterns.size() != patterns) {
    std::string pattern = maker.pattern();
    if (seen.insert(pattern).second) {
      data.patterns.push_back(std::move(pattern));
    }
  }
  const auto stored = [&](bool wildcard) -> const std::string& {
    for (;;) {
      const std::string& pattern = data.patterns[maker.upTo(patterns - 1)];
      if ((pattern.find('*') != std::string::npos) == wildcard) {
        return pattern;
      }
    }
  };
  for (std::size_t i = 0; i != addresses; ++i) {
    const std::size_t kind = maker.upTo(3);
    std::string address = kind < 2 ? stored(false) : kind == 2 ? maker.below(stored(true)) : maker.unknown();
    if (maker.upTo(9) == 0) {
      address[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(address[0])));
    }
    data.addresses.push_back(std::move(address));
  }
  return data;
}

}  // namespace bench
