// Lists from the world outside: loaded, matched, and compared with the slow matcher.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "MatcherComparison.h"
#include "scripted/Platform.h"

namespace {

// Rules of the public suffix list (Debian: package publicsuffix), one a line: a domain, "*." before it for any label
// there, "!" for an exception; "//" begins a comment.
constexpr const char* kPublicSuffixes = "/usr/share/publicsuffix/public_suffix_list.dat";

// Every so many entries are asked for; the slow matcher goes through all patterns each time.
constexpr std::size_t kStep = 389;

std::vector<std::string> linesOf(const std::string& path) {
  std::ifstream file(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    lines.push_back(line);
  }
  return lines;
}

void expectNoDifference(slow::MatcherComparison& comparison, const std::vector<std::string>& addresses) {
  for (const bool frozen : {false, true}) {
    if (frozen) {
      comparison.freeze();
    }
    for (const std::string& address : addresses) {
      comparison.ask(address);
      ASSERT_EQ(comparison.difference(), "") << address;
    }
  }
  std::printf("%zu addresses, %lu comparisons\n", addresses.size(), comparison.comparisons());
}

class RealLists : public scripted::PlatformTest {};

TEST_F(RealLists, publicSuffixesMatchAsBySimpleMeans) {
  const auto lines = linesOf(kPublicSuffixes);
  ASSERT_FALSE(lines.empty()) << kPublicSuffixes << " is not there; scripts/packages names the package";
  slow::MatcherComparison comparison;
  comparison.makeTree();
  comparison.makeTree();
  std::vector<std::string> addresses;
  std::size_t rules = 0;
  for (const std::string& line : lines) {
    const std::string rule = line.substr(0, line.find_first_of(" \t"));
    if (rule.empty() || rule.rfind("//", 0) == 0) {
      continue;
    }
    const bool exception = rule[0] == '!';
    const std::string domain = exception ? rule.substr(1) : rule;
    comparison.add(exception ? 0 : 1, "*@" + domain, exception ? 1 : 2);
    comparison.add(exception ? 0 : 1, "*@*." + domain, exception ? 1 : 4);
    if (++rules % kStep == 0) {
      const std::string concrete = domain.rfind("*.", 0) == 0 ? "any" + domain.substr(1) : domain;
      addresses.insert(addresses.end(), {"user@" + concrete, "User@Sub." + concrete, "user@a.b." + concrete, concrete,
                                         "user@" + concrete + "x"});
    }
  }
  EXPECT_GT(rules, 5000u);
  expectNoDifference(comparison, addresses);
}

// ZARO_PATTERN_LIST names a file of patterns, one a line.
TEST_F(RealLists, listOfTheUserMatchesAsBySimpleMeans) {
  const char* path = std::getenv("ZARO_PATTERN_LIST");
  if (path == nullptr) {
    GTEST_SKIP() << "ZARO_PATTERN_LIST names no file";
  }
  slow::MatcherComparison comparison;
  comparison.makeTree();
  std::vector<std::string> addresses;
  for (const std::string& pattern : linesOf(path)) {
    comparison.add(0, pattern, 1);
    std::string concrete;
    for (const char character : pattern) {
      concrete += character == '*' ? std::string("some") : std::string(1, character);
    }
    addresses.insert(addresses.end(), {pattern, concrete, "x" + concrete});
  }
  ASSERT_FALSE(addresses.empty()) << path;
  expectNoDifference(comparison, addresses);
}

}  // namespace
