// What a new user meets: first steps, help, suggestions, tables that can be read, names that can be told apart.
#include <map>
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
using zarotest::ProgramRun;
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
      {{"help", "mtach"}, "not expected: mtach; did you mean match?"},
      {{"quantum", "--help"}, "not expected: quantum"},
  };
  for (const auto& row : kRows) {
    const ProgramResult result = zaroctl(row.arguments);
    EXPECT_EQ(result.status, 64);
    EXPECT_THAT(result.err, HasSubstr(row.told));
  }
  EXPECT_THAT(zaroctl({"quantum"}).err, Not(HasSubstr("did you mean")));
}

class FirstSteps : public zarotest::SampleInstallation {
 protected:
  ProgramResult onTerminal(const std::vector<std::string>& arguments,
                           const std::map<std::string, std::string>& terminal) const {
    ProgramRun run;
    run.environment = terminal;
    run.environment["ZARO_HOME"] = home();
    return zarotest::zaroctlOnTerminal(arguments, "", run);
  }
};

TEST_P(FirstSteps, singleValuesArePrintedByTheirKey) {
  EXPECT_EQ(run({"-q", "name", "admin", "show", "postmaster"}).out, "postmaster\n");
  EXPECT_EQ(run({"admin", "show", "--query", "root", "postmaster"}).out, "no\n");
  const auto list = nlohmann::json::parse(run({"admin", "list", "--json"}).out);
  std::string ids;
  for (const auto& admin : list) {
    ids += admin.at("id").dump() + "\n";
  }
  EXPECT_EQ(run({"admin", "list", "-q", "id"}).out, ids);
  EXPECT_EQ(run({"rules", "order", "-q", "manual"}).out, "yes\n");
  EXPECT_EQ(run({"rule", "why", "-q", "recipient", "a@b.test", "<C@Example.test>"}).out, "c@example.test\n");
}

struct WrongQuery {
  std::vector<std::string> arguments;
  const char* told;
};

const WrongQuery kWrongQueries[] = {
    {{"admin", "list", "-q", "nmae"}, "admin list has no key \"nmae\"; it has id, name, root, entities"},
    {{"admin", "list", "-q", ""}, "admin list has no key \"\"; it has id, name"},
    {{"group", "export", "Board", "-q", "name"}, "group export prints nothing by key"},
    {{"group", "list", "--as", "admin", "-q", "owners"}, "the result has no key \"owners\"; it has id, name, members"},
    {{"admin", "list", "-q", "id", "--json"}, "--json"},
};

TEST_P(FirstSteps, keysThatAResultLacksAreToldWithThoseItHas) {
  for (const WrongQuery& row : kWrongQueries) {
    expectRefused(row.arguments, 64, row.told);
  }
}

TEST_P(FirstSteps, nothingIsChangedForAKeyThatNoResultHas) {
  expectRefused({"admin", "add", "helpdesk", "-q", "nmae"}, 64, "has no key");
  EXPECT_EQ(run({"admin", "id", "helpdesk"}).status, 1);
}

TEST_P(FirstSteps, changeWhoseResultLacksTheKeyIsToldAsMade) {
  const ProgramResult result = run({"rules", "set-order", "--off", "-q", "position"});
  EXPECT_EQ(result.status, 65);
  EXPECT_THAT(result.err, StartsWith("zaroctl: the change is made, but its result cannot be printed: "));
  EXPECT_EQ(run({"rules", "order"}).status, 1);
}

TEST_P(FirstSteps, headingsAreBoldOnTerminalsThatShowIt) {
  EXPECT_THAT(onTerminal({"admin", "list"}, {{"TERM", "xterm"}}).out, StartsWith("\x1b[1mID"));
  EXPECT_THAT(onTerminal({"admin", "list"}, {{"TERM", "xterm"}, {"NO_COLOR", ""}}).out, StartsWith("\x1b[1mID"));
  EXPECT_THAT(onTerminal({"admin", "list"}, {{"TERM", "xterm"}, {"NO_COLOR", "1"}}).out, StartsWith("ID"));
  EXPECT_THAT(onTerminal({"admin", "list"}, {{"TERM", "dumb"}}).out, StartsWith("ID"));
  EXPECT_THAT(onTerminal({"admin", "list"}, {}).out, StartsWith("ID"));
  EXPECT_THAT(run({"admin", "list"}).out, Not(HasSubstr("\x1b")));
  EXPECT_THAT(onTerminal({"admin", "list", "--json"}, {{"TERM", "xterm"}}).out, Not(HasSubstr("\x1b")));
}

TEST_P(FirstSteps, contentsAreCutToTheTerminalAndNowhereElse) {
  const std::string content(300, 'x');
  ASSERT_EQ(run({"object", "modify", "--as", "admin", "2", "--content", content}).status, 0);
  const std::vector<std::string> list = {"quarantine", "list", "--as", "admin"};
  for (const std::string& line : linesOf(onTerminal(list, {{"COLUMNS", "80"}}).out)) {
    EXPECT_LE(line.size(), 80u + 2u) << line;  // the ellipsis takes three bytes
  }
  EXPECT_THAT(onTerminal(list, {{"COLUMNS", "80"}}).out, HasSubstr("xx\u2026"));
  EXPECT_THAT(onTerminal({"object", "show", "--as", "admin", "2"}, {{"COLUMNS", "80"}}).out, HasSubstr(content));
  EXPECT_THAT(run(list).out, HasSubstr(content));
  EXPECT_THAT(run({"--json", "quarantine", "list", "--as", "admin"}).out, HasSubstr(content));
}

TEST_P(FirstSteps, administratorIsShownWithItsGroups) {
  const auto shown = nlohmann::json::parse(run({"admin", "show", "sales-admin", "--json"}).out);
  EXPECT_EQ(shown.at("name"), "sales-admin");
  EXPECT_EQ(shown.at("root"), false);
  std::vector<std::string> names;
  for (const auto& entity : shown.at("entities")) {
    names.push_back(entity.at("name"));
  }
  EXPECT_THAT(names, testing::UnorderedElementsAre("*@sales.example.test", "*@*.sales.example.test",
                                                   "cn=sales,ou=groups,dc=example,dc=test"));
  EXPECT_THAT(run({"admin", "show", "sales-admin"}).out, HasSubstr("*@sales.example.test, *@"));
  expectRefused({"admin", "show", "nobody"}, 1, "no administrator named \"nobody\"");
}

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
  for (const std::vector<std::string>& command : {std::vector<std::string>{"admin", "list"}, {"check"}, {"password"}}) {
    const ProgramResult result = run(command);
    EXPECT_EQ(result.status, 78) << command[0];
    EXPECT_THAT(result.out + result.err, HasSubstr(" is neither a section, a key with a value nor a comment"));
  }
}

ZARO_ON_EVERY_DATABASE(FirstSteps);

}  // namespace
