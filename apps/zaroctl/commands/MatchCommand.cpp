// match ADDRESS...
#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "KxWildcardEmail.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/Progress.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "match/DecidingPattern.h"
#include "match/Differences.h"
#include "match/EveryPattern.h"
#include "match/Reasons.h"
#include "match/StandardInput.h"
#include "match/Totals.h"
#include "patterns/TreeLoading.h"

namespace {

constexpr const char* kStandardInput = "-";

struct Arguments {
  std::vector<std::string> trees;
  std::vector<std::string> diff;
  std::vector<std::string> addresses;
  bool all = false;
  bool count = false;
  bool explain = false;
  AskedForm form;

  bool fromStandardInput() const { return addresses.size() == 1 && addresses.front() == kStandardInput; }
};

void refuseContradictions(const Arguments& arguments) {
  if (arguments.diff.empty() == arguments.trees.empty()) {
    throw UsageError("name the trees: either --tree, once or more, or --diff");
  }
  const int ways = int{arguments.all} + int{arguments.count} + int{arguments.explain} + int{!arguments.diff.empty()};
  if (ways > 1) {
    throw UsageError("only one of --all, --count, --explain and --diff at a time");
  }
  if (arguments.form.literal && !arguments.form.delimiters.empty()) {
    throw UsageError("only one of --literal and --delimiter at a time");
  }
  for (const std::string& address : arguments.addresses) {
    if (address == kStandardInput && !arguments.fromStandardInput()) {
      throw UsageError("- stands alone: addresses come either from the command line or from standard input");
    }
  }
}

void freeze(const Progress& progress, bool verbose) {
  KxWildcardEmail::initScanTimeMode();
  if (!verbose) {
    return;
  }
  constexpr double kMebibyte = 1024.0 * 1024.0;
  const double seconds = progress.seconds();
  char figures[160];
  std::snprintf(figures, sizeof figures, "%s patterns in %.2f s (%s/s), %.0f MiB in use",
                shownCount(static_cast<double>(progress.patterns())).c_str(), seconds,
                shownCount(static_cast<double>(progress.patterns()) / seconds).c_str(),
                static_cast<double>(memoryInUse()) / kMebibyte);
  diagnose(figures);
}

// Asks about every address. Returns whether each was found.
bool askAll(const Arguments& arguments, Question& question) {
  if (arguments.fromStandardInput()) {
    return askAboutStandardInput(question, arguments.form);
  }
  Addresses addresses;
  for (const std::string& address : arguments.addresses) {
    addresses.push_back(arguments.form.of(address));
  }
  const bool all = question.answer(addresses);
  question.finish();
  return all;
}

std::unique_ptr<Question> questionOf(const Arguments& arguments, Output& out, PatternTrees& trees,
                                     PatternTrees& newTrees) {
  const bool together = !arguments.fromStandardInput();
  if (!arguments.diff.empty()) {
    return std::make_unique<Differences>(out, trees, newTrees, together);
  }
  if (arguments.all) {
    return std::make_unique<EveryPattern>(out, trees, together);
  }
  if (arguments.count) {
    return std::make_unique<Totals>(out, trees);
  }
  if (arguments.explain) {
    return std::make_unique<Reasons>(out, trees);
  }
  return std::make_unique<DecidingPattern>(out, trees, together);
}

// Trees in one argument, in order.
std::vector<std::string> treesOf(const std::string& text) {
  std::vector<std::string> trees;
  for (std::size_t begin = 0; begin <= text.size();) {
    const std::size_t end = std::min(text.find(';', begin), text.size());
    trees.push_back(text.substr(begin, end - begin));
    begin = end + 1;
  }
  return trees;
}

ExitCode match(Output& out, const Arguments& arguments, bool verbose) {
  refuseContradictions(arguments);
  Progress progress;
  PatternTrees trees;
  PatternTrees newTrees;
  const PatternSpelling spelling = arguments.form.literal ? PatternSpelling::Literal : PatternSpelling::AsMail;
  if (arguments.diff.empty()) {
    loadTrees(arguments.trees, spelling, trees, progress);
  } else {
    loadTrees(treesOf(arguments.diff.front()), spelling, trees, progress);
    loadTrees(treesOf(arguments.diff.back()), spelling, newTrees, progress);
  }
  freeze(progress, verbose);
  return askAll(arguments, *questionOf(arguments, out, trees, newTrees)) ? ExitCode::Found : ExitCode::NotFound;
}

}  // namespace

void addMatch(CommandTree& tree) {
  const auto arguments = std::make_shared<Arguments>();
  CLI::App* command =
      tree.add("match", "Say which pattern decides an address",
               {"zaroctl match --tree allow.txt:1 --tree block.txt:2 user@example.test",
                "zaroctl match --tree allow.txt:1,block.txt:2 --explain user@example.test",
                "zaroctl match --tree block.txt:2 --count - < addresses.txt",
                "zaroctl match --diff 'allow.txt:1;block.txt:2' 'allow.txt:1;new-block.txt:2' - < addresses.txt"},
               [arguments, &tree](Output& out) { return match(out, *arguments, tree.verbosity() > 0); });
  command
      ->add_option("--tree", arguments->trees,
                   "A tree of patterns: FILE[:KIND][,FILE[:KIND]...] or group:NAME[:KIND]; the first one given goes first")
      ->type_name("TREE")
      ->allow_extra_args(false);
  command->add_flag("--all", arguments->all, "Print every pattern that contains the address");
  command->add_flag("--explain", arguments->explain, "Print what became of every pattern, and how the code comes about");
  command->add_flag("--count", arguments->count, "Print totals and the rate only");
  command
      ->add_option("--diff", arguments->diff,
                   "Print the addresses that two sets of trees (TREE[;TREE...]) decide differently")
      ->type_name("OLD NEW")
      ->type_size(2)
      ->expected(1)
      ->allow_extra_args(false);
  command
      ->add_option("--delimiter", arguments->form.delimiters,
                   "Characters that begin an extension of the local part, which is left out: + for user+extension@domain")
      ->type_name("CHARACTERS");
  command->add_flag("--literal", arguments->form.literal, "Take addresses and patterns as they are given");
  command->add_option("ADDRESS", arguments->addresses, "Addresses; - reads them from standard input, one a line")->required();
}
