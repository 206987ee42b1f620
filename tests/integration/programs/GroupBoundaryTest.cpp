// What an administrator reaches of address groups. In the sample, sales-admin edits "Sales team" and sees "Partners",
// which has another owner as well; postmaster is shown "Sales team" as editable, through a pattern that contains its
// owner, which is no right to edit; customer-admin sees none.
#include <nlohmann/json.hpp>

#include "programs/ProgramTest.h"

namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using zarotest::linesOf;
using zarotest::ProgramResult;

using Words = std::vector<std::string>;

class GroupBoundary : public zarotest::SampleInstallation {
 protected:
  ProgramResult runAs(const std::string& admin, const Words& words) const {
    Words command = {"group"};
    command.insert(command.end(), words.begin(), words.end());
    command.insert(command.end(), {"--as", admin});
    return run(command, "new@b.test\n");
  }
  // Everything that could change.
  std::string stored() const {
    std::string text;
    for (const auto& row : session()->rows("SELECT id, name, position, address FROM named_object LEFT JOIN "
                                           "address_group_member ON group_id = id WHERE type = 5 ORDER BY id, position")) {
      for (const auto& value : row) {
        text += value.value_or("NULL") + " ";
      }
      text += "\n";
    }
    return text;
  }
};

// Commands on a group, which belongs behind the first word.
const std::vector<Words> kReading = {{"show"}, {"export"}};
const std::vector<Words> kWriting = {{"modify", "--name", "Mine"},
                                     {"modify", "--add", "new@b.test"},
                                     {"modify", "--remove", "head@sales.example.test"},
                                     {"modify"},
                                     {"import", "-"},
                                     {"import", "--append", "-"},
                                     {"remove"}};

Words withGroup(const Words& words, const Words& group) {
  Words command = words;
  command.insert(command.begin() + 1, group.begin(), group.end());
  return command;
}

TEST_P(GroupBoundary, listHasWhatTheAdministratorSees) {
  EXPECT_THAT(linesOf(runAs("sales-admin", {"list"}).out), ElementsAre("7\tPartners\t3\tno", "6\tSales team\t3\tyes"));
  EXPECT_THAT(linesOf(runAs("postmaster", {"list"}).out),
              ElementsAre("5\tBoard\t3\tyes", "8\tBuild robots\t2\tno", "7\tPartners\t3\tno", "6\tSales team\t3\tno"));
  EXPECT_THAT(linesOf(runAs("admin", {"list"}).out), testing::SizeIs(4));
  EXPECT_THAT(runAs("customer-admin", {"list"}).out, IsEmpty());
  EXPECT_EQ(runAs("nobody", {"list"}).status, 1);
  EXPECT_EQ(runAs("", {"list"}).status, 1);
  const auto document = nlohmann::json::parse(runAs("sales-admin", {"list", "--json"}).out);
  EXPECT_EQ(document[0], (nlohmann::json{{"id", 7}, {"name", "Partners"}, {"members", 3}, {"modifiable", false}}));
}

TEST_P(GroupBoundary, visibleGroupsAreRead) {
  for (const Words& words : kReading) {
    for (const Words& group : {Words{"Partners"}, Words{"--id", "7"}}) {
      EXPECT_EQ(linesOf(runAs("sales-admin", withGroup(words, group)).out).size(), 3u) << words[0];
    }
  }
}

TEST_P(GroupBoundary, whatTheAdministratorDoesNotSeeIsNotThere) {
  struct Case {
    Words group;
    std::string told;
  };
  // One that is there, and one that is not.
  const Case cases[] = {{{"Board"}, "named \"Board\""},
                        {{"No such"}, "named \"No such\""},
                        {{"--id", "5"}, "5"},
                        {{"--id", "4000"}, "4000"}};
  const std::string before = stored();
  for (const auto& commands : {kReading, kWriting}) {
    for (const Words& words : commands) {
      for (const Case& tried : cases) {
        const ProgramResult result = runAs("sales-admin", withGroup(words, tried.group));
        EXPECT_EQ(result.status, 1) << words[0];
        EXPECT_EQ(result.err, "zaroctl: \"sales-admin\" sees no address group " + tried.told + "\n");
      }
    }
  }
  EXPECT_EQ(stored(), before);
}

TEST_P(GroupBoundary, onlyDirectOwnersWrite) {
  struct Case {
    const char* admin;
    const char* group;
  };
  const std::string before = stored();
  for (const Case& tried : {Case{"sales-admin", "Partners"}, Case{"postmaster", "Sales team"}}) {
    for (const Words& words : kWriting) {
      const ProgramResult result = runAs(tried.admin, withGroup(words, {tried.group}));
      EXPECT_EQ(result.status, 77) << words[0];
      EXPECT_THAT(linesOf(result.err), testing::SizeIs(1)) << result.err;
      EXPECT_THAT(result.err, AllOf(HasSubstr(std::string("\"") + tried.admin + "\" may not edit"),
                                    Not(HasSubstr("Hold confidential")), Not(HasSubstr("*@"))));
    }
  }
  EXPECT_EQ(stored(), before);
}

TEST_P(GroupBoundary, ownersWrite) {
  const std::vector<Words> commands = {{"modify", "Sales team", "--remove", "head@sales.example.test"},
                                       {"import", "--append", "Sales team", "-"},
                                       {"import", "Sales team", "-"},
                                       {"modify", "Sales team", "--name", "Mine"},
                                       {"remove", "Mine"}};
  for (const Words& command : commands) {
    EXPECT_EQ(runAs("sales-admin", command).status, 0) << command[0];
  }
  EXPECT_EQ(run({"group", "show", "--id", "6"}).status, 1);
  EXPECT_EQ(runAs("admin", {"modify", "Board", "--add", "new@b.test"}).status, 0);
}

TEST_P(GroupBoundary, sameNameElsewhereIsNotInTheWay) {
  ASSERT_EQ(runAs("customer-admin", {"add", "Sales team", "x@example.org"}).status, 0);
  EXPECT_EQ(run({"group", "show", "Sales team"}).status, 64);
  EXPECT_THAT(linesOf(runAs("customer-admin", {"show", "Sales team"}).out), ElementsAre("x@example.org"));
  EXPECT_EQ(linesOf(runAs("sales-admin", {"show", "Sales team"}).out).size(), 3u);
  EXPECT_EQ(runAs("customer-admin", {"remove", "Sales team"}).status, 0);
  EXPECT_EQ(linesOf(run({"group", "show", "Sales team"}).out).size(), 3u);
}

ZARO_ON_EVERY_DATABASE(GroupBoundary);

}  // namespace
