// Matching addresses: the library and what one may use in its place, side by side in one process.
//
//   match_bench PATTERNS [GOOGLE-BENCHMARK-OPTION...]
//
// Before anything is measured, all contenders must have given the same number of matches. A benchmark is named
// WHAT/CONTENDER; its items are look-ups or patterns.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Addresses.h"
#include "Engines.h"
#include "MailData.h"
#include "Peers.h"
#include "Tree.h"

namespace {

using namespace bench;

constexpr std::size_t kAddresses = 500000;
constexpr std::size_t kBatch = 512;

template <typename Contender>
using MatchesOf = std::conditional_t<std::is_base_of_v<Tree, Contender>, Leaves, Matches>;

template <typename Contender>
std::size_t countMatches(const Contender& contender, const std::vector<std::string>& addresses) {
  std::size_t count = 0;
  MatchesOf<Contender> matches;
  for (std::size_t i = 0; i != std::min<std::size_t>(addresses.size(), 20000); ++i) {
    matches.clear();
    contender.find(addresses[i].c_str(), matches);
    count += matches.size();
  }
  return count;
}

template <typename Contender>
void lookUp(benchmark::State& state, const Contender& contender, const std::vector<std::string>& texts) {
  Addresses addresses(texts, static_cast<std::size_t>(state.thread_index()) * texts.size() / 2);
  MatchesOf<Contender> matches;
  for (auto _ : state) {
    matches.clear();
    contender.find(addresses.next(), matches);
    benchmark::DoNotOptimize(matches.data());
  }
  state.SetItemsProcessed(state.iterations());
}

void lookUpBatch(benchmark::State& state, const Tree& tree, const std::vector<std::string>& texts) {
  Addresses addresses(texts, 0);
  std::vector<const char*> batch(kBatch);
  Leaves matches;
  std::vector<std::size_t> ends;
  for (auto _ : state) {
    std::generate(batch.begin(), batch.end(), [&addresses] { return addresses.next(); });
    KxWildcardEmail::findMatchesBatch(tree.root(), batch.data(), batch.size(), matches, ends);
    benchmark::DoNotOptimize(matches.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kBatch));
}

template <typename Contender>
void fill(benchmark::State& state, const std::vector<std::string>& patterns) {
  for (auto _ : state) {
    auto contender = std::make_unique<Contender>();
    contender->fill(patterns);
    state.PauseTiming();
    contender.reset();
    state.ResumeTiming();
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(patterns.size()));
}

// Registers the look-ups of a contender; keeps it for good.
template <typename Contender>
const Contender& enter(const char* name, const MailData& data, std::size_t& matches) {
  static const auto contender = std::make_unique<Contender>();
  contender->fill(data.patterns);
  const std::size_t found = countMatches(*contender, data.addresses);
  if (matches != 0 && found != matches) {
    std::fprintf(stderr, "%s finds %zu matches, the first contender %zu\n", name, found, matches);
    std::exit(1);
  }
  matches = found;
  benchmark::RegisterBenchmark((std::string("lookup/") + name).c_str(),
                               [&](benchmark::State& state) { lookUp(state, *contender, data.addresses); });
  return *contender;
}

template <typename Contender>
void enterFill(const char* name, const MailData& data) {
  benchmark::RegisterBenchmark((std::string("fill/") + name).c_str(),
                               [&](benchmark::State& state) { fill<Contender>(state, data.patterns); })
      ->Iterations(1)
      ->Unit(benchmark::kMillisecond);
}

void enterThreads(int threads, const Tree& tree, const MailData& data) {
  benchmark::RegisterBenchmark(("threads/" + std::to_string(threads)).c_str(),
                               [&](benchmark::State& state) { lookUp(state, tree, data.addresses); })
      ->Threads(threads)
      ->UseRealTime();
}

}  // namespace

int main(int argumentCount, char** arguments) {
  const std::size_t patterns = argumentCount > 1 ? std::strtoul(arguments[1], nullptr, 10) : 0;
  if (patterns == 0) {
    std::fprintf(stderr, "Usage: match_bench PATTERNS [OPTION...]\n");
    return 2;
  }
  arguments[1] = arguments[0];
  --argumentCount;
  ++arguments;
  benchmark::Initialize(&argumentCount, arguments);

  const MailData data = makeMailData(patterns, kAddresses);
  std::size_t matches = 0;
  const Tree& tree = enter<Tree>("tree", data, matches);
  benchmark::RegisterBenchmark("lookup/tree in batches",
                               [&](benchmark::State& state) { lookUpBatch(state, tree, data.addresses); });
  enter<AddedToTree>("tree with an addition", data, matches);
  enter<WalkedTree>("plain walk", data, matches);
  enter<FlatHashMap>("flat_hash_map", data, matches);
  enter<TwoLevelMap>("two-level hash", data, matches);
  enter<StandardMap>("unordered_map", data, matches);
  enter<Lmdb>("LMDB", data, matches);
  enter<Cdb>("cdb", data, matches);
  if (patterns <= LinearScan::kMostPatterns) {
    enter<LinearScan>("linear scan", data, matches);
  }
  if (patterns <= Hyperscan::kMostPatterns) {
    enter<Hyperscan>("Hyperscan", data, matches);
  }
  if (patterns <= Re2Set::kMostPatterns) {
    enter<Re2Set>("RE2::Set", data, matches);
  }
  enterThreads(1, tree, data);
  enterThreads(2, tree, data);
  enterFill<Tree>("tree", data);
  enterFill<OneByOne>("tree, one by one", data);
  enterFill<FlatHashMap>("flat_hash_map", data);
  enterFill<TwoLevelMap>("two-level hash", data);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
