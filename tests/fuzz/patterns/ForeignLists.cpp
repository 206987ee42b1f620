// Lists of other programs: a line has patterns without mistakes, or a fault, or neither; never both.
#include "patterns/ForeignList.h"

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "FuzzInput.h"
#include "KxWildcardEmail.h"
#include "ZaroRuntime/RuntimeError.h"
#include "patterns/PatternMeaning.h"
#include "patterns/PatternMistakes.h"

namespace {

void checkPatterns(const std::vector<std::string>& patterns) {
  for (const std::string& pattern : patterns) {
    if (pattern == "<>") {
      continue;
    }
    FUZZ_CHECK(mistakesIn(pattern).empty() && !isCatchAll(pattern));
    // A floating tree takes it, and finds it.
    const std::unique_ptr<KxWildcardNode> tree(KxWildcardEmail::makeNewFloatingTree());
    FUZZ_CHECK(tree->addAddressPattern(pattern.c_str(), 1, nullptr, nullptr));
    std::vector<KxListedEmailAddress*> found;
    FUZZ_CHECK(tree->findMatches(pattern.c_str(), found).size() == 1);
  }
}

}  // namespace

// The first byte is the format; of CSV the rest of the first line is the column. The rest are lines.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) {
    return 0;
  }
  constexpr ListFormat kFormats[] = {ListFormat::Plain, ListFormat::Access, ListFormat::Csv};
  const std::string input = textOf(data + 1, size - 1);
  std::size_t at = std::min(input.find('\n'), input.size());
  ForeignList list(kFormats[data[0] % 3], input.substr(0, at));
  try {
    while (at < input.size()) {
      const std::size_t end = std::min(input.find('\n', at + 1), input.size());
      const ListLine line = list.read(input.substr(at + 1, end - at - 1));
      FUZZ_CHECK(line.patterns.empty() || line.fault.empty());
      FUZZ_CHECK(std::none_of(line.action.begin(), line.action.end(), [](char c) { return c >= 'a' && c <= 'z'; }));
      checkPatterns(line.patterns);
      at = end;
    }
  } catch (const zaroruntime::RuntimeError&) {
    FUZZ_CHECK(kFormats[data[0] % 3] == ListFormat::Csv);
  }
  return 0;
}
