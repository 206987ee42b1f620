// lint FILE...
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "patterns/PatternLint.h"

namespace {

struct Arguments {
  std::vector<std::string> sources;
  std::string passing = "A";
};

// The kinds that let mail pass, by what the command line calls them.
const std::map<std::string, KxEmailBelongsTo> kPassing = {{"A", 1 | 8}, {"B", 2 | 4}, {"none", 0}};

ExitCode lint(Output& out, const Arguments& arguments) {
  const std::vector<TreeSource> parsed = parseTreeSources(arguments.sources);
  PatternLint lint(kPassing.at(arguments.passing));
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
                    {"suggestion", finding.suggestion},
                    {"patterns", finding.patterns}});
  }
  out.rows({{"place", "PLACE"},
            {"pattern", "PATTERN"},
            {"rule", "RULE"},
            {"reason", "REASON", Output::Width::Whole},
            {"suggestion", "SUGGESTION", Output::Width::Whole}},
           rows);
  return rows.empty() ? ExitCode::Found : ExitCode::NotFound;
}

}  // namespace

void addLint(CommandTree& tree) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* command =
      tree.add("lint", "Find what is wrong in lists of address patterns",
               {"zaroctl lint block.txt:2", "zaroctl lint allow.txt:1 block.txt:2,more.txt:2 exceptions.txt:16"},
               [arguments](Output& out) { return lint(out, *arguments); });
  command
      ->add_option("--passing", arguments->passing,
                   "Which kinds let mail pass: A is 1 and 8, B is 2 and 4 (A unless given); their catch-alls are told")
      ->type_name("SIDE")
      ->check(CLI::IsMember({"A", "B", "none"}));
  command
      ->add_option("FILE", arguments->sources,
                   "Trees in order of precedence, each FILE[:KIND][,FILE[:KIND]...] or group:NAME[:KIND]; without KIND "
                   "the kind is 1")
      ->required();
}
