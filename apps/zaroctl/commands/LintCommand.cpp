// lint FILE...
#include <memory>
#include <string>
#include <vector>

#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "patterns/PatternLint.h"

namespace {

ExitCode lint(Output& out, const std::vector<std::string>& sources) {
  const std::vector<TreeSource> parsed = parseTreeSources(sources);
  PatternLint lint;
  Progress progress;
  for (const TreeSource& source : parsed) {
    lint.load(source, progress);
  }
  progress.finish();

  Json rows = Json::array();
  for (const LintFinding& finding : lint.findings()) {
    rows.push_back({{"place", finding.file + ":" + std::to_string(finding.line)},
                    {"file", finding.file},
                    {"line", finding.line},
                    {"pattern", finding.pattern},
                    {"rule", finding.rule},
                    {"reason", finding.reason},
                    {"suggestion", finding.suggestion}});
  }
  out.rows(
      {{"place", "PLACE"}, {"pattern", "PATTERN"}, {"rule", "RULE"}, {"reason", "REASON"}, {"suggestion", "SUGGESTION"}},
      rows);
  return rows.empty() ? ExitCode::Found : ExitCode::NotFound;
}

}  // namespace

void addLint(CommandTree& tree) {
  const auto sources = std::make_shared<std::vector<std::string>>();
  CLI::App* command =
      tree.add("lint", "Find what is wrong in lists of address patterns",
               {"zaroctl lint block.txt", "zaroctl lint allow.txt:1 block.txt:2,more.txt:2 exceptions.txt:16"},
               [sources](Output& out) { return lint(out, *sources); });
  command
      ->add_option("FILE", *sources,
                   "Trees in order of precedence, each FILE[:KIND][,FILE[:KIND]...] or group:NAME[:KIND]; without KIND "
                   "the kind is 1")
      ->required();
}
