// Lint in a process whose memory runs out.
#include "patterns/PatternLint.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <string>
#include <vector>

#include "support/NothrowAllocationFailure.h"
#include "support/TemporaryDirectory.h"

namespace {

constexpr KxEmailBelongsTo kPassing = 1 | 8;

std::vector<std::string> rulesOf(const std::vector<TreeSource>& sources) {
  PatternLint lint(kPassing);
  Progress progress;
  for (const TreeSource& source : sources) {
    lint.load(source, progress);
  }
  std::vector<std::string> rules;
  for (const LintFinding& finding : lint.findings()) {
    rules.push_back(std::to_string(finding.line) + " " + finding.rule);
  }
  return rules;
}

TEST(PatternLint, outOfMemoryIsAFailureAndNeverAnotherAnswer) {
  setenv("ZARO_LOG_LEVEL", "0", 1);  // the library tells of every failure
  const zarotest::TemporaryDirectory directory;
  const std::string first = directory.write("first", "u@a.test\n*@a.test\nu@a.test\t2\nuser@*x.test\nu@a.test\n");
  const std::string second = directory.write("second", "u@a.test\nv@b.*.test\n*\nu@c.test\t64\nv@*.test\nbare\n");
  const std::vector<TreeSource> sources = parseTreeSources({first, second + ":2"});
  const std::vector<std::string> want = rulesOf(sources);
  ASSERT_GT(want.size(), 6u);

  int allocation = 1;
  int failures = 0;  // the others are made up for by a second attempt
  for (bool happened = true; happened; ++allocation) {
    const NothrowAllocationFailure failure(allocation);
    try {
      EXPECT_EQ(rulesOf(sources), want) << "allocation " << allocation;
    } catch (const std::bad_alloc&) {
      ++failures;
    }
    happened = failure.happened();
  }
  EXPECT_GT(allocation, 10);
  EXPECT_GT(failures, 0);
}

}  // namespace
