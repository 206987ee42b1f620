// Deciding addresses over several trees: `matchEmailAddress`, one by one and in batches, beside what one would write by
// hand.
//
//   decision_bench PATTERNS TREES [GOOGLE-BENCHMARK-OPTION...]
//
// The patterns are dealt out to the trees, half of them with kind 1 and half with kind 2. Before anything is measured,
// every contender has given the same answers. A benchmark is named decide/CONTENDER; its items are addresses, and `p99`
// is the 99th percentile of single calls, in nanoseconds, each measured alone.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Addresses.h"
#include "DecidingMap.h"
#include "KxWildcardEmail.h"
#include "MailData.h"

namespace {

using namespace bench;

constexpr std::size_t kAddresses = 500000;
constexpr std::size_t kBatch = 512;

class DecidingTrees {
 public:
  explicit DecidingTrees(std::size_t count) {
    while (m_trees.size() != count) {
      m_owned.emplace_back(KxWildcardEmail::makeNewTree());
      m_trees.push_back(m_owned.back().get());
    }
  }

  void add(const std::string& pattern, std::size_t tree, KxEmailBelongsTo kind) {
    m_trees[tree]->addAddressPattern(pattern.c_str(), kind, nullptr, nullptr);
  }
  KxMatchResult decide(const char* address) const {
    KxMatchResult result;
    result.code =
        KxWildcardEmail::matchEmailAddress(address, m_trees, &result.treeIndex, &result.name, &result.belongsTo);
    return result;
  }
  void decideBatch(const std::vector<const char*>& addresses, KxMatchResult* results) const {
    KxWildcardEmail::matchEmailAddressBatch(addresses.data(), addresses.size(), m_trees, results);
  }

 private:
  std::vector<std::unique_ptr<KxWildcardNode>> m_owned;
  mutable std::vector<KxWildcardNode*> m_trees;
};

struct Contenders {
  DecidingTrees trees;
  DecidingMap map;

  Contenders(const std::vector<std::string>& patterns, std::size_t treeCount) : trees(treeCount), map(patterns.size()) {
    // The patterns come in no order, so that any dealing is a random one.
    for (std::size_t i = 0; i != patterns.size(); ++i) {
      const std::size_t tree = i % treeCount;
      const KxEmailBelongsTo kind = i / treeCount % 2 == 0 ? 1 : 2;
      trees.add(patterns[i], tree, kind);
      map.add(patterns[i], {static_cast<std::uint32_t>(tree), kind, weightOf(patterns[i])});
    }
    KxWildcardEmail::initScanTimeMode();
  }

  static unsigned int weightOf(const std::string& pattern) {
    return KxListedEmailAddress(nullptr, pattern.c_str(), pattern.substr(0, pattern.find('@')).c_str()).getWeight();
  }
};

bool isSame(const KxMatchResult& one, const KxMatchResult& other) {
  return one.code == other.code && one.treeIndex == other.treeIndex && one.belongsTo == other.belongsTo &&
         (one.name == nullptr ? other.name == nullptr : other.name != nullptr && std::strcmp(one.name, other.name) == 0);
}

// Ends the program at the first address that the contenders decide in two ways.
void compareAnswers(const Contenders& contenders, const std::vector<std::string>& addresses) {
  for (std::size_t first = 0; first < addresses.size(); first += kBatch) {
    std::vector<const char*> batch;
    for (std::size_t i = first; i != std::min(first + kBatch, addresses.size()); ++i) {
      batch.push_back(addresses[i].c_str());
    }
    std::vector<KxMatchResult> results(batch.size());
    contenders.trees.decideBatch(batch, results.data());
    for (std::size_t i = 0; i != batch.size(); ++i) {
      const KxMatchResult want = contenders.map.decide(batch[i]);
      if (!isSame(want, results[i]) || !isSame(want, contenders.trees.decide(batch[i]))) {
        std::fprintf(stderr, "Trees and map decide %s in two ways\n", batch[i]);
        std::exit(1);
      }
    }
  }
}

// The 99th percentile of single calls in nanoseconds, what reading the clock takes included.
template <typename Contender>
double percentile99(const Contender& contender, Addresses& addresses) {
  using Clock = std::chrono::steady_clock;
  constexpr std::size_t kCalls = 50000;
  std::vector<Clock::duration> times(kCalls);
  for (Clock::duration& time : times) {
    const char* address = addresses.next();
    const Clock::time_point begin = Clock::now();
    benchmark::DoNotOptimize(contender.decide(address));
    time = Clock::now() - begin;
  }
  const auto rank = times.begin() + kCalls / 100 * 99;
  std::nth_element(times.begin(), rank, times.end());
  return std::chrono::duration<double, std::nano>(*rank).count();
}

template <typename Contender>
void decide(benchmark::State& state, const Contender& contender, const std::vector<std::string>& texts) {
  Addresses addresses(texts, 0);
  for (auto _ : state) {
    benchmark::DoNotOptimize(contender.decide(addresses.next()));
  }
  state.SetItemsProcessed(state.iterations());
  state.counters["p99"] = percentile99(contender, addresses);
}

void decideBatch(benchmark::State& state, const DecidingTrees& trees, const std::vector<std::string>& texts) {
  Addresses addresses(texts, 0);
  std::vector<const char*> batch(kBatch);
  std::vector<KxMatchResult> results(kBatch);
  for (auto _ : state) {
    std::generate(batch.begin(), batch.end(), [&addresses] { return addresses.next(); });
    trees.decideBatch(batch, results.data());
    benchmark::DoNotOptimize(results.data());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(kBatch));
}

}  // namespace

int main(int argumentCount, char** arguments) {
  const std::size_t patterns = argumentCount > 2 ? std::strtoul(arguments[1], nullptr, 10) : 0;
  const std::size_t trees = argumentCount > 2 ? std::strtoul(arguments[2], nullptr, 10) : 0;
  if (patterns == 0 || trees == 0) {
    std::fprintf(stderr, "Usage: decision_bench PATTERNS TREES [OPTION...]\n");
    return 2;
  }
  arguments[2] = arguments[0];
  argumentCount -= 2;
  arguments += 2;
  benchmark::Initialize(&argumentCount, arguments);

  const MailData data = makeMailData(patterns, kAddresses);
  const Contenders contenders(data.patterns, trees);
  compareAnswers(contenders, data.addresses);
  benchmark::RegisterBenchmark("decide/tree",
                               [&](benchmark::State& state) { decide(state, contenders.trees, data.addresses); });
  benchmark::RegisterBenchmark("decide/tree in batches",
                               [&](benchmark::State& state) { decideBatch(state, contenders.trees, data.addresses); });
  benchmark::RegisterBenchmark("decide/flat_hash_map",
                               [&](benchmark::State& state) { decide(state, contenders.map, data.addresses); });
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
