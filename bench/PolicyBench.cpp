// How long a decision takes by stored policy: among few rules and many, on few patterns and many, and with many rules
// that all apply; and how long it takes to make a generation.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "policy/Decider.h"

namespace {

constexpr KxEmailBelongsTo kBlock = 2;

std::string domainOf(std::size_t number) {
  return "d" + std::to_string(number) + ".test";
}

MailPolicy::Group groupOf(unsigned int id, std::size_t patterns) {
  MailPolicy::Group group = {id, "group", {}};
  for (std::size_t number = 0; number != patterns; ++number) {
    group.members.add((number % 8 == 0 ? "*@*." : "user" + std::to_string(number) + "@") + domainOf(number / 8));
  }
  return group;
}

// Rules on one list, each for a domain of its own or all for everybody.
MailPolicy policyOf(std::size_t rules, std::size_t patterns, bool areForAll) {
  MailPolicy policy;
  policy.groups.push_back(groupOf(1, patterns));
  for (unsigned int number = 1; number <= rules; ++number) {
    MailPolicy::Rule rule;
    rule.id = rule.position = number;
    rule.enabled = true;
    rule.lists = {{1, kBlock}};
    if (!areForAll) {
      policy.entities.push_back({number, "*@" + domainOf(number)});
      rule.scope = number;
    }
    policy.rules.push_back(rule);
  }
  return policy;
}

void decide(benchmark::State& state, bool areForAll) {
  const auto patterns = static_cast<std::size_t>(state.range(1));
  const PolicyGeneration generation(policyOf(static_cast<std::size_t>(state.range(0)), patterns, areForAll));
  const MailFilterOptions options;
  const Decider decider(generation, options);
  std::size_t number = 0;
  for (auto _ : state) {
    number = (number + 7919) % patterns;
    const std::string sender = "user" + std::to_string(number) + "@" + domainOf(number / 8);
    benchmark::DoNotOptimize(decider.decide({sender, std::nullopt, "ann@d1.test"}));
  }
}

void decideForOne(benchmark::State& state) {
  decide(state, false);
}
BENCHMARK(decideForOne)->Args({10, 1000})->Args({10000, 1000})->Args({10, 2000000});

void decideForAll(benchmark::State& state) {
  decide(state, true);
}
BENCHMARK(decideForAll)->Args({1, 1000})->Args({100, 1000});

void makeGeneration(benchmark::State& state) {
  const auto patterns = static_cast<std::size_t>(state.range(0));
  const MailPolicy policy = policyOf(1, patterns, true);
  for (auto _ : state) {
    const std::size_t before = mallinfo2().uordblks + mallinfo2().hblkhd;
    const PolicyGeneration generation(policy);
    state.counters["bytes_per_pattern"] =
        static_cast<double>(mallinfo2().uordblks + mallinfo2().hblkhd - before) / static_cast<double>(patterns);
  }
}
BENCHMARK(makeGeneration)->Arg(2000000)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
