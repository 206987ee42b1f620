// What somebody meets who does not know the program yet: first steps, help, suggestions, names that can be told apart.
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "programs/ProgramTest.h"

namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
using zarotest::linesOf;
using zarotest::ProgramResult;
using zarotest::zaroctl;

TEST(FirstImpressions, nothingAtAllTellsWhatToTypeFirst) {
  const ProgramResult result = zaroctl({});
  EXPECT_EQ(result.status, 64);
  EXPECT_THAT(result.out, AllOf(HasSubstr("zaroctl init --sample DIR"), HasSubstr("zaroctl help COMMAND")));
  EXPECT_EQ(linesOf(result.err).size(), 1u);
}

TEST(FirstImpressions, helpIsACommandToo) {
  EXPECT_EQ(zaroctl({"help"}).out, zaroctl({"--help"}).out);
  EXPECT_EQ(zaroctl({"help", "match"}).out, zaroctl({"match", "--help"}).out);
  EXPECT_EQ(zaroctl({"help", "admin", "id"}).out, zaroctl({"admin", "id", "--help"}).out);
  EXPECT_EQ(zaroctl({"help", "match"}).status, 0);
}

TEST(FirstImpressions, mistypedWordsAreToldWithTheLikeliestOnes) {
  const struct {
    std::vector<std::string> arguments;
    const char* told;
  } kRows[] = {
      {{"mtach"}, "not expected: mtach; did you mean match? (see zaroctl --help)"},
      {{"admin", "lst"}, "not expected: lst; did you mean list? (see zaroctl admin --help)"},
      {{"settings", "sever"}, "did you mean server?"},
      {{"match", "--tre", "x", "a@b.test"}, "did you mean --tree?"},
      {{"check", "--jsn"}, "did you mean --json?"},
  };
  for (const auto& row : kRows) {
    const ProgramResult result = zaroctl(row.arguments);
    EXPECT_EQ(result.status, 64);
    EXPECT_THAT(result.err, HasSubstr(row.told));
  }
  EXPECT_THAT(zaroctl({"quantum"}).err, Not(HasSubstr("did you mean")));
}

class FirstSteps : public zarotest::SampleInstallation {};

TEST_P(FirstSteps, groupsAreListedWithTheirOwners) {
  const auto groups = nlohmann::json::parse(run({"group", "list", "--json"}).out);
  ASSERT_FALSE(groups.empty());
  for (const auto& group : groups) {
    EXPECT_FALSE(group.at("owners").empty()) << group;
  }
  EXPECT_THAT(run({"group", "list", "--as", "sales-admin", "--json"}).out, Not(HasSubstr("owners")));
}

TEST_P(FirstSteps, treesAreNamedByIdentifierAndWithCommas) {
  const std::string id = value("SELECT id FROM named_object WHERE name = 'Board'");
  const auto decided = linesOf(run({"match", "--tree", "group-id:" + id + ":2", "chair@example.test"}).out);
  ASSERT_EQ(decided.size(), 1u);
  EXPECT_THAT(decided[0], StartsWith("chair@example.test\t2\t"));
  EXPECT_EQ(run({"match", "--tree", "group-id:x", "a@b.test"}).status, 64);
  const std::string file = directory().write("a,b", "a@b.test\n");
  const std::string escaped = std::string(file).replace(file.rfind(','), 1, "\\,");
  EXPECT_EQ(run({"match", "--tree", escaped + ",/dev/null", "a@b.test"}).status, 0);
}

TEST_P(FirstSteps, ambiguousNamesAreToldWithTheirIdentifiers) {
  session()->run(
      "INSERT INTO named_object (id, name, type, content) SELECT 4000, name, type, content FROM named_object "
      "WHERE name = 'Board'");
  const std::string id = value("SELECT min(id) FROM named_object WHERE name = 'Board'");
  const ProgramResult result = run({"group", "show", "Board"});
  EXPECT_EQ(result.status, 64);
  EXPECT_THAT(result.err, AllOf(HasSubstr(id), HasSubstr("4000"), HasSubstr("name one by its identifier")));
}

TEST_P(FirstSteps, lineOfDatabaseIniWithoutMeaningIsFatal) {
  replaceLine("config/database.ini", "Password", "Password");
  for (const std::vector<std::string>& command : {std::vector<std::string>{"admin", "list"}, {"check"}}) {
    const ProgramResult result = run(command);
    EXPECT_EQ(result.status, 78) << command[0];
    EXPECT_THAT(result.out + result.err, HasSubstr(" is neither a section, a key with a value nor a comment"));
  }
}

ZARO_ON_EVERY_DATABASE(FirstSteps);

}  // namespace
