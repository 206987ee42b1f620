#include "patterns/TreeLoading.h"

#include <cstdint>

#include "console/Text.h"
#include "mail/MailAddress.h"
#include "patterns/PatternAdding.h"

namespace {

// Patterns whose kind the library refused: the first few are told, the others counted.
class Refusals {
 public:
  void add(const PatternOrigin& origin) {
    if (++m_count <= kTold) {
      diagnose(origin.file + ":" + std::to_string(origin.line) + ": kind " + std::to_string(origin.kind) +
               " is refused for " + quoted(origin.pattern));
    }
  }
  void finish() const {
    if (m_count > kTold) {
      diagnose(std::to_string(m_count - kTold) + " more patterns with refused kinds; zaroctl lint shows them all");
    }
  }

 private:
  static constexpr std::uint64_t kTold = 5;
  std::uint64_t m_count = 0;
};

}  // namespace

void loadTrees(const std::vector<std::string>& sources, PatternSpelling spelling, PatternTrees& trees,
               Progress& progress) {
  const std::vector<TreeSource> parsed = parseTreeSources(sources);
  Refusals refusals;
  const auto add = [&](const PatternOrigin& origin) {
    const std::string pattern = spelling == PatternSpelling::AsMail ? normalPattern(origin.pattern) : origin.pattern;
    if (!addPattern(origin.root, pattern.c_str(), origin.kind, nullptr)) {
      progress.finish();
      refusals.add(origin);
    }
  };
  // To leave a line out would decide mail by half a list.
  const auto badLine = [](const std::string& /*file*/, std::size_t /*line*/, const BadLine& bad) { throw BadLine(bad); };
  for (const TreeSource& source : parsed) {
    trees.load(source, add, badLine, progress);
  }
  progress.finish();
  refusals.finish();
}
