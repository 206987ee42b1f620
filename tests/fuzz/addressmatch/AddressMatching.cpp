#include <string>
#include <vector>

#include "ForgottenCalls.h"
#include "FuzzInput.h"
#include "MatcherComparison.h"

namespace {

// What the slow matcher can do in a short time.
constexpr std::size_t kLongestInput = 2048;
constexpr std::size_t kTrees = 3;

// The kinds of a pattern by its first letter; more than one would be refused mostly.
constexpr unsigned int kKinds[] = {1, 2, 4, 8, 16, 32, 0, 17};

// A letter that names a tree and kinds, and a pattern behind it.
struct Placed {
  explicit Placed(const std::string& text) {
    const auto letter = static_cast<unsigned char>(text[0]);
    constexpr std::size_t kKindCount = sizeof kKinds / sizeof kKinds[0];
    tree = letter / kKindCount % kTrees;
    kinds = kKinds[letter % kKindCount];
    pattern = text.substr(1);
  }

  std::size_t tree;
  unsigned int kinds;
  std::string pattern;
};

std::vector<std::string> withoutCommas(const std::string& text) {
  std::vector<std::string> parts(1);
  for (const char character : text) {
    if (character == ',') {
      parts.emplace_back();
    } else {
      parts.back() += character;
    }
  }
  return parts;
}

void obey(slow::MatcherComparison& comparison, const std::string& line) {
  const std::string rest = line.substr(1);
  if (line[0] == '?') {
    comparison.ask(rest);
    return;
  }
  if (line[0] == '!') {
    comparison.freeze();
    return;
  }
  if (line[0] == '&') {
    comparison.askTogether();
    return;
  }
  if (line[0] == '#') {
    comparison.dropTree(0);
    comparison.makeTree();
    return;
  }
  if (line[0] != '/' && line[0] != '-' && line[0] != ',') {
    const Placed placed(line);
    comparison.add(placed.tree, placed.pattern, placed.kinds);
    return;
  }
  if (rest.empty()) {
    return;
  }
  const Placed placed(rest);
  if (line[0] == '/') {
    comparison.addByHand(placed.tree, placed.pattern, placed.kinds);
  } else if (line[0] == '-') {
    comparison.removeKinds(placed.tree, placed.pattern, placed.kinds);
  } else {
    comparison.addMany(placed.tree, withoutCommas(placed.pattern), placed.kinds);
  }
}

// The first freeze of a process is for good: every input finds the default table as a first generation left it.
struct FirstGeneration {
  FirstGeneration() {
    for (const char* text : {"", "*", "a", "b", "user", "a@b", "user@a.b"}) {
      KxWildcardEmail::_defaultScanTimeStringtable.getStringtableRef(text);
    }
    KxWildcardEmail::initScanTimeMode();
  }
};

}  // namespace

// Each line is a step: "?ADDRESS" asks, "&" asks again for all that was asked together, "!" freezes, "#" replaces the
// first tree by a new one. "/" before a letter and a pattern adds it by hand, "-" takes kinds from it, "," adds the
// patterns between commas in one call. Any other letter before a pattern adds it to a tree with a kind.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const FirstGeneration before;
  const ForgottenCalls forgotten;
  if (size > kLongestInput) {
    return 0;
  }
  {
    slow::MatcherComparison comparison;
    for (std::size_t tree = 0; tree != kTrees; ++tree) {
      comparison.makeTree();
    }
    // The library takes C strings.
    const std::string input = textOf(data, size);
    std::string line;
    for (const char character : input + '\n') {
      if (character != '\n' && character != '\0') {
        line += character;
      } else if (!line.empty()) {
        obey(comparison, line);
        line.clear();
      }
    }
    if (!comparison.difference().empty()) {
      std::fprintf(stderr, "%s\n", comparison.difference().c_str());
      std::abort();
    }
  }
  KxWildcardEmail::initScanTimeMode();  // what the trees leave in the queue
  return 0;
}
