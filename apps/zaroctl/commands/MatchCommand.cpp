// match ADDRESS...
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "KxMatchExplanation.h"
#include "KxWildcardEmail.h"
#include "commands/CommandTree.h"
#include "commands/Commands.h"
#include "console/LineReader.h"
#include "console/Progress.h"
#include "console/Text.h"
#include "console/UsageError.h"
#include "patterns/MatchExplanation.h"
#include "patterns/PatternTrees.h"

namespace {

constexpr const char* kStandardInput = "-";

struct Arguments {
  std::vector<std::string> trees;
  std::vector<std::string> diff;
  std::vector<std::string> addresses;
  bool all = false;
  bool count = false;
  bool explain = false;

  bool fromStandardInput() const { return addresses.size() == 1 && addresses.front() == kStandardInput; }
};

// --- Loading ---

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

void loadAll(const std::vector<std::string>& sources, PatternTrees& trees, Progress& progress) {
  const std::vector<TreeSource> parsed = parseTreeSources(sources);
  Refusals refusals;
  const auto add = [&](const PatternOrigin& origin) {
    if (!origin.root.addAddressPattern(origin.pattern.c_str(), origin.kind, nullptr, nullptr)) {
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

// --- Answers ---

using Addresses = std::vector<std::string>;

struct Decision {
  unsigned int code = 0;
  unsigned int tree = 0;
  const char* pattern = nullptr;
  KxEmailBelongsTo kind = 0;
};

std::vector<Decision> decide(const Addresses& addresses, PatternTrees& trees) {
  std::vector<const char*> texts(addresses.size());
  std::transform(addresses.begin(), addresses.end(), texts.begin(),
                 [](const std::string& address) { return address.c_str(); });
  std::vector<KxMatchResult> results(addresses.size());
  KxWildcardEmail::matchEmailAddressBatch(texts.data(), texts.size(), trees.roots(), results.data());
  std::vector<Decision> decisions(addresses.size());
  std::transform(results.begin(), results.end(), decisions.begin(), [](const KxMatchResult& result) {
    return Decision{result.code, result.treeIndex, result.name, result.belongsTo};
  });
  return decisions;
}

bool allDecided(const std::vector<Decision>& decisions) {
  return std::all_of(decisions.begin(), decisions.end(), [](const Decision& decision) { return decision.code != 0; });
}

// Properties of a decision; `prefix` tells two of them in one row apart.
void describe(const Decision& decision, const PatternTrees& trees, const std::string& prefix, Json& row) {
  const auto key = [&](std::string name) {
    if (!prefix.empty()) {
      name[0] = static_cast<char>(name[0] - 'a' + 'A');
    }
    return prefix + name;
  };
  row[key("code")] = decision.code;
  if (decision.code == 0) {
    for (const char* name : {"pattern", "kind", "tree", "treeIndex"}) {
      row[key(name)] = nullptr;
    }
    return;
  }
  row[key("pattern")] = decision.pattern;
  row[key("kind")] = decision.kind;
  row[key("tree")] = trees.name(decision.tree);
  row[key("treeIndex")] = decision.tree;
}

// Rows as they come; in one table at the end where all of them are at hand for a reader at a terminal.
class Rows {
 public:
  Rows(Output& out, std::vector<Output::Column> columns, bool together)
      : m_out(out), m_columns(std::move(columns)), m_together(together && out.isTable()), m_rows(Json::array()) {}

  void add(Json row) {
    if (m_together) {
      m_rows.push_back(std::move(row));
    } else {
      m_out.next(m_columns, row);
    }
  }
  void finish() {
    if (m_together) {
      m_out.rows(m_columns, m_rows);
    }
  }

 private:
  Output& m_out;
  std::vector<Output::Column> m_columns;
  bool m_together;
  Json m_rows;
};

// What is to be known of addresses. `answer` says whether all of them count as found.
class Question {
 public:
  virtual ~Question() = default;
  virtual bool answer(const Addresses& addresses) = 0;
  // An address that could not be read.
  virtual void skip() {}
  virtual void finish() {}
};

class DecidingPattern : public Question {
 public:
  DecidingPattern(Output& out, PatternTrees& trees, bool together)
      : m_trees(trees),
        m_rows(out,
               {{"address", "ADDRESS"}, {"code", "CODE"}, {"pattern", "PATTERN"}, {"kind", "KIND"}, {"tree", "TREE"}},
               together) {}

  bool answer(const Addresses& addresses) override {
    const std::vector<Decision> decisions = decide(addresses, m_trees);
    for (std::size_t i = 0; i != addresses.size(); ++i) {
      Json row = {{"address", addresses[i]}};
      describe(decisions[i], m_trees, "", row);
      m_rows.add(std::move(row));
    }
    return allDecided(decisions);
  }
  void finish() override { m_rows.finish(); }

 private:
  PatternTrees& m_trees;
  Rows m_rows;
};

class EveryPattern : public Question {
 public:
  EveryPattern(Output& out, PatternTrees& trees, bool together)
      : m_trees(trees),
        m_rows(out,
               {{"address", "ADDRESS"}, {"pattern", "PATTERN"}, {"kind", "KIND"}, {"weight", "WEIGHT"}, {"tree", "TREE"}},
               together) {}

  bool answer(const Addresses& addresses) override {
    std::for_each(addresses.begin(), addresses.end(), [this](const std::string& address) { show(address); });
    return allDecided(decide(addresses, m_trees));
  }
  void finish() override { m_rows.finish(); }

 private:
  void show(const std::string& address) {
    for (std::size_t tree = 0; tree != m_trees.roots().size(); ++tree) {
      m_leaves.clear();
      for (const KxListedEmailAddress* leaf : m_trees.roots()[tree]->findMatches(address.c_str(), m_leaves)) {
        m_rows.add({{"address", address},
                    {"pattern", leaf->getFullAddressAsStr()},
                    {"kind", leaf->getState()},
                    {"weight", leaf->getWeight()},
                    {"tree", m_trees.name(tree)},
                    {"treeIndex", tree}});
      }
    }
  }

  PatternTrees& m_trees;
  Rows m_rows;
  std::vector<KxListedEmailAddress*> m_leaves;
};

class Totals : public Question {
 public:
  Totals(Output& out, PatternTrees& trees) : m_out(out), m_trees(trees) {}

  bool answer(const Addresses& addresses) override {
    const std::vector<Decision> decisions = decide(addresses, m_trees);
    for (const Decision& decision : decisions) {
      ++m_byCode[decision.code];
    }
    return allDecided(decisions);
  }
  void skip() override { ++m_skipped; }
  void finish() override {
    const double seconds = m_watch.seconds();
    std::uint64_t total = 0;
    for (const auto& [code, count] : m_byCode) {
      total += count;
    }
    Json record = {{"addresses", total}, {"decided", total - m_byCode[0]}, {"undecided", m_byCode[0]}};
    if (m_skipped != 0) {
      record["unreadable"] = m_skipped;
    }
    for (const auto& [code, count] : m_byCode) {
      if (code != 0) {
        record["code " + std::to_string(code)] = count;
      }
    }
    record["seconds"] = std::round(seconds * 1000) / 1000;
    record["addresses per second"] = seconds > 0 ? std::llround(static_cast<double>(total) / seconds) : 0;
    m_out.record(record);
  }

 private:
  Output& m_out;
  PatternTrees& m_trees;
  Stopwatch m_watch;
  std::map<unsigned int, std::uint64_t> m_byCode;
  std::uint64_t m_skipped = 0;
};

class Reasons : public Question {
 public:
  Reasons(Output& out, PatternTrees& trees) : m_out(out), m_trees(trees) {}

  bool answer(const Addresses& addresses) override {
    bool all = true;
    for (const std::string& address : addresses) {
      all = explain(address) && all;
    }
    return all;
  }

 private:
  bool explain(const std::string& address) {
    KxMatchExplanation explanation;
    KxWildcardEmail::explainEmailAddress(address.c_str(), m_trees.roots(), explanation);
    const Json candidates = candidatesOf(explanation);
    if (m_out.isDocument()) {
      m_out.next({}, documentOf(address, explanation, candidates));
    } else {
      m_out.remark(address);
      m_out.rows({{"n", "N"},
                  {"pattern", "PATTERN"},
                  {"kind", "KIND"},
                  {"weight", "WEIGHT"},
                  {"tree", "TREE"},
                  {"text", "WHAT BECAME OF IT"}},
                 candidates);
      m_out.remark(codeText(explanation));
    }
    return explanation.code != 0;
  }

  Json candidatesOf(const KxMatchExplanation& explanation) const {
    Json rows = Json::array();
    for (const KxMatchCandidate& candidate : explanation.candidates) {
      Json row = {{"n", rows.size() + 1},
                  {"pattern", candidate.leaf->getFullAddressAsStr()},
                  {"kind", candidate.state},
                  {"weight", candidate.weight},
                  {"tree", m_trees.name(candidate.tree)},
                  {"treeIndex", candidate.tree},
                  {"fate", fateWord(candidate.fate)}};
      if (candidate.other != KxMatchCandidate::kNone) {
        row["other"] = candidate.other + 1;
      }
      if (candidate.fate == KxMatchCandidate::Exception) {
        row["removed"] = candidate.removed;
      }
      row["text"] = fateText(candidate);
      rows.push_back(std::move(row));
    }
    return rows;
  }

  Json documentOf(const std::string& address, const KxMatchExplanation& explanation, const Json& candidates) const {
    Json document = {{"address", address}};
    describe({explanation.code, explanation.treeIndex, explanation.name, explanation.belongsTo}, m_trees, "", document);
    document["tier"] = tierWord(explanation.tier);
    document["weightA"] = explanation.weightA;
    document["weightB"] = explanation.weightB;
    document["bothKinds"] = explanation.bothKinds;
    document["baseCode"] = explanation.baseCode;
    document["addedCode"] = explanation.addedCode;
    document["treesSearched"] = explanation.treesSearched;
    document["candidates"] = candidates;
    document["text"] = codeText(explanation);
    return document;
  }

  Output& m_out;
  PatternTrees& m_trees;
};

class Differences : public Question {
 public:
  Differences(Output& out, PatternTrees& oldTrees, PatternTrees& newTrees, bool together)
      : m_old(oldTrees),
        m_new(newTrees),
        m_rows(out,
               {{"address", "ADDRESS"},
                {"oldCode", "OLD CODE"},
                {"oldPattern", "OLD PATTERN"},
                {"newCode", "NEW CODE"},
                {"newPattern", "NEW PATTERN"}},
               together) {}

  // Found is what did not change.
  bool answer(const Addresses& addresses) override {
    const std::vector<Decision> before = decide(addresses, m_old);
    const std::vector<Decision> after = decide(addresses, m_new);
    bool all = true;
    for (std::size_t i = 0; i != addresses.size(); ++i) {
      if (!isSame(before[i], after[i])) {
        Json row = {{"address", addresses[i]}};
        describe(before[i], m_old, "old", row);
        describe(after[i], m_new, "new", row);
        m_rows.add(std::move(row));
        all = false;
      }
    }
    return all;
  }
  void finish() override { m_rows.finish(); }

 private:
  static bool isSame(const Decision& before, const Decision& after) {
    return before.code == after.code && before.kind == after.kind && text(before) == text(after);
  }
  static std::string text(const Decision& decision) { return decision.pattern != nullptr ? decision.pattern : ""; }

  PatternTrees& m_old;
  PatternTrees& m_new;
  Rows m_rows;
};

// --- The command ---

void refuseContradictions(const Arguments& arguments) {
  if (arguments.diff.empty() == arguments.trees.empty()) {
    throw UsageError("name the trees: either --tree, once or more, or --diff");
  }
  const int ways = int{arguments.all} + int{arguments.count} + int{arguments.explain} + int{!arguments.diff.empty()};
  if (ways > 1) {
    throw UsageError("only one of --all, --count, --explain and --diff at a time");
  }
  for (const std::string& address : arguments.addresses) {
    if (address == kStandardInput && !arguments.fromStandardInput()) {
      throw UsageError("- stands alone: addresses come either from the command line or from standard input");
    }
  }
}

// Addresses that were read and wait to be answered together.
class Waiting {
 public:
  explicit Waiting(Question& question) : m_question(question) {}

  void add(std::string address) {
    constexpr std::size_t kTogether = 512;
    m_addresses.push_back(std::move(address));
    if (m_addresses.size() == kTogether) {
      answer();
    }
  }
  void answer() {
    m_all = m_question.answer(m_addresses) && m_all;
    m_addresses.clear();
  }
  bool allFound() const { return m_all; }

 private:
  Question& m_question;
  Addresses m_addresses;
  bool m_all = true;
};

// Asks about every address. Returns whether each was found.
bool askAll(const Arguments& arguments, Question& question) {
  if (!arguments.fromStandardInput()) {
    const bool all = question.answer(arguments.addresses);
    question.finish();
    return all;
  }
  Waiting waiting(question);
  bool readable = true;
  // Whoever writes the addresses one by one gets each answer before the next.
  LineReader lines(STDIN_FILENO, "standard input", [&waiting] {
    waiting.answer();
    std::fflush(stdout);
  });
  std::string address;
  for (bool more = true; more;) {
    try {
      more = lines.next(address);
      if (more && !address.empty()) {
        waiting.add(address);
      }
    } catch (const BadLine& bad) {
      waiting.answer();
      diagnose(bad.what());
      question.skip();
      readable = false;
    }
  }
  waiting.answer();
  question.finish();
  return waiting.allFound() && readable;
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
  if (arguments.diff.empty()) {
    loadAll(arguments.trees, trees, progress);
  } else {
    loadAll(treesOf(arguments.diff.front()), trees, progress);
    loadAll(treesOf(arguments.diff.back()), newTrees, progress);
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
  command->add_option("ADDRESS", arguments->addresses, "Addresses; - reads them from standard input, one a line")->required();
}
