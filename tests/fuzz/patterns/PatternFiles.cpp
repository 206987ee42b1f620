// Files of address patterns as `match` and `lint` read them, and the words that name trees on the command line. Of a
// pattern that `lint` says never decides, decisions do not change when it is left out.
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "FuzzInput.h"
#include "KxWildcardEmail.h"
#include "SlowMatcher.h"
#include "common/UniqueFd.h"
#include "console/UsageError.h"
#include "patterns/PatternLint.h"
#include "patterns/PatternMistakes.h"
#include "patterns/PatternTrees.h"

namespace {

constexpr std::size_t kTrees = 2;

// A file in memory.
class MemoryFile {
 public:
  explicit MemoryFile(const std::string& text) : m_file(memfd_create("patterns", MFD_CLOEXEC)) {
    FUZZ_CHECK(m_file.isOpen() && ::write(m_file.get(), text.data(), text.size()) == static_cast<ssize_t>(text.size()));
  }

  std::string path() const { return "/proc/self/fd/" + std::to_string(m_file.get()); }

 private:
  zaroruntime::UniqueFd m_file;
};

// A line of a file that is a pattern.
struct Placed {
  std::size_t tree;
  std::size_t line;
  std::string pattern;
  KxEmailBelongsTo kind;
};
using Lines = std::vector<Placed>;

// A tree's words: taken apart, they are there in their order, or there is a reason.
void checkWords(const std::string& text) {
  try {
    for (const TreeSource& source : parseTreeSources({text})) {
      FUZZ_CHECK(source.text == text && !source.parts.empty());
      for (const TreeSource::Part& part : source.parts) {
        FUZZ_CHECK(!part.name.empty() && part.name.size() <= text.size());
      }
    }
  } catch (const UsageError&) {
  }
}

// The patterns of a file; the other lines have a reason.
void readLines(const std::string& path, std::size_t tree, Lines& lines) {
  PatternFile file(path);
  PatternLine line;
  std::size_t before = 0;
  for (bool more = true; more;) {
    try {
      more = file.next(line);
      if (more) {
        FUZZ_CHECK(line.number > before && !line.pattern.empty());
        FUZZ_CHECK(line.pattern.find_first_of(std::string("\n\t\0", 3)) == std::string::npos);
        before = line.number;
        lines.push_back({tree, line.number, line.pattern, line.kind.value_or(tree + 1)});
      }
    } catch (const BadLine& refusal) {
      FUZZ_CHECK(!refusal.problem().empty());
      before = file.lines().lineNumber();
    }
  }
}

// The patterns, and addresses that they may contain.
std::vector<std::string> addressesFor(const Lines& lines) {
  std::vector<std::string> addresses;
  for (const Placed& line : lines) {
    addresses.push_back(line.pattern);
    std::string address = line.pattern;
    std::replace(address.begin(), address.end(), '*', 'q');
    addresses.push_back(address);
  }
  return addresses;
}

// What decides an address, as a text.
std::string decision(const std::vector<const slow::Tree*>& trees, const std::string& address) {
  const slow::Decision decided = slow::decide(trees, address);
  return std::to_string(decided.code) + " " + decided.name + " " + std::to_string(decided.state);
}

// Decides every address without one of the lines; `without` behind the last is none of them.
std::vector<std::string> decisions(const Lines& lines, std::size_t without, const std::vector<std::string>& addresses) {
  slow::Table table;
  slow::Tree trees[kTrees] = {slow::Tree(&table), slow::Tree(&table)};
  for (std::size_t i = 0; i != lines.size(); ++i) {
    if (i != without) {
      trees[lines[i].tree].add(lines[i].pattern, lines[i].kind);
    }
  }
  std::vector<std::string> texts;
  for (const std::string& address : addresses) {
    texts.push_back(decision({&trees[0], &trees[1]}, address));
  }
  return texts;
}

void checkRemoval(const Lines& lines, std::size_t tree, const LintFinding& finding) {
  constexpr std::size_t kMost = 40;  // for the slow matcher
  if (lines.size() > kMost || std::string(finding.rule) != "never-decides" ||
      finding.suggestion.find("remove it") != 0 || finding.suggestion.find("remove it and") == 0) {
    return;
  }
  const auto found = std::find_if(lines.begin(), lines.end(),
                                  [&](const Placed& line) { return line.tree == tree && line.line == finding.line; });
  FUZZ_CHECK(found != lines.end());
  const std::vector<std::string> addresses = addressesFor(lines);
  const auto place = static_cast<std::size_t>(found - lines.begin());
  FUZZ_CHECK(decisions(lines, place, addresses) == decisions(lines, lines.size(), addresses));
}

void checkFindings(const Lines& lines, const std::vector<std::string>& paths) {
  PatternLint lint(1 | 8);
  Progress progress;
  for (std::size_t tree = 0; tree != kTrees; ++tree) {
    lint.load(parseTreeSources({paths[tree] + ":" + std::to_string(tree + 1)}).front(), progress);
  }
  for (const LintFinding& finding : lint.findings()) {
    const auto path = std::find(paths.begin(), paths.end(), finding.file);
    FUZZ_CHECK(path != paths.end() && finding.line >= 1);
    FUZZ_CHECK(*finding.rule != '\0' && !finding.reason.empty());
    for (const std::string& pattern : finding.patterns) {
      FUZZ_CHECK(mistakesIn(pattern).empty() && !isCatchAll(pattern));
    }
    checkRemoval(lines, static_cast<std::size_t>(path - paths.begin()), finding);
  }
}

}  // namespace

// The files of two trees with a form feed between.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  constexpr std::size_t kLongestInput = 4096;
  if (size > kLongestInput) {
    return 0;
  }
  const std::string text = textOf(data, size);
  checkWords(text);
  const std::size_t middle = std::min(text.find('\f'), text.size());
  const MemoryFile first(text.substr(0, middle));
  const MemoryFile second(text.substr(std::min(middle + 1, text.size())));
  Lines lines;
  readLines(first.path(), 0, lines);
  readLines(second.path(), 1, lines);
  checkFindings(lines, {first.path(), second.path()});
  KxWildcardEmail::initScanTimeMode();
  return 0;
}
