// Patterns that lint suggests in place of a line never match more than the line was meant to.
#include "patterns/PatternMeaning.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "KxWildcardEmail.h"
#include "patterns/PatternMistakes.h"

namespace {

using Texts = std::vector<std::string>;

// Whether the text is the pattern, in which "*" is any characters and "?" is one. At most a few stars.
bool isGlobOf(const char* pattern, const char* text) {
  if (*pattern == '\0') {
    return *text == '\0';
  }
  if (*pattern == '*') {
    return isGlobOf(pattern + 1, text) || (*text != '\0' && isGlobOf(pattern, text + 1));
  }
  return *text != '\0' && (*pattern == '?' || *pattern == *text) && isGlobOf(pattern + 1, text + 1);
}

bool isGlobOf(const std::string& pattern, const std::string& text) {
  return isGlobOf(pattern.c_str(), text.c_str());
}

// What a person means by one word of a list: globs, "DOMAIN", "@DOMAIN", ".DOMAIN", a dot of the root at the end, and a
// comment behind all of them.
bool isMeantByWord(const std::string& word, const std::string& address) {
  const std::size_t at = word.find('@');
  std::string name = at == std::string::npos ? "" : word.substr(0, at);
  std::string domain = at == std::string::npos ? word : word.substr(at + 1, word.find('#', at) - at - 1);
  if (domain.size() > 1 && domain.back() == '.') {
    domain.pop_back();
  }
  if (!domain.empty() && domain.front() == '.') {
    domain.insert(0, "*");
  }
  name = name.empty() ? "*" : name;
  const std::size_t asked = address.find('@');
  return isGlobOf(name, address.substr(0, asked)) && isGlobOf(domain, address.substr(asked + 1));
}

// A line as its writer made it, and the words that are not decoration.
struct Line {
  std::string text;
  Texts words;

  bool means(const std::string& address) const {
    return std::any_of(words.begin(), words.end(), [&](const std::string& word) { return isMeantByWord(word, address); });
  }
};

class Writer {
 public:
  explicit Writer(unsigned int seed) : m_random(seed) {}

  Line line() {
    static const Texts kBetween = {",", ", ", ";", " ", "\t", " , "};
    static const Texts kComments = {" # x@z.test", " // c@d.test", " ; y@a.test", "\t#z", "#late"};
    Line line;
    const std::size_t words = below(6) == 0 ? 2 : 1;
    while (line.words.size() != words) {
      line.words.push_back(word());
      line.text += (line.text.empty() ? "" : one(kBetween)) + line.words.back();
    }
    line.text = bracketed(line.text);
    if (below(5) == 0) {
      line.text = one({" ", "\t", "  "}) + line.text;
    }
    if (below(5) == 0) {
      line.text += one({" ", ",", ";", "\t", "\r"});
    }
    if (below(4) == 0) {
      line.text += one(kComments);
    }
    return line;
  }

  // An address that the pattern contains.
  std::string addressOf(const std::string& pattern) {
    const std::size_t at = pattern.find('@');
    const std::string name = pattern.substr(0, at);
    const std::string domain = at == std::string::npos ? "*" : pattern.substr(at + 1);
    std::string labels = one(kLabels);
    while (below(2) == 0) {
      labels += "." + one(kLabels);
    }
    return (name == "*" ? one(kNames) : name) + "@" + (domain[0] == '*' ? labels + domain.substr(1) : domain);
  }

 private:
  static const Texts kNames;
  static const Texts kLabels;

  std::size_t below(std::size_t limit) { return m_random() % limit; }
  std::string one(const Texts& texts) { return texts[below(texts.size())]; }

  std::string bracketed(const std::string& text) {
    switch (below(12)) {
      case 0:
        return "<" + text + ">";
      case 1:
        return "\"" + text + "\"";
      case 2:
        return "u@b.test <" + text + ">";
      case 3:
        return "/" + text + "/";
      case 4:
        return "^" + text + "$";
      case 5:
        return one({"<", "\"", ""}) + text + one({">", "\"", ""});
      default:
        return text;
    }
  }

  std::string piece(const Texts& plain) {
    std::string text = one(plain);
    for (int tricks = 0; tricks != 2 && below(3) == 0; ++tricks) {
      text.insert(below(text.size() + 1), one({"*", "*", "*", "?", "+", "=", "/", "#", ".", "\\"}));
    }
    return text;
  }

  std::string word() {
    std::string text = below(5) == 0 ? "" : below(4) == 0 ? "*" : piece(kNames);
    text += below(5) == 0 ? "" : "@";
    text += below(6) == 0 ? "." : "";
    for (std::size_t labels = below(4); labels != 0; --labels) {
      text += (below(5) == 0 ? "*" : piece(kLabels)) + (labels == 1 && below(6) != 0 ? "" : ".");
    }
    return text;
  }

  std::mt19937 m_random;
};

const Texts Writer::kNames = {"u", "user", "user+x", "b=pkginfo", "pkginfo", "postmaster"};
const Texts Writer::kLabels = {"a", "b", "test", "example", "xa", "com"};

bool contains(const std::string& pattern, const std::string& address) {
  const std::unique_ptr<KxWildcardNode> tree(KxWildcardEmail::makeNewFloatingTree());
  tree->addAddressPattern(pattern.c_str(), 1, nullptr, nullptr);
  std::vector<KxListedEmailAddress*> matches;
  return !tree->findMatches(address.c_str(), matches).empty();
}

// With tricks that hide the rest of a line, a comment for example, less is meant than the words say; never more.
TEST(PatternMeaning, suggestedPatternsMatchOnlyWhatWasMeant) {
  Writer writer(1);
  std::size_t suggested = 0;
  for (int i = 0; i != 200000; ++i) {
    const Line line = writer.line();
    for (const std::string& pattern : patternsMeantBy(line.text)) {
      ++suggested;
      for (int asked = 0; asked != 4; ++asked) {
        const std::string address = writer.addressOf(pattern);
        ASSERT_TRUE(contains(pattern, address)) << pattern << " " << address;
        ASSERT_TRUE(line.means(address)) << line.text << " -> " << pattern << " matches " << address;
      }
    }
  }
  EXPECT_GT(suggested, 20000u);
}

TEST(PatternMeaning, suggestedPatternsHaveNoMistakesAndNeverMatchEverything) {
  Writer writer(2);
  for (int i = 0; i != 200000; ++i) {
    const std::string line = writer.line().text;
    for (const std::string& pattern : patternsMeantBy(line)) {
      ASSERT_TRUE(mistakesIn(pattern).empty()) << line << " -> " << pattern << ": " << mistakesIn(pattern).front().rule;
      ASSERT_FALSE(isCatchAll(pattern)) << line << " -> " << pattern;
    }
  }
}

TEST(PatternMeaning, patternWithoutMistakesStaysAsItIs) {
  for (const char* pattern : {"user@a.test", "*@A.test", "User+x@*.a.test", "*@*.test", "a#b@c.test", "u@[192.0.2.1]"}) {
    EXPECT_TRUE(mistakesIn(pattern).empty()) << pattern;
    EXPECT_EQ(patternsMeantBy(pattern), Texts{pattern});
  }
}

TEST(PatternMeaning, whatMatchesEverythingIsACatchAll) {
  struct Case {
    const char* pattern;
    bool isCatchAll;
  };
  for (const Case& test : {Case{"*", true},
                           {"*@*", true},
                           {"*@*.*", true},
                           {"*@a.*", true},
                           {"**", false},
                           {"*@*.test", false},
                           {"user@*", false},
                           {"@*", false},
                           {"", false}}) {
    EXPECT_EQ(isCatchAll(test.pattern), test.isCatchAll) << test.pattern;
    EXPECT_EQ(contains(test.pattern, "any@one") && contains(test.pattern, "x@y.z"), test.isCatchAll) << test.pattern;
  }
}

}  // namespace
