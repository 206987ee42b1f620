#include <string>

#include "FuzzInput.h"
#include "MatcherComparison.h"

namespace {

// What the slow matcher can do in a short time.
constexpr std::size_t kLongestInput = 4096;
constexpr std::size_t kTrees = 3;

// The kinds of a pattern by its first letter; more than one would be refused mostly.
constexpr unsigned int kKinds[] = {1, 2, 4, 8, 16, 32, 0, 17};

void obey(slow::MatcherComparison& comparison, const std::string& line) {
  const auto letter = static_cast<unsigned char>(line[0]);
  const std::string text = line.substr(1);
  if (letter == '?') {
    comparison.ask(text);
  } else if (letter == '!') {
    comparison.freeze();
  } else {
    constexpr std::size_t kKindCount = sizeof kKinds / sizeof kKinds[0];
    comparison.add(letter / kKindCount % kTrees, text, kKinds[letter % kKindCount]);
  }
}

}  // namespace

// Each line is a step: "?ADDRESS" asks, "!" freezes, any other letter before a pattern adds it to a tree with a kind.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > kLongestInput) {
    return 0;
  }
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
  KxWildcardEmail::initScanTimeMode();  // what the trees leave in the queue
  return 0;
}
